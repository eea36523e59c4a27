// The report's tests' helpers: a file entry (a name, its problem word and a
// zid), and velkor-report's answer on a log.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>

#include "logText.h"
#include "process.h"
#include "report.h"

namespace reporttests {

inline testsupport::LoggedFile file(const std::string& name, unsigned long problems, uint64_t zid = 1000) {
  testsupport::LoggedFile f;
  f.name = name;
  f.problems = problems;
  f.zid = zid;
  return f;
}

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
