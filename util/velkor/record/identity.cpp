#include "velkor/identity.h"

const char* appName = "velkor";
const char* appVersion = "1.00";
const char* logPath = "./velkor.log";
