// What the program should report for a generated volume: for each kind of
// run, the sums over the objects' kinds of what the kinds' rows say.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "kinds.h"
#include "model.h"

namespace kvfsim {

struct RunCounts {
  uint64_t processed = 0, good = 0, openSkipped = 0, fixable = 0, corrupted = 0, fixed = 0, deleted = 0;
  uint64_t ccBitCleared = 0;
  std::map<uint32_t, uint64_t> words;  // problem word -> files logged with it (every word but good)
};

struct Expectations {
  std::string volume;
  uint64_t subdirectories = 0;  // counted good: detection leaves their word as it was
  RunCounts list, listNoHeader, fix, remove, clear, afterFix, afterDelete;
  VolumeStats stats, statsRecount;

  // Adds one object of the row's kind.
  void add(const KindRow& row);
  std::string json() const;
};

}  // namespace kvfsim
