// The interface object: screen, counters, status line, the two worker
// threads (elapsed time, and Escape to abort a volume scan) and the dispatch
// of the run's operation. The per-file report is in fileReport.cpp.
#include "velkor/velkorUI.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>

#include "common/kvfUtil.h"
#include "common_cpp/kvfError.h"
#include "screen/displayText.h"
#include "screen/screenInterface.h"
#include "velkor/beastQueries.h"
#include "velkor/compCandidate.h"
#include "velkor/logElements.h"
#include "velkor/runLog.h"
#include "velkor/identity.h"
#include "velkor/operations.h"
#include "velkor/volumeLock.h"
#include "velkor/volumeStats.h"

namespace velkor {

namespace {

const char kTitle[] = "KVF Compression Validate and Fix Screen\n";
const char kAbortQuestion[] = "Do you want to abort velkor (y/n)?";
const int kStatusRow = 23;
const char kRecountQuestion[] = "maintenance state. Do you want to continue (y/n)?";

// Holds the screen lock for a scope. The worker threads also keep themselves
// from being cancelled while they hold it, so a cancel never leaves it held.
using ScreenLock = KVF::Hold<KVF::RecursiveMutex>;

// Draws a group of outputs with one copy of the pad to the terminal; a paced
// group is copied at most every ScreenInterface::kPaceMs (see EndUpdate).
class ScreenUpdate {
 public:
  explicit ScreenUpdate(ScreenInterface* screen, bool paced = false) : screen_(screen), paced_(paced) {
    screen_->BeginUpdate();
  }
  ~ScreenUpdate() { screen_->EndUpdate(paced_); }
  ScreenUpdate(const ScreenUpdate&) = delete;
  ScreenUpdate& operator=(const ScreenUpdate&) = delete;

 private:
  ScreenInterface* screen_;
  bool paced_;
};

void unlockOnCancel(void* m) { pthread_mutex_unlock(static_cast<pthread_mutex_t*>(m)); }

// The colour of each counter (statsMsgs order) when it is not 0.
const int kCounterColours[8] = {kAttrPlain, kAttrFigure, kAttrEmphasis, 3, kAttrAccent, kAttrWarning, kAttrBold, kAttrHeading};

}  // namespace

int readKeyFromStdin() {
  // The thread that waits here leaves a new terminal size to the threads that
  // draw: the timer's next repaint takes it, while this one may wait long.
  sigset_t size, saved;
  sigemptyset(&size);
  sigaddset(&size, SIGWINCH);
  pthread_sigmask(SIG_BLOCK, &size, &saved);
  unsigned char c;
  int key = EOF;
  for (;;) {
    ssize_t n = read(0, &c, 1);
    if (n < 0 && errno == EINTR) continue;
    if (n == 1) key = c;
    break;
  }
  pthread_sigmask(SIG_SETMASK, &saved, nullptr);
  return key;
}

VELKOR_UserInterface::VELKOR_UserInterface(int argc, char** argv)
    : error(false),
      aborted(false),
      done(false),
      abortWatch(false),
      operation(0),
      total(0),
      processed(0) {
  try {
    screen = std::make_unique<ScreenInterface>();
  } catch (const std::exception&) {
    screen.reset();
  }
  if (!screen) throw std::runtime_error("Could not access VELKOR screen via ScreenInterface");
  SetScreenGuard(lock.native());

  drawAt(0, 20, kAttrText, "%s", kTitle);
  if (startThread() != 0) {
    screen.reset();
    SetScreenGuard(nullptr);
    throw std::runtime_error("Could not create thread");
  }
  KVF::LB_delay(100);

  stats = std::make_unique<CompStats>(this);
  {
    ScreenLock hold(lock);
    screen->SetDeferredDrawing([this] { drawCountersOnCopy(); });
  }
  stats->fixable = 0;
  stats->fixed = 0;
  stats->deleted = 0;
  error = false;
  setStatus(Status::kRunning);
  displayCommand(argc, argv);
}

VELKOR_UserInterface::~VELKOR_UserInterface() {
  if (!screen) return;
  done = true;
  {
    // The run is over: Escape no longer aborts, and keys are the final prompt's.
    ScreenLock hold(lock);
    abortWatch = false;
  }
  finished();
  {
    ScreenLock hold(lock);
    screen->SetDeferredDrawing(nullptr);
  }
  stats.reset();
  pthread_cancel(timerThread);
  pthread_join(timerThread, nullptr);
  pthread_cancel(abortThread);
  pthread_join(abortThread, nullptr);
  screen.reset();
  SetScreenGuard(nullptr);
}

int VELKOR_UserInterface::startThread() {
  // The worker threads leave the termination signals to the main thread, so
  // that the handler's restoration of the terminal never runs on a thread
  // that is drawing; they inherit this mask.
  sigset_t termination, saved;
  sigemptyset(&termination);
  for (int s : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2, SIGALRM, SIGVTALRM, SIGPROF, SIGIO, SIGPWR})
    sigaddset(&termination, s);
  pthread_sigmask(SIG_BLOCK, &termination, &saved);
  int result = startWorkers();
  pthread_sigmask(SIG_SETMASK, &saved, nullptr);
  return result;
}

