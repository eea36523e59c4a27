#include "common/lbString.h"

namespace KVF {

namespace {

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool isHexPrefix(const char* s) { return s[0] == '0' && (s[1] == 'x' || s[1] == 'X'); }

}  // namespace

namespace {

struct DigitValues {
  unsigned char of[256];
  constexpr DigitValues() : of() {
    for (int c = 0; c < 256; ++c) of[c] = 37;
    for (int c = '0'; c <= '9'; ++c) of[c] = static_cast<unsigned char>(c - '0');
    for (int c = 'a'; c <= 'z'; ++c) of[c] = static_cast<unsigned char>(c - 'a' + 10);
    for (int c = 'A'; c <= 'Z'; ++c) of[c] = static_cast<unsigned char>(c - 'A' + 10);
  }
};
constexpr DigitValues kDigitValues;

}  // namespace

int qradix_value(int c) { return c >= 0 && c < 256 ? kDigitValues.of[c] : 37; }

uint64_t _stoq(const char* text, char** stop, int base, int signedFlag) {
  if (stop) *stop = const_cast<char*>(text);
  const char* s = text;
  while (isSpace(*s)) ++s;
  bool negative = false;
  if (*s == '-' || *s == '+') negative = (*s++ == '-');

  if (base == 0) {
    base = isHexPrefix(s) ? 16 : (*s == '0' ? 8 : 10);
  } else if (base < 2 || base > 36) {
    return 0;
  }
  if (base == 16 && isHexPrefix(s)) s += 2;

  // The overflow test only notices a value that wrapped below its predecessor;
  // a multiplication that wraps to a larger value passes unnoticed.
  uint64_t value = 0;
  bool overflow = false;
  const char* first = s;
  for (int digit; (digit = qradix_value(static_cast<unsigned char>(*s))) < base; ++s) {
    uint64_t next = value * static_cast<uint64_t>(base) + static_cast<uint64_t>(digit);
    if (next < value) overflow = true;
    value = next;
  }
  if (stop) *stop = const_cast<char*>(s == first ? text : s);

  if (!signedFlag) {
    if (overflow) return UINT64_MAX;
    return negative ? 0 - value : value;
  }
  const uint64_t kMinMagnitude = uint64_t{1} << 63;
  const uint64_t kMax = static_cast<uint64_t>(INT64_MAX);
  if (overflow) return negative ? kMinMagnitude : kMax;
  if (value > kMax) {  // negative when read as signed
    if (value != kMinMagnitude || !negative) return negative ? kMinMagnitude : kMax;
  }
  return negative ? 0 - value : value;
}

uint64_t LB_strtouq(const char* text, char** stop, int base) { return _stoq(text, stop, base, 0); }

bool LB_fitsDecimal(const char* text, uint64_t max) {
  const char* s = text;
  while (isSpace(*s)) ++s;
  if (*s == '-' || *s == '+') ++s;
  uint64_t value = 0;
  for (; *s >= '0' && *s <= '9'; ++s) {
    uint64_t digit = static_cast<uint64_t>(*s - '0');
    if (value > (max - digit) / 10) return false;
    value = value * 10 + digit;
  }
  return true;
}

int64_t LB_strtoq(const char* text, char** stop, int base) {
  return static_cast<int64_t>(_stoq(text, stop, base, 1));
}

}  // namespace KVF
