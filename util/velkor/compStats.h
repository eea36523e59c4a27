// CompStats: the run's counters, the problem word and name of the file being
// checked, and the volume's information; shown by the operator interface.
#pragma once

#include <cstdint>

#include "velkor/velkorTypes.h"

namespace velkor {

class VELKOR_UserInterface;
class UncompBeastInfo;
class CompBeastInfo;

class CompStats {
 public:
  // Counter labels in display order, each 20 columns wide.
  static const char* const statsMsgs[8];

  // `ui` may be null: the counters are then kept but nothing is shown.
  explicit CompStats(VELKOR_UserInterface* ui);
  ~CompStats();
  CompStats(const CompStats&) = delete;
  CompStats& operator=(const CompStats&) = delete;

  // Shows the counters and reports the file just checked.
  void msgReady(UncompBeastInfo* file, CompBeastInfo* compData, unsigned long flags, unsigned long fixed,
                unsigned long deleted);

  // Before each object of a scan: the problem word back to good, no name.
  void resetForNextObject();

  // The counter shown under statsMsgs[index].
  uint64_t counter(int index) const;

  VELKOR_UserInterface* ui;
  uint64_t processed;
  uint64_t ccBitCleared;
  uint64_t corrupted;
  uint64_t fixable;
  uint64_t good;
  uint64_t openSkipped;
  uint64_t fixed;
  uint64_t deleted;
  unsigned long problemFlags;
  char* fileName;  // owned
  VolumeInfo_s volumeInfo;
};

}  // namespace velkor
