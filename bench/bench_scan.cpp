// Volume-scan benchmark: velkor -L and -F on generated volumes, in the
// sandbox and in a pseudo-terminal, against a minimal client that makes the
// same exchanges with the same simulator (the limit the channel sets).
//
//   bench_scan [--objects N[,N...]] [--rounds R] [--seed S] [--no-fix]
//              [--check-requests] [--smoke] [--velkor BINARY] [--keep DIR]
//              [--baseline-work US]
//
// --objects         volume sizes (default 10000,100000)
// --rounds          baseline/list pairs per size, interleaved (default 1)
// --no-fix          skip the -F run on a fresh copy of each volume
// --check-requests  first compare, on a small volume with the request log on,
//                   the exchanges of velkor -L with those of the baseline
// --smoke           a correctness run only: counts and requests are checked,
//                   timings are printed but judge nothing
// --velkor          the velkor binary to time (default: the one of this build)
// --keep            write each velkor run's final screen and run log into DIR
//                   (to compare two builds: the same volume must give the same)
// --baseline-work   let the baseline spin US microseconds before each exchange,
//                   to see what work between exchanges costs in wall time here
//
// velkor's own figures are read from /proc/<pid> of the velkor process (not
// of bwrap or the sandbox script) while it waits at its final prompt: CPU
// time is utime + stime of /proc/<pid>/stat (all its threads), peak memory is
// VmHWM of /proc/<pid>/status. Wall time runs from starting the sandbox to the
// prompt appearing on the terminal.
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "e2e.h"
#include "process.h"

extern "C" {
#include <vterm.h>
}

namespace {

using Clock = std::chrono::steady_clock;
using testsupport::Simulator;

const char kPrompt[] = "Press any key to continue....";
const char kMountPoint[] = "/media/kvf/VOL1";  // of the generated volume VOL1
const int kRows = 25, kCols = 120;
const int kBatch = 20;

std::string velkorBinary;  // set by main
std::string keepDir;       // --keep
int baselineWorkUs = 0;    // --baseline-work

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

double cpuSecondsOfSelf() {
  rusage u;
  getrusage(RUSAGE_SELF, &u);
  return u.ru_utime.tv_sec + u.ru_stime.tv_sec + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

// ---- /proc readings of the velkor process ----

struct ProcStat {
  pid_t ppid = 0;
  std::string comm;
  double cpu = 0;  // utime + stime, seconds
};

bool readProcStat(pid_t pid, ProcStat* out) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  if (!std::getline(in, text)) return false;
  size_t open = text.find('('), close = text.rfind(')');
  if (open == std::string::npos || close == std::string::npos) return false;
  out->comm = text.substr(open + 1, close - open - 1);
  std::istringstream rest(text.substr(close + 2));
  std::vector<std::string> f;
  for (std::string w; rest >> w;) f.push_back(w);
  // Fields from the state on: state(3) ppid(4) ... utime(14) stime(15).
  if (f.size() < 13) return false;
  out->ppid = static_cast<pid_t>(std::stol(f[1]));
  double tick = static_cast<double>(sysconf(_SC_CLK_TCK));
  out->cpu = (std::stod(f[11]) + std::stod(f[12])) / tick;
  return true;
}

long vmHwmKb(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(in, line);)
    if (line.compare(0, 6, "VmHWM:") == 0) return std::stol(line.substr(6));
  return -1;
}

// The process named velkor among the descendants of `root`.
pid_t findVelkor(pid_t root) {
  std::map<pid_t, ProcStat> all;
  if (DIR* d = opendir("/proc")) {
    while (dirent* e = readdir(d)) {
      pid_t pid = static_cast<pid_t>(atoi(e->d_name));
      ProcStat s;
      if (pid > 0 && readProcStat(pid, &s)) all[pid] = s;
    }
    closedir(d);
  }
  for (const auto& [pid, s] : all) {
    if (s.comm != "velkor") continue;
    for (pid_t up = s.ppid; up > 1; up = all.count(up) ? all[up].ppid : 0)
      if (up == root) return pid;
  }
  return -1;
}

