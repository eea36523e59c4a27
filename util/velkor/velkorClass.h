// The management channel: the paths of the management command files, the
// request envelope, and (below) the reply buffer and command-file exchange.
#pragma once

// Management command files and the request envelope. Plain globals, so that
// tests can point the program at a simulator's mount.
extern const char* managecmd;
extern const char* filecmd;
extern const char* cmdHeader;
