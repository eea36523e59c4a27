// The shared utility layer: small helpers that the tools of the file system
// have in common (sleeping; number text is in lbString.h).
#pragma once

#include <cstdint>

namespace KVF {

// Sleeps for ms milliseconds (the product ms * 1000 is taken in 32 bits).
void LB_delay(unsigned int ms);

}  // namespace KVF
