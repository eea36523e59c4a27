// The single-file operations: a file's path resolved into its volume and zid,
// the volume's information read, and one call of the per-object routine.
#pragma once

#include "velkor/volumeScan.h"

namespace velkor {

class CompStats;
struct OpArgs_s;

// Resolves the path into its volume name and zid and reads the volume's
// information into stats; false (after the view said so) when the volume has
// no compression. Throws KVFError.
bool lookUpFile(char* path, char (&volumeName)[64], char (&zid)[104], CompStats* stats);

// Runs `routine` on the one file, with the counters shown first.
void checkOneFile(char* path, ObjectRoutine routine, OpArgs_s* args, CompStats* stats);

}  // namespace velkor
