// Text that the program does not choose (file and volume names, the command
// line, texts taken from the file system's replies) as it is drawn.
//
// Such text may hold any bytes. Drawn as it stands, a newline, carriage
// return or backspace would move the drawing elsewhere on the screen, an
// escape sequence could reach the terminal, and a byte of a broken
// character would be shown as some other character or none. So the text is
// read as characters of the locale's character set (LC_CTYPE, which the
// screen layer takes from the environment at start-up) and:
//
//   - a printable character is drawn as itself (a combining mark joins the
//     character before it);
//   - "\" is drawn as "\\", so that the escapes below are never mistaken
//     for the name's own text;
//   - a tab, newline and carriage return are drawn as "\t", "\n" and "\r";
//   - any other ASCII control character, and each byte that is not part of
//     a character of the locale, as "\xHH" (two hexadecimal digits);
//   - any other character that is not printable or takes no column of its
//     own (format characters such as U+202E, which reorders what follows on
//     some terminals, or U+200B) as "\uHHHH", or "\UHHHHHHHH" past U+FFFF.
//
// Column arithmetic uses the characters' display widths (wcwidth): a CJK
// character takes two columns.
#pragma once

#include <string>
#include <string_view>

// `bytes` as it is drawn on the screen.
std::wstring DisplayText(std::string_view bytes);

// The columns `text` (as DisplayText gives it) takes on the screen.
int DisplayWidth(std::wstring_view text);

// `text` in at most `columns` columns: a wider text is cut after its last
// whole character within columns - 3 and ends in "...". A text that fits is
// returned as it is.
std::wstring FitToColumns(std::wstring text, int columns);
