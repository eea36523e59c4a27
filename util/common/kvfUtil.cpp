#include "common/kvfUtil.h"

#include <unistd.h>

namespace KVF {

void LB_delay(unsigned int ms) {
  uint32_t micros = static_cast<uint32_t>(ms) * 1000u;
  usleep(micros);
}

}  // namespace KVF
