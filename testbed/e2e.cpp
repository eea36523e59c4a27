#include "e2e.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "common/utf8.h"
#include "velkor/runStart.h"

extern "C" {
#include <vterm.h>
}

namespace testsupport {


namespace {

using Clock = std::chrono::steady_clock;

bool isMounted(const std::string& dir) {
  std::ifstream mounts("/proc/self/mounts");
  std::string device, point, rest;
  while (mounts >> device >> point && std::getline(mounts, rest))
    if (point == dir) return true;
  return false;
}

// Waits up to `timeout` for the child; true when it was reaped.
bool waitChild(pid_t pid, int* status, std::chrono::milliseconds timeout) {
  auto deadline = Clock::now() + timeout;
  for (;;) {
    pid_t r = waitpid(pid, status, WNOHANG);
    if (r == pid || (r < 0 && errno == ECHILD)) return true;
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

}  // namespace

Simulator::Simulator(const Options& options) : dir_(std::make_unique<TempDir>()) {
  mount_ = dir_->file("mnt");
  mkdir(mount_.c_str(), 0755);
  std::vector<std::string> argv = {binaryPath("sim/kvfsim")};
  if (!options.fixture.empty()) {
    writeFile(dir_->file("fixture.json"), options.fixture);
    argv.insert(argv.end(), {"--fixture", dir_->file("fixture.json")});
  } else {
    argv.insert(argv.end(), {"--generate", std::to_string(options.generate), "--seed", std::to_string(options.seed),
                             "--expect", dir_->file("expect.json")});
  }
  if (options.pretty) argv.push_back("--pretty");
  if (!options.requestLog) argv.push_back("--no-request-log");
  if (!options.zidInodes) argv.push_back("--no-zid-inodes");
  argv.push_back(mount_);

  std::string output = dir_->file("kvfsim.out");
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("fork failed");
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);  // a crashed test still takes its daemon down
    int fd = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd >= 0) dup2(fd, 1), dup2(fd, 2);
    execOrExit(argv);
  }
  // A generated volume of millions of objects takes a while to make.
  auto deadline = Clock::now() + std::chrono::seconds(30 + options.generate / 50000);
  std::string ready = mount_ + "/control/state.json";
  while (access(ready.c_str(), F_OK) != 0) {
    int status;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      throw std::runtime_error("kvfsim ended at start: " + readFile(output));
    }
    if (Clock::now() > deadline) {
      stop();
      throw std::runtime_error("kvfsim did not come up: " + readFile(output));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

Simulator Simulator::withFixture(const std::string& json) {
  Options o;
  o.fixture = json;
  return Simulator(o);
}

Simulator Simulator::generated(uint64_t objects, uint64_t seed) {
  Options o;
  o.generate = objects;
  o.seed = seed;
  return Simulator(o);
}

Simulator::Simulator(Simulator&& other) noexcept
    : dir_(std::move(other.dir_)), mount_(std::move(other.mount_)), pid_(other.pid_) {
  other.pid_ = -1;
}

Simulator::~Simulator() { stop(); }

int Simulator::stop() {
  if (pid_ < 0) return 0;
  int status = 0, result = -1;
  kill(pid_, SIGTERM);
  if (!waitChild(pid_, &status, std::chrono::seconds(10))) {
    runProcess({"fusermount3", "-u", "-z", mount_});
    kill(pid_, SIGKILL);
    waitChild(pid_, &status, std::chrono::seconds(10));
  } else if (WIFEXITED(status)) {
    result = WEXITSTATUS(status);
  }
  pid_ = -1;
  if (isMounted(mount_)) runProcess({"fusermount3", "-u", "-z", mount_});
  return result;
}

bool Simulator::exchange(const std::string& file, const std::string& request, std::string* reply, int* error) const {
  reply->clear();
  int fd = open((adminDir() + "/" + file).c_str(), O_RDWR);
  bool ok = fd >= 0 && lseek(fd, 0, SEEK_SET) == 0 && write(fd, request.data(), request.size()) >= 0 &&
            lseek(fd, 0, SEEK_SET) == 0;
  char buf[4096];
  for (ssize_t n; ok && (n = read(fd, buf, sizeof buf)) != 0;) {
    if (n < 0) ok = false;
    else reply->append(buf, size_t(n));
  }
  if (error) *error = ok ? 0 : errno;
  if (fd >= 0) close(fd);
  return ok;
}

std::string Simulator::manage(const std::string& request) const {
  std::string reply;
  int error = 0;
  if (!exchange("manage.cmd", request, &reply, &error))
    ADD_FAILURE() << "manage.cmd exchange failed: " << strerror(error);
  return reply;
}

std::string Simulator::mountPoint(const std::string& volume) const {
  nlohmann::json volumes = nlohmann::json::parse(readFile(mount_ + "/control/volumes.json"));
  for (const auto& v : volumes.at("volumes"))
    if (v.at("name") == volume) return v.at("mountPoint");
  return "";
}

nlohmann::json Simulator::state() const { return nlohmann::json::parse(readFile(mount_ + "/control/state.json")); }

nlohmann::json Simulator::object(const char* list, uint64_t zid) const {
  const nlohmann::json all = state();
  for (const nlohmann::json& b : all["volumes"][0][list])
    if (b["zid"] == zid) return b;
  return nullptr;
}

std::vector<nlohmann::json> Simulator::requests() const {
  std::vector<nlohmann::json> out;
  std::istringstream lines(readFile(mount_ + "/control/requests.jsonl"));
  for (std::string line; std::getline(lines, line);)
    if (!line.empty()) out.push_back(nlohmann::json::parse(line));
  return out;
}

std::vector<nlohmann::json> Simulator::requestsOf(const std::string& kind) const { return ofKind(requests(), kind); }

std::vector<nlohmann::json> Simulator::ofKind(const std::vector<nlohmann::json>& requests, const std::string& kind) {
  std::vector<nlohmann::json> found;
  for (const nlohmann::json& r : requests)
    if (r.value("request", "").find("<" + kind) != std::string::npos) found.push_back(r);
  return found;
}

nlohmann::json Simulator::expected() const { return nlohmann::json::parse(readFile(dir_->file("expect.json"))); }

void Simulator::setFaults(const std::string& json) const {
  int fd = open((mount_ + "/control/faults").c_str(), O_WRONLY | O_TRUNC);
  bool ok = fd >= 0 && write(fd, json.data(), json.size()) == ssize_t(json.size());
  ok = fd >= 0 && close(fd) == 0 && ok;
  if (!ok) throw std::runtime_error("control/faults refused (" + std::string(strerror(errno)) + "): " + json);
}

std::string Simulator::daemonOutput() const { return readFile(dir_->file("kvfsim.out")); }

// The terminal emulator's state.
struct VelkorTerminal::Screen {
  VTerm* vt = nullptr;
  VTermScreen* screen = nullptr;
  int rows, cols;
  // The private modes the screen layer does not report without keeping an
  // alternate buffer, followed in the output: the last switch of each wins.
  bool alternate = false, cursorVisible = true;
  std::string tail;  // the end of the previous output, for a sequence cut in two
  Screen(int r, int c) : rows(r), cols(c) {
    vt = vterm_new(r, c);
    vterm_set_utf8(vt, 1);
    screen = vterm_obtain_screen(vt);
    vterm_screen_reset(screen, 1);
  }
  ~Screen() { vterm_free(vt); }

  void input(const char* bytes, size_t n) {
    vterm_input_write(vt, bytes, n);
    std::string text = tail + std::string(bytes, n);
    struct Mode {
      const char* set;
      bool* flag;
    } modes[] = {{"\x1b[?1049", &alternate}, {"\x1b[?1047", &alternate}, {"\x1b[?47", &alternate},
                 {"\x1b[?25", &cursorVisible}};
    for (const Mode& m : modes) {
      size_t length = strlen(m.set);
      for (size_t at = text.find(m.set); at != std::string::npos && at + length < text.size();
           at = text.find(m.set, at + 1)) {
        char final = text[at + length];
        if (final == 'h' || final == 'l') *m.flag = final == 'h';
      }
    }
    tail = text.substr(text.size() > 8 ? text.size() - 8 : 0);
  }
};

namespace {

void answerTerminal(const char* bytes, size_t len, void* user) {
  int fd = *static_cast<int*>(user);
  if (fd >= 0) (void)!write(fd, bytes, len);  // the program may have gone: nothing to answer then
}

VelkorTerminal::Options withSimulator(const Simulator& sim, VelkorTerminal::Options options) {
  options.sandbox.insert(options.sandbox.end(), {"--admin", sim.adminDir()});
  for (const std::string& volume : options.volumes) {
    std::string mountPoint = sim.mountPoint(volume);
    if (!mountPoint.empty())
      options.sandbox.insert(options.sandbox.end(), {"--volume", mountPoint + "=" + sim.volumeDir(volume)});
  }
  return options;
}

}  // namespace

VelkorTerminal::VelkorTerminal(const Simulator& sim, const std::vector<std::string>& args)
    : VelkorTerminal(sim, args, Options()) {}

VelkorTerminal::VelkorTerminal(const Simulator& sim, const std::vector<std::string>& args, const Options& options)
    : VelkorTerminal(args, withSimulator(sim, options)) {}

VelkorTerminal::VelkorTerminal(const std::vector<std::string>& args, const Options& options)
    : screen_(std::make_unique<Screen>(options.rows, options.cols)) {
  if (options.cwd.empty()) {
    ownDir_ = std::make_unique<TempDir>();
    cwd_ = ownDir_->path();
  } else {
    cwd_ = options.cwd;
  }
  std::vector<std::string> argv = options.wrapper;
  const std::vector<std::string> sandbox = sandboxCommand();
  argv.insert(argv.end(), sandbox.begin(), sandbox.end());
  argv.insert(argv.end(), options.sandbox.begin(), options.sandbox.end());
  if (!options.cfg.empty()) {
    writeFile(cwd_ + "/kvfstart.cfg", options.cfg);
    argv.insert(argv.end(), {"--cfg", cwd_ + "/kvfstart.cfg"});
  }
  std::string binary = options.binary.empty() ? velkorBinary() : options.binary;
  programName_ = std::filesystem::path(binary).filename();
  argv.insert(argv.end(), {"--cwd", cwd_, "--", binary});
  argv.insert(argv.end(), args.begin(), args.end());

  struct winsize size = {static_cast<unsigned short>(options.rows), static_cast<unsigned short>(options.cols), 0, 0};
  start_ = end_ = Clock::now();
  pid_ = forkpty(&master_, nullptr, nullptr, &size);
  if (pid_ < 0) throw std::runtime_error("forkpty failed");
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (chdir(cwd_.c_str()) != 0) _exit(126);
    setenv("TERM", "xterm", 1);
    execOrExit(argv);
  }
  vterm_output_set_callback(screen_->vt, answerTerminal, &master_);
}

VelkorTerminal::~VelkorTerminal() {
  killProgram();
  if (master_ >= 0) close(master_);
}

void VelkorTerminal::killProgram() {
  // Once the sandbox is reaped pid_ is -1, and kill(-1) would reach every process.
  if (pid_ <= 0) return;
  kill(-pid_, SIGKILL);
  kill(pid_, SIGKILL);
  reap(true);
}

void VelkorTerminal::send(const std::string& keys) {
  if (master_ >= 0 && write(master_, keys.data(), keys.size()) < 0) ADD_FAILURE() << "cannot type into the terminal";
}

void VelkorTerminal::sendSignal(int signal) {
  if (pid_ > 0) kill(-pid_, signal);
}

void VelkorTerminal::resize(int rows, int cols) {
  pump(std::chrono::milliseconds(0));  // what was written for the old size is read at it
  struct winsize size = {static_cast<unsigned short>(rows), static_cast<unsigned short>(cols), 0, 0};
  if (master_ < 0 || ioctl(master_, TIOCSWINSZ, &size) != 0) ADD_FAILURE() << "cannot resize the terminal";
  if (rows > 0 && cols > 0 && long(rows) * cols <= kMaxEmulatedCells) {
    vterm_set_size(screen_->vt, rows, cols);
    screen_->rows = rows;
    screen_->cols = cols;
  }
  signalProgram(SIGWINCH);
}

void VelkorTerminal::reap(bool block) {
  if (pid_ <= 0) return;
  int status = 0;
  pid_t r = waitpid(pid_, &status, block ? 0 : WNOHANG);
  if (r != pid_) return;
  end_ = Clock::now();
  pid_ = -1;
  if (WIFEXITED(status)) exitStatus_ = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) signal_ = WTERMSIG(status);
}

