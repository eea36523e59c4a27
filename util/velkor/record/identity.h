// Who the running program is and where its run log goes: read by the run
// log, the screen and the messages of every program over this library. Each
// driver sets them before anything reads them (velkor keeps the defaults;
// velkor-batch names itself first; -p sets the log's path).
#pragma once

extern const char* appName;
extern const char* appVersion;
extern const char* logPath;
