// The shared utility layer: small helpers that the tools of the file system
// have in common (names of status numbers, sleeping, number text).
#pragma once

#include <cstdint>

namespace KVF {

// The name of a file-system status number; never fails.
const char* GetErrorFromNumber(int number);
const char* MM_GetErrorFromNumber(int number);

// Sleeps for ms milliseconds (the product ms * 1000 is taken in 32 bits).
void LB_delay(unsigned int ms);

}  // namespace KVF
