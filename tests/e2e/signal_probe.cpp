// A small program that registers the termination-signal layer and then does
// what its argument says, so tests can watch how the process ends.
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "screen/signals.h"

static void cleanup(void*) {
  const char text[] = "cleanup ran\n";
  (void)!write(1, text, sizeof text - 1);
}

int main(int argc, char** argv) {
  const char* mode = argc > 1 ? argv[1] : "";
  if (!strcmp(mode, "null")) Signals_RegisterForTerminationSignals(nullptr, nullptr);
  if (!strcmp(mode, "ignored-hup")) signal(SIGHUP, SIG_IGN);
  Signals_RegisterForTerminationSignals(cleanup, nullptr);
  if (!strcmp(mode, "twice")) Signals_RegisterForTerminationSignals(cleanup, nullptr);
  if (argc > 2) Signals_SetErrorDescriptor(1);

  if (!strcmp(mode, "term")) raise(SIGTERM);
  if (!strcmp(mode, "segv")) raise(SIGSEGV);
  if (!strcmp(mode, "xfsz")) raise(SIGXFSZ);
  if (!strcmp(mode, "ignored-hup")) raise(SIGHUP);
  if (!strcmp(mode, "wait")) {
    printf("waiting\n");
    fflush(stdout);
    pause();
  }
  printf("survived\n");
  return 0;
}
