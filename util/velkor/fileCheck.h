// The per-file check of the list, fix and delete operations: problem
// detection, repair of fixable files and deletion of corrupted ones.
#pragma once

#include <string>

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

// Per-object routine of list, fix and delete: check one file, repair or
// delete it when asked, count it and report it.
void checkCompressionStatus(char* volume, char* zid, OpArgs_s* args, CompStats* stats);

// Removes a corrupted file: by unlinking its path when it is a file with a
// live name (unlinkCorruptedFile), else by the file system's delete request.
// A removal by path that was refused leaves the reason in
// stats->actionRefused; a failing call throws.
void deleteCorruptedFile(char* volume, char* zid, UncompBeastInfo* file, CompBeastInfo* compData, CompStats* stats);

// Unlinks the corrupted file by its full name (stats->fileName) beneath the
// volume's mount point, and only when that name still leads to it: the name
// must have been read whole; the path is resolved inside the volume through
// no symbolic link; the file system must confirm (one getFileInfo exchange)
// that the path names this zid of this volume; and the name must lead to the
// same file before and after that question. Returns why nothing was
// unlinked, or "" when it was; a failing system call throws (its errno).
std::string unlinkCorruptedFile(char* volume, UncompBeastInfo* file, CompStats* stats);

}  // namespace velkor
