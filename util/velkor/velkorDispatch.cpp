// The dispatch of the run's one operation, and the single-file operation.
#include "velkor/beastQueries.h"
#include "common_cpp/kvfError.h"
#include "velkor/runLog.h"
#include "velkor/velkorHelper.h"
#include "velkor/velkorUI.h"

namespace velkor {

void VELKOR_UserInterface::opDispatcher(int op, char* path, unsigned long noHeader) {
  operation = static_cast<unsigned int>(op);
  // The status line's Escape hint depends on the operation.
  setStatus(1);
  OpArgs_s args = {noHeader, 0, 0};
  try {
    switch (static_cast<unsigned int>(op)) {
      case opClearAll: volumeOp(path, checkCCBit, nullptr); break;
      case opDeleteAll: args.delete_ = 1; volumeOp(path, checkCompressionStatus, &args); break;
      case opFixAll: args.fix = 1; volumeOp(path, checkCompressionStatus, &args); break;
      case opListAll: volumeOp(path, checkCompressionStatus, &args); break;
      case opFixStats: doVolumeStats(path); break;
      case opClear: fileOp(path, checkCCBit, nullptr); break;
      case opDelete: args.delete_ = 1; fileOp(path, checkCompressionStatus, &args); break;
      case opFix: args.fix = 1; fileOp(path, checkCompressionStatus, &args); break;
      case opList: fileOp(path, checkCompressionStatus, &args); break;
      case opBackground: doFileCompCandidate(path); break;
      default: break;
    }
  } catch (const KVFError& e) {
    LogError(e);
    error = true;
  }
}

bool VELKOR_UserInterface::lookUpFile(char* path, char (&volumeName)[64], char (&zid)[104]) {
  getFileZidByPath(path, volumeName, zid, sizeof volumeName, sizeof zid);
  getVolumeInfo(volumeName, &stats->volumeInfo);
  if (stats->volumeInfo.compressionEnabled == 0) {
    displayCompNotSupported();
    return false;
  }
  return true;
}

void VELKOR_UserInterface::fileOp(char* path, ObjectRoutine routine, OpArgs_s* args) {
  char volumeName[64];
  char objectText[104];
  if (!lookUpFile(path, volumeName, objectText)) return;
  drawAt(6, 2, 2, "Summary:\n");
  displayStats(1);
  routine(volumeName, objectText, args, stats);
}

}  // namespace velkor
