// The per-file check of the list, fix and delete operations: problem
// detection, repair of fixable files and deletion of corrupted ones.
#pragma once

#include "velkor/beastRecords.h"
#include "velkor/compStats.h"
#include "velkor/velkorTypes.h"

namespace velkor {

// Fetches the file's records (handed back, owned by the caller) and sets a bit
// in stats->problemFlags for every inconsistency found.
void hasProblem(char* volume, char* zid, UncompBeastInfo** file, CompBeastInfo** compData,
                unsigned long skipHeaderCheck, CompStats* stats);

// Sends the set requests that make the file's compression state consistent;
// 1 when it did, 0 when there was nothing it could do.
int fixProblem(char* volume, char* zid, UncompBeastInfo* file, CompBeastInfo* compData, CompStats* stats);

// Removes a corrupted file: by unlinking its path when it is a file with a
// live name, else by the file system's delete request.
void deleteCorruptedFile(char* volume, char* zid, UncompBeastInfo* file, CompBeastInfo* compData, CompStats* stats);

}  // namespace velkor
