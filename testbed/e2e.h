// End-to-end harness: a kvfsim daemon on a temporary mount, and the real
// velkor run in the sandbox in a pseudo-terminal whose screen is read back.
#pragma once

#include <sys/types.h>
#include <termios.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "common_cpp/kvfError.h"
#include "velkor/requests.h"
#include "process.h"

namespace testsupport {

// A running simulator; always unmounted again when destroyed.
class Simulator {
 public:
  struct Options {
    std::string fixture;       // fixture JSON text; empty: generate
    uint64_t generate = 0;     // objects of the generated volume "VOL1"
    uint64_t seed = 1;
    bool pretty = false;       // pretty-printed replies
    bool requestLog = true;
    bool zidInodes = true;     // the name tree's inode numbers are zids
  };
  explicit Simulator(const Options& options);  // throws std::runtime_error when it does not come up
  // One of the fixture `json`; one of a volume of `objects` generated ones.
  static Simulator withFixture(const std::string& json);
  static Simulator generated(uint64_t objects, uint64_t seed = 1);
  ~Simulator();
  Simulator(Simulator&&) noexcept;
  Simulator(const Simulator&) = delete;
  Simulator& operator=(const Simulator&) = delete;

  // Unmounts and waits for the daemon; returns its exit status (-1 when it
  // had to be killed). Called by the destructor.
  int stop();

  const std::string& mount() const { return mount_; }
  std::string adminDir() const { return mount_ + "/Manage_KVF"; }
  std::string volumeDir(const std::string& volume) const { return mount_ + "/volumes/" + volume; }

  // One exchange the way the program makes it: open read-write, write the
  // request at offset 0, seek back, read until end of file. Returns false
  // with errno-style `error` set when a call fails.
  bool exchange(const std::string& file, const std::string& request, std::string* reply, int* error = nullptr) const;
  // The same for manage.cmd, failing the test on an I/O error.
  std::string manage(const std::string& request) const;

  // The volume's mount point ("" when unknown), from control/volumes.json.
  std::string mountPoint(const std::string& volume) const;
  nlohmann::json state() const;                   // control/state.json
  // An object of the first volume in the live state, by zid; null when
  // there is none.
  nlohmann::json beast(uint64_t zid) const { return object("beasts", zid); }
  nlohmann::json compBeast(uint64_t zid) const { return object("compBeasts", zid); }
  nlohmann::json object(const char* list, uint64_t zid) const;
  std::vector<nlohmann::json> requests() const;   // control/requests.jsonl
  // The requests of one kind (e.g. "setBeastInfo"), in order.
  std::vector<nlohmann::json> requestsOf(const std::string& kind) const;
  // The same among some of the requests (say, those of one run).
  static std::vector<nlohmann::json> ofKind(const std::vector<nlohmann::json>& requests, const std::string& kind);
  nlohmann::json expected() const;                // the generator's counts (generated volumes)
  // Writes control/faults: an object adds a rule, an array replaces all.
  void setFaults(const std::string& json) const;
  std::string daemonOutput() const;

 private:
  std::unique_ptr<TempDir> dir_;
  std::string mount_;
  pid_t pid_ = -1;
};

// The numbers of the progress screen's counter block (rows 8 to 11), in the
// order of its labels: processed, cleared, good, open skipped, fixable,
// corrupted, fixed, deleted.
std::vector<uint64_t> counters(const std::vector<std::string>& screen);

// A request's text as the program builds it: `build` is one of the
// program's request builders (velkor/requests.h), called with `args`.
template <typename... Params, typename... Args>
std::string requestText(void (*build)(velkor::RequestText&, Params...), Args... args) {
  velkor::RequestText text;
  build(text, args...);
  return text.text();
}

// The usage text velkor prints when its log path is `log`, from the
// program's own help writer.
std::string usageText(const std::string& log);

// velkor (or another program of the build) in the sandbox in a
// pseudo-terminal, its output fed to a terminal emulator; killed when
// destroyed. The one terminal runner of the tests and benchmarks.
class VelkorTerminal {
 public:
  struct Options {
    int rows = 25, cols = 120;
    std::string cfg;                                  // kvfstart.cfg text; empty: none
    std::vector<std::string> volumes{"VOL1"};         // volumes whose tree is bound at their mount point
    std::string binary;                               // default: the built velkor
    std::string cwd;                                  // default: a temporary directory
    std::vector<std::string> wrapper;                 // a command put before the sandbox (e.g. strace)
    std::vector<std::string> sandbox;                 // more sandbox arguments (e.g. --manage-file FILE)
  };
  // With the simulator's admin directory and volumes in the sandbox.
  VelkorTerminal(const Simulator& sim, const std::vector<std::string>& args, const Options& options);
  VelkorTerminal(const Simulator& sim, const std::vector<std::string>& args);
  // Without a simulator: only what options.sandbox binds.
  VelkorTerminal(const std::vector<std::string>& args, const Options& options);
  ~VelkorTerminal();
  VelkorTerminal(const VelkorTerminal&) = delete;
  VelkorTerminal& operator=(const VelkorTerminal&) = delete;

