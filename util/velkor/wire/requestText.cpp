#include "velkor/requestText.h"

#include <cstdarg>
#include <cstdio>
#include <string>

#include "common_cpp/kvfError.h"

namespace velkor {

void RequestText::append(const char* format, ...) {
  va_list args;
  va_start(args, format);
  int n = vsnprintf(text_ + length_, capacity_ - length_, format, args);
  va_end(args);
  if (n < 0 || static_cast<size_t>(n) >= capacity_ - length_) {
    text_[length_] = '\0';
    throw KVFError("Request does not fit its buffer", zERR_BUFFER_TOO_SMALL,
                   KVF_Location(KvfSource::velkorHelper, line_));
  }
  length_ += static_cast<size_t>(n);
}

}  // namespace velkor