// ---- velkor in a pseudo-terminal ----

struct Counters {
  std::map<std::string, uint64_t> byLabel;
};

struct Figures {
  double wall = 0, cpu = 0;
  long hwmKb = 0;
  uint64_t objects = 0;
  bool ok = true;
  std::string note;
  Counters counters;
};

class Terminal {
 public:
  Terminal() : vt_(vterm_new(kRows, kCols)) {
    vterm_set_utf8(vt_, 1);
    screen_ = vterm_obtain_screen(vt_);
    vterm_screen_reset(screen_, 1);
  }
  ~Terminal() { vterm_free(vt_); }
  void feed(const char* bytes, size_t n) { vterm_input_write(vt_, bytes, n); }
  std::string row(int r) const {
    std::string text;
    for (int c = 0; c < kCols; ++c) {
      VTermScreenCell cell;
      if (!vterm_screen_get_cell(screen_, VTermPos{r, c}, &cell)) continue;
      uint32_t ch = cell.chars[0];
      text += ch == 0 ? ' ' : ch < 0x80 ? static_cast<char>(ch) : '?';
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
  }

 private:
  VTerm* vt_;
  VTermScreen* screen_;
};

// The counter block of the progress screen, rows 8 to 11.
Counters readCounters(const Terminal& term) {
  static const char* const labels[8] = {"Processed Files:", "CC Bit Cleared:", "Good Files:", "Open Files Skipped:",
                                        "Fixable Files:", "Corrupted Files:", "Fixed Files:", "Deleted Files:"};
  Counters out;
  for (int r = 8; r <= 11; ++r) {
    std::string text = term.row(r);
    for (const char* label : labels) {
      size_t at = text.find(label);
      if (at == std::string::npos) continue;
      out.byLabel[label] = strtoull(text.c_str() + at + strlen(label), nullptr, 10);
    }
  }
  return out;
}

int runNumber = 0;

Figures runVelkor(const Simulator& sim, const std::string& op, std::chrono::seconds timeout) {
  Figures fig;
  testsupport::TempDir cwd;
  std::vector<std::string> argv = {testsupport::sourcePath("scripts/kvf-sandbox"),
                                   "--admin",
                                   sim.adminDir(),
                                   "--volume",
                                   std::string(kMountPoint) + "=" + sim.volumeDir("VOL1"),
                                   "--cwd",
                                   cwd.path(),
                                   "--",
                                   velkorBinary,
                                   op,
                                   "VOL1"};
  winsize size = {};
  size.ws_row = kRows;
  size.ws_col = kCols;
  int master = -1;
  auto start = Clock::now();
  pid_t child = forkpty(&master, nullptr, nullptr, &size);
  if (child < 0) {
    fig.ok = false;
    fig.note = "forkpty failed";
    return fig;
  }
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (chdir(cwd.path().c_str()) != 0) _exit(126);
    setenv("TERM", "xterm", 1);
    std::vector<char*> args;
    for (std::string& a : argv) args.push_back(a.data());
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
  }

  Terminal term;
  pid_t velkor = -1;
  bool prompted = false;
  auto deadline = start + timeout;
  char buf[65536];
  while (!prompted && Clock::now() < deadline) {
    if (velkor < 0) velkor = findVelkor(child);
    pollfd p = {master, POLLIN, 0};
    if (poll(&p, 1, 50) > 0) {
      ssize_t n = read(master, buf, sizeof buf);
      if (n <= 0) break;  // the program has gone
      term.feed(buf, static_cast<size_t>(n));
    }
    // Only the prompt's row is looked at while the scan runs.
    prompted = term.row(24).find(kPrompt) != std::string::npos;
  }
  fig.wall = seconds(Clock::now() - start);
  if (prompted && velkor > 0) {
    ProcStat s;
    if (readProcStat(velkor, &s)) fig.cpu = s.cpu;
    fig.hwmKb = vmHwmKb(velkor);
  }
  fig.counters = readCounters(term);
  std::string status = term.row(23);
  if (!keepDir.empty()) {
    std::string name = keepDir + "/" + op.substr(1) + "-" + std::to_string(runNumber++);
    std::string screen;
    for (int r = 0; r < kRows; ++r) screen += term.row(r) + "\n";
    testsupport::writeFile(name + ".screen", screen);
  }

