// How text that velkor does not choose (file names, command-line arguments,
// texts taken from replies) is written into the run log, and read back.
//
// Such text may hold any bytes. Written raw, a name holding "</name>" or a
// newline followed by "</velkor>" could end its element early or forge the
// start of another run. So '<', '>' and '&', and every control byte (0x00 to
// 0x1F and 0x7F) are written as XML character references; in an attribute
// value the double quote is too. Every other byte, UTF-8 sequences included,
// is written as it is, so a name without such bytes reads exactly as before.
//
// Header-only: velkor-report decodes with the same rules without linking the
// program.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/utf8.h"

namespace velkor {

enum class LogTextKind { element, attribute };

// Whether the byte `c` is written as a character reference.
inline bool needsLogReference(char c, LogTextKind kind) {
  const unsigned char byte = static_cast<unsigned char>(c);
  return c == '<' || c == '>' || c == '&' || (c == '"' && kind == LogTextKind::attribute) || byte < 0x20 ||
         byte == 0x7F;
}

// Appends `text` to `out` as the run log writes it.
inline void appendLogText(std::string& out, std::string_view text, LogTextKind kind = LogTextKind::element) {
  // The plain leading run (all of a usual name) goes in one append.
  size_t plain = 0;
  while (plain < text.size() && !needsLogReference(text[plain], kind)) ++plain;
  out.append(text.data(), plain);
  for (char c : text.substr(plain)) {
    const unsigned char byte = static_cast<unsigned char>(c);
    switch (c) {
      case '<': out += "&lt;"; continue;
      case '>': out += "&gt;"; continue;
      case '&': out += "&amp;"; continue;
      case '"':
        if (kind == LogTextKind::attribute) {
          out += "&quot;";
          continue;
        }
        break;
      default:
        break;
    }
    if (byte < 0x20 || byte == 0x7F) {
      out += "&#";
      out += std::to_string(byte);
      out += ';';
    } else {
      out += c;
    }
  }
}

inline std::string logText(std::string_view text, LogTextKind kind = LogTextKind::element) {
  std::string out;
  out.reserve(text.size());
  appendLogText(out, text, kind);
  return out;
}

// The text a run log element or attribute value holds, its references
// decoded: the five named ones and numeric ones (decimal or hexadecimal, as
// UTF-8). Anything else that starts with '&' is kept as it stands (logs
// written before names were escaped hold bare ampersands).
inline std::string decodeLogText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    if (text[i] != '&') {
      out += text[i++];
      continue;
    }
    const size_t semicolon = text.find(';', i + 1);
    if (semicolon == std::string_view::npos || semicolon - i > 12) {
      out += text[i++];
      continue;
    }
    const std::string_view name = text.substr(i + 1, semicolon - i - 1);
    const char* named = nullptr;
    if (name == "lt") named = "<";
    else if (name == "gt") named = ">";
    else if (name == "amp") named = "&";
    else if (name == "quot") named = "\"";
    else if (name == "apos") named = "'";
    if (named) {
      out += named;
      i = semicolon + 1;
      continue;
    }
    uint32_t code = 0;
    bool number = name.size() >= 2 && name[0] == '#';
    if (number) {
      const bool hex = name[1] == 'x' || name[1] == 'X';
      const std::string_view digits = name.substr(hex ? 2 : 1);
      number = !digits.empty();
      for (char d : digits) {
        uint32_t value;
        if (d >= '0' && d <= '9') value = static_cast<uint32_t>(d - '0');
        else if (hex && d >= 'a' && d <= 'f') value = static_cast<uint32_t>(d - 'a' + 10);
        else if (hex && d >= 'A' && d <= 'F') value = static_cast<uint32_t>(d - 'A' + 10);
        else {
          number = false;
          break;
        }
        code = code * (hex ? 16 : 10) + value;
        if (code > 0x10FFFF) {
          number = false;
          break;
        }
      }
    }
    if (!number) {
      out += text[i++];
      continue;
    }
    KVF::appendUtf8(out, code);
    i = semicolon + 1;
  }
  return out;
}

}  // namespace velkor
