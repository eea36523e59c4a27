// What velkor-report knows about one run of velkor: the facts read from its
// run-log document and the counts of its file entries.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "velkor/passLine.h"

namespace velkorreport {

// The longest line, and longest element spread over several lines, that the
// reader takes; a longer one is skipped and makes its run incomplete.
inline constexpr size_t kMaxElement = 1 << 20;

// Names kept out of memory, in an unnamed temporary file, and read back in
// the order they came: a run may skip millions of files. Copies share the
// file. Without a temporary file the names are kept in memory.
class NameList {
 public:
  void push_back(const std::string& name);
  size_t size() const { return count_; }
  // Calls `f` with each name, in order.
  void forEach(const std::function<void(const std::string&)>& f) const;
  std::vector<std::string> all() const;

 private:
  std::shared_ptr<FILE> file_;
  std::vector<std::string> inMemory_;  // when no temporary file could be made
  size_t count_ = 0;
};

// One checked file, as its entry in the run log tells it.
struct Entry {
  std::string volume;
  std::string name;
  std::string zid;                    // empty when the check was skipped
  std::string type;                   // the type's element names, blank-separated ("deleted file")
  std::vector<std::string> problems;  // the fileStatus element names, in order
  bool fixed = false;
  bool deleted = false;
  // An entry of a fix run that the next list run of its volume found again
  // with the same problems: the fix did not take it.
  bool notTaken = false;
  std::string error;  // why the change asked for was not made, or is in doubt; "" when none
  uint64_t line = 0;  // the line where the entry starts

  bool has(std::string_view problem) const;
  bool skipped() const;
  // A problem other than good and skipped, on an entry that was not skipped:
  // a file velkor counts among the problem files it found.
  bool problemFile() const;
  // A problem file that was neither fixed nor deleted.
  bool remains() const;
  // A problem file with a corrupted problem: only deleting removes it. The
  // other problem files are fixable.
  bool corrupted() const;
  // "fixed", "deleted", "fixed deleted" or "".
  std::string action() const;
  // A change was sent for it whose reply was lost: it may have been made.
  // Counted among the files left, never as done: one to check again.
  bool outcomeUnknown() const;
};

// A time element of the document: seconds since the epoch and the text
// velkor wrote beside them (without its quotes).
struct LoggedTime {
  bool present = false;
  int64_t seconds = 0;
  std::string text;
};

struct Run {
  uint64_t index = 0;  // 1 = the first run read
  std::string source;  // the log it was read from
  uint64_t line = 0;   // the line of its "<velkor>"
  std::string program; // the program its description names ("velkor", "velkor-batch"); "" when none

  LoggedTime start, end;
  std::vector<std::string> argv;
  std::string operation;  // the long name of its operation option; "" when the arguments name none
  unsigned int operationCode = 0;  // velkor::OperationCode; 0 when the arguments name none
  std::string target;     // the operand: a volume name or a file path
  bool fileTarget = false;

  bool hasFinishStatus = false;
  std::string finishStatus;
  std::vector<std::string> errors;
  std::vector<std::string> messages;
  bool closed = false;  // its closing element was read
  // The line of an element of the run before that was still open, spread
  // over lines, when this run's opening element was read; 0: none. Such a
  // run may be text of that element (a name in an older log, written raw).
  uint64_t beganInside = 0;
  // The line of an element of this run longer than the reader takes, which
  // was skipped; 0: none.
  uint64_t tooLong = 0;

  uint64_t entries = 0;
  uint64_t skipped = 0;
  uint64_t problemFiles = 0;  // entries of problem files, whatever was done to them
  uint64_t remaining = 0;
  uint64_t remainingCorrupted = 0;  // of the remaining problem files; the others are fixable
  uint64_t notTaken = 0;            // entries not taken by the fix (see Entry::notTaken)
  uint64_t outcomeUnknown = 0;      // entries whose change is in doubt (see Entry::outcomeUnknown)
  std::map<std::string, uint64_t> problems;  // entries per fileStatus element
  std::map<std::string, uint64_t> types;     // entries per type
  std::map<std::string, uint64_t> actions;   // "fixed", "deleted"
  std::map<std::string, uint64_t> remainingByProblem;
  // A run of velkor-batch's resumable pass (velkor/passLine.h): its pass,
  // its number in it and where it began (pass.run 0: no pass), and the
  // pass's progress its message gave at its end.
  velkor::PassLine pass;
  uint64_t passObjects = 0, passTotal = 0;
  // On the run that ended its pass: the pass's runs, when it began, and the
  // counts above are the pass's, each file counted once (by zid).
  unsigned passRuns = 0;
  LoggedTime passStart;
  NameList skippedFiles;  // kept only when listSkipped is set
  bool listSkipped = true;
  std::set<std::string> volumes;  // the volumes its entries name

  // Why the run's document cannot be the whole of a run: no end time, no
  // closing element, begun inside an element of the run before, or a finish
  // status that says problem files were found with no entry of one. Empty
  // when it is complete.
  std::string incompleteReason() const;
  bool complete() const { return incompleteReason().empty(); }
  // Its finish status says it was stopped before its end (the operator's
  // abort, a signal, a question left unanswered): it covered part of its target.
  bool stopped() const;
  // velkor-batch --max-duration ended it: planned, the pass goes on.
  bool windowEnded() const;
  // A run of a pass that left it to be resumed (its window ended, or it was
  // stopped): part of a pass, it decides nothing on its own.
  bool leftPassOpen() const { return pass.run != 0 && (windowEnded() || stopped()); }
  // When it ran: its end time, else its start time; absent when it has neither.
  const LoggedTime& time() const { return end.present ? end : start; }
  // The operation derived from argv the way velkor parses its command line.
  void deriveOperation();
  // Counts one entry.
  void add(const Entry& entry);
  // The run acted on `volume`: a volume run on it, or a run whose entries name it.
  bool concerns(const std::string& volume) const;
  // A volume-wide list, fix or delete run: the runs that decide their
  // volume's verdict. Single-file runs, the recount, the Cc clear and the
  // background run are listed but never decide it, nor does a run that left
  // its pass open: its pass decides once a run ends it.
  bool decidesVolume() const;
  // The status shown for it: the finish status, or "incomplete".
  std::string statusText() const;
};

}  // namespace velkorreport