  if (prompted && write(master, "x", 1) != 1) fig.note = "cannot answer the prompt; ";
  int exitStatus = -1;
  auto exitDeadline = Clock::now() + std::chrono::seconds(30);
  for (;;) {
    int st;
    pid_t r = waitpid(child, &st, WNOHANG);
    if (r == child) {
      if (WIFEXITED(st)) exitStatus = WEXITSTATUS(st);
      break;
    }
    if (Clock::now() > exitDeadline) {
      kill(child, SIGKILL);
      waitpid(child, &st, 0);
      break;
    }
    pollfd p = {master, POLLIN, 0};
    if (poll(&p, 1, 20) > 0 && read(master, buf, sizeof buf) <= 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  close(master);
  if (!keepDir.empty())
    testsupport::writeFile(keepDir + "/" + op.substr(1) + "-" + std::to_string(runNumber - 1) + ".log",
                           testsupport::readFile(cwd.path() + "/velkor.log"));

  fig.objects = fig.counters.byLabel["Processed Files:"];
  if (!prompted) fig.ok = false, fig.note += "no final prompt (timeout or crash); ";
  if (velkor <= 0) fig.ok = false, fig.note += "velkor process not found; ";
  if (exitStatus != 0) fig.ok = false, fig.note += "exit status " + std::to_string(exitStatus) + "; ";
  if (status.find("finished with error") != std::string::npos) fig.ok = false, fig.note += "finished with error; ";
  return fig;
}

// Compares the screen's counters with the generator's expectations.
bool countsMatch(const Counters& counters, const nlohmann::json& expected, std::string* note) {
  static const std::pair<const char*, const char*> keys[] = {
      {"Processed Files:", "processed"}, {"CC Bit Cleared:", "ccBitCleared"}, {"Good Files:", "good"},
      {"Open Files Skipped:", "openSkipped"}, {"Fixable Files:", "fixable"}, {"Corrupted Files:", "corrupted"},
      {"Fixed Files:", "fixed"}, {"Deleted Files:", "deleted"}};
  bool ok = true;
  for (const auto& [label, key] : keys) {
    auto it = counters.byLabel.find(label);
    uint64_t want = expected.value(key, uint64_t(0));
    // The screen shows counters as 32-bit numbers.
    if (it == counters.byLabel.end() || it->second != (want & 0xffffffffu)) {
      ok = false;
      *note += std::string(label) + " " + (it == counters.byLabel.end() ? "missing" : std::to_string(it->second)) +
               " expected " + std::to_string(want) + "; ";
    }
  }
  return ok;
}

// ---- The baseline: the list run's exchanges and nothing else ----

class Baseline {
 public:
  explicit Baseline(const std::string& adminDir)
      : manage_(adminDir + "/manage.cmd"), block_(static_cast<char*>(malloc(kBlock))) {}
  ~Baseline() { free(block_); }
  Baseline(const Baseline&) = delete;
  Baseline& operator=(const Baseline&) = delete;

  // The exchanges of `velkor -L volume`; returns the objects visited, or -1.
  long run(const char* volume) {
    using testsupport::requestText;
    if (!exchange(requestText(velkor::volumeInfoRequest, volume, true), "getVolumeInfo")) return -1;
    long visited = 0;
    int position = 0;
    char zids[kBatch][21];
    for (;;) {
      if (!exchange(requestText(velkor::volumeInfoRequest, volume, false), "getVolumeInfo")) return -1;
      if (!exchange(requestText(velkor::browseRequest, volume, true, 0, kBatch, position), "browseBeasts")) return -1;
      int n = 0;
      for (const char* p = strstr(block_, "<beastZids>"); p && n < kBatch && (p = strstr(p, "<zid>"));) {
        p += 5;
        size_t len = strcspn(p, "<");
        if (len > 20) return -1;
        memcpy(zids[n], p, len);
        zids[n++][len] = '\0';
      }
      for (int i = 0; i < n; ++i) {
        const char* zid = zids[i];
        if (!exchange(requestText(velkor::beastInfoRequest, volume, zid, 15ul, true), "getBeastInfo")) return -1;
        if (!exchange(requestText(velkor::fullNameRequest, volume, zid), "getBeastFullName")) return -1;
        ++visited;
      }
      if (n > 0) position = static_cast<int>(static_cast<uint32_t>(strtoull(zids[n - 1], nullptr, 10)));
      if (n != kBatch) return visited;
    }
  }

 private:
  static const size_t kBlock = 1 << 20;

  // One exchange as the program makes it: open, seek, write, seek, reads of
  // the free part of a 4096-byte block growing by 4096, close; then only the
  // reply's status is looked at.
  bool exchange(const std::string& request, const char* tag) {
    if (baselineWorkUs > 0) {
      auto until = Clock::now() + std::chrono::microseconds(baselineWorkUs);
      while (Clock::now() < until) {
      }
    }
    int fd = open(manage_.c_str(), O_RDWR);
    if (fd < 0) return false;
    bool ok = lseek(fd, 0, SEEK_SET) == 0 && write(fd, request.data(), request.size()) >= 0 && lseek(fd, 0, SEEK_SET) == 0;
    size_t used = 0, free = 4096;
    while (ok) {
      ssize_t n = read(fd, block_ + used, free);
      if (n < 0) ok = false;
      if (n <= 0) break;
      used += static_cast<size_t>(n);
      free -= static_cast<size_t>(n);
      if (free == 0) {
        free = 4096;
        if (used + free + 1 > kBlock) ok = false;
      }
    }
    close(fd);
    if (!ok) return false;
    block_[used] = '\0';
    const char* element = strstr(block_, tag);
    const char* result = element ? strstr(element, "<result value=\"") : nullptr;
    return result && result[15] == '0' && result[16] == '"';
  }

  std::string manage_;
  char* block_;
};

struct BaselineFigures {
  double wall = 0, cpu = 0;
  long objects = 0;
};

BaselineFigures runBaseline(const Simulator& sim) {
  Baseline client(sim.adminDir());
  BaselineFigures fig;
  double cpu0 = cpuSecondsOfSelf();
  auto start = Clock::now();
  fig.objects = client.run("VOL1");
  fig.wall = seconds(Clock::now() - start);
  fig.cpu = cpuSecondsOfSelf() - cpu0;
  return fig;
}

// ---- Checking the baseline against the program ----

// The (file, request) pairs of the request log from entry `from` on.
std::vector<std::string> requestTexts(const Simulator& sim, size_t from) {
  std::vector<std::string> out;
  std::vector<nlohmann::json> log = sim.requests();
  for (size_t i = from; i < log.size(); ++i)
    out.push_back(log[i].value("file", std::string()) + " " + log[i].value("request", std::string()));
  return out;
}

bool checkRequests(uint64_t objects, uint64_t seed) {
  Simulator::Options o;
  o.generate = objects;
  o.seed = seed;
  Simulator sim(o);
  Figures v = runVelkor(sim, "-L", std::chrono::seconds(120));
  std::vector<std::string> program = requestTexts(sim, 0);
  long visited = runBaseline(sim).objects;
  std::vector<std::string> baseline = requestTexts(sim, program.size());
  printf("request check on %" PRIu64 " objects: velkor -L made %zu exchanges, the baseline %zu (%ld objects)\n",
         objects, program.size(), baseline.size(), visited);
  if (!v.ok) {
    printf("  velkor run failed: %s\n", v.note.c_str());
    return false;
  }
  for (size_t i = 0; i < program.size() || i < baseline.size(); ++i) {
    const std::string a = i < program.size() ? program[i] : "(none)";
    const std::string b = i < baseline.size() ? baseline[i] : "(none)";
    if (a != b) {
      printf("  exchange %zu differs:\n    velkor:   %s\n    baseline: %s\n", i, a.c_str(), b.c_str());
      return false;
    }
  }
  printf("  the same requests, byte for byte, in the same order\n");
  return true;
}

// ---- Reporting ----

struct SizeResult {
  uint64_t objects = 0;
  BaselineFigures baseline;    // best of the rounds
  Figures list, fix;           // list: best of the rounds
  std::vector<double> ratios;  // velkor -L / baseline of each round (run back to back)
  bool listRan = false, fixRan = false;

  // The median of the rounds' ratios: the figure the target is judged by, as
  // a machine shared with other work makes single runs noisy.
  double ratio() const {
    if (ratios.empty()) return 0;
    std::vector<double> sorted = ratios;
    std::sort(sorted.begin(), sorted.end());
    size_t n = sorted.size();
    return n % 2 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) / 2;
  }
};

void printRow(const char* run, uint64_t objects, double wall, double cpu, long hwmKb, uint64_t visited,
              const std::string& extra) {
  char rss[32] = "-";
  if (hwmKb > 0) snprintf(rss, sizeof rss, "%ld", hwmKb);
  printf("  %-12s %10" PRIu64 " %10.2f %9.2f %13s %12.0f  %s\n", run, objects, wall, cpu, rss,
         wall > 0 ? visited / wall : 0.0, extra.c_str());
}

std::string ratioText(double a, double b) {
  char text[32];
  snprintf(text, sizeof text, "ratio %.3f", a / b);
  return text;
}

std::vector<uint64_t> parseSizes(const char* text) {
  std::vector<uint64_t> out;
  std::stringstream in(text);
  for (std::string item; std::getline(in, item, ',');)
    if (!item.empty()) out.push_back(strtoull(item.c_str(), nullptr, 10));
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<uint64_t> sizes = {10000, 100000};
  int rounds = 1;
  uint64_t seed = 1;
  bool withFix = true, check = false, smoke = false;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--objects" && i + 1 < argc) sizes = parseSizes(argv[++i]);
    else if (a == "--rounds" && i + 1 < argc) rounds = std::max(1, atoi(argv[++i]));
    else if (a == "--seed" && i + 1 < argc) seed = strtoull(argv[++i], nullptr, 10);
    else if (a == "--no-fix") withFix = false;
    else if (a == "--check-requests") check = true;
    else if (a == "--smoke") smoke = true;
    else if (a == "--velkor" && i + 1 < argc) velkorBinary = argv[++i];
    else if (a == "--keep" && i + 1 < argc) keepDir = argv[++i];
    else if (a == "--baseline-work" && i + 1 < argc) baselineWorkUs = atoi(argv[++i]);
    else {
      fprintf(stderr,
              "usage: bench_scan [--objects N[,N...]] [--rounds R] [--seed S] [--no-fix] [--check-requests] "
              "[--smoke] [--velkor BINARY] [--keep DIR] [--baseline-work US]\n");
      return 2;
    }
  }
  if (velkorBinary.empty()) velkorBinary = testsupport::velkorBinary();
  signal(SIGPIPE, SIG_IGN);
  setvbuf(stdout, nullptr, _IOLBF, 0);

