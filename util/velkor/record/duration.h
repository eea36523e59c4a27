// A duration as the programs take it on their command lines: a number of
// seconds, minutes, hours or days ("30s", "90m", "4h", "7d"). Header-only,
// shared by velkor-batch (--max-duration) and velkor-report (--max-age).
#pragma once

#include <cstdint>
#include <string_view>

namespace velkor {

// The duration's seconds; false when `text` is none (no unit, no number, 0,
// more than nine digits).
inline bool parseDuration(std::string_view text, int64_t* seconds) {
  if (text.size() < 2 || text.size() > 10) return false;
  int64_t unit = 0;
  switch (text.back()) {
    case 's': unit = 1; break;
    case 'm': unit = 60; break;
    case 'h': unit = 3600; break;
    case 'd': unit = 86400; break;
    default: return false;
  }
  int64_t n = 0;
  for (size_t i = 0; i + 1 < text.size(); ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    n = n * 10 + (text[i] - '0');
  }
  *seconds = n * unit;
  return n > 0;
}

}  // namespace velkor
