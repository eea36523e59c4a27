// How text that velkor does not choose (a file's name, an argument) is shown
// on a terminal by velkor-batch and velkor-report, and the UTF-8 sequences
// their data outputs look at. Header-only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/shownText.h"

namespace velkor {

inline void appendHex(std::string& out, unsigned char byte) {
  static const char digits[] = "0123456789abcdef";
  out += digits[byte >> 4];
  out += digits[byte & 15];
}

// The length of the UTF-8 sequence that `text` starts with (a code point of
// U+0080 or above, in its shortest form, no surrogate), and the code point;
// 0 when it starts with none.
inline size_t utf8Sequence(std::string_view text, uint32_t* code) {
  const unsigned char lead = static_cast<unsigned char>(text[0]);
  size_t length;
  uint32_t min;
  if (lead >= 0xc2 && lead <= 0xdf) length = 2, min = 0x80, *code = lead & 0x1f;
  else if (lead >= 0xe0 && lead <= 0xef) length = 3, min = 0x800, *code = lead & 0x0f;
  else if (lead >= 0xf0 && lead <= 0xf4) length = 4, min = 0x10000, *code = lead & 0x07;
  else return 0;
  if (text.size() < length) return 0;
  for (size_t k = 1; k < length; ++k) {
    const unsigned char next = static_cast<unsigned char>(text[k]);
    if ((next & 0xc0) != 0x80) return 0;
    *code = *code << 6 | (next & 0x3f);
  }
  if (*code < min || *code > 0x10ffff || (*code >= 0xd800 && *code <= 0xdfff)) return 0;
  return length;
}

// Text for a terminal, by the one rule of common/shownText.h that velkor's
// screen follows too: printable characters of the locale as they are,
// controls, characters that take no column or reorder the text around them,
// and bytes that are not the locale's as escapes (\n, \\, \x1b, \xff,
// \u200b, \u202e).
inline std::string printable(std::string_view text) { return KVF::ShownBytes(text); }

}  // namespace velkor
