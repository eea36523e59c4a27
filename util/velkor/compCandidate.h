// The background-compression candidate check: the file's attributes, type,
// deleted state and last access against two start-up configuration settings.
#pragma once

namespace velkor {

class CompStats;

// The file system's start-up configuration file; a plain global so tests can
// point it elsewhere.
extern const char* kvfStartConfigPath;

// The value of a setting of the start-up configuration file, or 4294967295
// when it has no line for it. A file that cannot be read or a line longer
// than 255 characters is a KVFError.
unsigned int getSetParameterValue(const char* name);

// True when the object would be compressed by the background pass now.
bool checkCompCandidate(char* volumeName, char* zid);

// The background operation: looks the file up and shows whether it is a
// candidate. Throws KVFError.
void reportCompCandidate(char* path, CompStats* stats);

}  // namespace velkor
