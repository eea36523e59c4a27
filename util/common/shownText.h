// How text that the program does not choose (file and volume names, the
// command line, texts taken from the file system's replies or from the run
// log) is shown to a person: on velkor's screen, and on the terminal that
// velkor-batch and velkor-report write to. One rule for all of them.
//
// Such text may hold any bytes. Shown as it stands, a newline, carriage
// return or backspace would move the drawing elsewhere, an escape sequence
// could reach the terminal, a character that takes no column (U+200B) would
// make two names look alike, a bidirectional control (U+202E, U+061C) would
// reorder what follows, and a byte of a broken character would be shown as
// some other character or none. So the text is read as characters of the
// locale's character set (LC_CTYPE, which each program takes from the
// environment at start-up) and:
//
//   - a printable character is shown as itself (a combining mark joins the
//     character before it);
//   - "\" is shown as "\\", so that the escapes below are never mistaken
//     for the name's own text;
//   - a tab, newline and carriage return are shown as "\t", "\n" and "\r";
//   - any other ASCII control character, and each byte that is not part of
//     a character of the locale, as "\xHH" (two hexadecimal digits);
//   - any other character that is not printable or takes no column of its
//     own (the C1 controls, format characters such as U+200B, U+FEFF,
//     U+061C and U+202E, the separators U+2028 and U+2029) as "\uHHHH", or
//     "\UHHHHHHHH" past U+FFFF.
#pragma once

#include <string>
#include <string_view>

namespace KVF {

// `bytes` as it is shown, as characters.
std::wstring ShownText(std::string_view bytes);

// The same in the locale's character set, for a stream.
std::string ShownBytes(std::string_view bytes);

}  // namespace KVF
