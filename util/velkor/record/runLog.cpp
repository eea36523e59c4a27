#include "velkor/runLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>
#include <sstream>
#include <string>

#include "common_cpp/kvfError.h"
#include "screen/signals.h"
#include "velkor/beastRecords.h"
#include "velkor/errorWords.h"
#include "velkor/logElements.h"
#include "velkor/logEscape.h"
#include "velkor/identity.h"
#include "velkor/velkorTypes.h"
#include "velkor/volumeLock.h"

namespace {

// Error locations name the documented source of the run driver and its log.
constexpr KvfSource kKvfSource = KvfSource::velkor;

// The time text arrives quoted: the format carries the double quotes.
void formatNow(char (&text)[80], time_t& now) {
  now = time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  if (strftime(text, sizeof text, "\"%b %d, %Y  %I:%M:%S %p  %z\"", &local) == 0) text[0] = '\0';
}

// One element per set problem bit, lowest first; higher bits read as invalid state.
std::string statusElements(unsigned long problems) {
  std::string text;
  velkor::forEachProblem(problems, [&text](std::string_view name) {
    text += '<';
    text += name;
    text += "/>";
  });
  return text;
}

}  // namespace

// ---- The log file ----

namespace {
// The first error a write of the run's log met (0: none); kept after the
// log is closed, for the run's exit status.
int runLogError = 0;
}  // namespace

// The stream buffer of the run log: writes go to the log's descriptor, and
// each one is checked. After a failure the rest of the run's text is dropped
// and the failure is kept for LogFailure().
class RunLog::Buffer : public std::streambuf {
 public:
  explicit Buffer(int fd) : fd_(fd) { setp(space_, space_ + sizeof space_); }
  ~Buffer() override {
    sync();
    ::close(fd_);
  }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  int fd() const { return fd_; }
  int error() const { return error_; }
  void fail(int error) {
    if (error_ == 0) error_ = error ? error : EIO;
    if (runLogError == 0) runLogError = error_;
  }

 protected:
  int_type overflow(int_type c) override {
    if (!drain()) return traits_type::eof();
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
      *pptr() = traits_type::to_char_type(c);
      pbump(1);
    }
    return traits_type::not_eof(c);
  }
  int sync() override { return drain() ? 0 : -1; }

 private:
  // Writes what the buffer holds; false once any write has failed.
  bool drain() {
    const char* p = pbase();
    size_t left = static_cast<size_t>(pptr() - pbase());
    while (left > 0 && error_ == 0) {
      ssize_t n = ::write(fd_, p, left);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) {
        fail(n < 0 ? errno : ENOSPC);
        break;
      }
      p += n;
      left -= static_cast<size_t>(n);
    }
    setp(space_, space_ + sizeof space_);
    return error_ == 0;
  }

  int fd_;
  int error_ = 0;
  char space_[8192];
};

namespace {

RunLog::Buffer* openLog = nullptr;  // the run's log while it is open

const char* kindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a directory";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISSOCK(mode)) return "a socket";
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
  if (S_ISLNK(mode)) return "a symbolic link";
  return "not a regular file";
}

bool isDevNull(const struct stat& st) {
  struct stat null;
  return S_ISCHR(st.st_mode) && stat("/dev/null", &null) == 0 && S_ISCHR(null.st_mode) && st.st_rdev == null.st_rdev;
}

const int kLogFlags = O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
const mode_t kNewLogMode = 0666;  // less the umask, as for any new file

// Another user's file or link: that user could read what the run logs, or
// write a run of their own into it. Always -1.
int refuseOwner(const char* path, const char* kind, uid_t owner, const char* preposition) {
  fprintf(stderr, "%s: %s is %s owned by another user (uid %lu); the run log is not written %s it.\n", appName, path,
          kind, static_cast<unsigned long>(owner), preposition);
  return -1;
}

int refuseKind(const char* path, mode_t mode) {
  fprintf(stderr, "%s: %s is %s; the run log must be a regular file.\n", appName, path, kindOf(mode));
  return -1;
}

// Where the open of `path` failed with `error`: names what stands there
// when that is why, else the system's reason. Always -1.
int refuseOpen(const char* path, int error) {
  struct stat st;
  if ((error == EISDIR || error == ENXIO || error == EWOULDBLOCK) && stat(path, &st) == 0)
    return refuseKind(path, st.st_mode);
  errno = error;
  perror(path);
  std::cout << std::endl;
  return -1;
}