  void send(const std::string& keys);
  // Sends `sig` to the program the sandbox runs (not to the sandbox, whose
  // death would hang up the terminal); false while it has not started or
  // after it has ended.
  bool signalProgram(int sig);
  // Sends a signal to the terminal's process group: the sandbox and velkor.
  void sendSignal(int signal);
  // Gives the terminal a new size, as a terminal window does: the pseudo-
  // terminal takes it and the program gets SIGWINCH. The emulator takes it
  // too, up to kMaxEmulatedCells cells; past that it keeps its size (a
  // terminal that large exists only to attack the program).
  static const long kMaxEmulatedCells = 1L << 21;
  void resize(int rows, int cols);
  // Reads the output until `done` holds; false on timeout or when the
  // program ended first without it holding.
  bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout = std::chrono::seconds(20));
  // Reads the output until nothing has come for `quiet`.
  void settle(std::chrono::milliseconds quiet);
  // Waits until the screen shows `text`; false on timeout or when the program ended first without showing it.
  bool waitFor(const std::string& text, std::chrono::milliseconds timeout = std::chrono::seconds(20));
  // The same, looking at one row only: cheap enough to call after every
  // read of a long run's output.
  bool waitForRow(int row, const std::string& text, std::chrono::milliseconds timeout);
  // Waits for the program to end; false on timeout.
  bool waitExit(std::chrono::milliseconds timeout = std::chrono::seconds(60));
  // Waits for the end; when it does not come, kills the program (exitStatus -1).
  void finish(std::chrono::milliseconds timeout = std::chrono::seconds(60));
  // Runs velkor to its end: waits for the final prompt, answers it and
  // waits for the exit. False when the prompt did not show within `timeout`.
  bool runToEnd(std::chrono::milliseconds timeout = std::chrono::seconds(20));

  // The process id of the program the sandbox runs (found among the
  // sandbox's descendants by its name, for /proc reads); -1 while it has not
  // started or after it has ended.
  pid_t programPid() const;

  std::vector<std::string> screen() const;  // one string per row, trailing blanks removed
  std::string row(int r) const;             // one row, trailing blanks removed
  std::string screenText() const;           // the rows joined by newlines
  bool bold(int row, int col) const;        // whether that cell is drawn bold
  // The whole terminal as text: each row (ASCII, '?' for others), then a
  // row of attribute letters (one letter per distinct bold, reverse,
  // foreground and background combination, in order of appearance), then
  // the cursor position.
  std::string snapshot() const;
  // The terminal as the program left it: whether the alternate screen is
  // still shown and the cursor hidden (as the emulator saw the output), and
  // the terminal modes (echo, canonical input, ...) taken when the last
  // process let go of the terminal; modesAtEnd is false before that.
  bool alternateScreen() const;
  bool cursorVisible() const;
  bool modesAtEnd(struct termios* modes) const;
  bool running() const { return pid_ > 0; }
  int exitStatus() const { return exitStatus_; }
  int signal() const { return signal_; }
  std::string runLog() const;  // velkor.log in the working directory
  const std::string& cwd() const { return cwd_; }
  std::chrono::steady_clock::duration elapsed() const { return end_ - start_; }

 private:
  void pump(std::chrono::milliseconds wait);
  void reap(bool block);
  void killProgram();  // kills the sandbox's process group and reaps the sandbox

  struct Screen;
  std::unique_ptr<Screen> screen_;
  std::unique_ptr<TempDir> ownDir_;
  std::string cwd_;
  std::string programName_;
  pid_t pid_ = -1;
  int master_ = -1;
  int exitStatus_ = -1, signal_ = 0;
  bool haveEndModes_ = false;
  struct termios endModes_ = {};
  std::chrono::steady_clock::time_point start_, end_;
};

// The KVFError that `call` ends with; a test failure naming `what` when it
// ends without one (and then an error of code 0).
KVFError expectKvfError(const std::function<void()>& call, const std::string& what = "the call");

}  // namespace testsupport
