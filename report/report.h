// velkor-report: reads velkor's run logs and prints their runs as a table,
// one run in detail, JSON or CSV, or judges the last run for a script.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace velkorreport {

// Exit statuses. --check: the run is clean, problem files remain, the run
// ended with an error or is incomplete, no answer. Without --check only 0 and
// kNoAnswer occur.
enum ExitStatus : int { kClean = 0, kProblemsRemain = 1, kRunFailed = 2, kNoAnswer = 3 };

enum class Format { table, json, csv, prometheus };

struct Options {
  std::vector<std::string> logs;  // in order; "-" is standard input
  Format format = Format::table;
  bool files = false;   // JSON: each run's entries
  bool check = false;
  bool plan = false;    // --plan: the deletion plan of the list run --run names
  uint64_t run = 0;     // --run N; 0: every run
  bool lastRun = false; // --run last
  std::string volume;   // --volume
  std::string problem;  // --problem
  int64_t maxAge = 0;   // --max-age in seconds; 0: none
  std::string output;   // --output: the file replaced by the report; "": standard output
  int64_t now = 0;      // the time runs' ages are taken at; 0: the clock's
};

// A duration ("26h", "90m", "7d", "3600s") in seconds; false when it is none.
bool parseDuration(const std::string& text, int64_t* seconds);

// Parses the command line into `options`; false after printing why (or the
// help) to `out`/`err`, with the exit status in *status.
bool parseOptions(int argc, char** argv, Options* options, std::ostream& out, std::ostream& err, int* status);

// Reads the logs and writes the report to `out`; returns the exit status.
// *logsRead, when given, tells whether every log was read to its end.
int report(const Options& options, std::ostream& out, std::ostream& err, bool* logsRead = nullptr);

// Writes the report into options.output: a temporary file in the same
// directory, renamed over it once the logs were read and it is written.
int reportToFile(const Options& options, std::ostream& err);

int reportMain(int argc, char** argv);

}  // namespace velkorreport
