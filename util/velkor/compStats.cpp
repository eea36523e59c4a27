#include "velkor/compStats.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace velkor {

const char* const CompStats::statsMsgs[8] = {
    "Processed Files:    ", "CC Bit Cleared:     ", "Good Files:         ", "Open Files Skipped: ",
    "Fixable Files:      ", "Corrupted Files:    ", "Fixed Files:        ", "Deleted Files:      ",
};

namespace {

OperationView silentView;

}  // namespace

void OperationView::drawAt(int row, int col, int attribute, const char* format, ...) {
  va_list args;
  va_start(args, format);
  char small[256];
  int n = vsnprintf(small, sizeof small, format, args);
  va_end(args);
  if (n < 0) return;
  if (static_cast<size_t>(n) < sizeof small) {
    drawText(row, col, attribute, small);
    return;
  }
  std::string text(static_cast<size_t>(n) + 1, '\0');
  va_start(args, format);
  vsnprintf(&text[0], text.size(), format, args);
  va_end(args);
  text.resize(static_cast<size_t>(n));
  drawText(row, col, attribute, text.c_str());
}

int OperationView::readKey() { return EOF; }

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
  view->showCounters(false);
  view->showFile(file, compData, fileName.get(), problemFlags, flags, fixedArg, deletedArg);
}

void CompStats::resetForNextObject() {
  problemFlags = ProblemCode::good;
  fileName.reset();
  fileNameWhole = false;
  actionRefused.clear();
  changeSent = false;
}

uint64_t CompStats::counter(int index) const {
  const uint64_t values[8] = {processed, ccBitCleared, good, openSkipped, fixable, corrupted, fixed, deleted};
  return index >= 0 && index < 8 ? values[index] : 0;
}

}  // namespace velkor
