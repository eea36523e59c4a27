#include "process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace testsupport {

namespace {

void closeIfOpen(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

}  // namespace

ProcessResult runProcess(const std::vector<std::string>& argv, const std::string& input,
                         const std::string& cwd) {
  int inPipe[2], outPipe[2], errPipe[2];
  if (pipe2(inPipe, O_CLOEXEC) || pipe2(outPipe, O_CLOEXEC) || pipe2(errPipe, O_CLOEXEC))
    throw std::runtime_error("pipe failed");
  pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    dup2(inPipe[0], 0);
    dup2(outPipe[1], 1);
    dup2(errPipe[1], 2);
    if (!cwd.empty() && chdir(cwd.c_str()) != 0) _exit(126);
    execOrExit(argv);
  }
  close(inPipe[0]);
  close(outPipe[1]);
  close(errPipe[1]);
  int inFd = inPipe[1], outFd = outPipe[0], errFd = errPipe[0];
  size_t written = 0;
  if (input.empty()) closeIfOpen(inFd);
  signal(SIGPIPE, SIG_IGN);
  ProcessResult result;
  char buf[65536];
  while (outFd >= 0 || errFd >= 0) {
    pollfd fds[3];
    int n = 0;
    if (outFd >= 0) fds[n++] = {outFd, POLLIN, 0};
    if (errFd >= 0) fds[n++] = {errFd, POLLIN, 0};
    if (inFd >= 0) fds[n++] = {inFd, POLLOUT, 0};
    if (poll(fds, n, -1) < 0) continue;
    for (int i = 0; i < n; ++i) {
      if (!fds[i].revents) continue;
      if (fds[i].fd == inFd) {
        ssize_t w = write(inFd, input.data() + written, input.size() - written);
        if (w > 0) written += w;
        if (w < 0 || written == input.size()) closeIfOpen(inFd);
        continue;
      }
      ssize_t r = read(fds[i].fd, buf, sizeof buf);
      std::string& sink = fds[i].fd == outFd ? result.out : result.err;
      if (r > 0) {
        sink.append(buf, r);
      } else {
        if (fds[i].fd == outFd) closeIfOpen(outFd); else closeIfOpen(errFd);
      }
    }
  }
  closeIfOpen(inFd);
  int status = 0;
  waitpid(pid, &status, 0);
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  return result;
}

void execOrExit(const std::vector<std::string>& argv) {
  std::vector<char*> args;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  execvp(args[0], args.data());
  _exit(127);
}

TimedRun runTimed(const std::vector<std::string>& argv) {
  TimedRun t;
  auto start = std::chrono::steady_clock::now();
  pid_t pid = fork();
  if (pid == 0) {
    int null = open("/dev/null", O_WRONLY);
    if (null >= 0) dup2(null, 1);
    execOrExit(argv);
  }
  int status = 0;
  struct rusage usage = {};
  if (pid > 0 && wait4(pid, &status, 0, &usage) == pid) {
    t.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    t.peakKb = usage.ru_maxrss;
    t.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  return t;
}

ProcessResult runBuilt(const std::string& relative, const std::vector<std::string>& args) {
  std::vector<std::string> argv = {binaryPath(relative)};
  argv.insert(argv.end(), args.begin(), args.end());
  return runProcess(argv);
}

std::string sourcePath(const std::string& relative) { return std::string(VELKOR_SOURCE_DIR) + "/" + relative; }
std::string binaryPath(const std::string& relative) { return std::string(VELKOR_BINARY_DIR) + "/" + relative; }

std::string velkorBinary() { return binaryPath("util/velkor/velkor"); }

std::vector<std::string> sandboxCommand(const std::vector<std::string>& args) {
  static const TempDir locks;
  std::vector<std::string> command = {sourcePath("scripts/kvf-sandbox"), "--lock-dir", locks.path()};
  command.insert(command.end(), args.begin(), args.end());
  return command;
}

TempDir::TempDir() {
  char tmpl[] = "/tmp/velkor-test-XXXXXX";
  if (!mkdtemp(tmpl)) throw std::runtime_error("mkdtemp failed");
  path_ = tmpl;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void writeFile(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

}  // namespace testsupport
