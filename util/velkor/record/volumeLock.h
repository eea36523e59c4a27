// One run at a time per volume and per run log: two runs that repair one
// volume at once would both change the same objects, and two documents
// written into one log at once would be interleaved. A run holds an
// exclusive lock on a file named after what it uses, in a directory only
// the administrator can write, for the rest of its life (the process's end
// lets it go). No other user can open these files, so no other user can
// hold their locks.
#pragma once

#include <sys/stat.h>

#include <string>

#include "common_cpp/kvfError.h"

namespace velkor {

// The directory of the lock files (/run/lock/velkor); a plain global so that
// tests can point it elsewhere. Made when missing, and its parent too (with
// the mode every system gives /run/lock, 1777, whatever the umask).
extern const char* runLockDir;

// Takes the lock file `name` of the lock directory and keeps its descriptor
// (the lock) until releaseRunLock or the end of the process. -1, with `why`
// set to a sentence for the operator, when another run holds it (naming
// that run's process id after `what`, "volume VOL1") or when the lock
// directory is not the administrator's own (saying whose it is and what to
// do).
int takeRunLock(const std::string& name, const std::string& what, std::string* why);
void releaseRunLock(int fd);

// Takes the lock of `volume` for the rest of the run. False, with `why` set
// as by takeRunLock. Taking the lock of the volume the run already holds
// succeeds.
bool lockVolume(const char* volume, std::string* why);

// The error of a file operation refused its volume's lock (another run
// holds it): the run ends with it, and velkor with exit status 1.
class LockRefusal : public KVFError {
 public:
  using KVFError::KVFError;
};

// The lock file's name for a volume: letters, digits, '-', '_' and '.' as
// they are (not a leading '.'), every other byte as %XX, so that no volume
// name leads out of the directory.
std::string volumeLockName(const std::string& volume);
// That name without its ".lock": any text as a file name of the directory.
std::string safeFileName(const std::string& text);

// Opens the directory `dir` (made, 0700, when missing). -1, with `why` set,
// when it cannot be opened or is not the effective user's own alone: `why`
// then says whose it is or who may write it, that another user could `risk`
// ("hold or replace the locks in it") and what to do. The lock directory and
// the checkpoints' state directory are both held to this.
int openOwnDirectory(const char* dir, const std::string& risk, std::string* why);
// Why `name`, as `st` describes it, is not the effective user's own alone
// ("NAME is owned by ..., not by ... who runs this", "NAME may be written by
// other users (mode 0777)"); empty when it is.
std::string notOwnAlone(const std::string& name, const struct stat& st);
// "name (uid N)", or "uid N" for a user without a name.
std::string ownerOf(uid_t uid);

// The lock file's name for a run log, after the log file's device and inode
// (so that every path to one file shares its lock): "log@MAJOR:MINOR-INODE",
// which no volume's name becomes ('@' and ':' are escaped there).
std::string logLockName(const struct stat& log);

}  // namespace velkor