// The link `path` itself (never what it names) was found in place of a log:
// followed only when the effective user owns it, and then to its target
// opened the same way, once (a link to a link is refused).
int openThroughOwnLink(const char* path) {
  int link = ::open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC);
  if (link < 0) return refuseOpen(path, errno);
  struct stat st;
  char target[4096];
  ssize_t length = -1;
  if (fstat(link, &st) == 0 && S_ISLNK(st.st_mode)) {
    if (st.st_uid != geteuid()) {
      ::close(link);
      return refuseOwner(path, "a symbolic link", st.st_uid, "through");
    }
    length = readlinkat(link, "", target, sizeof target - 1);
  }
  ::close(link);
  if (length <= 0) {
    fprintf(stderr, "%s: %s changed while it was opened; the run log is not written.\n", appName, path);
    return -1;
  }
  target[length] = '\0';
  // A relative target is read from the link's own directory.
  std::string resolved = target;
  const char* slash = strrchr(path, '/');
  if (target[0] != '/' && slash) resolved = std::string(path, static_cast<size_t>(slash - path + 1)) + target;
  int fd = ::open(resolved.c_str(), kLogFlags, kNewLogMode);
  if (fd < 0 && errno == ELOOP) {
    fprintf(stderr, "%s: %s is a symbolic link to another link; the run log is not written through it.\n", appName,
            path);
    return -1;
  }
  if (fd < 0) return refuseOpen(resolved.c_str(), errno);
  return fd;
}

// The log's one descriptor: a regular file or /dev/null, opened for
// appending without ever following a link that another user could have
// swapped in between a look and the open.
int openLogDescriptor(const char* path) {
  int fd = ::open(path, kLogFlags, kNewLogMode);
  if (fd < 0 && errno == ELOOP) fd = openThroughOwnLink(path);
  else if (fd < 0) return refuseOpen(path, errno);
  if (fd < 0) return -1;
  struct stat st = {};
  if (fstat(fd, &st) != 0 || !(S_ISREG(st.st_mode) || isDevNull(st))) {
    ::close(fd);
    return refuseKind(path, st.st_mode);
  }
  if (S_ISREG(st.st_mode) && st.st_uid != geteuid()) {
    ::close(fd);
    return refuseOwner(path, "a file", st.st_uid, "to");
  }
  fcntl(fd, F_SETFL, O_WRONLY | O_APPEND);  // writes wait again, as for any file
  return fd;
}

std::string failureMessage() { return std::string("the run log could not be written: ") + LogFailure(); }

}  // namespace

RunLog::RunLog() = default;

RunLog::~RunLog() { close(); }

bool RunLog::open(const char* path) {
  int fd = openLogDescriptor(path);
  if (fd < 0) return false;
  // One run at a time per log: a second run's document would be
  // interleaved with the first's. The lock is not taken on the log itself,
  // which others may be allowed to open (and so to lock).
  struct stat st;
  if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
    std::string why;
    lockFd_ = velkor::takeRunLock(velkor::logLockName(st), std::string("the run log ") + path, &why);
    if (lockFd_ < 0) {
      fprintf(stderr, "%s: %s.\n", appName, why.c_str());
      ::close(fd);
      return false;
    }
  }
  // The signal handler writes its messages straight to the log's descriptor.
  signalFd_ = fcntl(fd, F_DUPFD_CLOEXEC, 0);
  buffer_ = std::make_unique<Buffer>(fd);
  openLog = buffer_.get();
  savedErr_ = std::cerr.rdbuf(buffer_.get());
  std::cerr.setf(std::ios::dec | std::ios::oct | std::ios::hex | std::ios::showbase);
  Signals_SetErrorDescriptor(signalFd_);
  return true;
}

void RunLog::close() {
  if (!savedErr_) return;
  std::cerr.flush();
  Signals_SetErrorDescriptor(-1);
  if (signalFd_ >= 0) ::close(signalFd_);
  signalFd_ = -1;
  std::cerr.rdbuf(savedErr_);
  std::cerr.clear();
  savedErr_ = nullptr;
  openLog = nullptr;
  buffer_.reset();  // writes what it still holds
  velkor::releaseRunLock(lockFd_);
  lockFd_ = -1;
}

const char* LogFailure() { return runLogError ? strerror(runLogError) : nullptr; }

void LogRequireRoom(size_t nameLength) {
  if (!openLog) return;
  // An entry holds its name (each byte at most six bytes escaped) and less
  // than 2 KiB besides.
  const off_t room = static_cast<off_t>(2048 + 6 * nameLength);
  if (!openLog->error() && openLog->pubsync() == 0) {
    struct stat st;
    if (fstat(openLog->fd(), &st) == 0 && S_ISREG(st.st_mode) &&
        fallocate(openLog->fd(), FALLOC_FL_KEEP_SIZE, st.st_size, room) != 0 && errno != EOPNOTSUPP &&
        errno != ENOSYS && errno != EINVAL)
      openLog->fail(errno);
  }
  LogRequireWritable();
}

void LogRequireWritable() {
  if (runLogError) throw KVFError(failureMessage(), KVF_HERE, runLogError);
}

void LogCurrentTime(bool alsoToScreen, bool newline) {
  char text[80];
  time_t now;
  formatNow(text, now);
  std::cerr << "<CurrentTime time=" << text << " timeValue=\"" << static_cast<long long>(now) << "\" />";
  if (newline) std::cerr << "\n";
  if (alsoToScreen) std::cout << "  Current time   " << text << std::endl;
}

