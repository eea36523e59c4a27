#include "velkor.h"
const char* appName = "velkor";
const char* appVersion = "1.00";
const char* logPath = "./velkor.log";
const char* VELKOR_ShortOptions = "bcCdDfFhHIlLp:Sv";
int velkorMain(int, char**) { return 0; }
