// What velkor-report knows about one run of velkor: the facts read from its
// run-log document and the counts of its file entries.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace velkorreport {

// One checked file, as its entry in the run log tells it.
struct Entry {
  std::string volume;
  std::string name;
  std::string zid;                    // empty when the check was skipped
  std::string type;                   // the type's element names, blank-separated ("deleted file")
  std::vector<std::string> problems;  // the fileStatus element names, in order
  bool fixed = false;
  bool deleted = false;
  uint64_t line = 0;  // the line where the entry starts

  bool has(std::string_view problem) const;
  bool skipped() const;
  // A problem other than good and skipped that was neither fixed nor deleted,
  // on an entry that was not skipped.
  bool remains() const;
  // "fixed", "deleted", "fixed deleted" or "".
  std::string action() const;
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

  LoggedTime start, end;
  std::vector<std::string> argv;
  std::string operation;  // the long name of its operation option; "" when the arguments name none
  std::string target;     // the operand: a volume name or a file path
  bool fileTarget = false;

  bool hasFinishStatus = false;
  std::string finishStatus;
  std::vector<std::string> errors;
  std::vector<std::string> messages;
  bool closed = false;  // its closing element was read

  uint64_t entries = 0;
  uint64_t skipped = 0;
  uint64_t remaining = 0;
  std::map<std::string, uint64_t> problems;  // entries per fileStatus element
  std::map<std::string, uint64_t> types;     // entries per type
  std::map<std::string, uint64_t> actions;   // "fixed", "deleted"
  std::map<std::string, uint64_t> remainingByProblem;
  std::vector<std::string> skippedFiles;  // kept only when listSkipped is set
  bool listSkipped = true;
  std::set<std::string> volumes;  // the volumes its entries name

  // End time and closing element present: the run was not cut short.
  bool complete() const { return end.present && closed; }
  // The operation derived from argv the way velkor parses its command line.
  void deriveOperation();
  // Counts one entry.
  void add(const Entry& entry);
  // The run acted on `volume`: a volume run on it, or a run whose entries name it.
  bool concerns(const std::string& volume) const;
  // The status shown for it: the finish status, or "incomplete".
  std::string statusText() const;
};

}  // namespace velkorreport
