// The channel's limit for bench_scan: the exchanges of `velkor -L VOLUME` and
// nothing else, as a program of its own, so that bench_scan runs it exactly
// as it runs velkor (the same sandbox, simulator mount and pseudo-terminal).
//
//   bench_baseline VOLUME
//
// The requests are the program's (velkor/requests.h), each exchange is the
// program's file I/O (CmdFile::transfer: open, seek, write, seek, reads until
// end of file, close) into one reply buffer kept for the run, and each reply
// is read by the program's own read of its kind (programReads.h: status, then
// the records). Nothing is drawn or logged. At the end it prints the objects
// visited and "Press any key to continue....", and waits for a key, so that
// its /proc figures can be read as velkor's are. Exit status 1 on an error.
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "common_cpp/kvfError.h"
#include "programReads.h"
#include "velkor/requests.h"

namespace {

using programreads::Kind;

velkor::ReplyBuf* reply;

void exchange(velkor::RequestText& request, Kind kind) {
  reply->clear();
  velkor::OpenCmdFile channel(managecmd);
  channel.file.transfer(request.text(), reply);
  programreads::read(kind, reply);
}

// The exchanges of a list run: the volume's information, then per batch of
// 20 the total and the batch, and per object its records and its name.
long listRun(const char* volume) {
  using namespace velkor;
  {
    RequestText request;
    volumeInfoRequest(request, volume, true);
    exchange(request, programreads::kVolumeInfo);
  }
  long visited = 0;
  int position = 0;
  char zids[kZidSlots * kZidSlotSize];
  for (;;) {
    RequestText total;
    volumeInfoRequest(total, volume, false);
    exchange(total, programreads::kTotalObjects);
    RequestText browse;
    browseRequest(browse, volume, true, 0, kZidSlots, position);
    // The batch's zids are needed here, so its read is made in place of
    // programreads::read's (the same two calls, keeping the zids).
    reply->clear();
    OpenCmdFile channel(managecmd);
    channel.file.transfer(browse.text(), reply);
    QXML::GetReplyResultValueForTag(reply->data, "browseBeasts");
    memset(zids, 0, sizeof zids);
    int n = readZidBatch(reply, zids);
    int slots = n < kZidSlots ? n : kZidSlots;
    for (int i = 0; i < slots; ++i) {
      const char* zid = zids + i * kZidSlotSize;
      RequestText info;
      beastInfoRequest(info, volume, zid, infoRoot | infoNamed | infoFile | infoCompBeast, true);
      exchange(info, programreads::kBeastInfo);
      RequestText name;
      fullNameRequest(name, volume, zid);
      exchange(name, programreads::kFullName);
      ++visited;
    }
    if (slots > 0) position = static_cast<int>(static_cast<uint32_t>(strtoull(zids + (slots - 1) * kZidSlotSize, nullptr, 10)));
    if (n != kZidSlots) return visited;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: bench_baseline VOLUME\n");
    return 2;
  }
  long visited = -1;
  try {
    velkor::ReplyBuf buffer;
    reply = &buffer;
    visited = listRun(argv[1]);
  } catch (const KVFError& e) {
    printf("error: %s\r\n", e.what());
  }
  printf("Processed Files: %ld\r\nPress any key to continue....", visited);
  fflush(stdout);
  // One key, as velkor's final prompt takes it.
  termios modes;
  if (tcgetattr(0, &modes) == 0) {
    modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    tcsetattr(0, TCSANOW, &modes);
  }
  char key;
  if (read(0, &key, 1) < 0) return 1;
  return visited < 0 ? 1 : 0;
}
