// CompStats: the run's counters, the problem word and name of the file being
// checked, and the volume's information; and OperationView, through which a
// running operation shows its progress and asks the operator. The operations
// know only these two; the operator interface implements the view.
#pragma once

#include <cstdint>
#include <string>

#include "velkor/velkorTypes.h"

namespace velkor {

class UncompBeastInfo;
class CompBeastInfo;
struct VolumeStatistics;
struct ScanPosition;

// A file the per-object routine has checked, as it found and left it.
struct FileResult {
  UncompBeastInfo* file;
  CompBeastInfo* compData;  // may be null
  const char* name;         // may be null: the name was not looked up
  unsigned long problems;   // the problem word
  bool noHeader;            // the compressed header was not checked
  bool fixed;
  bool deleted;
  bool volumeLevel;         // one object of a volume scan, not a single file
};

// A question an operation asks before going on.
enum class Question {
  // The statistics are recounted outside the maintenance state, where the
  // count is not accurate.
  kRecountOutsideMaintenance,
};

// What a running operation shows and asks, as results: the operations never
// name a row, a column or a key. velkor's screen (velkorUI) lays them out;
// velkor-batch (batch.h) prints them. Another front end (a JSON stream, a
// service) is another implementation of this class. The run log is written
// below the views (CompStats::msgReady), the same whichever one runs.
//
// Called on the operation's thread (the main thread); an implementation
// serialises its drawing with anything else that draws. The base class alone
// shows nothing, never asks for an abort and answers every question no: the
// operations run with it where there is no screen (component tests).
class OperationView {
 public:
  virtual ~OperationView() = default;

  // The operation's counters begin: shown with their labels.
  virtual void countersStarted() {}
  // A counter may have changed.
  virtual void countersChanged() {}
  // The file just checked (its log entry is written already).
  virtual void fileChecked(const FileResult& /*result*/) {}
  // The volume has no compression: nothing to do.
  virtual void compressionOff() {}
  // The volume's statistics: before the recount (`after` null), then with the
  // recounted figures.
  virtual void statistics(const VolumeStatistics& /*before*/, const VolumeStatistics* /*after*/) {}
  // Whether the file would be compressed by the background pass now.
  virtual void candidate(bool /*isCandidate*/) {}
  // The operator's answer to `question`: true to go on.
  virtual bool confirm(Question /*question*/) { return false; }

  // A volume scan: while the watch is on, the operator may abort; the scan
  // reports the volume's object count and each object done.
  virtual void watchForAbort(bool /*on*/) {}
  virtual bool abortRequested() const { return false; }
  virtual void setTotal(uint64_t /*objects*/) {}
  virtual void objectDone() {}
  // Where a volume scan begins (left as it is: at the first object; a
  // resumed pass sets its saved position), and where it goes on: after each
  // batch whose objects are all done, and when it stops before its end
  // (`stopping`).
  virtual void scanStart(ScanPosition* /*at*/) {}
  // Whether the corrupted object `zid` may be deleted (a deletion plan names
  // the only ones that may).
  virtual bool mayDelete(const char* /*zid*/) const { return true; }
  virtual void scanPosition(const ScanPosition& /*next*/, bool /*stopping*/) {}

  // Whether the view shows the name of every file checked, so that it must
  // be looked up even where the run log does not need it.
  virtual bool showsEveryName() const { return true; }
};

class CompStats {
 public:
  // Counter labels in display order, each 20 columns wide.
  static const char* const statsMsgs[8];

  // `view` may be null: the counters are then kept but nothing is shown.
  explicit CompStats(OperationView* view);
  ~CompStats();
  CompStats(const CompStats&) = delete;
  CompStats& operator=(const CompStats&) = delete;

  // The file just checked: its entry in the run log (every single file's; a
  // scan's only when it has something to report), then the view is told.
  void msgReady(UncompBeastInfo* file, CompBeastInfo* compData, unsigned long flags, unsigned long fixed,
                unsigned long deleted);

  // Before each object of a scan: the problem word back to good, no name.
  void resetForNextObject();

  // Whether the file just checked (problem word problemFlags) needs its full
  // name looked up: where its entry is logged, or the view shows every name.
  bool needsName() const;
  // The rule of which checked file gets an entry in the run log.
  bool logsEntry(unsigned long problems) const;

  // The counters, in statsMsgs order.
  void counters(uint64_t (&out)[8]) const {
    out[0] = processed, out[1] = ccBitCleared, out[2] = good, out[3] = openSkipped;
    out[4] = fixable, out[5] = corrupted, out[6] = fixed, out[7] = deleted;
  }

  OperationView* view;  // not owned; never null
  uint64_t processed;
  uint64_t ccBitCleared;
  uint64_t corrupted;
  uint64_t fixable;
  uint64_t good;
  uint64_t openSkipped;
  uint64_t fixed;
  uint64_t deleted;
  unsigned long problemFlags;
  KVF::MallocedText fileName;
  // Whether fileName was read whole from its reply (see readFullName).
  bool fileNameWhole;
  // Why the change this object asked for was not made (empty when it was, or
  // none was asked): the object's log entry carries it.
  std::string actionRefused;
  // A change request was written for this object: should its exchange fail
  // other than by the file system's refusal, the change may have been made.
  bool changeSent = false;
  VolumeInfo_s volumeInfo;

  // Set by a volume scan: a file whose removal by path fails on this machine
  // (its name gone, a read-only volume, a denied call) is left, with the
  // reason in its entry, and the scan goes on with the next object. A single
  // file's deletion reports such a failure as the run's error.
  bool scanning = false;
  // How a removal by path makes sure it unlinks the object judged, found out
  // at the run's first one (see unlinkCorruptedFile).
  enum class DeletionGuard { kUnknown, kInodeIsZid, kPathRechecked };
  DeletionGuard deletionGuard = DeletionGuard::kUnknown;
};

}  // namespace velkor