int VELKOR_UserInterface::startWorkers() {
  int result = pthread_create(&timerThread, nullptr, runTimerThread, this);
  if (result != 0) return result;
  result = pthread_create(&abortThread, nullptr, runCheckAbortThread, this);
  if (result != 0) {
    // The timer draws on the screen that the caller is about to destroy.
    pthread_cancel(timerThread);
    pthread_join(timerThread, nullptr);
  }
  return result;
}

void VELKOR_UserInterface::drawAt(int row, int col, int attribute, const char* format, ...) {
  va_list args;
  va_start(args, format);
  char small[256];
  int n = vsnprintf(small, sizeof small, format, args);
  va_end(args);
  if (n < 0) return;
  if (static_cast<size_t>(n) < sizeof small) {
    drawText(row, col, attribute, small);
    return;
  }
  std::string text(static_cast<size_t>(n) + 1, '\0');
  va_start(args, format);
  vsnprintf(&text[0], text.size(), format, args);
  va_end(args);
  text.resize(static_cast<size_t>(n));
  drawText(row, col, attribute, text.c_str());
}

void VELKOR_UserInterface::drawText(int row, int col, int attribute, const char* text) {
  ScreenLock hold(lock);
  screen->PositionOutputCursor(row, col);
  screen->OutputToScreenWithAttribute(attribute, "%s", text);
}

int VELKOR_UserInterface::drawName(int row, int col, int attribute, const char* label, const char* text,
                                   int columns) {
  ScreenLock hold(lock);
  return drawNameLocked(row, col, attribute, label, text, columns);
}

int VELKOR_UserInterface::drawNameLocked(int row, int col, int attribute, const char* label, const char* text,
                                         int columns) {
  ScreenUpdate update(screen.get());
  screen->PositionOutputCursor(row, col);
  screen->OutputToScreenWithAttribute(attribute, "%s", label);
  screen->OutputTextWithAttribute(attribute, FitToColumns(DisplayText(text ? text : ""), columns));
  int end = 0;
  screen->GetOutputCursor(row, end);
  return end;
}

int VELKOR_UserInterface::readKey() {
  {
    // The question on the screen is shown whole before the key is waited for.
    ScreenLock hold(lock);
    screen->Flush();
  }
  return readKeyFromStdin();
}

void VELKOR_UserInterface::clearRow(int row) {
  ScreenLock hold(lock);
  clearRowLocked(row);
}

void VELKOR_UserInterface::clearRowLocked(int row) {
  screen->PositionOutputCursor(row, 0);
  screen->ClearLine();
}

void VELKOR_UserInterface::displayCommand(int argc, char** argv) {
  // At most 67 columns: a longer command line is cut to 64 and "...".
  std::string line;
  for (int i = 0; i < argc; ++i) {
    if (i > 0) line += ' ';
    line += argv[i];
  }
  ScreenLock hold(lock);
  ScreenUpdate update(screen.get());
  drawNameLocked(2, 2, kAttrText, "Command: ", line.c_str(), 67);
  screen->OutputToScreenWithAttribute(kAttrText, "\n");
}

void VELKOR_UserInterface::formatTime(int seconds, char* out) {
  sprintf(out, "%02d:%02d:%02d", seconds / 3600, (seconds % 3600) / 60, seconds % 60);
}

void VELKOR_UserInterface::showElapsed(int seconds) {
  ScreenLock hold(lock);
  char elapsed[32];
  formatTime(seconds, elapsed);
  screen->PositionOutputCursor(4, 2);
  uint64_t all = total, done_ = processed;
  if (!done && all != 0) {
    int percent = all > done_ ? static_cast<int>(done_ * 100 / all) : 99;
    screen->OutputToScreenWithAttribute(kAttrText, "Time Elapsed: %s                       Percent finished: %d%%\n",
                                        elapsed, percent);
  } else {
    screen->OutputToScreenWithAttribute(kAttrText, "Time Elapsed: %s\n", elapsed);
  }
}

