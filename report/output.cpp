#include "output.h"

#include "velkor/deletionPlan.h"

#include <algorithm>
#include <ctime>
#include <nlohmann/json.hpp>
#include <ostream>
#include <set>

#include "velkor/errorWords.h"
#include "velkor/logElements.h"
#include "velkor/terminalText.h"

namespace velkorreport {

namespace {

using nlohmann::json;
using velkor::appendHex;
using velkor::utf8Sequence;

std::string localTime(const LoggedTime& time) {
  if (!time.present) return "-";
  time_t seconds = static_cast<time_t>(time.seconds);
  struct tm local;
  char text[32];
  if (!localtime_r(&seconds, &local) || strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local) == 0)
    return std::to_string(time.seconds);
  return text;
}

uint64_t countOf(const std::map<std::string, uint64_t>& counts, const std::string& key) {
  auto it = counts.find(key);
  return it == counts.end() ? 0 : it->second;
}

std::string joined(const std::vector<std::string>& words, char separator = ' ') {
  std::string text;
  for (const std::string& w : words) {
    if (!text.empty()) text += separator;
    text += w;
  }
  return text;
}

std::string commandText(const Run& run) {
  std::vector<std::string> words;
  for (const std::string& a : run.argv) words.push_back(printable(a));
  return joined(words);
}

// "run 3 (list-all VOL1, 2026-11-23 06:30:01)"
std::string runTitle(const Run& run) {
  std::string what = run.operation.empty() ? "unknown operation" : run.operation + " " + printable(run.target);
  return "run " + std::to_string(run.index) + " (" + what + ", " + localTime(run.start) + ")";
}

// An error element of the run: in the operator's words first, as
// velkor-batch says it, then as the log has it.
std::string errorText(const Run& r, const std::string& logged) {
  std::string words;
  if (!velkor::loggedErrorWords(logged, r.operationCode, r.target, r.entries == 0, &words)) return printable(logged);
  return printable(words) + " (" + printable(logged) + ")";
}

// "3d 4h", "5h 12m", "40m 3s", "12s".
std::string ageText(int64_t seconds) {
  static const struct {
    int64_t seconds;
    const char *name, *next;
  } units[] = {{86400, "d", "h"}, {3600, "h", "m"}, {60, "m", "s"}};
  for (size_t u = 0; u < 3; ++u)
    if (seconds >= units[u].seconds) {
      int64_t rest = seconds % units[u].seconds / (u < 2 ? units[u + 1].seconds : 1);
      return std::to_string(seconds / units[u].seconds) + units[u].name + " " + std::to_string(rest) + units[u].next;
    }
  return std::to_string(seconds) + "s";
}

// The verdict on one run for a script, and the line that says why.
struct Verdict {
  int status;
  std::string why;
};

Verdict judge(const Run& r, const Options& options) {
  std::string title = runTitle(r);
  std::string incomplete = r.incompleteReason();
  if (!incomplete.empty()) return {kRunFailed, title + " is incomplete: " + incomplete};
  if (options.maxAge != 0) {
    int64_t now = options.now != 0 ? options.now : static_cast<int64_t>(::time(nullptr));
    int64_t age = now - r.time().seconds;
    if (age > options.maxAge)
      return {kRunFailed, title + " is " + ageText(age) + " old, older than " + ageText(options.maxAge)};
  }
  if (r.stopped())
    return {kRunFailed, title + " was stopped before its end (" + printable(r.finishStatus) +
                            "): it covered part of its target"};
  if (!r.errors.empty()) return {kRunFailed, title + " ended with an error: " + errorText(r, r.errors.front())};
  uint64_t remaining = r.remaining;
  std::string which = "problem files remain";
  if (!options.problem.empty()) {
    remaining = countOf(r.remainingByProblem, options.problem);
    which = "files with " + options.problem + " remain";
  }
  if (remaining != 0)
    return {kProblemsRemain, title + ": " + std::to_string(remaining) + " " + which + " (" +
                                 std::to_string(r.remainingCorrupted) + " corrupted)"};
  return {kClean, title + " is clean: " + std::to_string(r.entries) + " entries, " + std::to_string(r.remaining) +
                      " problem files remain"};
}

// What a run of a pass adds to its status: the pass, the run's number in it
// and the pass's coverage; on the run that ended it, the runs it took.
std::string passNote(const Run& r) {
  if (r.pass.run == 0) return "";
  std::string note = " (pass " + r.pass.pass + (r.passRuns ? ", " + std::to_string(r.passRuns) + " runs" : ", run " + std::to_string(r.pass.run));
  if (r.passTotal) note += ", " + std::to_string(r.passObjects) + " of " + std::to_string(r.passTotal) + " objects";
  return note + ")";
}

// The pass's share of its volume's objects done; 1 when it is unknown.
double passProgress(const Run& r) {
  if (r.passRuns) return 1;
  return r.passTotal ? static_cast<double>(std::min(r.passObjects, r.passTotal)) / r.passTotal : 0;
}

// ---- Table of runs ----

class TableOutput : public Output {
 public:
  explicit TableOutput(std::ostream& out) : out_(out) {}
  bool showsNotTaken() const override { return true; }
  void run(const Run& run, const std::vector<Entry>&) override {
    rows_.push_back({std::to_string(run.index), localTime(run.start),
                     run.operation.empty() ? "?" : run.operation, printable(run.target),
                     printable(run.statusText()) + passNote(run), std::to_string(run.entries),
                     std::to_string(run.remaining - run.remainingCorrupted), std::to_string(run.notTaken),
                     std::to_string(run.remainingCorrupted)});
  }
  // NOT TAKEN: of a fix run's entries, those the next list of the volume
  // found again with the same problems.
  int finish(uint64_t) override {
    std::vector<std::string> header = {"RUN",     "START",   "OPERATION", "TARGET",   "STATUS",
                                       "ENTRIES", "FIXABLE", "NOT TAKEN", "CORRUPTED"};
    std::vector<size_t> width(header.size());
    for (size_t c = 0; c < header.size(); ++c) {
      width[c] = header[c].size();
      for (const auto& row : rows_) width[c] = std::max(width[c], row[c].size());
    }
    auto print = [&](const std::vector<std::string>& row) {
      std::string line;
      for (size_t c = 0; c < row.size(); ++c) {
        // Counts are aligned right, text left.
        bool number = c == 0 || c >= 5;
        std::string pad(width[c] - row[c].size(), ' ');
        line += number ? pad + row[c] : row[c] + (c + 1 < row.size() ? pad : "");
        if (c + 1 < row.size()) line += "  ";
      }
      out_ << line << '\n';
    };
    print(header);
    for (const auto& row : rows_) print(row);
    return kClean;
  }

