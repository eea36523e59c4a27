// The runs of one velkor-batch pass joined: a pass run in several windows,
// or stopped and resumed, is one pass over its volume. The run that ends the
// pass takes the pass's counts, each file counted once by its zid (a run
// killed before its last save visits some objects again), and the pass's
// start; the runs before it decide nothing on their own (Run::decidesVolume).
#pragma once

#include <map>
#include <set>
#include <string>

#include "runModel.h"

namespace velkorreport {

class PassJoiner {
 public:
  void entry(const Run& run, const Entry& entry);
  // Reads the run's progress message; a run that ends its pass takes the
  // pass's counts.
  void runEnd(Run& run);

 private:
  struct File {
    bool problem = false, remains = false, corrupted = false;
    std::vector<std::string> problems;
  };
  struct Pass {
    LoggedTime start;
    unsigned runs = 0;
    uint64_t fixed = 0, deleted = 0;
    std::set<std::string> skipped;  // by name
    std::map<std::string, File> files;  // by zid: the last entry of each
  };
  std::map<std::string, Pass> passes_;  // open passes, by name
};

}  // namespace velkorreport
