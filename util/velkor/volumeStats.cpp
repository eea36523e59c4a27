#include <cctype>
#include <cstring>

#include "velkor/beastQueries.h"
#include "common_cpp/kvfError.h"
#include "common/lbString.h"
#include "velkor/requests.h"
#include "velkor/runLog.h"
#include "velkor/volumeStats.h"

namespace velkor {

namespace {

const char kQuestion[] = "maintenance state. Do you want to continue (y/n)?";
const char* const kLabels[5] = {
    "Compressed Files:         ", "Compressed Deleted Files: ", "Uncompressible Files:     ",
    "Precompressed Bytes:      ", "Compressed Bytes:         ",
};

}  // namespace

void fixVolumeStatistics(char* volumeName, CompStats* stats) {
  OperationView* view = stats->view;
  ReplyBuf reply;
  OpenCmdFile channel(managecmd);
  VolumeStatistics before = getVolumeStatistics(&reply, volumeName, nullptr);

  if (strcmp(before.state, "maintenance") != 0) {
    view->drawAt(10, 2, kAttrWarning, "Compression statistics won't be calculated correctly because volume is not in ");
    view->drawAt(11, 2, kAttrWarning, "%s", kQuestion);
    int answer = view->readKey();
    if (answer != EOF) view->drawAt(11, static_cast<int>(strlen(kQuestion)) + 4, kAttrWarning, "%c", answer);
    if (answer == EOF || tolower(answer) != 'y') return;
    view->clearRow(10);
    view->clearRow(11);
  }

  const int labelWidth = static_cast<int>(strlen(kLabels[0]));
  view->drawAt(8, 2, kAttrText, "Compression Statistics:");
  view->drawAt(10, 2, kAttrText, "                                             Old                        New");
  for (int row = 0; row < 5; ++row) {
    view->drawAt(12 + row, 4, kAttrText, "%s", kLabels[row]);
    view->drawAt(12 + row, labelWidth + 4, kAttrPlain, row == 4 ? "%20llu " : "%20llu",
           static_cast<unsigned long long>(before.figure[row]));
  }

  RequestText request(kFixCompStatsRequestSize);
  fixCompStatsRequest(request, volumeName);
  reply.clear();
  LogRequireWritable();  // no change once the run's record is lost
  try {
    channel.file.readWrite(request.text(), "fixCompStats", &reply);
  } catch (const KVFError& e) {
    if (e.code != zERR_COMPRESSION_NOT_ENABLED) throw KVFError(e);
    LogMessage("Volume doesn't have compression feature turned on");
    view->showCompressionOff();
    return;
  }

  VolumeStatistics after = getVolumeStatistics(&reply, volumeName, &before.blockSize);
  for (int row = 0; row < 5; ++row) {
    view->drawAt(12 + row, labelWidth + 30, kAttrFigure, row == 4 ? "%20llu " : "%20llu",
           static_cast<unsigned long long>(after.figure[row]));
  }
}

}  // namespace velkor
