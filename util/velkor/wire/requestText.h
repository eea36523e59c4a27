// RequestText: a request being formatted into its fixed-size buffer. Text that
// would not fit is refused with a KVFError (buffer too small), never cut.
#pragma once

#include <cstddef>

#include "velkor/channel.h"

namespace velkor {

class RequestText {
 public:
  static const size_t kMaxCapacity = 1024;

  // A refusal is located in the queries and operations that make requests,
  // at the line that made this one (by default the caller's).
  explicit RequestText(size_t capacity = kMaxCapacity, int line = __builtin_LINE())
      : capacity_(capacity), length_(0), line_(line) {
    text_[0] = '\0';
  }

  // Appends printf-style text.
  void append(const char* format, ...) __attribute__((format(printf, 2, 3)));

  char* text() { return text_; }
  size_t length() const { return length_; }

 private:
  size_t capacity_;
  size_t length_;
  int line_;
  char text_[kMaxCapacity];
};

}  // namespace velkor
