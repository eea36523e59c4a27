#include "velkor/compStats.h"

#include <cstdlib>
#include <cstring>

#include "velkor/velkorUI.h"

namespace velkor {

const char* const CompStats::statsMsgs[8] = {
    "Processed Files:    ", "CC Bit Cleared:     ", "Good Files:         ", "Open Files Skipped: ",
    "Fixable Files:      ", "Corrupted Files:    ", "Fixed Files:        ", "Deleted Files:      ",
};

// fixable, fixed and deleted are left to the object's maker to clear.
CompStats::CompStats(VELKOR_UserInterface* ui)
    : ui(ui), processed(0), ccBitCleared(0), corrupted(0), good(0), openSkipped(0), problemFlags(ProblemCode::good),
      fileName(nullptr) {
  memset(volumeInfo.volumeState, 0, sizeof volumeInfo.volumeState);
  strcpy(volumeInfo.volumeState, "unknown state");
  volumeInfo.compressionEnabled = 0;
  volumeInfo.mountPoint = nullptr;
}

CompStats::~CompStats() {
  free(fileName);
  free(volumeInfo.mountPoint);
}

void CompStats::msgReady(UncompBeastInfo* file, CompBeastInfo* compData, unsigned long flags, unsigned long fixedArg,
                         unsigned long deletedArg) {
  if (!ui) return;  // counting without a screen (component tests)
  ui->displayStats(0);
  ui->displayFileInfo(file, compData, fileName, problemFlags, flags, fixedArg, deletedArg);
}

void CompStats::resetForNextObject() {
  problemFlags = ProblemCode::good;
  free(fileName);
  fileName = nullptr;
}

uint64_t CompStats::counter(int index) const {
  const uint64_t values[8] = {processed, ccBitCleared, good, openSkipped, fixable, corrupted, fixed, deleted};
  return index >= 0 && index < 8 ? values[index] : 0;
}

}  // namespace velkor
