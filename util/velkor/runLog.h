// The run log: every run appends one document (header, command line, times,
// per-file entries, errors, final status) to the log file. The document is
// written through the standard error stream, which the RunLog of the run
// redirects into the file, so anything written to standard error during the
// run lands in the log too. Each element of the document has exactly one
// writer below. Not thread-safe: only the main thread writes elements.
#pragma once

#include <fstream>
#include <ostream>
#include <string>

class KVFError;

namespace velkor {
class UncompBeastInfo;
class CompBeastInfo;
}  // namespace velkor

// The log file of one run. open() appends to the file, redirects std::cerr
// into it and gives the signal layer a descriptor of its own for the
// messages of a dying run; close() (and the destructor, on every other exit
// path) undoes the three in reverse order.
class RunLog {
 public:
  RunLog() = default;
  ~RunLog() { close(); }
  RunLog(const RunLog&) = delete;
  RunLog& operator=(const RunLog&) = delete;

  // Opens `path` for appending. A symbolic link that another user owns is
  // refused: another user could point it at any file the administrator can
  // write. False after printing why.
  bool open(const char* path);
  void close();

 private:
  std::ofstream stream_;
  std::streambuf* savedErr_ = nullptr;
  int signalFd_ = -1;
};

// Opens `stream` on `path` in one of the modes 1, 2, 4, 8, 16, 32 (8 appends);
// returns 0 when open, -1 otherwise (after printing why).
int doOpenLogFile(std::ofstream& stream, const char* path, int mode);

// True (after printing why) when `path` is a symbolic link that the effective
// user does not own.
bool isForeignSymlink(const char* path);

// Writes the CurrentTime element to the log; optionally a newline, and
// optionally the time on standard output too.
void LogCurrentTime(bool alsoToScreen, bool newline);
void DisplayTime();

// The document's opening (description, command line, start time) and its end
// (end time, closing element, three empty lines).
void LogDocumentStart(int argc, char** argv);
void LogDocumentEnd();

// The interface object could not be made: why, and where.
void LogInterfaceFailure(const char* reason);
// The error that ended the operation.
void LogError(const KVFError& error);
// The run's final status text.
void LogFinishStatus(const char* text);
// A note on the operation (a volume without compression).
void LogMessage(const char* text);
// The entry element of one checked file, written to `log` with its flags,
// which it leaves as the entry leaves them. LogFileEntry writes it whole to
// the run log.
void WriteFileEntry(std::ostream& log, const velkor::UncompBeastInfo& info, const velkor::CompBeastInfo* comp,
                    const char* name, unsigned long problems, bool noHeader, bool fixed, bool deleted,
                    bool volumeLevel);
// One checked file: `volumeLevel` tells a volume scan's entry (a good file's
// entry then stops after its attributes). `comp` may be null.
void LogFileEntry(const velkor::UncompBeastInfo& info, const velkor::CompBeastInfo* comp, const char* name,
                  unsigned long problems, bool noHeader, bool fixed, bool deleted, bool volumeLevel);
