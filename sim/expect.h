// What the program should report for a volume: its problem detection and
// repair rules restated over the model, and the counts of each kind of run.
#pragma once

#include <cstdint>
#include <string>

#include "model.h"

namespace kvfsim {

enum Problem : uint32_t {
  kGood = 1, kSkippedChecking = 2, kInvalidAttribute = 4, kInvalidState = 8, kMismatchedDeletedFlag = 16,
  kInvalidZid = 32, kCompBeastNotFound = 64, kCompBeastEOFZero = 128, kBadCompHeader = 256,
  kMismatchedZid = 512, kNoPhysicalData = 1024,
};
constexpr uint32_t kCorruptedMask = 0x7E0, kFixableMask = 0x1C;

// The compressed-data beast the program is shown for a file, or null.
const CompBeast* compBeastOf(Volume& v, const Beast& b);
// The problem word the program finds for a beast (starting from good).
uint32_t detectProblems(const Beast& b, const CompBeast* comp, bool skipHeader);
// Applies what the program's repair sends; returns whether it reports the file fixed.
bool repair(Beast& b, CompBeast* comp, uint32_t problems);

struct RunCounts {
  uint64_t processed = 0, good = 0, openSkipped = 0, fixable = 0, corrupted = 0, fixed = 0, deleted = 0;
  uint64_t ccBitCleared = 0;
};

struct Expectations {
  std::string volume;
  uint64_t subdirectories = 0;  // counted good: detection leaves their word as it was
  RunCounts list, listNoHeader, fix, remove, clear, afterFix, afterDelete;
  VolumeStats stats, statsRecount;
  std::string json() const;
};

Expectations expect(Volume& v);

}  // namespace kvfsim
