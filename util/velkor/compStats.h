// CompStats: the run's counters, the problem word and name of the file being
// checked, and the volume's information; and OperationView, through which a
// running operation shows its progress and asks the operator. The operations
// know only these two; the operator interface implements the view.
#pragma once

#include <cstdint>
#include <string>

#include "screen/screenAttributes.h"
#include "velkor/velkorTypes.h"

namespace velkor {

class UncompBeastInfo;
class CompBeastInfo;
struct ScanPosition;

// What a running operation shows and asks. Called on the operation's thread
// (the main thread); an implementation serialises its drawing with anything
// else that draws. The base class alone shows nothing, never asks for an
// abort and answers every question with end of input: the operations run
// with it where there is no screen (component tests).
class OperationView {
 public:
  virtual ~OperationView() = default;

  // The counters block, with its labels when asked.
  virtual void showCounters(bool withLabels) {}
  // The file just checked: its log entry, and its details where the
  // operation shows them.
  virtual void showFile(UncompBeastInfo* file, CompBeastInfo* compData, char* name, unsigned long problems,
                        unsigned long noHeader, unsigned long fixed, unsigned long deleted) {}
  // The volume has no compression: nothing to do.
  virtual void showCompressionOff() {}
  // printf-style text at a screen position with a display attribute.
  void drawAt(int row, int col, int attribute, const char* format, ...) __attribute__((format(printf, 5, 6)));
  virtual void drawText(int row, int col, int attribute, const char* text) {}
  virtual void clearRow(int row) {}
  // One key from the operator; EOF when there is none.
  virtual int readKey();

  // A volume scan: while the watch is on, the operator may abort; the scan
  // reports the volume's object count and each object done.
  virtual void watchForAbort(bool on) {}
  virtual bool abortRequested() const { return false; }
  virtual void setTotal(uint64_t objects) {}
  virtual void objectDone() {}
  // Where a volume scan begins (left as it is: at the first object; a
  // resumed pass sets its saved position), and where it goes on: after each
  // batch whose objects are all done, and when it stops before its end
  // (`stopping`).
  virtual void scanStart(ScanPosition* at) {}
  // Whether the corrupted object `zid` may be deleted (a deletion plan names
  // the only ones that may).
  virtual bool mayDelete(const char* zid) const { return true; }
  virtual void scanPosition(const ScanPosition& next, bool stopping) {}

  // Whether the file just checked, found with the problem word `problems`,
  // needs its full name looked up. A screen shows every file's name; a view
  // without one needs it only where a name is logged or a file is deleted by
  // its name (any word but good).
  virtual bool needsName(unsigned long problems) const { return true; }
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

  // Shows the counters and reports the file just checked.
  void msgReady(UncompBeastInfo* file, CompBeastInfo* compData, unsigned long flags, unsigned long fixed,
                unsigned long deleted);

  // Before each object of a scan: the problem word back to good, no name.
  void resetForNextObject();

  // The counter shown under statsMsgs[index].
  uint64_t counter(int index) const;

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