void* VELKOR_UserInterface::runTimerThread(void* arg) {
  auto* self = static_cast<VELKOR_UserInterface*>(arg);
  for (int seconds = 0;; ++seconds) {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    self->showElapsed(seconds);
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    KVF::LB_delay(1000);
  }
  return nullptr;
}

bool VELKOR_UserInterface::drainKeysAndAskAbort() {
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  lock.lock();
  const bool escape = screen->EatAllTypeAhead();

  bool confirmed = false;
  if (escape) {
    clearRowLocked(kStatusRow);
    screen->PositionOutputCursor(kStatusRow, 2);
    screen->OutputToScreenWithAttribute(kAttrAlert, "%s", kAbortQuestion);
    // The answer is waited for with the lock held: the scan and the timer
    // stop at their next repaint until the operator answers.
    int answer;
    pthread_cleanup_push(unlockOnCancel, lock.native());
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    answer = readKeyFromStdin();
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    pthread_cleanup_pop(0);
    screen->PositionOutputCursor(kStatusRow, static_cast<int>(strlen(kAbortQuestion)) + 4);
    if (answer != EOF) screen->OutputToScreenWithAttribute(kAttrAlert, "%c", answer);
    if (answer != EOF && (answer & ~0x20) == 'Y') {
      confirmed = true;
      aborted = true;
    } else {
      setStatusLocked(Status::kRunning);
    }
  }
  lock.unlock();
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
  return confirmed;
}

void* VELKOR_UserInterface::runCheckAbortThread(void* arg) {
  auto* self = static_cast<VELKOR_UserInterface*>(arg);
  for (;;) {
    // At most ten looks at the keyboard a second: an input that stays
    // readable (at its end) would otherwise be looked at without a pause.
    KVF::LB_delay(100);
    if (!self->abortWatch) continue;
    // Sleeps until a key comes rather than waking every 100 ms to look: a
    // scan without keys runs beside no wake-ups of this thread.
    pollfd keyboard = {0, POLLIN, 0};
    poll(&keyboard, 1, -1);
    if (!self->abortWatch) continue;
    if (self->drainKeysAndAskAbort()) break;
  }
  return nullptr;
}

void VELKOR_UserInterface::setStatus(Status status) {
  ScreenLock hold(lock);
  setStatusLocked(status);
}

void VELKOR_UserInterface::setStatusLocked(Status status) {
  clearRowLocked(kStatusRow);
  screen->PositionOutputCursor(kStatusRow, 2);
  if (status == Status::kRunning) {
    bool noAbort = operation == opFixStats || !isVolumeOperation(operation);
    screen->OutputToScreenWithAttribute(kAttrText, "STATUS: %s", noAbort ? "running" : "running, press <ESC> to abort");
  } else {
    const Finished how = finishedAs(error, *stats);
    const char* text = finishedStatusText(how);
    int attribute = how == Finished::kWithError          ? kAttrWarning
                    : how == Finished::kWithProblemFiles ? kAttrAlert
                                                         : kAttrText;
    if (aborted) {
      text = kUserAborted;
      attribute = kAttrAlert;
    } else if (LogFailure()) {
      // Nothing more reaches the log: the screen says why.
      screen->OutputToScreenWithAttribute(kAttrAlert, "STATUS: the run log could not be written: %s", LogFailure());
      return;
    }
    screen->OutputToScreenWithAttribute(attribute, "STATUS: %s, check %s for details", text, logPath);
    LogFinishStatus(text);
  }
}

void VELKOR_UserInterface::finished() {
  setStatus(Status::kFinished);
  letUserView();
}

int VELKOR_UserInterface::letUserView() {
  drawAt(24, 2, kAttrPrompt, "Press any key to continue....");
  return readKeyFromStdin();
}

void VELKOR_UserInterface::displayCompNotSupported() {
  drawAt(18, 2, kAttrAlert, "Volume doesn't have compression feature enabled. Nothing to do.");
}

void VELKOR_UserInterface::displayStats(unsigned long withLabels) {
  ScreenLock hold(lock);
  stats->counters(counterSnapshot);
  ScreenUpdate update(screen.get(), true);
  drawCountersLocked(withLabels != 0);
}

