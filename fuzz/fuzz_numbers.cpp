// Fuzzes the number conversions with arbitrary bytes: the reader's conversion
// over an exactly sized block with no NUL, and the strtoq forms with every base.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "common/lbString.h"
#include "common_cpp/qXML.h"

namespace {

bool allDecimal(const char* text, size_t length) {
  for (size_t i = 0; i < length; ++i)
    if (text[i] < '0' || text[i] > '9') return false;
  return length > 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const int base = data[0] % 40;  // valid bases, 0, and a few invalid ones
  const char* bytes = reinterpret_cast<const char*>(data + 1);
  const size_t length = size - 1;

  std::unique_ptr<char[]> exact(new char[length + 1]);
  memcpy(exact.get(), bytes, length);
  const char* end = exact.get() + length - 1;
  uint64_t unsignedValue;
  int64_t signedValue;
  const char* next = nullptr;
  if (QXML::XML_UTF8ToQUAD(exact.get(), end, &unsignedValue, &next) == 0 &&
      (next <= exact.get() || next > end + 1))
    __builtin_trap();
  QXML::XML_UTF8ToSQUAD(exact.get(), end, &signedValue, nullptr);

  std::unique_ptr<char[]> text(new char[length + 1]);
  memcpy(text.get(), bytes, length);
  text[length] = '\0';
  char* stop = nullptr;
  uint64_t u = KVF::LB_strtouq(text.get(), &stop, base);
  if (stop < text.get() || stop > text.get() + strlen(text.get())) __builtin_trap();
  KVF::LB_strtoq(text.get(), &stop, base);
  if (stop < text.get() || stop > text.get() + strlen(text.get())) __builtin_trap();
  // Plain decimal text that fits agrees with the C library.
  if (base == 10 && length <= 19 && allDecimal(text.get(), length) && u != strtoull(text.get(), nullptr, 10))
    __builtin_trap();
  return 0;
}
