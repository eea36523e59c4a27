// The run log: every run appends one document (header, command line, times,
// per-file entries, errors, final status) to the log file. The document is
// written through the standard error stream, which the RunLog of the run
// redirects into the file, so anything written to standard error during the
// run lands in the log too. Each element of the document has exactly one
// writer below. Not thread-safe: only the main thread writes elements.
#pragma once

#include <cstddef>
#include <fstream>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>

class KVFError;

namespace velkor {
class UncompBeastInfo;
class CompBeastInfo;
}  // namespace velkor

// The log file of one run. open() opens the file once, takes the log's lock,
// redirects std::cerr into it and gives the signal layer a descriptor of its
// own for the messages of a dying run, all from that one descriptor;
// close() (and the destructor, on every other exit path) undoes them in
// reverse order.
//
// Every write of the log is checked. Once one fails the log is failed for the
// rest of the run: LogFailure() says why, the operations make no further
// change and the run ends with exit status 1.
class RunLog {
 public:
  RunLog();
  ~RunLog();
  RunLog(const RunLog&) = delete;
  RunLog& operator=(const RunLog&) = delete;

  // Opens `path` for appending: a regular file (created with the permissions
  // of a new file), or /dev/null. A symbolic link that another user owns is
  // refused (another user could point it at any file the administrator can
  // write), and so is a file another user owns (they could read the run's
  // findings or write a run of their own into it), a link to a link, a
  // directory, a FIFO, a socket or a device. A log another run holds is
  // refused too. False after printing why. (This safe open replaced the
  // older open of a log file by mode number and its mode table, which any
  // user's link could have steered; the time shown on standard output went
  // with it, unused.)
  bool open(const char* path);
  void close();

 public:
  class Buffer;  // the checked stream buffer of the log's descriptor

 private:
  std::unique_ptr<Buffer> buffer_;
  std::streambuf* savedErr_ = nullptr;
  int signalFd_ = -1;
  int lockFd_ = -1;  // the log's lock, under the lock directory
};

// Why the run log could not be written ("No space left on device"), or null
// while every write has succeeded (and when no log is open).
const char* LogFailure();
// Before a change to an object: makes sure the log has room for that
// object's entry (an entry for a name of `nameLength` bytes), so that no
// change is made that its entry cannot record. Throws a KVFError when the
// log has failed or the room cannot be had; does nothing when no log is open.
void LogRequireRoom(size_t nameLength);
// Throws a KVFError when the log has failed: the run takes no further object.
void LogRequireWritable();

// Writes the CurrentTime element to the log; optionally a newline, and
// optionally the time on standard output too.
void LogCurrentTime(bool alsoToScreen, bool newline);

// The document's opening (description, command line, start time) and its end
// (end time, closing element, three empty lines). `passLine`, when not
// empty, is one more line of the description (velkor-batch's pass, passLine.h).
void LogDocumentStart(int argc, char** argv, const std::string& passLine = std::string());
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
// which it leaves as the entry leaves them. `refused` (when not empty) says
// why the change asked for was not made. LogFileEntry writes it whole to the
// run log. Names and texts from replies are written as logEscape.h says.
void WriteFileEntry(std::ostream& log, const velkor::UncompBeastInfo& info, const velkor::CompBeastInfo* comp,
                    const char* name, unsigned long problems, bool noHeader, bool fixed, bool deleted,
                    bool volumeLevel, const std::string& refused = std::string());
// One checked file: `volumeLevel` tells a volume scan's entry (a good file's
// entry then stops after its attributes). `comp` may be null. Nothing is
// written while no log is open. Which files get one: CompStats::logsEntry.
void LogFileEntry(const velkor::UncompBeastInfo& info, const velkor::CompBeastInfo* comp, const char* name,
                  unsigned long problems, bool noHeader, bool fixed, bool deleted, bool volumeLevel,
                  const std::string& refused = std::string());
