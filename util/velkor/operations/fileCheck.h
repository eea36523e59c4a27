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
// stats->actionRefused; a failing exchange throws.
void deleteCorruptedFile(char* volume, char* zid, UncompBeastInfo* file, CompBeastInfo* compData, CompStats* stats);

// Unlinks a corrupted file by its name (stats->fileName) beneath the
// volume's mount point, and only the object judged. The name must have been
// read whole; the mount point must be the root of a mounted file system and
// the file's directory must lie on that same mount (a volume that is not
// mounted, or a reply naming a plain directory as its mount point, leads to
// no host file); the path is resolved inside the mount through no symbolic
// link, and the directory is held open from then on. Then, by the way the
// run's first removal found for this volume:
// - kInodeIsZid, where the volume numbers its inodes by zid (the mount
//   point's inode number is the zid the file system gives for the mount
//   point): the name in the held directory must be the inode whose number
//   is the zid judged. Renames of any directory on the path cannot change
//   that: what is unlinked is that entry of that directory.
// - kPathRechecked, elsewhere: the file system must confirm (one getFileInfo
//   exchange) that the path names this zid of this volume, and a fresh
//   resolution of the path after that must lead to the same directory and
//   the same file as the held one. A rename that moves the directory away
//   and back between the two resolutions is not seen (velkor(8) says so).
// Returns why nothing was unlinked, or "" when it was. A failing system call
// in a volume scan is such a reason; in a single file's deletion it throws
// (its errno).
std::string unlinkCorruptedFile(char* volume, UncompBeastInfo* file, CompStats* stats);

}  // namespace velkor
