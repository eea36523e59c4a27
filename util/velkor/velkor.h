// The run driver: command line, start-up checks, run log and the order of a run.
#pragma once

#include <string>

extern const char* appName;
extern const char* appVersion;
extern const char* logPath;
extern const char* VELKOR_ShortOptions;

int velkorMain(int argc, char** argv);

namespace velkor {
struct CommandLine;
}
// Prints "PROGRAM: message" (when there is one) and the pointer to --help on
// standard error; returns `status`.
int failWithTry(const std::string& message, int status = 1);
// True when the parse ended in a usage error; `message` then says which
// (empty when the parser has printed why itself).
bool commandLineError(const velkor::CommandLine& line, std::string* message);
void VELKOR_Usage(const char* logPath);
long VELKOR_HaveRights();
void VELKOR_Cleanup(void*);
void VELKOR_AtExitCleanup();
void LetUserRead();

// The object path of an operation (a heap copy the caller frees, or null after
// printing why): a volume name or absolute file path as given, a relative file
// path joined to the working directory with no normalisation.
char* formObjectPath(unsigned int operation, const char* argument);
// False (after printing why) when the object path cannot be sent to the file
// system as it is: it holds "]]>", which would end its CDATA section early.
bool nameFitsRequests(unsigned int operation, const char* objectPath);
