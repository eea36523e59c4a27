// The shared utility layer: small helpers that the tools of the file system
// have in common (sleeping; number text is in lbString.h).
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace KVF {

// Sleeps for ms milliseconds (the product ms * 1000 is taken in 32 bits).
void LB_delay(unsigned int ms);

// Text in a block from malloc (the reply reader's copies), released with free.
struct FreeDeleter {
  void operator()(void* block) const { free(block); }
};
using MallocedText = std::unique_ptr<char, FreeDeleter>;

}  // namespace KVF
