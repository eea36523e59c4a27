// VELKOR_UserInterface: the run's operator interface. It owns the screen, the
// counters and the timer and abort-watch threads, and runs the operation.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <ostream>

#include "velkor/compStats.h"
#include "velkor/velkorTypes.h"

class ScreenInterface;

namespace velkor {

class UncompBeastInfo;
class CompBeastInfo;

// The per-object routine of the list, fix, delete and clear operations.
typedef void (*ObjectRoutine)(char* volumeName, char* objectText, OpArgs_s* args, CompStats* stats);

class VELKOR_UserInterface {
 public:
  // Enters curses mode and starts the threads; throws std::runtime_error.
  VELKOR_UserInterface(int argc, char** argv);
  // Shows the final status, waits for a key, stops the threads, ends curses.
  ~VELKOR_UserInterface();
  VELKOR_UserInterface(const VELKOR_UserInterface&) = delete;
  VELKOR_UserInterface& operator=(const VELKOR_UserInterface&) = delete;

  // Runs the operation; a KVFError becomes an error element in the run log.
  void opDispatcher(int operation, char* path, unsigned long noHeader);
  void fileOp(char* path, ObjectRoutine routine, OpArgs_s* args);
  void volumeOp(char* volumeName, ObjectRoutine routine, OpArgs_s* args);
  void doVolumeStats(char* volumeName);
  void doFileCompCandidate(char* path);

  void displayCommand(int argc, char** argv);
  static void formatTime(int seconds, char* out);
  void setStatus(int state);
  void finished();
  int letUserView();
  void displayCompNotSupported();
  void displayStats(unsigned long withLabels);
  void displayFileInfo(UncompBeastInfo* info, CompBeastInfo* comp, char* name, unsigned long problems,
                       unsigned long noHeader, unsigned long fixed, unsigned long deleted);
  void logFileInfo(UncompBeastInfo* info, CompBeastInfo* comp, char* name, unsigned long problems,
                   unsigned long noHeader, unsigned long fixed, unsigned long deleted);
  static void getTypeStr(char* out, unsigned long deletedFlag, unsigned long typeCode, unsigned long xmlForm);

  // Draws at a position with a display attribute, holding the screen lock.
  void drawAt(int row, int col, int attribute, const char* format, ...);
  // Clears a whole screen row.
  void clearRow(int row);

  ScreenInterface* screen;
  pthread_t timerThread;
  pthread_t abortThread;
  std::atomic<bool> error;
  std::atomic<bool> aborted;
  std::atomic<bool> done;
  std::atomic<bool> abortWatch;
  CompStats* stats;
  uint64_t operation;
  std::atomic<uint64_t> total;
  std::atomic<uint64_t> processed;
  pthread_mutex_t lock;

 private:
  // Resolves a file's path into its volume name and zid and reads the
  // volume's information; false (after saying so) when the volume has no
  // compression.
  bool lookUpFile(char* path, char (&volumeName)[64], char (&zid)[104]);

  static void* runTimerThread(void* self);
  static void* runCheckAbortThread(void* self);
  int startThread();
  void showElapsed(int seconds);
  bool watchForAbort();
};

// Writes a checked file's run-log entry (the text logFileInfo writes) to `log`,
// leaving its flags as the entry leaves them; `operation` is the run's code.
void writeLogEntry(std::ostream& log, uint64_t operation, UncompBeastInfo* info, CompBeastInfo* comp,
                   const char* name, unsigned long problems, unsigned long noHeader, unsigned long fixed,
                   unsigned long deleted);

// One character from standard input, unbuffered; EOF when there is none.
int readKeyFromStdin();

}  // namespace velkor
