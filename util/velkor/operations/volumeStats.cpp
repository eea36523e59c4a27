#include <cstring>

#include "velkor/beastQueries.h"
#include "velkor/compStats.h"
#include "common_cpp/kvfError.h"
#include "common/lbString.h"
#include "velkor/requests.h"
#include "velkor/runLog.h"
#include "velkor/volumeStats.h"

namespace velkor {

const char* const kStatisticLabels[5] = {
    "Compressed Files:         ", "Compressed Deleted Files: ", "Uncompressible Files:     ",
    "Precompressed Bytes:      ", "Compressed Bytes:         ",
};

void fixVolumeStatistics(char* volumeName, CompStats* stats) {
  OperationView* view = stats->view;
  ReplyBuf reply;
  OpenCmdFile channel(managecmd);
  VolumeStatistics before = getVolumeStatistics(&reply, volumeName, nullptr);

  if (strcmp(before.state, "maintenance") != 0 && !view->confirm(Question::kRecountOutsideMaintenance)) return;
  view->statistics(before, nullptr);

  RequestText request(kFixCompStatsRequestSize);
  fixCompStatsRequest(request, volumeName);
  reply.clear();
  LogRequireWritable();  // no change once the run's record is lost
  try {
    channel.file.readWrite(request.text(), "fixCompStats", &reply);
  } catch (const KVFError& e) {
    if (e.code != zERR_COMPRESSION_NOT_ENABLED) throw KVFError(e);
    LogMessage("Volume doesn't have compression feature turned on");
    view->compressionOff();
    return;
  }

  VolumeStatistics after = getVolumeStatistics(&reply, volumeName, &before.blockSize);
  view->statistics(before, &after);
}

}  // namespace velkor
