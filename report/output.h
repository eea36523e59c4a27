// The report's outputs: each is given the runs the filters let through, in
// order, and writes or keeps what it needs of them.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "report.h"
#include "runModel.h"
#include "velkor/terminalText.h"

namespace velkorreport {

class Output {
 public:
  virtual ~Output() = default;
  // Whether run() is given the run's entries (else an empty list).
  virtual bool wantsEntries() const { return false; }
  // Whether entries are handed over one by one as they are read, instead.
  virtual bool streamsEntries() const { return false; }
  // Whether it shows which entries of a fix run the fix did not take (the
  // logs are then read twice).
  virtual bool showsNotTaken() const { return false; }
  virtual void entry(const Run& /*run*/, const Entry& /*entry*/) {}
  virtual void run(const Run& run, const std::vector<Entry>& entries) = 0;
  // After the last run; returns the exit status.
  virtual int finish(uint64_t skippedLines) = 0;
};

// The output the options ask for.
std::unique_ptr<Output> makeOutput(const Options& options, std::ostream& out);

// Text for a terminal (velkor/terminalText.h).
using velkor::printable;

}  // namespace velkorreport