 private:
  std::ostream& out_;
  std::vector<std::vector<std::string>> rows_;
};

// ---- One run in detail ----

// An output of the one run the options name, with its entries.
class OneRunOutput : public Output {
 public:
  bool wantsEntries() const override { return true; }
  void run(const Run& run, const std::vector<Entry>& entries) override {
    run_ = run;
    entries_ = entries;
    found_ = true;
  }

 protected:
  Run run_;
  std::vector<Entry> entries_;
  bool found_ = false;
};

class DetailOutput : public OneRunOutput {
 public:
  explicit DetailOutput(std::ostream& out) : out_(out) {}
  bool showsNotTaken() const override { return true; }
  int finish(uint64_t) override {
    if (!found_) return kNoAnswer;
    const Run& r = run_;
    out_ << "Run " << r.index << " of " << printable(r.source) << " (line " << r.line << ")\n"
         << "  Program:     " << (r.program.empty() ? "?" : printable(r.program)) << "\n"
         << "  Command:     " << commandText(r) << "\n"
         << "  Operation:   " << (r.operation.empty() ? "?" : r.operation) << "\n"
         << "  Target:      " << printable(r.target)
         << (r.operation.empty() ? "" : r.fileTarget ? " (file)" : " (volume)") << "\n"
         << "  Started:     " << localTime(r.start) << "\n"
         << "  Ended:       " << localTime(r.end) << "\n"
         << "  Status:      " << printable(r.statusText()) << "\n";
    for (const std::string& e : r.errors) out_ << "  Error:       " << errorText(r, e) << "\n";
    for (const std::string& m : r.messages) out_ << "  Message:     " << printable(m) << "\n";
    out_ << "  Entries:     " << r.entries << " (skipped " << r.skipped << ", fixed " << countOf(r.actions, "fixed")
         << ", deleted " << countOf(r.actions, "deleted") << ", remaining problems " << r.remaining << ": fixable "
         << r.remaining - r.remainingCorrupted << ", corrupted " << r.remainingCorrupted << ")\n";
    if (r.notTaken != 0)
      out_ << "  Not taken:   " << r.notTaken << " files the next list run found again with the same problems\n";
    if (r.outcomeUnknown != 0)
      out_ << "  In doubt:    " << r.outcomeUnknown << " files a change was sent to whose reply was lost: check them again\n";
    printCounts("Problems", r.problems);
    printCounts("Types", r.types);
    if (!entries_.empty()) {
      out_ << "  Files:\n";
      for (const Entry& e : entries_) {
        std::string action = e.action();
        out_ << "    " << printable(e.volume) << "  " << printable(e.name) << "  zid "
             << (e.zid.empty() ? "-" : printable(e.zid)) << "  " << printable(joined(e.problems)) << "  "
             << (action.empty() ? "checked" : action) << (e.notTaken ? ", not taken by the fix" : "")
             << (e.outcomeUnknown() ? ", change in doubt: check again" : "") << "\n";
      }
    }
    return kClean;
  }

