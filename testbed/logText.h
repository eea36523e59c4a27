// Run-log text written by velkor's own writers (the document's head and end,
// and the file entries), for the tests and the benchmark of the log reader.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace testsupport {

// A checked file, as velkor's records hold it.
struct LoggedFile {
  std::string volume = "VOL1";
  std::string name = "/file";
  uint64_t zid = 1000;
  int classId = 3;            // 3 file, 1 data stream, 12 extended attribute
  bool deleted = false;       // every name deleted
  bool compressed = true;     // has a compression record and compressed data
  unsigned long problems = 1; // the problem word (velkor::ProblemCode bits)
  bool fixed = false;
  bool removed = false;       // deleted by the run
};

class LogText {
 public:
  // Writes to `out`, formatted as velkor formats its log stream.
  explicit LogText(std::ostream& out);

  // A run document's head: description, command line, start time.
  LogText& start(const std::vector<std::string>& argv);
  // One file's entry in a run of `operation` (velkor::OperationCode).
  LogText& entry(const LoggedFile& file, unsigned int operation = 0x8);
  // The document's end: end time, closing element, empty lines.
  LogText& end();

 private:
  std::ostream& out_;
};

}  // namespace testsupport
