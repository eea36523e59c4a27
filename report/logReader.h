// The streaming reader of velkor's run log: a sequence of run documents
// appended one after another, fed in blocks of any size. It hands each file
// entry and each finished run to a sink and keeps no more than the run being
// read, so its memory does not grow with the log.
//
// The log is not well-formed XML and is read as velkor writes it: one element
// per line, the created time's mismatched end tag and the open compHeader.
// Texts velkor does not choose (names, argument values, texts of replies) are
// written with '<', '>', '&' and control bytes as character references and
// are decoded; older logs hold them raw, newlines too, and are read as well.
// Text that is no part of a run's elements (what a signal handler wrote, a
// cut-off entry) is skipped, counted and named by its line. A run that begins
// while an element spread over lines is still open is read as incomplete.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "runModel.h"

namespace velkorreport {

class RunSink {
 public:
  virtual ~RunSink() = default;
  // An entry of `run`, after it was counted.
  virtual void entry(const Run& /*run*/, const Entry& /*entry*/) {}
  // A run's document has ended: closed, cut off by the next run, or by the end of its log.
  virtual void runEnd(Run& run) = 0;
  // Skipped text: `lines` lines from `line` of `source`; `text` is its start.
  virtual void skipped(const std::string& /*source*/, uint64_t /*line*/, uint64_t /*lines*/, std::string_view /*text*/) {}
};

class LogReader {
 public:
  static constexpr size_t kMaxElement = velkorreport::kMaxElement;

  // `listSkipped`: each run keeps the names of its skipped files (memory
  // that grows with them), else only their count.
  explicit LogReader(RunSink& sink, bool listSkipped = true) : sink_(sink), listSkipped_(listSkipped) {}

  // Starts a log: line numbers restart, run indexes go on.
  void begin(const std::string& source);
  void feed(const char* data, size_t size);
  // Ends the log: a run still open ends incomplete.
  void finish();

  uint64_t runs() const { return nextIndex_ - 1; }
  uint64_t skippedLines() const { return skippedLines_; }

 private:
  enum class State { outside, header, commandLine, body };
  enum class Pending { none, argv, entry, error, msg };

  void line(std::string_view text);
  void startRun();
  void endRun();
  void bodyLine(std::string_view text);
  void commandLineLine(std::string_view text);
  // An element spread over lines: true when `text` completes it.
  bool closes(Pending kind, std::string_view text) const;
  // The line where the element spread over lines that is still open
  // started; 0 when none is.
  uint64_t unfinishedElement() const;
  // Adds a line to the element spread over lines; false, after skipping the
  // element, when the line would take it past kMaxElement.
  bool continuePending(std::string_view text);
  void completePending();
  void dropPending();
  void skip(uint64_t line, uint64_t lines, std::string_view text);
  // An element from `line` is longer than kMaxElement: skipped, and the run
  // it belongs to is incomplete.
  void skipTooLong(uint64_t line, uint64_t lines, std::string_view text);
  // The line just ended (partial_) is longer than kMaxElement.
  void skipLongLine();

  RunSink& sink_;
  const bool listSkipped_;
  std::string source_;
  uint64_t lineNumber_ = 0;
  uint64_t nextIndex_ = 1;
  uint64_t skippedLines_ = 0;

  std::string partial_;          // a line not yet ended by a newline
  bool partialTooLong_ = false;  // the line being read is past kMaxElement
  uint64_t tooLongStart_ = 0;

  State state_ = State::outside;
  bool inDescription_ = false;
  Run run_;
  Entry entry_;  // reused: its strings keep their room from entry to entry
  Pending pending_ = Pending::none;
  std::string pendingText_;
  uint64_t pendingLine_ = 0;
  uint64_t pendingLines_ = 0;
};

// Parses one entry element ("<entry>" through "</entry>"); false when it is
// not one.
bool parseEntry(std::string_view text, Entry* entry);

}  // namespace velkorreport
