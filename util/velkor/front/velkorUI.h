// VELKOR_UserInterface: the run's operator interface. It owns the screen, the
// counters and the timer and abort-watch threads, runs the operation and is
// the operations' OperationView.
//
// Threads: the main thread makes and destroys the object and runs
// opDispatcher, the operation and every per-file drawing. The timer thread
// (runTimerThread) repaints the elapsed time and percentage once a second;
// the abort-watch thread (runCheckAbortThread) waits for a key while
// abortWatch is set (looking at most every 100 ms) and asks the abort
// question after Escape.
// The destructor cancels and joins both.
//
// Locking: `lock` is one recursive mutex that guards the screen (curses is
// not thread-safe) and everything drawn on it: every public drawing member
// takes it (EXCLUDES), the private ...Locked forms draw with it held
// (REQUIRES), the timer holds it for a repaint and the abort watch holds it
// from the key check until the operator has answered (so the operation stops
// at its next drawing while the question is open). Clang checks these
// contracts (common/threadSafety.h). The worker threads disable
// cancellation while they hold it. Flags and counts are atomics: `aborted`
// is written by the abort watch and read by the operation between objects;
// `abortWatch`, `total` and `processed` are written by the operation and read
// by the worker threads; `error` and `done` are written by the main thread.
//
// Output: the counters change for every object but are drawn only when the
// screen is copied to the terminal (ScreenInterface::DeferDrawing): at most
// every 50 ms from countersChanged, and at any other drawing, which sends at
// once and takes them along (the timer's repaint within a second); readKey,
// the final status and prompt, the abort question and the end of
// opDispatcher send what is pending before anything waits.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <ostream>

#include "common/threadSafety.h"
#include "screen/screenAttributes.h"

#include "velkor/compStats.h"
#include "velkor/velkorTypes.h"
#include "velkor/volumeScan.h"

class ScreenInterface;

namespace velkor {

class UncompBeastInfo;
class CompBeastInfo;

class VELKOR_UserInterface : public OperationView {
 public:
  // Enters curses mode and starts the threads; throws std::runtime_error.
  VELKOR_UserInterface(int argc, char** argv);
  // Shows the final status, waits for a key, stops the threads, ends curses.
  ~VELKOR_UserInterface() override;
  VELKOR_UserInterface(const VELKOR_UserInterface&) = delete;
  VELKOR_UserInterface& operator=(const VELKOR_UserInterface&) = delete;

  // Runs the operation; a KVFError becomes an error element in the run log.
  // True when the error that ended it was the refusal of its volume's lock.
  bool opDispatcher(int operation, char* path, unsigned long noHeader) EXCLUDES(lock);

  // What the status line says: the operation is under way, or how it ended.
  enum class Status { kRunning, kFinished };

  void displayCommand(int argc, char** argv) EXCLUDES(lock);
  static void formatTime(int seconds, char* out);
  void setStatus(Status status) EXCLUDES(lock);
  void finished() EXCLUDES(lock);
  int letUserView() EXCLUDES(lock);
  void displayCompNotSupported() EXCLUDES(lock);
  void displayStats(unsigned long withLabels) EXCLUDES(lock);
  // The details of a single file checked (fileReport.cpp).
  void displayFileInfo(const FileResult& result) EXCLUDES(lock);
  static void getTypeStr(char* out, unsigned long deletedFlag, unsigned long typeCode, unsigned long xmlForm);

  // OperationView: the results laid out on the screen, each holding the
  // screen lock while it draws.
  void countersStarted() override EXCLUDES(lock);
  void countersChanged() override EXCLUDES(lock);
  void fileChecked(const FileResult& result) override { displayFileInfo(result); }
  void compressionOff() override { displayCompNotSupported(); }
  void statistics(const VolumeStatistics& before, const VolumeStatistics* after) override EXCLUDES(lock);
  void candidate(bool isCandidate) override EXCLUDES(lock);
  bool confirm(Question question) override EXCLUDES(lock);
  void watchForAbort(bool on) override { abortWatch = on; }
  bool abortRequested() const override { return aborted; }
  void setTotal(uint64_t objects) override { total = objects; }
  void objectDone() override { ++processed; }

  KVF::RecursiveMutex lock;
  std::unique_ptr<ScreenInterface> screen PT_GUARDED_BY(lock);
  pthread_t timerThread;
  pthread_t abortThread;
  std::atomic<bool> error;
  std::atomic<bool> aborted;
  std::atomic<bool> done;
  std::atomic<bool> abortWatch;
  std::unique_ptr<CompStats> stats;
  uint64_t operation;
  std::atomic<uint64_t> total;
  std::atomic<uint64_t> processed;
  // The numbers the counter block shows, so that a counter whose number has
  // not changed is not drawn again.
  uint64_t shownCounters[8] GUARDED_BY(lock) = {};
  bool countersDrawn GUARDED_BY(lock) = false;
  // The counters as the operation's thread last reported them: a copy made
  // on another thread (the timer's) draws these, never the live ones.
  uint64_t counterSnapshot[8] GUARDED_BY(lock) = {};

 private:
  // printf-style text at a screen position with a display attribute.
  void drawAt(int row, int col, int attribute, const char* format, ...) EXCLUDES(lock)
      __attribute__((format(printf, 5, 6)));
  void drawText(int row, int col, int attribute, const char* text) EXCLUDES(lock);
  // Text this program does not choose (a name, the command line, a text of a
  // reply) at a screen position after `label`: drawn as DisplayText shows it
  // (screen/displayText.h), in at most `columns` columns (FitToColumns).
  // Returns the column after it.
  int drawName(int row, int col, int attribute, const char* label, const char* text, int columns) EXCLUDES(lock);
  void clearRow(int row) EXCLUDES(lock);
  // One key from the operator, after what is drawn is shown; EOF when there is none.
  int readKey() EXCLUDES(lock);
  static void* runTimerThread(void* self);
  static void* runCheckAbortThread(void* self);
  int startThread();
  int startWorkers();
  void showElapsed(int seconds) EXCLUDES(lock);
  // Drains the keys typed so far; after an Escape asks whether to abort. True
  // when the operator answered y or Y.
  bool drainKeysAndAskAbort() EXCLUDES(lock);
  // The drawing members' bodies, for callers that hold the lock already.
  int drawNameLocked(int row, int col, int attribute, const char* label, const char* text, int columns)
      REQUIRES(lock);
  void clearRowLocked(int row) REQUIRES(lock);
  // The counter block from counterSnapshot (only the counters that changed,
  // unless withLabels).
  void drawCountersLocked(bool withLabels) REQUIRES(lock);
  // The screen's deferred drawing: called at a copy, which is only ever made
  // with the lock held.
  void drawCountersOnCopy() NO_THREAD_SAFETY_ANALYSIS;
  void setStatusLocked(Status status) REQUIRES(lock);
};

// One character from standard input, unbuffered; EOF when there is none.
int readKeyFromStdin();

}  // namespace velkor
