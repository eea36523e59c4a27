#include "velkor/runLog.h"

#include <cstdio>
#include <ctime>
#include <iostream>

#include "velkor/velkor.h"

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

}  // namespace

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
