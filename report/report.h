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

enum class Format { table, json, csv };

struct Options {
  std::vector<std::string> logs;  // in order; "-" is standard input
  Format format = Format::table;
  bool files = false;   // JSON: each run's entries
  bool check = false;
  uint64_t run = 0;     // --run N; 0: every run
  bool lastRun = false; // --run last
  std::string volume;   // --volume
  std::string problem;  // --problem
};

// Parses the command line into `options`; false after printing why (or the
// help) to `out`/`err`, with the exit status in *status.
bool parseOptions(int argc, char** argv, Options* options, std::ostream& out, std::ostream& err, int* status);

// Reads the logs and writes the report; returns the exit status.
int report(const Options& options, std::ostream& out, std::ostream& err);

int reportMain(int argc, char** argv);

}  // namespace velkorreport