void VelkorTerminal::pump(std::chrono::milliseconds wait) {
  if (master_ < 0) {
    reap(false);
    if (pid_ > 0) std::this_thread::sleep_for(wait);
    return;
  }
  // Waits for output, then takes all there is before the screen is looked at.
  pollfd fd = {master_, POLLIN, 0};
  auto drainUntil = Clock::now() + std::chrono::milliseconds(50);
  for (int timeout = int(wait.count()); Clock::now() < drainUntil && poll(&fd, 1, timeout) > 0; timeout = 0) {
    char buf[65536];
    ssize_t n = read(master_, buf, sizeof buf);
    if (n > 0) {
      screen_->input(buf, size_t(n));
    } else if (n == 0 || errno != EINTR) {
      // The terminal's other side is closed: the program has ended. The
      // modes it left stay readable while this side is open.
      haveEndModes_ = tcgetattr(master_, &endModes_) == 0;
      close(master_);
      master_ = -1;
      break;
    }
  }
  reap(false);
}

bool VelkorTerminal::waitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
  auto deadline = Clock::now() + timeout;
  for (;;) {
    if (done()) return true;
    if ((pid_ <= 0 && master_ < 0) || Clock::now() >= deadline) return false;
    pump(std::chrono::milliseconds(20));
  }
}

