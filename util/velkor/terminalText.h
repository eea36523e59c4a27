// How text that velkor does not choose (a file's name, an argument) is shown
// on a terminal: as its characters where they are printable, escaped where
// the terminal would act on them rather than show them (controls, C1
// controls, bidirectional formatting, bytes that are not UTF-8), so that no
// name moves the cursor, recolours the screen or sends the terminal a
// sequence of its own. Header-only: velkor-batch and velkor-report use it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

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

// A code point a terminal acts on rather than shows, or that reorders the
// text around it: the C1 controls, and the bidirectional marks, embeddings,
// overrides and isolates.
inline bool hidesText(uint32_t code) {
  return (code >= 0x80 && code <= 0x9f) || code == 0x200e || code == 0x200f || (code >= 0x202a && code <= 0x202e) ||
         (code >= 0x2066 && code <= 0x2069);
}

// Text for a terminal: control bytes, backslashes and bytes that are not
// UTF-8 written as C escapes (\n, \\, \x1b, \xff), the C1 controls and the
// bidirectional formatting characters as \u escapes (\u009b, \u202e); other
// text as it is.
inline std::string printable(std::string_view text) {
  std::string shown;
  shown.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const unsigned char u = static_cast<unsigned char>(text[i]);
    if (u < 0x80) {
      if (u == '\\') shown += "\\\\";
      else if (u == '\n') shown += "\\n";
      else if (u == '\t') shown += "\\t";
      else if (u < 0x20 || u == 0x7f) {
        shown += "\\x";
        appendHex(shown, u);
      } else {
        shown += static_cast<char>(u);
      }
      ++i;
      continue;
    }
    uint32_t code;
    const size_t length = utf8Sequence(text.substr(i), &code);
    if (length == 0) {
      // Not UTF-8: on a terminal that reads bytes, 0x80 to 0x9f are controls.
      shown += "\\x";
      appendHex(shown, u);
      ++i;
    } else if (hidesText(code)) {
      shown += "\\u";
      appendHex(shown, static_cast<unsigned char>(code >> 8));
      appendHex(shown, static_cast<unsigned char>(code & 0xff));
      i += length;
    } else {
      shown.append(text.substr(i, length));
      i += length;
    }
  }
  return shown;
}

}  // namespace velkor
