// The line a run of a resumable pass adds to its log document's description:
// the pass's name, the run's number in it and where the run begins. Header-
// only, so that velkor-report reads it as velkor-batch writes it:
//   "  Pass 1764099558-4242, run 1: from the first object"
//   "  Pass 1764099558-4242, run 2: resumes the pass at scan position 8120"
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace velkor {

struct PassLine {
  std::string pass;       // "<start time>-<process id>"
  unsigned run = 0;       // 1 for the run that began the pass
  bool resumed = false;   // whether it resumes the pass at `position`
  int64_t position = 0;   // the scan position its first browse request carries
};

inline constexpr std::string_view kPassLineStart = "  Pass ";
// The finish status of a run --max-duration ended: planned, not stopped.
inline constexpr char kWindowEndedStatus[] = "the window ended; the pass goes on";

inline std::string passLineText(const PassLine& line) {
  std::string text = std::string(kPassLineStart) + line.pass + ", run " + std::to_string(line.run) + ": ";
  return text + (line.resumed ? "resumes the pass at scan position " + std::to_string(line.position)
                              : std::string("from the first object"));
}

// Reads a description line; false when it is no pass line.
inline bool readPassLine(std::string_view text, PassLine* line) {
  if (text.substr(0, kPassLineStart.size()) != kPassLineStart) return false;
  text.remove_prefix(kPassLineStart.size());
  const size_t comma = text.find(", run ");
  if (comma == 0 || comma == std::string_view::npos) return false;
  for (char c : text.substr(0, comma))
    if (!((c >= '0' && c <= '9') || c == '-')) return false;
  line->pass = std::string(text.substr(0, comma));
  std::string rest(text.substr(comma + 6));
  char* end = nullptr;
  const unsigned long run = strtoul(rest.c_str(), &end, 10);
  if (end == rest.c_str() || run == 0 || run > 1000000) return false;
  line->run = static_cast<unsigned>(run);
  const std::string_view tail(end);
  constexpr std::string_view kFirst = ": from the first object", kResumes = ": resumes the pass at scan position ";
  line->resumed = false;
  line->position = 0;
  if (tail == kFirst) return true;
  if (tail.substr(0, kResumes.size()) != kResumes) return false;
  const std::string number(tail.substr(kResumes.size()));
  line->position = strtoll(number.c_str(), &end, 10);
  line->resumed = true;
  return !number.empty() && *end == '\0';
}

// The message a run of a pass logs before its finish status: the objects the
// pass has done so far, over all its runs, of the volume's objects.
//   "pass 1764099558-4242: 120000 of 1000000 objects done"
inline std::string passProgressText(const std::string& pass, uint64_t objects, uint64_t total) {
  return "pass " + pass + ": " + std::to_string(objects) + " of " + std::to_string(total) + " objects done";
}

inline bool readPassProgress(std::string_view text, const std::string& pass, uint64_t* objects, uint64_t* total) {
  const std::string start = "pass " + pass + ": ";
  if (text.substr(0, start.size()) != start) return false;
  const std::string rest(text.substr(start.size()));
  unsigned long long done = 0, all = 0;
  int used = 0;
  if (sscanf(rest.c_str(), "%llu of %llu objects done%n", &done, &all, &used) != 2 ||
      static_cast<size_t>(used) != rest.size())
    return false;
  *objects = done;
  *total = all;
  return true;
}

}  // namespace velkor
