// Operations that are not built yet: they do nothing. Each moves to its own
// file when it is built.
#include "velkorHelper.h"
#include "velkorUI.h"

namespace velkor {

void checkCCBit(char*, char*, OpArgs_s*, CompStats*) {}
void VELKOR_UserInterface::doVolumeStats(char*) {}
void VELKOR_UserInterface::doFileCompCandidate(char*) {}

}  // namespace velkor
