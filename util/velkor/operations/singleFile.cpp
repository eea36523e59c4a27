#include "velkor/singleFile.h"

#include <cerrno>
#include <string>

#include "common_cpp/kvfError.h"

#include "velkor/beastQueries.h"
#include "velkor/compStats.h"
#include "velkor/volumeLock.h"

namespace {
// Error locations name the documented source of the operator interface.
constexpr KvfSource kKvfSource = KvfSource::velkorUI;
}  // namespace

namespace velkor {

bool lookUpFile(char* path, char (&volumeName)[64], char (&zid)[104], CompStats* stats) {
  getFileZidByPath(path, volumeName, zid, sizeof volumeName, sizeof zid);
  std::string refusal;
  if (!lockVolume(volumeName, &refusal)) throw LockRefusal(refusal, KVF_HERE, EBUSY);
  getVolumeInfo(volumeName, &stats->volumeInfo);
  if (stats->volumeInfo.compressionEnabled == 0) {
    stats->view->compressionOff();
    return false;
  }
  return true;
}

void checkOneFile(char* path, ObjectRoutine routine, OpArgs_s* args, CompStats* stats) {
  char volumeName[64];
  char objectText[104];
  if (!lookUpFile(path, volumeName, objectText, stats)) return;
  stats->view->countersStarted();
  routine(volumeName, objectText, args, stats);
}

}  // namespace velkor
