// The volume scan's batch of zids: 20 slots of 21 bytes, each a zid's decimal
// text and its terminator.
#pragma once

#include <cstdint>

namespace velkor {

class ReplyBuf;
class CompStats;
struct OpArgs_s;

// The per-object routine of the list, fix, delete and clear operations.
typedef void (*ObjectRoutine)(char* volumeName, char* objectText, OpArgs_s* args, CompStats* stats);

// Where a scan goes on: the position its next browse request carries, and
// the highest zid visited (only zids above it are visited).
struct ScanPosition {
  int position = 0;
  bool visitedAny = false;
  uint64_t highest = 0;
};

const int kZidSlots = 20;
const int kZidSlotSize = 21;

// Sends one browse request and writes the returned zids into consecutive
// slots of `zids`; returns the reply's count of returned objects.
int getSomeZids(char* volumeName, bool onlineOnly, int criteria, int numRequested, int scanSequence, char* zids);
// Visits every object of the volume in batches of 20, calling `routine` for
// each zid, until the volume is exhausted or the operator aborts (the run's
// view is told the counts and watches for the abort). A volume without
// compression visits nothing. Throws KVFError, also when a batch brings no
// zid above those already visited.
void scanVolume(char* volumeName, ObjectRoutine routine, OpArgs_s* args, CompStats* stats);

// The reading half of getSomeZids: a browse reply's zids into the slots
// (more than the slots hold, or a zid text too long, is refused).
int readZidBatch(ReplyBuf* reply, char* zids);

}  // namespace velkor
