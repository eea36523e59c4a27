#include "velkor/compStats.h"

#include <cstring>
#include <string>

#include "velkor/runLog.h"

namespace velkor {

const char* const CompStats::statsMsgs[8] = {
    "Processed Files:    ", "CC Bit Cleared:     ", "Good Files:         ", "Open Files Skipped: ",
    "Fixable Files:      ", "Corrupted Files:    ", "Fixed Files:        ", "Deleted Files:      ",
};

namespace {

OperationView silentView;

}  // namespace

// fixable, fixed and deleted are left to the object's maker to clear.
CompStats::CompStats(OperationView* view)
    : view(view ? view : &silentView), processed(0), ccBitCleared(0), corrupted(0), good(0), openSkipped(0), problemFlags(ProblemCode::good),
      fileNameWhole(false) {
  memset(volumeInfo.volumeState, 0, sizeof volumeInfo.volumeState);
  strcpy(volumeInfo.volumeState, "unknown state");
  volumeInfo.compressionEnabled = 0;
}

CompStats::~CompStats() = default;

void CompStats::msgReady(UncompBeastInfo* file, CompBeastInfo* compData, unsigned long flags, unsigned long fixedArg,
                         unsigned long deletedArg) {
  view->countersChanged();
  const FileResult result = {file,      compData,       fileName.get(), problemFlags, flags != 0,
                             fixedArg != 0, deletedArg != 0, scanning};
  if (logsEntry(problemFlags))
    LogFileEntry(*file, compData, result.name, result.problems, result.noHeader, result.fixed, result.deleted,
                 result.volumeLevel, actionRefused);
  view->fileChecked(result);
}

bool CompStats::logsEntry(unsigned long problems) const { return !scanning || problems != ProblemCode::good; }

bool CompStats::needsName() const { return logsEntry(problemFlags) || view->showsEveryName(); }

void CompStats::resetForNextObject() {
  problemFlags = ProblemCode::good;
  fileName.reset();
  fileNameWhole = false;
  actionRefused.clear();
  changeSent = false;
}

}  // namespace velkor
