// The run driver of velkor: the order of a run on the screen.
#pragma once

#include "velkor/identity.h"
#include "velkor/runStart.h"

extern const char* VELKOR_ShortOptions;

int velkorMain(int argc, char** argv);

void VELKOR_Cleanup(void*);
void VELKOR_AtExitCleanup();
void LetUserRead();
