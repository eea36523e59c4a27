// The checkpoint of a pass: velkor-batch's volume list, fix, delete or clear
// pass, saved in the state directory while it runs, so that a run stopped by
// a signal, a window's end or a reboot is resumed where it stopped instead of
// at the first object. One file per volume, replaced atomically (written,
// synced, renamed over the old one).
#pragma once

#include <cstdint>
#include <string>

#include "velkor/passLine.h"
#include "velkor/volumeScan.h"

namespace velkor {

// The state directory (/var/lib/velkor); --state-dir points it elsewhere.
// Made (0700) when missing; refused unless it is the administrator's own
// alone, as the lock directory is.
extern const char* stateDir;

struct Checkpoint {
  std::string volume;
  std::string operation;  // the operation's long option name ("list-all")
  std::string log;        // the run log's absolute path
  std::string pass;       // the pass's name: its start time and the first run's process id
  int64_t began = 0;      // when the pass began (seconds since the epoch)
  unsigned run = 1;       // runs of the pass so far, this one included
  ScanPosition next;      // where the scan goes on
  // The pass's counts so far, over all its runs.
  uint64_t objects = 0, problems = 0, fixed = 0, deleted = 0;
};

enum class CheckpointRead {
  kNone,       // no checkpoint of the volume
  kFound,      // read whole
  kUnusable,   // unreadable, or of another operation or log: `why` says which
  kRefused,    // not the administrator's own, or the state directory is not: left in place
};

// Reads the checkpoint of `volume` into `saved`.
CheckpointRead readCheckpoint(const std::string& volume, Checkpoint* saved, std::string* why);
// Replaces the checkpoint of its volume with `checkpoint`; false, with `why`
// set, when it could not be written whole.
bool saveCheckpoint(const Checkpoint& checkpoint, std::string* why);
// The pass has ended: its checkpoint goes. False, with `why` set, when it
// stays.
bool removeCheckpoint(const std::string& volume, std::string* why);

// The checkpoint file's path.
std::string checkpointPath(const std::string& volume);

// The text of a checkpoint file, and its reading (false when `text` is not
// one whole).
std::string checkpointText(const Checkpoint& checkpoint);
bool parseCheckpoint(const std::string& text, Checkpoint* checkpoint);

// The description line of a run of this pass (passLine.h).
std::string passLineOf(const Checkpoint& checkpoint);

// The checkpoint one run of a pass keeps: read (and checked) before the
// run, saved every few batches and when the scan stops, removed when the
// pass ends. Notes and refusals go to standard error, after `program`.
class PassKeeper {
 public:
  // A save (write, fsync, rename, fsync of the directory) costs about 10 ms
  // on a disk: saves are ten batches and a second apart at least, which
  // keeps their cost near 1% of a scan at full speed.
  static constexpr unsigned kBatchesBetweenSaves = 10;
  static constexpr double kSecondsBetweenSaves = 1.0;

  // Begins the run: the pass it resumes (`resume`, and a checkpoint of the
  // same volume, operation and log) or a new one. False when the checkpoint
  // or the state directory is refused (the run ends, exit status 8, the
  // file left in place).
  bool begin(const std::string& volume, const std::string& operation, const std::string& log, bool resume);
  // Where the scan begins.
  void start(ScanPosition* at) const { *at = pass_.next; }
  // The scan goes on at `next`; this run's counts so far. Saved every
  // kBatchesBetweenSaves batches and kSecondsBetweenSaves, and when `stopping`.
  void position(const ScanPosition& next, bool stopping, uint64_t objects, uint64_t problems, uint64_t fixed,
                uint64_t deleted);
  // The pass has ended: its checkpoint goes.
  void end();
  std::string descriptionLine() const { return passLineOf(pass_); }
  const Checkpoint& pass() const { return pass_; }
  // The objects the pass's runs before this one did.
  uint64_t objectsBefore() const { return base_.objects; }
  // Why a save or the removal failed; empty while none has.
  const std::string& failure() const { return failure_; }

 private:
  void save();

  Checkpoint base_;  // the pass as this run found it
  Checkpoint pass_;
  unsigned batches_ = 0;  // since the last save
  double lastSave_ = 0;   // monotonic seconds: the last save, or the run's start
  std::string failure_;
};

}  // namespace velkor
