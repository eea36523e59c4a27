// The scan over every object of a volume: zids are fetched in batches of 20
// and the operation's per-object routine is called for each.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "velkor/beastQueries.h"
#include "common_cpp/kvfError.h"
#include "common/lbString.h"
#include "velkor/requests.h"
#include "velkor/runLog.h"
#include "velkor/volumeScan.h"

namespace {
// Error locations name the documented source of the queries and operations.
constexpr KvfSource kKvfSource = KvfSource::velkorHelper;
}  // namespace

namespace velkor {

int getSomeZids(char* volumeName, bool onlineOnly, int criteria, int numRequested, int scanSequence, char* zids) {
  ReplyBuf reply;
  OpenCmdFile channel(managecmd);
  RequestText request;
  browseRequest(request, volumeName, onlineOnly, criteria, numRequested, scanSequence);
  channel.file.readWrite(request.text(), "browseBeasts", &reply);
  return readZidBatch(&reply, zids);
}

int readZidBatch(ReplyBuf* reply, char* zids) {
  const QXML::TagRequest_s rows[] = {{"lastZidReturned", QXML::TAG_CONTENT_REQUIRED},
                                     {"numBeastsReturned", QXML::TAG_CONTENT_REQUIRED},
                                     {"beastZids", QXML::TAG_CONTENT_REQUIRED},
                                     {nullptr, 0}};
  QXML::TagContent_s contents[3];
  getTagContentFromReply(reply, "browseBeasts", rows, contents);
  // Children named "zid" (or a prefix of it) fill the slots in order.
  const QXML::XML_ElementInfo_s& list = contents[2].element;
  const char* p = list.contentStart;
  const char* end = list.contentEnd;
  QXML::XML_ElementInfo_s child;
  const char* name;
  size_t nameLength;
  int slot = 0;
  while (p <= end && QXML::XML_GetNextTag(p, end, &child, &name, &nameLength) == 0) {
    if (nameLength > 0 && nameLength <= 3 && strncmp(name, "zid", nameLength) == 0) {
      if (slot >= kZidSlots) throw KVFError("More zids returned than the batch holds", zERR_BUFFER_TOO_SMALL, KVF_HERE);
      if (child.contentLength >= kZidSlotSize) throw KVFError("Zid text too long", zERR_BUFFER_TOO_SMALL, KVF_HERE);
      char* out = zids + slot * kZidSlotSize;
      if (child.contentLength) memcpy(out, child.contentStart, child.contentLength);
      out[child.contentLength] = '\0';
      ++slot;
    }
    p = child.elementEnd + 1;
  }
  // A count beyond a 32-bit number would be narrowed into another one (a
  // 25-digit count into -1, the end of the scan).
  if (!KVF::LB_fitsDecimal(contents[1].value, INT32_MAX))
    throw KVFError("Batch count does not fit its field", zERR_BUFFER_TOO_SMALL, KVF_HERE);
  return static_cast<int>(KVF::LB_strtoq(contents[1].value, nullptr, 10));
}

void scanVolume(char* volumeName, ObjectRoutine routine, OpArgs_s* args, CompStats* stats) {
  OperationView* view = stats->view;
  std::unique_ptr<char, decltype(&free)> zids(static_cast<char*>(malloc(kZidSlots * kZidSlotSize)), free);
  if (!zids) throw KVFError("Out of memory", zERR_NO_MEMORY, "util/velkor/velkorClass[217]");

  getVolumeInfo(volumeName, &stats->volumeInfo);
  if (stats->volumeInfo.compressionEnabled == 0) {
    view->compressionOff();
    return;
  }
  stats->scanning = true;
  view->watchForAbort(true);
  view->countersStarted();

  // The position sent is the last zid of the batch, narrowed to 32 bits. A
  // file system that reads it as 32 bits, or a reply that repeats a batch,
  // answers with zids already checked: only zids above the highest one
  // checked (compared as 64-bit numbers) are visited, and a batch that brings
  // none ends the scan instead of checking the same objects forever.
  ScanPosition start;
  view->scanStart(&start);
  int position = start.position;
  bool checkedAny = start.visitedAny;
  uint64_t highestChecked = start.highest;
  // An abort asked for between objects ends the scan where it stands.
  auto stoppedByOperator = [&] {
    if (!view->abortRequested()) return false;
    view->watchForAbort(false);
    view->scanPosition(ScanPosition{position, checkedAny, highestChecked}, true);
    return true;
  };
  for (;;) {
    if (stoppedByOperator()) return;
    view->setTotal(getVolumeTotalObjects(volumeName));
    // Slots the reply leaves unwritten read as empty zids, never as old ones.
    memset(zids.get(), 0, kZidSlots * kZidSlotSize);
    int n = getSomeZids(volumeName, true, 0, kZidSlots, position, zids.get());
    if (n > 0) {
      if (stoppedByOperator()) return;
      int slots = n < kZidSlots ? n : kZidSlots;
      bool advanced = false;
      for (int i = 0; i < slots; ++i) {
        char* zid = zids.get() + i * kZidSlotSize;
        uint64_t value = KVF::LB_strtouq(zid, nullptr, 10);
        if (checkedAny && value <= highestChecked) continue;
        advanced = checkedAny = true;
        highestChecked = value;
        stats->resetForNextObject();
        routine(volumeName, zid, args, stats);
        view->objectDone();
        LogRequireWritable();  // the object's entry, if it has one, was written
        if (stoppedByOperator()) return;
      }
      if (!advanced)
        throw KVFError("Volume scan did not advance: the batch after zid " + std::to_string(highestChecked) +
                           " holds no zid above it",
                       zERR_GENERIC_KVF_ERROR, KVF_HERE);
      const char* last = zids.get() + (slots - 1) * kZidSlotSize;
      position = static_cast<int>(static_cast<uint32_t>(KVF::LB_strtouq(last, nullptr, 10)));
      if (n == kZidSlots) view->scanPosition(ScanPosition{position, checkedAny, highestChecked}, false);
    }
    if (n != kZidSlots) return;
  }
}

}  // namespace velkor
