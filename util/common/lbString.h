// Number text of the shared utility layer: 64-bit conversions of NUL-terminated
// text with C-style bases (0 picks 8, 10 or 16 from the text) and clamping.
#pragma once

#include <cstdint>

namespace KVF {

// Value of one digit byte: 0-9 for '0'-'9', 10-35 for letters in either case,
// 37 (above every base) for anything else.
int qradix_value(int c);

// The conversion behind both forms. Skips white space, takes one sign, reads
// digits of `base` (2..36, or 0 to pick it from the text; any other base gives
// 0). *stop, when given, is set after the last digit, or to `text` if none.
// Unsigned form (signedFlag 0): all ones on overflow, else the value, negated
// modulo 2^64 after '-'. Signed form: clamped to the int64 range by sign; the
// result's bits are returned.
uint64_t _stoq(const char* text, char** stop, int base, int signedFlag);

uint64_t LB_strtouq(const char* text, char** stop, int base);
// Whether the decimal digits of `text` (after white space and a sign) stand
// for a magnitude of at most `max`. Unlike the conversions, exact: no digit
// string that wraps around 64 bits passes.
bool LB_fitsDecimal(const char* text, uint64_t max);
int64_t LB_strtoq(const char* text, char** stop, int base);

}  // namespace KVF
