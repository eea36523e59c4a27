// The deletion plan: velkor-report --plan writes it from a list run, the
// operator reviews it, velkor-batch -D --plan deletes only the files it
// names that are still corrupted. Header-only, one format for both:
//   velkor deletion plan 1
//   volume VOL1
//   4166 /dir4106/file4166.dat
// The volume and the names are written as the run log writes texts
// (logEscape.h): no line break, no control byte, '<', '>' and '&' as
// character references.
#pragma once

#include <string>
#include <string_view>

#include "velkor/logEscape.h"

namespace velkor {

inline constexpr std::string_view kPlanFirstLine = "velkor deletion plan 1";

inline std::string planVolumeLine(std::string_view volume) { return "volume " + logText(volume) + "\n"; }
inline std::string planFileLine(std::string_view zid, std::string_view name) {
  return std::string(zid) + " " + logText(name) + "\n";
}

// A file line read back: its zid (digits only) and its name; false when the
// line is none.
inline bool readPlanFileLine(std::string_view line, std::string* zid, std::string* name) {
  const size_t space = line.find(' ');
  if (space == 0 || space == std::string_view::npos || space > 20) return false;
  for (char c : line.substr(0, space))
    if (c < '0' || c > '9') return false;
  *zid = std::string(line.substr(0, space));
  *name = decodeLogText(line.substr(space + 1));
  return true;
}

}  // namespace velkor