 private:
  void printCounts(const char* title, const std::map<std::string, uint64_t>& counts) {
    if (counts.empty()) return;
    out_ << "  " << title << ":\n";
    size_t width = 0;
    for (const auto& [name, n] : counts) width = std::max(width, printable(name).size());
    for (const auto& [name, n] : counts) {
      std::string shown = printable(name);
      out_ << "    " << shown << std::string(width - shown.size() + 2, ' ') << n << "\n";
    }
  }

  std::ostream& out_;
};

// ---- JSON ----

// A string field: the JSON library replaces bytes that are not UTF-8 when the
// document is written; an entry's name then also comes as hex.
bool validUtf8(const std::string& text) {
  try {
    (void)json(text).dump();
    return true;
  } catch (const json::type_error&) {
    return false;
  }
}

std::string hexOf(const std::string& bytes) {
  std::string hex;
  for (unsigned char c : bytes) appendHex(hex, c);
  return hex;
}

json timeJson(const LoggedTime& time) {
  if (!time.present) return nullptr;
  return {{"seconds", time.seconds}, {"text", time.text}};
}

json entryJson(const Entry& e) {
  json j = {{"volume", e.volume}, {"name", e.name},         {"zid", e.zid},       {"type", e.type},
            {"problems", e.problems}, {"action", e.action()}, {"notTaken", e.notTaken}, {"error", e.error}, {"line", e.line}};
  if (!validUtf8(e.name)) j["nameHex"] = hexOf(e.name);
  return j;
}

json runJson(const Run& r) {
  json actions = {{"fixed", 0}, {"deleted", 0}};
  for (const auto& [name, n] : r.actions) actions[name] = n;
  return {{"index", r.index},
          {"log", r.source},
          {"line", r.line},
          {"program", r.program.empty() ? json(nullptr) : json(r.program)},
          {"start", timeJson(r.start)},
          {"end", timeJson(r.end)},
          {"argv", r.argv},
          {"operation", r.operation.empty() ? json(nullptr) : json(r.operation)},
          {"target", r.operation.empty() ? json(nullptr) : json(r.target)},
          {"targetKind", r.operation.empty() ? json(nullptr) : json(r.fileTarget ? "file" : "volume")},
          {"finishStatus", r.hasFinishStatus ? json(r.finishStatus) : json(nullptr)},
          {"errors", r.errors},
          {"messages", r.messages},
          {"complete", r.complete()},
          {"entries", r.entries},
          {"problems", r.problems},
          {"types", r.types},
          {"actions", actions},
          {"skipped", r.skipped},
          {"remaining", r.remaining},
          {"remainingFixable", r.remaining - r.remainingCorrupted},
          {"remainingCorrupted", r.remainingCorrupted},
          {"remainingByProblem", r.remainingByProblem},
          {"pass", r.pass.run == 0 ? json(nullptr)
                                   : json({{"name", r.pass.pass},
                                           {"run", r.pass.run},
                                           {"resumedAt", r.pass.resumed ? json(r.pass.position) : json(nullptr)},
                                           {"objects", r.passObjects},
                                           {"total", r.passTotal},
                                           {"progress", passProgress(r)},
                                           {"ended", r.passRuns != 0},
                                           {"runs", r.passRuns ? json(r.passRuns) : json(nullptr)},
                                           {"start", r.passRuns ? timeJson(r.passStart) : json(nullptr)}})},
          {"notTaken", r.notTaken}, {"outcomeUnknown", r.outcomeUnknown}};
}

std::string dumped(const json& j) { return j.dump(-1, ' ', false, json::error_handler_t::replace); }

// A run's fields: its skipped files' names written one by one from where
// the run keeps them (they may be millions), then the others without their
// opening brace.
void writeRunFields(std::ostream& out, const Run& r) {
  out << "\"skippedFiles\":[";
  bool first = true;
  r.skippedFiles.forEach([&](const std::string& name) {
    out << (first ? "" : ",") << dumped(name);
    first = false;
  });
  out << "]," << dumped(runJson(r)).substr(1);
}

// Each run's object is written when the run has ended; with its files, the
// files are written as they are read, first in the object, and the run's
// other fields follow them.
class JsonOutput : public Output {
 public:
  JsonOutput(std::ostream& out, const Options& options)
      : out_(out), files_(options.files), streamed_(options.files && !options.lastRun) {
    out_ << "{\"logs\":" << dumped(options.logs) << ",\"runs\":[";
  }
  // --run last: the run is known to be the last one only at the end.
  bool wantsEntries() const override { return files_ && !streamed_; }
  bool streamsEntries() const override { return streamed_; }
  bool showsNotTaken() const override { return true; }
  void entry(const Run&, const Entry& e) override {
    if (!inRun_) openFiles();
    else out_ << ',';
    out_ << dumped(entryJson(e));
  }
  void run(const Run& run, const std::vector<Entry>& entries) override {
    if (files_) {
      for (const Entry& e : entries) entry(run, e);
      if (!inRun_) openFiles();
      // The run's fields follow the files.
      out_ << "],";
    } else {
      out_ << (first_ ? "{" : ",{");
    }
    writeRunFields(out_, run);
    first_ = false;
    inRun_ = false;
  }
  int finish(uint64_t skippedLines) override {
    out_ << "],\"skippedLines\":" << skippedLines << "}\n";
    return kClean;
  }

