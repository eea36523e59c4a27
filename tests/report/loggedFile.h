// The report's tests' helpers: a file entry (a name, its problem word and a
// zid), a list run as older logs wrote it, the usual options, and
// velkor-report's answer on a log.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "logText.h"
#include "process.h"
#include "report.h"
#include "velkor/velkorTypes.h"

namespace reporttests {

inline testsupport::LoggedFile file(const std::string& name, unsigned long problems, uint64_t zid = 1000) {
  testsupport::LoggedFile f;
  f.name = name;
  f.problems = problems;
  f.zid = zid;
  return f;
}

inline const std::string kPlaceholder = "/PLACEHOLDER";

// `text` with its one kPlaceholder replaced by `raw`.
inline std::string replaced(std::string text, const std::string& raw) {
  size_t at = text.find(kPlaceholder);
  EXPECT_NE(std::string::npos, at);
  if (at != std::string::npos) text.replace(at, kPlaceholder.size(), raw);
  return text;
}

// A run of `argv` logging `files` as a run of `operation` does, ended with
// the finish status `status` when one is given.
inline std::string loggedRun(const std::vector<std::string>& argv, const std::vector<testsupport::LoggedFile>& files,
                             const std::string& status = "", unsigned int operation = 0x8) {
  std::ostringstream log;
  testsupport::LogText text(log);
  text.start(argv);
  for (const testsupport::LoggedFile& f : files) text.entry(f, operation);
  if (!status.empty()) log << "<finishStatus>" << status << "</finishStatus>\n";
  text.end();
  return log.str();
}

inline const std::string kFound = "finished with problem files found";

// A list run of VOL1 as velkor wrote it before names were escaped: a file
// with a problem, then a file named `raw`, then `status` and the end.
inline std::string oldListRun(const std::string& raw, const std::string& status = kFound, bool fixed = false) {
  testsupport::LoggedFile first = file("/a", velkor::invalidState, 1000),
                          named = file(kPlaceholder, velkor::invalidZid, 1010);
  first.fixed = named.fixed = fixed;
  return replaced(loggedRun({"velkor", fixed ? "-F" : "-L", "VOL1"}, {first, named}, status), raw);
}

inline velkorreport::Options checking(const std::string& volume = "") {
  velkorreport::Options options;
  options.check = true;
  options.volume = volume;
  return options;
}

// The options of one output format, with --files when `files`.
inline velkorreport::Options formatted(velkorreport::Format format, bool files = false) {
  velkorreport::Options options;
  options.format = format;
  options.files = files;
  return options;
}
inline velkorreport::Options jsonFiles() { return formatted(velkorreport::Format::json, true); }

struct Reported {
  int status;
  std::string out, err;
};

// A run log holding `text`, reported with any options.
class LogFile {
 public:
  explicit LogFile(const std::string& text) { testsupport::writeFile(dir_.file("velkor.log"), text); }
  Reported report(velkorreport::Options options) const {
    options.logs = {dir_.file("velkor.log")};
    std::ostringstream out, err;
    int status = velkorreport::report(options, out, err);
    return {status, out.str(), err.str()};
  }

 private:
  testsupport::TempDir dir_;
};

inline Reported reportOn(const std::string& text, const velkorreport::Options& options) {
  return LogFile(text).report(options);
}

}  // namespace reporttests
