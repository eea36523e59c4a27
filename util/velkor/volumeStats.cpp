// The fix-statistics operation: the volume's compression statistics before
// and after the file system recounts them.
#include <cctype>
#include <cstring>

#include "velkor/beastQueries.h"
#include "common_cpp/kvfError.h"
#include "common/lbString.h"
#include "velkor/requests.h"
#include "velkor/runLog.h"
#include "velkor/velkorUI.h"

namespace velkor {

namespace {

const char kQuestion[] = "maintenance state. Do you want to continue (y/n)?";
const char* const kLabels[5] = {
    "Compressed Files:         ", "Compressed Deleted Files: ", "Uncompressible Files:     ",
    "Precompressed Bytes:      ", "Compressed Bytes:         ",
};

}  // namespace

void VELKOR_UserInterface::doVolumeStats(char* volumeName) {
  ReplyBuf reply;
  OpenCmdFile channel(managecmd);
  VolumeStatistics before = getVolumeStatistics(&reply, volumeName, nullptr);

  if (strcmp(before.state, "maintenance") != 0) {
    drawAt(10, 2, 12, "Compression statistics won't be calculated correctly because volume is not in ");
    drawAt(11, 2, 12, "%s", kQuestion);
    int answer = readKeyFromStdin();
    if (answer != EOF) drawAt(11, static_cast<int>(strlen(kQuestion)) + 4, 12, "%c", answer);
    if (answer == EOF || tolower(answer) != 'y') return;
    clearRow(10);
    clearRow(11);
  }

  const int labelWidth = static_cast<int>(strlen(kLabels[0]));
  drawAt(8, 2, 2, "Compression Statistics:");
  drawAt(10, 2, 2, "                                             Old                        New");
  for (int row = 0; row < 5; ++row) {
    drawAt(12 + row, 4, 2, "%s", kLabels[row]);
    drawAt(12 + row, labelWidth + 4, 7, row == 4 ? "%20Lu " : "%20Lu",
           static_cast<unsigned long long>(before.figure[row]));
  }

  RequestText request(kFixCompStatsRequestSize);
  fixCompStatsRequest(request, volumeName);
  reply.clear();
  try {
    channel.file.readWrite(request.text(), "fixCompStats", &reply);
  } catch (const KVFError& e) {
    if (e.code != zERR_COMPRESSION_NOT_ENABLED) throw KVFError(e);
    LogMessage("Volume doesn't have compression feature turned on");
    displayCompNotSupported();
    return;
  }

  VolumeStatistics after = getVolumeStatistics(&reply, volumeName, &before.blockSize);
  for (int row = 0; row < 5; ++row) {
    drawAt(12 + row, labelWidth + 30, 6, row == 4 ? "%20Lu " : "%20Lu",
           static_cast<unsigned long long>(after.figure[row]));
  }
}

}  // namespace velkor
