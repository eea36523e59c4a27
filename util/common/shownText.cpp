#include "common/shownText.h"

#include <climits>
#include <cwchar>
#include <cwctype>

namespace {

void appendEscape(std::wstring& out, wchar_t letter, unsigned long value, int digits) {
  static const wchar_t kHex[] = L"0123456789abcdef";
  out += L'\\';
  out += letter;
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) out += kHex[(value >> shift) & 0xf];
}

// Whether `c` is shown as itself: printable, and taking columns of its own
// unless it is a combining mark (the "combining" class of the locale in
// force, where it has one).
bool shownAsItself(wchar_t c) {
  if (!iswprint(c)) return false;
  int width = wcwidth(c);
  if (width != 0) return width > 0;
  const wctype_t combining = wctype("combining");
  return combining != 0 && iswctype(c, combining);
}

}  // namespace

namespace KVF {

std::wstring ShownText(std::string_view bytes) {
  std::wstring out;
  out.reserve(bytes.size());
  std::mbstate_t state{};
  size_t i = 0;
  while (i < bytes.size()) {
    wchar_t c = 0;
    size_t n = std::mbrtowc(&c, bytes.data() + i, bytes.size() - i, &state);
    if (n == static_cast<size_t>(-1) || n == static_cast<size_t>(-2)) {
      // Not a character of the locale (or one cut off at the end): this
      // byte is shown as it is, and reading starts again at the next one.
      appendEscape(out, L'x', static_cast<unsigned char>(bytes[i]), 2);
      state = std::mbstate_t{};
      ++i;
      continue;
    }
    i += n == 0 ? 1 : n;  // n == 0: a null character, one byte
    unsigned long value = static_cast<unsigned long>(c);
    if (c == L'\\') out += L"\\\\";
    else if (c == L'\t') out += L"\\t";
    else if (c == L'\n') out += L"\\n";
    else if (c == L'\r') out += L"\\r";
    else if (shownAsItself(c)) out += c;
    else if (value < 0x80) appendEscape(out, L'x', value, 2);
    else if (value <= 0xffff) appendEscape(out, L'u', value, 4);
    else appendEscape(out, L'U', value, 8);
  }
  return out;
}

std::string ShownBytes(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  std::mbstate_t state{};
  char character[MB_LEN_MAX];
  // Every character shown is one of the locale's: it converts back.
  for (wchar_t c : ShownText(bytes)) {
    size_t n = std::wcrtomb(character, c, &state);
    if (n != static_cast<size_t>(-1)) out.append(character, n);
  }
  return out;
}

}  // namespace KVF
