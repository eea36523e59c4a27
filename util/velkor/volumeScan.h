// The volume scan's batch of zids: 20 slots of 21 bytes, each a zid's decimal
// text and its terminator.
#pragma once

namespace velkor {

class ReplyBuf;

const int kZidSlots = 20;
const int kZidSlotSize = 21;

// Sends one browse request and writes the returned zids into consecutive
// slots of `zids`; returns the reply's count of returned objects.
int getSomeZids(char* volumeName, bool onlineOnly, int criteria, int numRequested, int scanSequence, char* zids);
// The reading half of getSomeZids: a browse reply's zids into the slots
// (more than the slots hold, or a zid text too long, is refused).
int readZidBatch(ReplyBuf* reply, char* zids);

}  // namespace velkor