void VELKOR_UserInterface::countersChanged() {
  // Taken for every object, so that an open abort question halts the scan here.
  ScreenLock hold(lock);
  stats->counters(counterSnapshot);
  // The counters are drawn when the pad is next copied to the terminal: at a
  // human rate from here (a paced copy), and at once at the next prompt,
  // question, status, timer repaint or the end of the operation. Every copy
  // shows what drawing them for every object would have shown.
  screen->DeferDrawing();
  if (screen->PaceElapsed()) screen->Flush();
}

void VELKOR_UserInterface::drawCountersOnCopy() { drawCountersLocked(false); }

void VELKOR_UserInterface::drawCountersLocked(bool withLabels) {
  const int width = static_cast<int>(strlen(CompStats::statsMsgs[0]));
  for (int row = 0; withLabels && row < 4; ++row) {
    screen->PositionOutputCursor(8 + row, 4);
    screen->OutputToScreenWithAttribute(kAttrText, "%s                   %s", CompStats::statsMsgs[2 * row],
                                        CompStats::statsMsgs[2 * row + 1]);
  }
  for (int i = 0; i < 8; ++i) {
    uint64_t value = counterSnapshot[i];
    // A counter that shows the same number already is not drawn again.
    if (!withLabels && countersDrawn && shownCounters[i] == value) continue;
    shownCounters[i] = value;
    screen->PositionOutputCursor(8 + i / 2, i % 2 == 0 ? width + 4 : 2 * width + 24);
    screen->OutputToScreenWithAttribute(value ? kCounterColours[i] : kAttrPlain, "%15u", static_cast<unsigned int>(value));
  }
  countersDrawn = true;
  // The pad's cursor ends where drawing the last counter leaves it.
  screen->PositionOutputCursor(11, 2 * width + 24 + 15);
}

void VELKOR_UserInterface::countersStarted() {
  drawAt(6, 2, kAttrText, "Summary:\n");
  displayStats(1);
}

bool VELKOR_UserInterface::confirm(Question) {
  // One question so far: the recount outside the maintenance state.
  drawAt(10, 2, kAttrWarning, "Compression statistics won't be calculated correctly because volume is not in ");
  drawAt(11, 2, kAttrWarning, "%s", kRecountQuestion);
  int answer = readKey();
  if (answer != EOF) drawAt(11, static_cast<int>(strlen(kRecountQuestion)) + 4, kAttrWarning, "%c", answer);
  if (answer == EOF || tolower(answer) != 'y') return false;
  clearRow(10);
  clearRow(11);
  return true;
}

void VELKOR_UserInterface::statistics(const VolumeStatistics& before, const VolumeStatistics* after) {
  const int labelWidth = static_cast<int>(strlen(kStatisticLabels[0]));
  if (after) {
    for (int row = 0; row < 5; ++row)
      drawAt(12 + row, labelWidth + 30, kAttrFigure, row == 4 ? "%20llu " : "%20llu",
             static_cast<unsigned long long>(after->figure[row]));
    return;
  }
  drawAt(8, 2, kAttrText, "Compression Statistics:");
  drawAt(10, 2, kAttrText, "                                             Old                        New");
  for (int row = 0; row < 5; ++row) {
    drawAt(12 + row, 4, kAttrText, "%s", kStatisticLabels[row]);
    drawAt(12 + row, labelWidth + 4, kAttrPlain, row == 4 ? "%20llu " : "%20llu",
           static_cast<unsigned long long>(before.figure[row]));
  }
}

void VELKOR_UserInterface::candidate(bool isCandidate) {
  drawAt(12, 4, kAttrHeading, "File is %s%s", isCandidate ? "" : "not ", kCandidateWords);
}

// ---- The run's operation ----

bool VELKOR_UserInterface::opDispatcher(int op, char* path, unsigned long noHeader) {
  operation = static_cast<unsigned int>(op);
  // The status line's Escape hint depends on the operation.
  setStatus(Status::kRunning);
  bool lockRefused = false;
  try {
    runOperation(static_cast<unsigned int>(op), path, noHeader, stats.get());
  } catch (const KVFError& e) {
    LogError(e);
    error = true;
    lockRefused = dynamic_cast<const LockRefusal*>(&e) != nullptr;
  }
  // The operation has ended: whatever it drew is shown now.
  ScreenLock hold(lock);
  screen->Flush();
  return lockRefused;
}

}  // namespace velkor