  bool failed = false;
  if (check && !checkRequests(200, seed)) failed = true;

  std::vector<SizeResult> results;
  for (uint64_t n : sizes) {
    SizeResult r;
    r.objects = n;
    // A timeout far beyond any expected run: ten milliseconds an object.
    auto timeout = std::chrono::seconds(120 + n / 100);
    printf("\n%" PRIu64 " objects (seed %" PRIu64 ")\n", n, seed);
    printf("  %-12s %10s %10s %9s %13s %12s\n", "run", "objects", "wall s", "cpu s", "peak RSS KiB", "objects/s");
    {
      Simulator::Options o;
      o.generate = n;
      o.seed = seed;
      o.requestLog = false;
      Simulator sim(o);
      nlohmann::json expected = sim.expected();
      for (int round = 0; round < rounds; ++round) {
        BaselineFigures b = runBaseline(sim);
        printRow("baseline", n, b.wall, b.cpu, 0, static_cast<uint64_t>(b.objects > 0 ? b.objects : 0),
                 b.objects < 0 ? "FAILED" : "");
        if (b.objects < 0) failed = true;
        if (round == 0 || b.wall < r.baseline.wall) r.baseline = b;

        Figures v = runVelkor(sim, "-L", timeout);
        if (v.ok && !countsMatch(v.counters, expected.at("list"), &v.note)) v.ok = false;
        printRow("velkor -L", n, v.wall, v.cpu, v.hwmKb, v.objects,
                 (v.ok ? "" : "FAILED: " + v.note) + (b.wall > 0 ? ratioText(v.wall, b.wall) : ""));
        if (!v.ok) failed = true;
        if (b.wall > 0 && v.ok) r.ratios.push_back(v.wall / b.wall);
        if (!r.listRan || v.wall < r.list.wall) r.list = v;
        r.listRan = true;
      }
    }
    if (withFix) {
      Simulator::Options o;
      o.generate = n;
      o.seed = seed;
      o.requestLog = false;
      Simulator fresh(o);
      Figures f = runVelkor(fresh, "-F", timeout);
      if (f.ok && !countsMatch(f.counters, fresh.expected().at("fix"), &f.note)) f.ok = false;
      printRow("velkor -F", n, f.wall, f.cpu, f.hwmKb, f.objects, f.ok ? "" : "FAILED: " + f.note);
      if (!f.ok) failed = true;
      r.fix = f;
      r.fixRan = true;
    }
    results.push_back(r);
  }

