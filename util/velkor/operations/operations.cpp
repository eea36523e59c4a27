#include "velkor/operations.h"

#include "velkor/ccAttribute.h"
#include "velkor/compCandidate.h"
#include "velkor/compStats.h"
#include "velkor/fileCheck.h"
#include "velkor/logElements.h"
#include "velkor/singleFile.h"
#include "velkor/velkorTypes.h"
#include "velkor/volumeScan.h"
#include "velkor/volumeStats.h"

namespace velkor {

void runOperation(unsigned int operation, char* path, unsigned long noHeader, CompStats* stats) {
  OpArgs_s args = {noHeader, 0, 0};
  switch (operation) {
    case opClearAll: scanVolume(path, checkCCBit, nullptr, stats); break;
    case opDeleteAll: args.delete_ = 1; scanVolume(path, checkCompressionStatus, &args, stats); break;
    case opFixAll: args.fix = 1; scanVolume(path, checkCompressionStatus, &args, stats); break;
    case opListAll: scanVolume(path, checkCompressionStatus, &args, stats); break;
    case opFixStats: fixVolumeStatistics(path, stats); break;
    case opClear: checkOneFile(path, checkCCBit, nullptr, stats); break;
    case opDelete: args.delete_ = 1; checkOneFile(path, checkCompressionStatus, &args, stats); break;
    case opFix: args.fix = 1; checkOneFile(path, checkCompressionStatus, &args, stats); break;
    case opList: checkOneFile(path, checkCompressionStatus, &args, stats); break;
    case opBackground: reportCompCandidate(path, stats); break;
    default: break;
  }
}

Finished finishedAs(bool error, const CompStats& stats) {
  if (error) return Finished::kWithError;
  if (stats.corrupted != 0 || stats.fixable != 0) return Finished::kWithProblemFiles;
  return Finished::kSuccessfully;
}

const char* finishedStatusText(Finished how) {
  switch (how) {
    case Finished::kWithError: return kFinishedWithError;
    case Finished::kWithProblemFiles: return kFinishedWithProblemFiles;
    case Finished::kSuccessfully: break;
  }
  return kFinishedSuccessfully;
}

}  // namespace velkor
