// Text that the program does not choose (file and volume names, the command
// line, texts taken from the file system's replies) as it is drawn: by the
// rule of common/shownText.h, which velkor-batch and velkor-report follow
// too. Column arithmetic uses the characters' display widths (wcwidth): a
// CJK character takes two columns.
#pragma once

#include <string>
#include <string_view>

// `bytes` as it is drawn on the screen (KVF::ShownText).
std::wstring DisplayText(std::string_view bytes);

// The columns `text` (as DisplayText gives it) takes on the screen.
int DisplayWidth(std::wstring_view text);

// `text` in at most `columns` columns: a wider text is cut after its last
// whole character within columns - 3 and ends in "...". A text that fits is
// returned as it is.
std::wstring FitToColumns(std::wstring text, int columns);