void VelkorTerminal::settle(std::chrono::milliseconds quiet) {
  pollfd fd = {master_, POLLIN, 0};
  while (master_ >= 0 && poll(&fd, 1, int(quiet.count())) > 0) pump(quiet);
}

bool VelkorTerminal::waitFor(const std::string& text, std::chrono::milliseconds timeout) {
  return waitUntil([&] { return screenText().find(text) != std::string::npos; }, timeout);
}

bool VelkorTerminal::waitForRow(int row, const std::string& text, std::chrono::milliseconds timeout) {
  return waitUntil([&] { return this->row(row).find(text) != std::string::npos; }, timeout);
}

bool VelkorTerminal::waitExit(std::chrono::milliseconds timeout) {
  auto deadline = Clock::now() + timeout;
  while (pid_ > 0 || master_ >= 0) {
    if (Clock::now() >= deadline) return false;
    pump(std::chrono::milliseconds(20));
  }
  return true;
}

void VelkorTerminal::finish(std::chrono::milliseconds timeout) {
  if (waitExit(timeout)) return;
  killProgram();
  exitStatus_ = -1;
}

bool VelkorTerminal::signalProgram(int sig) {
  pid_t program = programPid();
  return program > 0 && kill(program, sig) == 0;
}

pid_t VelkorTerminal::programPid() const {
  if (pid_ <= 0) return -1;
  // The sandbox's descendants, looking for the program by its name.
  std::vector<pid_t> todo = {pid_};
  while (!todo.empty()) {
    const pid_t p = todo.back();
    const std::string proc = "/proc/" + std::to_string(p);
    todo.pop_back();
    if (p != pid_ && readFile(proc + "/comm") == programName_.substr(0, 15) + "\n") return p;
    std::istringstream children(readFile(proc + "/task/" + std::to_string(p) + "/children"));
    for (pid_t child; children >> child;) todo.push_back(child);
  }
  return -1;
}

