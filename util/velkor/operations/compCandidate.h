// The background-compression candidate check: the file's attributes, type,
// deleted state and last access against two start-up configuration settings.
#pragma once

#include <string>

#include "common_cpp/kvfError.h"

namespace velkor {

class CompStats;

// The file system's start-up configuration file; a plain global so tests can
// point it elsewhere.
extern const char* kvfStartConfigPath;

// An error of the start-up configuration file. The run log and velkor's
// screen show it as any other error; `problem` says what is wrong with the
// file in an operator's words ("a line longer than 255 characters").
class ConfigFileError : public KVFError {
 public:
  ConfigFileError(const KVFError& error, std::string problem);
  ConfigFileError(const ConfigFileError&) = default;
  ~ConfigFileError() override;
  // "the configuration file /etc/opt/quorlen/kvf/kvfstart.cfg: PROBLEM"
  std::string operatorWords() const;

  std::string problem;
};

// The value of a setting of the start-up configuration file, or 4294967295
// when it has no line for it. A file that cannot be read or a line longer
// than 255 characters is a ConfigFileError.
unsigned int getSetParameterValue(const char* name);

// True when the object would be compressed by the background pass now. A
// setting the rule needs and the file lacks is a ConfigFileError.
bool checkCompCandidate(char* volumeName, char* zid);

// What a candidate is, in the words the front ends show.
extern const char kCandidateWords[];

// The background operation: looks the file up and tells the view whether it
// is a candidate. Throws KVFError.
void reportCompCandidate(char* path, CompStats* stats);

}  // namespace velkor
