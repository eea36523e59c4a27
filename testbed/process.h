// Runs a command as a child process and collects what it printed and how it
// ended; the building block of the component and end-to-end tests.
#pragma once

#include <string>
#include <vector>

namespace testsupport {

struct ProcessResult {
  int exitStatus = -1;  // exit status when the process exited, else -1
  int signal = 0;       // the terminating signal when it was killed, else 0
  std::string out;      // standard output
  std::string err;      // standard error
};

// Runs argv (argv[0] looked up in PATH) with the given standard input text,
// in directory cwd when not empty.
ProcessResult runProcess(const std::vector<std::string>& argv, const std::string& input = "",
                         const std::string& cwd = "");

// In a forked child: runs argv (argv[0] looked up in PATH), or exits with 127.
[[noreturn]] void execOrExit(const std::vector<std::string>& argv);

// Runs argv (argv[0] a path) with its standard output thrown away, for the
// benchmarks: its wall time in seconds, peak memory (ru_maxrss, KiB) and
// exit status (-1 when it did not exit).
struct TimedRun {
  double wall = 0;
  long peakKb = 0;
  int status = -1;
};
TimedRun runTimed(const std::vector<std::string>& argv);

// Runs a program of the build (a path below the build directory) with `args`.
ProcessResult runBuilt(const std::string& relative, const std::vector<std::string>& args);

// Paths of the tree under test.
std::string sourcePath(const std::string& relative);
std::string binaryPath(const std::string& relative);
// The velkor program of this build.
std::string velkorBinary();
// kvf-sandbox with a lock directory of this test process's own in place of
// the host's: runs of tests that go on at once never refuse each other.
// `args` follow it.
std::vector<std::string> sandboxCommand(const std::vector<std::string>& args = {});

// A fresh directory under /tmp, removed with its contents when destroyed.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& text);

}  // namespace testsupport