void LogDocumentStart(int argc, char** argv, const std::string& passLine) {
  std::cerr << "<velkor>\n"
            << "<description>\n"
            << "  " << appName << " - Validate and fix KVF compression files\n"
            << "  Version: " << appVersion << "\n"
            << "  Build: " << __DATE__ << " at " << __TIME__ << "\n";
  if (!passLine.empty()) std::cerr << passLine << "\n";
  std::cerr << "</description>\n"
            << "<CommandLine>\n";
  for (int i = 0; i < argc; ++i)
    std::cerr << " <argv index=\"" << i << "\" argv=\"" << velkor::logText(argv[i], velkor::LogTextKind::attribute)
              << "\" />\n";
  std::cerr << "</CommandLine>\n<startTime>";
  LogCurrentTime(false, false);
  std::cerr << "</startTime>\n";
}

void LogDocumentEnd() {
  std::cerr << "<endTime>";
  LogCurrentTime(false, false);
  std::cerr << "</endTime>\n</velkor>\n\n\n\n";
  std::cerr.flush();
}

void LogInterfaceFailure(const char* reason) {
  std::cerr << "Exception while attempting to create a UserInterface Object:  " << velkor::logText(reason) << "\n"
            << "util/velkor/velkor[617]" << "\n";
  std::cerr.flush();
}

void LogError(const KVFError& e) {
  std::cerr << "<error>" << "util/velkor/velkorUI" << "[" << 994 << "] originated from:" << velkor::logText(e.location)
            << velkor::kLoggedErrorNumber << e.number() << " " << velkor::logText(e.numberName())
            << velkor::kLoggedErrorMessage << velkor::logText(e.what()) << "</error>" << "\n";
}

void LogFinishStatus(const char* text) {
  std::cerr << "<finishStatus>" << velkor::logText(text) << "</finishStatus>" << "\n";
}

void LogMessage(const char* text) { std::cerr << "<msg>" << velkor::logText(text) << "</msg>" << std::endl; }

void WriteFileEntry(std::ostream& log, const velkor::UncompBeastInfo& info, const velkor::CompBeastInfo* comp,
                    const char* name, unsigned long problems, bool noHeader, bool fixed, bool deleted,
                    bool volumeLevel, const std::string& refused) {
  using namespace velkor;
  log << "<entry><volume>" << logText(info.name) << "</volume>"
      << "<name>" << logText(name ? name : "") << "</name>"
      << "<type>" << beastTypeText(info.allNamesDeleted != 0, info.beastType, true) << "</type>"
      << "<fileStatus>" << statusElements(problems) << "</fileStatus>";
  if (fixed) log << "<action><fixed/></action>";
  if (deleted) log << "<actionTaken><deleted/></actionTaken>";
  if (!refused.empty()) log << "<error>" << logText(refused) << "</error>";
  if (!(problems & skippedChecking)) {
    log << "<zid>" << logText(info.zid) << "</zid>"
        << "<attributes>" << std::hex << std::showbase << info.attributes << std::dec << "</attributes>";
    bool volumeLevelGood = volumeLevel && (problems & good);
    if (info.beastType != beastDirectory && !volumeLevelGood) {
      // The created time's closing tag is spelled with a lower-case t.
      if (info.beastType == beastFile)
        log << "<createdTime>" << logText(info.createdTimeText) << "</createdtime>"
            << "<accessedTime>" << logText(info.accessedTimeText) << "</accessedTime>";
      if (info.compInfo)
        log << "<compInfo><compZid>" << logText(info.compInfo->compZid) << "</compZid><ucPrecious>"
            << info.compInfo->ucPrecious << "</ucPrecious><cPrecious>" << info.compInfo->cPrecious
            << "</cPrecious><status>" << info.compInfo->status << "</status><action>" << info.compInfo->action
            << "</action></compInfo>";
      if (comp) {
        if (problems & mismatchedZid) log << "<uncompZid>" << logText(comp->uncompZid) << "</uncompZid>";
        if (problems & mismatchedDeletedFlag) log << "<compDeleteFlag>" << comp->uncompBeastDeleted << "</compDeleteFlag>";
        // The compHeader element is left open.
        if (!noHeader)
          log << "<compHeader><compressCode>" << comp->compressCode << "</compressCode><compressMajorVersion>"
              << comp->compressMajorVersion << "</compressMajorVersion><compressMinorVersion>"
              << comp->compressMinorVersion << "</compressMinorVersion><originalFileLength>"
              << comp->originalFileLength << "</originalFileLength><compressedFileLength>"
              << comp->compressedFileLength << "</compressedFileLength>";
      }
    }
  }
  log << "</entry>" << "\n";
}

void LogFileEntry(const velkor::UncompBeastInfo& info, const velkor::CompBeastInfo* comp, const char* name,
                  unsigned long problems, bool noHeader, bool fixed, bool deleted, bool volumeLevel,
                  const std::string& refused) {
  if (!openLog) return;  // operations run without a log (component tests)
  // The entry is put together first and written whole: the log's stream
  // flushes after every insertion, which would cost a write per field. It is
  // formatted with the log's own flags, and hands back the ones it leaves.
  std::ostringstream log;
  log.flags(std::cerr.flags());
  WriteFileEntry(log, info, comp, name, problems, noHeader, fixed, deleted, volumeLevel, refused);
  std::cerr.flags(log.flags());
  std::cerr << log.str();
  std::cerr.flush();
}