bool VelkorTerminal::alternateScreen() const { return screen_->alternate; }
bool VelkorTerminal::cursorVisible() const { return screen_->cursorVisible; }

bool VelkorTerminal::modesAtEnd(struct termios* modes) const {
  if (haveEndModes_) *modes = endModes_;
  return haveEndModes_;
}

bool VelkorTerminal::bold(int row, int col) const {
  VTermScreenCell cell;
  VTermPos pos = {row, col};
  return vterm_screen_get_cell(screen_->screen, pos, &cell) && cell.attrs.bold;
}

std::string VelkorTerminal::snapshot() const {
  std::vector<std::string> kinds;
  std::string out;
  for (int r = 0; r < screen_->rows; ++r) {
    std::string text, attrs;
    for (int c = 0; c < screen_->cols; ++c) {
      VTermScreenCell cell;
      vterm_screen_get_cell(screen_->screen, VTermPos{r, c}, &cell);
      text += cell.chars[0] == 0 ? ' ' : cell.chars[0] < 0x80 ? char(cell.chars[0]) : '?';
      std::string kind = std::to_string(cell.attrs.bold) + std::to_string(cell.attrs.reverse);
      for (const VTermColor* colour : {&cell.fg, &cell.bg})
        kind += VTERM_COLOR_IS_DEFAULT_FG(colour) || VTERM_COLOR_IS_DEFAULT_BG(colour) ? std::string("/d")
                : VTERM_COLOR_IS_INDEXED(colour)
                    ? "/" + std::to_string(colour->indexed.idx)
                    : "/" + std::to_string(colour->rgb.red) + "." + std::to_string(colour->rgb.green) + "." +
                          std::to_string(colour->rgb.blue);
      size_t k = std::find(kinds.begin(), kinds.end(), kind) - kinds.begin();
      if (k == kinds.size()) kinds.push_back(kind);
      attrs += char('a' + k % 26);
    }
    out += text + "\n" + attrs + "\n";
  }
  VTermPos cursor;
  vterm_state_get_cursorpos(vterm_obtain_state(screen_->vt), &cursor);
  return out + "cursor " + std::to_string(cursor.row) + "," + std::to_string(cursor.col) + "\n";
}