 private:
  void openFiles() {
    out_ << (first_ ? "" : ",") << "{\"files\":[";
    inRun_ = true;
  }

  std::ostream& out_;
  const bool files_;
  const bool streamed_;
  bool first_ = true;
  bool inRun_ = false;  // a run's object and its files are open
};

// ---- CSV ----

// A field quoted when it holds a comma, a quote or a line break.
std::string csvField(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

class CsvOutput : public Output {
 public:
  CsvOutput(std::ostream& out, bool buffered) : out_(out), buffered_(buffered) {
    out_ << "run,volume,name,zid,problems,action\r\n";
  }
  bool wantsEntries() const override { return buffered_; }
  bool streamsEntries() const override { return !buffered_; }
  void entry(const Run& run, const Entry& e) override {
    out_ << run.index << ',' << csvField(e.volume) << ',' << csvField(e.name) << ',' << csvField(e.zid) << ','
         << csvField(joined(e.problems)) << ',' << csvField(e.action()) << "\r\n";
  }
  void run(const Run& run, const std::vector<Entry>& entries) override {
    for (const Entry& e : entries) entry(run, e);
  }
  int finish(uint64_t) override { return kClean; }

 private:
  std::ostream& out_;
  bool buffered_;
};

// ---- --check ----

class CheckOutput : public Output {
 public:
  CheckOutput(std::ostream& out, const Options& options) : out_(out), options_(options) {}
  void run(const Run& run, const std::vector<Entry>&) override {
    // A volume's verdict: its last run that decides it, unless a run is named.
    if (volumeVerdict() && run.leftPassOpen() && run.target == options_.volume) {
      underWay_ = "a newer pass is under way: pass " + run.pass.pass + ", " + std::to_string(run.pass.run) +
                  (run.pass.run == 1 ? " run" : " runs") + " so far, " + std::to_string(run.passObjects) + " of " +
                  std::to_string(run.passTotal) + " objects done\n";
    }
    if (volumeVerdict() && !run.decidesVolume()) return;
    last_ = run;
    found_ = true;
    if (run.passRuns || run.pass.run == 0) underWay_.clear();
  }
  int finish(uint64_t) override {
    if (!found_) {
      out_ << "no " << (volumeVerdict() ? "list, fix or delete run" : "run")
           << (options_.volume.empty() ? "" : " on volume " + printable(options_.volume))
           << (options_.run ? " with index " + std::to_string(options_.run) : "") << " in the log\n"
           << underWay_;
      return kNoAnswer;
    }
    Verdict verdict = judge(last_, options_);
    out_ << verdict.why << "\n" << underWay_;
    return verdict.status;
  }

 private:
  bool volumeVerdict() const { return !options_.volume.empty() && options_.run == 0; }

  std::ostream& out_;
  const Options& options_;
  Run last_;
  bool found_ = false;
  std::string underWay_;  // the pass begun after the run judged, not yet ended
};

// ---- --plan ----

// The deletion plan of one list run (velkor/deletionPlan.h): its volume, and
// the corrupted files it found, one a line.
class PlanOutput : public OneRunOutput {
 public:
  explicit PlanOutput(std::ostream& out) : out_(out) {}
  int finish(uint64_t) override {
    if (!found_) return kNoAnswer;
    if (run_.operation != "list-all" || !run_.complete() || run_.stopped() || !run_.errors.empty()) {
      out_ << "velkor-report: run " << run_.index << " is not a list run of a volume that ended whole ("
           << printable(run_.operation) << ", " << printable(run_.statusText()) << "): no plan\n";
      return kNoAnswer;
    }
    out_ << velkor::kPlanFirstLine << "\n" << velkor::planVolumeLine(run_.target);
    for (const Entry& e : entries_)
      if (e.corrupted() && e.remains() && !e.zid.empty()) out_ << velkor::planFileLine(e.zid, e.name);
    return kClean;
  }

 private:
  std::ostream& out_;
};

// ---- Prometheus ----

// A label value of the text format. A label value is UTF-8: a byte that is
// not is written as the four characters \xHH, and the name's own backslash as
// two, so that different names never share a value. Then the format's own
// escapes: backslash, double quote and line feed.
std::string labelValue(std::string_view text) {
  std::string value;
  for (size_t i = 0; i < text.size();) {
    const unsigned char u = static_cast<unsigned char>(text[i]);
    uint32_t code;
    size_t length = u < 0x80 ? 1 : utf8Sequence(text.substr(i), &code);
    if (length == 0) {
      value += "\\\\x";
      appendHex(value, u);
      ++i;
      continue;
    }
    if (u == '\\') value += "\\\\\\\\";
    else if (u == '"') value += "\\\"";
    else if (u == '\n') value += "\\n";
    else value.append(text.substr(i, length));
    i += length;
  }
  return value;
}

// The node exporter's textfile format: for each volume, gauges of its last
// run that decides its verdict (the run --check --volume judges).
class PrometheusOutput : public Output {
 public:
  PrometheusOutput(std::ostream& out, const Options& options) : out_(out), options_(options) {}
  void run(const Run& run, const std::vector<Entry>&) override {
    if (!options_.volume.empty() && run.target != options_.volume) return;
    if (run.decidesVolume()) last_[run.target] = run;
    if (run.pass.run != 0 && !run.fileTarget) progress_[run.target] = passProgress(run);
    // Ended whole, without an error: a volume-wide one covered its volume.
    const bool whole = run.complete() && !run.stopped() && run.errors.empty() && run.time().present;
    if (whole && run.decidesVolume()) completeScan_[run.target] = run.time().seconds;
    if (whole && !run.fileTarget && !run.operation.empty()) withoutError_[run.target] = run.time().seconds;
  }
  int finish(uint64_t) override {
    gauge("velkor_last_run_timestamp_seconds",
          "When the last list, fix or delete run on the volume ended (or started, when it has no end), in seconds since the epoch.",
          [](const Run& r, auto sample) {
            if (r.time().present) sample("", r.time().seconds);
          });
    gauge("velkor_last_run_duration_seconds", "How long the last run on the volume took.",
          [](const Run& r, auto sample) {
            if (r.start.present && r.end.present) sample("", r.end.seconds - r.start.seconds);
          });
    gauge("velkor_last_run_verdict",
          "The verdict of velkor-report --check on the last run: 0 clean, 1 problem files remain, 2 error, "
          "incomplete, stopped or too old.",
          [this](const Run& r, auto sample) { sample("", judge(r, options_).status); });
    gauge("velkor_problem_files", "Problem files the last run left, by problem.", [](const Run& r, auto sample) {
      for (size_t bit = 2; bit < velkor::kNamedProblemBits; ++bit) {
        std::string name(velkor::kProblemElements[bit]);
        sample("problem=\"" + name + "\"", countOf(r.remainingByProblem, name));
      }
    });
    gauge("velkor_last_run_fixed_files", "Files the last run fixed.",
          [](const Run& r, auto sample) { sample("", countOf(r.actions, "fixed")); });
    gauge("velkor_last_run_deleted_files", "Files the last run deleted.",
          [](const Run& r, auto sample) { sample("", countOf(r.actions, "deleted")); });
    // What alerts need, with the operation as a label: the problem files
    // left in all and by kind (each file once), and the open files skipped.
    gauge("velkor_problem_files_left", "Problem files the last run left, each file once.",
          [](const Run& r, auto sample) { sample(operationLabel(r), r.remaining); });
    gauge("velkor_fixable_files_left", "Problem files the last run left that a fix can repair.",
          [](const Run& r, auto sample) { sample(operationLabel(r), r.remaining - r.remainingCorrupted); });
    gauge("velkor_corrupted_files_left", "Problem files the last run left that only a delete removes.",
          [](const Run& r, auto sample) { sample(operationLabel(r), r.remainingCorrupted); });
    gauge("velkor_open_files_skipped", "Files the last run skipped because they were open.",
          [](const Run& r, auto sample) { sample(operationLabel(r), r.skipped); });
    byVolume("velkor_last_complete_pass_timestamp_seconds",
          "When the last list, fix or delete pass that covered the volume and ended without an error ended.",
          completeScan_);
    byVolume("velkor_last_run_without_error_timestamp_seconds",
          "When the last run on the volume that ended whole and without an error ended.", withoutError_);
    byVolume("velkor_pass_progress_ratio",
             "The share of the volume's objects the latest velkor-batch pass has done (1: it has ended).", progress_);
    return kClean;
  }

 private:
  // One metric family: its HELP and TYPE lines, then the samples `each`
  // gives for every volume's last run.
  template <typename Each>
  void gauge(const char* name, const char* help, Each each) {
    out_ << "# HELP " << name << " " << help << "\n# TYPE " << name << " gauge\n";
    for (const auto& [volume, run] : last_) {
      std::string volumeLabel = "volume=\"" + labelValue(volume) + "\"";
      each(run, [&](const std::string& labels, auto value) {
        out_ << name << "{" << volumeLabel << (labels.empty() ? "" : ",") << labels << "} " << value << "\n";
      });
    }
  }

  static std::string operationLabel(const Run& r) { return "operation=\"" + labelValue(r.operation) + "\""; }
  // A metric family of one value by volume.
  template <typename Value>
  void byVolume(const char* name, const char* help, const std::map<std::string, Value>& values) {
    out_ << "# HELP " << name << " " << help << "\n# TYPE " << name << " gauge\n";
    for (const auto& [volume, value] : values)
      out_ << name << "{volume=\"" << labelValue(volume) << "\"} " << value << "\n";
  }

  std::ostream& out_;
  const Options& options_;
  std::map<std::string, Run> last_;
  std::map<std::string, double> progress_;  // by volume
  std::map<std::string, int64_t> completeScan_, withoutError_;  // end times, by volume
};

}  // namespace

std::unique_ptr<Output> makeOutput(const Options& options, std::ostream& out) {
  if (options.check) return std::make_unique<CheckOutput>(out, options);
  if (options.plan) return std::make_unique<PlanOutput>(out);
  switch (options.format) {
    case Format::json: return std::make_unique<JsonOutput>(out, options);
    case Format::csv: return std::make_unique<CsvOutput>(out, options.lastRun);
    case Format::prometheus: return std::make_unique<PrometheusOutput>(out, options);
    case Format::table: break;
  }
  if (options.run != 0 || options.lastRun) return std::make_unique<DetailOutput>(out);
  return std::make_unique<TableOutput>(out);
}

}  // namespace velkorreport
