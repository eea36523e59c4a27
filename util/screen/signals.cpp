// The termination-signal layer. A handled signal prints a notice, restores the
// default action of the program-error signals, runs the cleanup routine and
// re-raises itself with its default action; SIGXFSZ is only reported.
#include "screen/signals.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

enum ActionKind { kTerminate = 1, kCore = 2, kIgnore = 4, kStop = 8, kContinue = 16 };
enum Category {
  kProgramError = 0x1,
  kTermination = 0x2,
  kTimer = 0x4,
  kAsyncIO = 0x8,
  kJobControl = 0x10,
  kOperationError = 0x20,
  kUserSignal = 0x40,
  kNotPortable = 0x8000,
};

struct SignalRow {
  int32_t signal;
  int32_t kind;
  int32_t category;
  int32_t reserved;
  int32_t enabled;
};

const SignalRow signalTable[] = {
    {0, kIgnore, kNotPortable | kUserSignal, 1, 1},
    {SIGHUP, kTerminate, kTermination, 1, 1},
    {SIGINT, kTerminate, kTermination, 1, 1},
    {SIGQUIT, kCore, kTermination, 1, 1},
    {SIGILL, kCore, kProgramError, 1, 1},
    {SIGTRAP, kCore, kProgramError, 1, 1},
    {SIGABRT, kCore, kProgramError, 1, 1},
    {SIGABRT, kCore, kProgramError, 1, 1},
    {SIGBUS, kCore, kProgramError, 1, 1},
    {SIGFPE, kCore, kProgramError, 1, 1},
    {SIGKILL, kTerminate, kTermination, 0, 0},
    {SIGUSR1, kTerminate, kUserSignal, 1, 1},
    {SIGSEGV, kCore, kProgramError, 1, 1},
    {SIGUSR2, kTerminate, kUserSignal, 1, 1},
    {SIGPIPE, kTerminate, kOperationError, 1, 1},
    {SIGALRM, kTerminate, kTimer, 1, 1},
    {SIGTERM, kTerminate, kTermination, 1, 1},
    {SIGSTKFLT, kTerminate, kNotPortable | kProgramError, 1, 1},
    {SIGCHLD, kIgnore, kJobControl, 1, 1},
    {SIGCHLD, kIgnore, kJobControl, 1, 1},
    {SIGCONT, kContinue, kJobControl, 1, 1},
    {SIGSTOP, kTerminate, kJobControl, 0, 0},
    {SIGTSTP, kStop, kJobControl, 1, 1},
    {SIGTTIN, kStop, kJobControl, 1, 1},
    {SIGTTOU, kStop, kJobControl, 1, 1},
    {SIGURG, kIgnore, kAsyncIO, 1, 1},
    {SIGXCPU, kCore, kOperationError, 1, 1},
    {SIGXFSZ, kCore, kOperationError, 1, 1},
    {SIGVTALRM, kTerminate, kTimer, 1, 1},
    {SIGPROF, kTerminate, kTimer, 1, 1},
    {SIGWINCH, kIgnore, kNotPortable | kUserSignal, 1, 1},
    {SIGIO, kTerminate, kAsyncIO, 1, 1},
    {SIGIO, kTerminate, kAsyncIO, 1, 1},
    {SIGPWR, kTerminate, kNotPortable | kUserSignal, 1, 1},
    {SIGSYS, kCore, kProgramError, 1, 1},
};

const int kLastSignal = 64;

void (*cleanupRoutine)(void*) = nullptr;
void* cleanupArgument = nullptr;
sigset_t handledSignals;
sigset_t programErrorSignals;
volatile int errorDescriptor = -1;

// The handler formats its own text: stdio is not safe inside a signal handler.
void writeText(int fd, const char* text) {
  size_t length = strlen(text);
  while (length > 0) {
    ssize_t n = write(fd, text, length);
    if (n <= 0) return;
    text += n;
    length -= n;
  }
}

void formatInt(char* out, long value) {
  char digits[24];
  int n = 0;
  bool negative = value < 0;
  unsigned long magnitude = negative ? 0ul - static_cast<unsigned long>(value) : static_cast<unsigned long>(value);
  do {
    digits[n++] = static_cast<char>('0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude);
  if (negative) *out++ = '-';
  while (n) *out++ = digits[--n];
  *out = '\0';
}

void writeError(const char* a, const char* b = "", const char* c = "") {
  int fd = errorDescriptor >= 0 ? errorDescriptor : 2;
  writeText(fd, a);
  writeText(fd, b);
  writeText(fd, c);
}

bool restoreDefault(int signal) {
  struct sigaction action;
  memset(&action, 0, sizeof action);
  action.sa_handler = SIG_DFL;
  sigemptyset(&action.sa_mask);
  return sigaction(signal, &action, nullptr) == 0;
}

void handleSignal(int signal, siginfo_t*, void*) {
  int savedErrno = errno;
  char number[24];
  formatInt(number, signal);
  writeText(1, "Handling signal ");
  writeText(1, number);
  writeText(1, ".\n");
  if (signal == SIGXFSZ) {
    errno = savedErrno;
    return;
  }

  for (int s = 1; s <= kLastSignal; ++s) {
    if (sigismember(&programErrorSignals, s) == 1 && !restoreDefault(s)) {
      writeError("Unable to register default signal handler for program signal -- ", strerror(errno), "\n");
      _exit(303);
    }
  }
  if (pthread_sigmask(SIG_UNBLOCK, &programErrorSignals, nullptr) != 0) {
    writeError("Unable to unblock default signal handler for program error -- ", strerror(errno), "\n");
    _exit(316);
  }
  cleanupRoutine(cleanupArgument);
  if (!restoreDefault(signal)) {
    writeError("Unable to register default signal handler -- ", strerror(errno));
    _exit(345);
  }
  writeError("Resending signal to default handler.\n");
  int result = raise(signal);
  if (result != 0) {
    formatInt(number, result);
    writeError("Unable to resend -- ", number, "\n");
    writeError("Doing a self exit.\n");
    _exit(368);
  }
  errno = savedErrno;
}

}  // namespace

int Signals_RegisterForTerminationSignals(void (*cleanup)(void*), void* argument) {
  if (!cleanup) exit(404);
  if (cleanupRoutine) exit(408);
  cleanupRoutine = cleanup;
  cleanupArgument = argument;

  sigemptyset(&handledSignals);
  sigemptyset(&programErrorSignals);
  for (const SignalRow& row : signalTable) {
    if (!row.enabled || (row.kind != kTerminate && row.kind != kCore)) continue;
    struct sigaction current;
    if (sigaction(row.signal, nullptr, &current) != 0 || current.sa_handler == SIG_IGN) continue;
    sigaddset(&handledSignals, row.signal);
    if (row.category & kProgramError) sigaddset(&programErrorSignals, row.signal);
  }

  for (int s = 0; s <= kLastSignal; ++s) {
    if (sigismember(&handledSignals, s) != 1) continue;
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_sigaction = handleSignal;
    action.sa_mask = handledSignals;
    action.sa_flags = SA_SIGINFO;
    if (sigaction(s, &action, nullptr) != 0) fprintf(stderr, "Unable to register signal handler for signal %d\n", s);
  }
  return 0;
}

void Signals_SetErrorDescriptor(int fd) { errorDescriptor = fd; }
