#include "velkor/runLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <iostream>
#include <sstream>

#include "common_cpp/kvfError.h"
#include "screen/signals.h"
#include "velkor/beastRecords.h"
#include "velkor/logElements.h"
#include "velkor/velkor.h"
#include "velkor/velkorTypes.h"

namespace {

struct LogMode {
  int mode;
  const char* probe;
  std::ios::openmode open;
};

const LogMode logModes[] = {
    {1, "rb", std::ios::in | std::ios::binary},
    {2, "r+b", std::ios::in | std::ios::out | std::ios::binary},
    {4, "wb", std::ios::out | std::ios::binary},
    {8, "a+b", std::ios::app | std::ios::out | std::ios::binary},
    {16, "w+b", std::ios::in | std::ios::out | std::ios::binary},
    {32, "a+b", std::ios::in | std::ios::out | std::ios::binary},
};

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
  for (int bit = 0; bit < 32; ++bit) {
    if (problems >> bit & 1) {
      text += '<';
      text += velkor::problemElement(bit);
      text += "/>";
    }
  }
  return text;
}

}  // namespace

bool RunLog::open(const char* path) {
  if (isForeignSymlink(path) || doOpenLogFile(stream_, path, 8) != 0) return false;
  savedErr_ = std::cerr.rdbuf(stream_.rdbuf());
  std::cerr.setf(std::ios::dec | std::ios::oct | std::ios::hex | std::ios::showbase);
  // The signal handler writes its messages straight to the log's descriptor.
  signalFd_ = ::open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
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
  savedErr_ = nullptr;
  stream_.close();
}

bool isForeignSymlink(const char* path) {
  struct stat st;
  if (lstat(path, &st) != 0 || !S_ISLNK(st.st_mode) || st.st_uid == geteuid()) return false;
  fprintf(stderr, "%s: %s is a symbolic link owned by another user (uid %lu); the run log is not written through it.\n",
          appName, path, static_cast<unsigned long>(st.st_uid));
  return true;
}

int doOpenLogFile(std::ofstream& stream, const char* path, int mode) {
  const LogMode* chosen = nullptr;
  for (const LogMode& m : logModes) {
    if (m.mode == mode) chosen = &m;
  }
  if (!chosen) return -1;

  FILE* probe = fopen(path, chosen->probe);
  if (!probe || fclose(probe) != 0) {
    perror(path);
    std::cout << std::endl;
    return -1;
  }
  stream.open(path, chosen->open | std::ios::out);
  if (stream.bad() || stream.fail()) {
    std::cout << "Unable to open file " << path << std::endl;
    return -1;
  }
  return 0;
}

void LogCurrentTime(bool alsoToScreen, bool newline) {
  char text[80];
  time_t now;
  formatNow(text, now);
  std::cerr << "<CurrentTime time=" << text << " timeValue=\"" << static_cast<long long>(now) << "\" />";
  if (newline) std::cerr << "\n";
  if (alsoToScreen) std::cout << "  Current time   " << text << std::endl;
}

void DisplayTime() {
  char text[80];
  time_t now;
  formatNow(text, now);
  std::cout << "Current time   " << text << std::endl;
}

void LogDocumentStart(int argc, char** argv) {
  std::cerr << "<velkor>\n"
            << "<description>\n"
            << "  velkor - Validate and fix KVF compression files\n"
            << "  Version: " << appVersion << "\n"
            << "  Build: " << __DATE__ << " at " << __TIME__ << "\n"
            << "</description>\n"
            << "<CommandLine>\n";
  for (int i = 0; i < argc; ++i) std::cerr << " <argv index=\"" << i << "\" argv=\"" << argv[i] << "\" />\n";
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
  std::cerr << "Exception while attempting to create a UserInterface Object:  " << reason << "\n"
            << "util/velkor/velkor[617]" << "\n";
  std::cerr.flush();
}

void LogError(const KVFError& e) {
  std::cerr << "<error>" << "util/velkor/velkorUI" << "[" << 994 << "] originated from:" << e.location
            << " error: " << e.number() << " " << e.numberName() << " message: " << e.what() << "</error>"
            << "\n";
}

void LogFinishStatus(const char* text) { std::cerr << "<finishStatus>" << text << "</finishStatus>" << "\n"; }

void LogMessage(const char* text) { std::cerr << "<msg>" << text << "</msg>" << std::endl; }

void WriteFileEntry(std::ostream& log, const velkor::UncompBeastInfo& info, const velkor::CompBeastInfo* comp,
                    const char* name, unsigned long problems, bool noHeader, bool fixed, bool deleted,
                    bool volumeLevel) {
  using namespace velkor;
  log << "<entry><volume>" << info.name << "</volume>"
      << "<name>" << (name ? name : "") << "</name>"
      << "<type>" << beastTypeText(info.allNamesDeleted != 0, info.beastType, true) << "</type>"
      << "<fileStatus>" << statusElements(problems) << "</fileStatus>";
  if (fixed) log << "<action><fixed/></action>";
  if (deleted) log << "<actionTaken><deleted/></actionTaken>";
  if (!(problems & skippedChecking)) {
    log << "<zid>" << info.zid << "</zid>"
        << "<attributes>" << std::hex << std::showbase << info.attributes << std::dec << "</attributes>";
    bool volumeLevelGood = volumeLevel && (problems & good);
    if (info.beastType != beastDirectory && !volumeLevelGood) {
      // The created time's closing tag is spelled with a lower-case t.
      if (info.beastType == beastFile)
        log << "<createdTime>" << info.createdTimeText << "</createdtime>"
            << "<accessedTime>" << info.accessedTimeText << "</accessedTime>";
      if (info.compInfo)
        log << "<compInfo><compZid>" << info.compInfo->compZid << "</compZid><ucPrecious>"
            << info.compInfo->ucPrecious << "</ucPrecious><cPrecious>" << info.compInfo->cPrecious
            << "</cPrecious><status>" << info.compInfo->status << "</status><action>" << info.compInfo->action
            << "</action></compInfo>";
      if (comp) {
        if (problems & mismatchedZid) log << "<uncompZid>" << comp->uncompZid << "</uncompZid>";
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
                  unsigned long problems, bool noHeader, bool fixed, bool deleted, bool volumeLevel) {
  // The entry is put together first and written whole: the log's stream
  // flushes after every insertion, which would cost a write per field. It is
  // formatted with the log's own flags, and hands back the ones it leaves.
  std::ostringstream log;
  log.flags(std::cerr.flags());
  WriteFileEntry(log, info, comp, name, problems, noHeader, fixed, deleted, volumeLevel);
  std::cerr.flags(log.flags());
  std::cerr << log.str();
  std::cerr.flush();
}
