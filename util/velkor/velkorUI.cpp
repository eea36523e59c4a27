#include "velkorUI.h"

namespace velkor {

VELKOR_UserInterface::VELKOR_UserInterface(int, char**) {}
VELKOR_UserInterface::~VELKOR_UserInterface() {}
void VELKOR_UserInterface::opDispatcher(int, char*, unsigned long) {}

}  // namespace velkor
