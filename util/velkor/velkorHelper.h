// The queries and operations on beasts and volumes: the per-object routines of
// the list, fix, delete and clear operations and what they are made of.
#pragma once

#include "velkor/compStats.h"
#include "velkor/velkorTypes.h"

namespace velkor {

// Per-object routine of list, fix and delete: check one file, repair or
// delete it when asked, count it and report it.
void checkCompressionStatus(char* volume, char* zid, OpArgs_s* args, CompStats* stats);

// Per-object routine of the clear operations: remove the Cc attribute.
void checkCCBit(char* volumeName, char* zid, OpArgs_s* args, CompStats* stats);

}  // namespace velkor
