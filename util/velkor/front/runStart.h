// The steps of a run's start that velkor and velkor-batch share, each
// called by both drivers in their own order: the command line's errors and
// help, the object path and its check, the administrator's rights, the
// volume's lock.
#pragma once

#include <string>

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

// The object path of an operation (a heap copy the caller frees, or null after
// printing why): a volume name or absolute file path as given, a relative file
// path joined to the working directory with no normalisation.
char* formObjectPath(unsigned int operation, const char* argument);
// False (after printing why) when the object path cannot be sent to the file
// system as it is: it holds "]]>", which would end its CDATA section early.
bool nameFitsRequests(unsigned int operation, const char* objectPath);

// For a volume operation, takes the volume's lock for the rest of the run;
// false after printing why another run holds it. A file's volume is known
// only from its lookup: the file operations take their volume's lock after
// it, before any change (lookUpFile).
bool lockVolumeOperation(unsigned int operation, const char* objectPath);
