#include "screen/displayText.h"

#include <cwchar>

#include "common/shownText.h"

std::wstring DisplayText(std::string_view bytes) { return KVF::ShownText(bytes); }

int DisplayWidth(std::wstring_view text) {
  int columns = 0;
  for (wchar_t c : text) {
    int width = wcwidth(c);
    if (width > 0) columns += width;
  }
  return columns;
}

std::wstring FitToColumns(std::wstring text, int columns) {
  if (DisplayWidth(text) <= columns) return text;
  const int room = columns > 3 ? columns - 3 : 0;
  size_t end = 0;
  // Whole characters within the room, with the combining marks that follow them.
  for (int used = 0; end < text.size(); ++end) {
    int width = wcwidth(text[end]);
    if (width > 0 && used + width > room) break;
    if (width > 0) used += width;
  }
  text.resize(end);
  text += L"...";
  return text;
}