  printf("\nsummary: times are the best of %d round%s, the ratio is the median of the rounds' ratios\n", rounds,
         rounds == 1 ? "" : "s");
  printf("  %10s %12s %12s %8s %14s %12s %12s\n", "objects", "baseline s", "velkor -L s", "ratio", "velkor RSS KiB",
         "-L objects/s", "velkor -F s");
  for (const SizeResult& r : results) {
    char fix[32] = "-";
    if (r.fixRan) snprintf(fix, sizeof fix, "%.2f", r.fix.wall);
    printf("  %10" PRIu64 " %12.2f %12.2f %8.3f %14ld %12.0f %12s\n", r.objects, r.baseline.wall, r.list.wall,
           r.ratio(), r.list.hwmKb, r.list.wall > 0 ? r.list.objects / r.list.wall : 0.0, fix);
  }

  printf("\ntargets (goals, printed; %s)\n", smoke ? "a smoke run judges none of them" : "not tests");
  const SizeResult* at10k = nullptr;
  const SizeResult* at100k = nullptr;
  const SizeResult* at1m = nullptr;
  for (const SizeResult& r : results) {
    if (r.objects == 10000) at10k = &r;
    if (r.objects == 100000) at100k = &r;
    if (r.objects == 1000000) at1m = &r;
  }
  if (at100k) {
    double ratio = at100k->ratio();
    printf("  velkor/baseline wall at 100,000 objects <= 1.10: %.3f  %s\n", ratio, ratio <= 1.10 ? "met" : "MISSED");
  } else {
    printf("  velkor/baseline wall at 100,000 objects <= 1.10: not run\n");
  }
  if (at10k && at1m) {
    double growth = static_cast<double>(at1m->list.hwmKb) / static_cast<double>(at10k->list.hwmKb);
    printf("  peak RSS at 1,000,000 within 10%% of 10,000: %ld KiB vs %ld KiB (x%.3f)  %s\n", at1m->list.hwmKb,
           at10k->list.hwmKb, growth, growth <= 1.10 ? "met" : "MISSED");
  } else {
    printf("  peak RSS at 1,000,000 within 10%% of 10,000: needs both sizes (--objects 10000,1000000)\n");
  }
  if (at1m)
    printf("  the 1,000,000-object list completes: %s in %.1f s\n", at1m->list.ok ? "yes" : "NO", at1m->list.wall);
  else
    printf("  the 1,000,000-object list completes: not run\n");

  if (failed) printf("\nsome runs FAILED (see above)\n");
  return failed ? 1 : 0;
}