std::string VelkorTerminal::row(int r) const {
  std::string row;
  for (int c = 0; r >= 0 && r < screen_->rows && c < screen_->cols; ++c) {
    VTermScreenCell cell;
    VTermPos pos = {r, c};
    if (!vterm_screen_get_cell(screen_->screen, pos, &cell)) continue;
    if (cell.chars[0] == 0) row += ' ';
    for (int i = 0; i < VTERM_MAX_CHARS_PER_CELL && cell.chars[i]; ++i) KVF::appendUtf8(row, cell.chars[i]);
    if (cell.width > 1) c += cell.width - 1;
  }
  row.erase(row.find_last_not_of(' ') + 1);
  return row;
}

std::vector<std::string> VelkorTerminal::screen() const {
  std::vector<std::string> rows;
  for (int r = 0; r < screen_->rows; ++r) rows.push_back(row(r));
  return rows;
}

std::string VelkorTerminal::screenText() const {
  std::string text;
  for (const std::string& row : screen()) text += row + "\n";
  return text;
}

std::string VelkorTerminal::runLog() const { return readFile(cwd_ + "/velkor.log"); }

std::string usageText(const std::string& log) {
  std::ostringstream help;
  std::streambuf* saved = std::cout.rdbuf(help.rdbuf());
  VELKOR_Usage(log.c_str());
  std::cout.rdbuf(saved);
  return help.str();
}

std::vector<uint64_t> counters(const std::vector<std::string>& screen) {
  std::vector<uint64_t> values;
  std::regex number(":\\s+(\\d+)");
  for (size_t r = 8; r <= 11 && r < screen.size(); ++r) {
    const std::string& line = screen[r];
    for (auto it = std::sregex_iterator(line.begin(), line.end(), number); it != std::sregex_iterator(); ++it)
      values.push_back(std::stoull((*it)[1]));
  }
  return values;
}

bool VelkorTerminal::runToEnd(std::chrono::milliseconds timeout) {
  const bool prompted = waitFor("Press any key to continue....", timeout);
  if (prompted) send("x");
  finish();
  return prompted;
}

KVFError expectKvfError(const std::function<void()>& call, const std::string& what) {
  try {
    call();
  } catch (const KVFError& e) {
    return e;
  }
  ADD_FAILURE() << what << " ended without an error";
  return KVFError("no error", 0, "");
}

}  // namespace testsupport
