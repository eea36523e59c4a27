// Volume-scan benchmark: velkor -L and -F on generated volumes against the
// channel's limit, a baseline program (bench_baseline) that makes the same
// exchanges and reads their replies with the program's own reads; and
// velkor-batch -L, which asks fewer full names. All run the same way: in the
// sandbox, on the same simulator mount, in a pseudo-terminal read through the
// test bed's terminal (VelkorTerminal). velkor-batch waits at no prompt: its
// wall time runs to its exit, and its CPU and memory are not read.
//
//   bench_scan [--objects N[,N...]] [--rounds R] [--seed S] [--no-fix]
//              [--no-syscalls] [--check-requests] [--smoke] [--velkor BINARY]
//              [--keep DIR] [--no-batch] [--figures FILE] [--callgrind DIR]
//   bench_scan --objects N --windows DURATION   one pass in --max-duration windows
//   bench_scan --objects N --pacer R[,R...]     --max-rate's accuracy
//
// --objects         volume sizes (default 10000,100000)
// --rounds          baseline/list pairs per size, alternated (default 1)
// --no-fix          skip the -F run on a fresh copy of each volume
// --no-syscalls     skip the system-call count (two short runs under strace)
// --check-requests  first compare, on a small volume with the request log on,
//                   the exchanges of velkor -L with those of the baseline
// --smoke           a correctness run only: counts and requests are checked,
//                   timings are printed but judge nothing (no strace runs)
// --velkor          the velkor binary to time (default: the one of this build)
// --keep            write each velkor run's final screen and run log into DIR
//                   (to compare two builds: the same volume must give the same)
// --no-batch        skip the velkor-batch -L run
// --figures         append each run's figures to FILE as CSV rows (one home
//                   for the curve across sizes and runs; bench/plot.sh draws it)
// --callgrind       instead of the timed runs: velkor -L and the baseline under
//                   callgrind at each size, the instructions per object of the
//                   last size less the first (bench/callgrind.sh); DIR keeps
//                   the programs' copies and the output files
//
// Each side's figures are read from /proc/<pid> of its own process (not of
// bwrap or the sandbox script) while it waits at its final prompt: CPU time
// is utime + stime of /proc/<pid>/stat (all its threads), peak memory VmHWM
// of /proc/<pid>/status, read and write calls syscr + syscw of /proc/<pid>/io.
// Wall time runs from starting the sandbox to the prompt on the terminal.
// All system calls are counted by `strace -f -c` on two short list runs
// (2,000 and 6,000 objects) of each side: the difference over the 4,000
// objects between them is the count per object, start-up and end excluded.
// After each velkor -L run, velkor-report reads its run log in the table,
// CSV and JSON outputs: wall time, MB/s and peak memory (ru_maxrss).
#include <dirent.h>
#include <sys/stat.h>
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
#include <vector>

#include "e2e.h"
#include "process.h"

namespace {

using Clock = std::chrono::steady_clock;
using testsupport::Simulator;
using testsupport::VelkorTerminal;

const char kPrompt[] = "Press any key to continue....";
const int kVelkorPromptRow = 24, kBaselinePromptRow = 1;

std::string velkorBinary;  // set by main
std::string baselineBinary;
std::string batchBinary;
std::string keepDir;  // --keep
FILE* figuresFile = nullptr;  // --figures
int runNumber = 0;

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

double median(std::vector<double> v) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  size_t n = v.size();
  return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

// ---- /proc readings of a process ----


// The fields of a /proc .../stat line after the command's name: state is
// [0], minflt(10) is [7], utime(14) [11], stime(15) [12].
std::vector<std::string> statFields(const std::string& path) {
  std::string text = testsupport::readFile(path);
  std::vector<std::string> f;
  size_t close = text.rfind(')');
  if (close == std::string::npos) return f;
  std::istringstream rest(text.substr(close + 2));
  for (std::string w; rest >> w;) f.push_back(w);
  return f;
}

// The value of `key` (e.g. "VmHWM:") in a /proc file of lines "key value".
long procValue(pid_t pid, const char* file, const char* key) {
  std::istringstream in(testsupport::readFile("/proc/" + std::to_string(pid) + "/" + file));
  for (std::string line; std::getline(in, line);)
    if (line.compare(0, strlen(key), key) == 0) return std::stol(line.substr(strlen(key)));
  return -1;
}

// Where a process's CPU goes besides its instructions: user and system
// time, minor page faults and context switches of all its threads, and the
// CPU time and voluntary switches (its wake-ups) of each thread (the main
// thread first, the others in the order they were started).
struct ProcessFigures {
  double user = 0, system = 0;  // seconds
  long minorFaults = 0, voluntarySwitches = 0, involuntarySwitches = 0;
  std::vector<double> threadCpu;  // seconds
  std::vector<long> threadSwitches;  // voluntary
};

ProcessFigures processFigures(pid_t pid) {
  ProcessFigures out;
  const std::string dir = "/proc/" + std::to_string(pid);
  const double tick = static_cast<double>(sysconf(_SC_CLK_TCK));
  std::vector<std::string> f = statFields(dir + "/stat");
  if (f.size() < 13) return out;
  out.minorFaults = std::stol(f[7]);
  out.user = std::stod(f[11]) / tick;
  out.system = std::stod(f[12]) / tick;
  std::vector<pid_t> tids;
  if (DIR* d = opendir((dir + "/task").c_str())) {
    while (dirent* e = readdir(d))
      if (e->d_name[0] != '.') tids.push_back(static_cast<pid_t>(atoi(e->d_name)));
    closedir(d);
  }
  std::sort(tids.begin(), tids.end());
  for (pid_t tid : tids) {
    const std::string task = dir + "/task/" + std::to_string(tid);
    std::vector<std::string> t = statFields(task + "/stat");
    if (t.size() < 13) continue;
    out.threadCpu.push_back((std::stod(t[11]) + std::stod(t[12])) / tick);
    const std::string status = "task/" + std::to_string(tid) + "/status";
    out.threadSwitches.push_back(std::max(0L, procValue(pid, status.c_str(), "voluntary_ctxt_switches:")));
    out.voluntarySwitches += out.threadSwitches.back();
    out.involuntarySwitches += std::max(0L, procValue(pid, status.c_str(), "nonvoluntary_ctxt_switches:"));
  }
  return out;
}

// ---- One program run to its final prompt ----

struct ReportFigures {
  const char* format;
  double mb = 0;
  testsupport::TimedRun run;
};

struct Figures {
  double wall = 0, cpu = 0;
  long hwmKb = 0;
  long ioCalls = 0;  // syscr + syscw
  ProcessFigures process;
  bool ok = true;
  std::string note;
  std::vector<std::string> screen;
  std::vector<ReportFigures> reports;  // velkor-report on a list run's log
};

// velkor-report on the run log `log` in each output but --files (whose
// memory holds a run's entries by design).
std::vector<ReportFigures> reportOn(const std::string& log) {
  struct stat st;
  if (stat(log.c_str(), &st) != 0) return {};
  const std::string report = testsupport::binaryPath("report/velkor-report");
  std::vector<ReportFigures> out;
  for (const char* format : {"table", "csv", "json"})
    out.push_back({format, static_cast<double>(st.st_size) / 1e6, testsupport::runTimed({report, "--format", format, log})});
  return out;
}

// Where runToPrompt copies the run's callgrind.out (its working directory's),
// when set: the --callgrind runs.
std::string callgrindCopy;

// Runs `binary args` in the sandbox on `sim` until its prompt shows on
// `promptRow`, reads its figures, answers the prompt and waits for the end.
Figures runToPrompt(const Simulator& sim, const std::string& binary, const std::vector<std::string>& args,
                    int promptRow, std::chrono::seconds timeout, const std::vector<std::string>& wrapper = {}) {
  Figures fig;
  VelkorTerminal::Options options;
  options.binary = binary;
  options.wrapper = wrapper;
  auto start = Clock::now();
  VelkorTerminal term(sim, args, options);
  bool prompted = term.waitForRow(promptRow, kPrompt, timeout);
  fig.wall = seconds(Clock::now() - start);
  pid_t pid = prompted ? term.programPid() : -1;
  if (pid > 0) {
    fig.process = processFigures(pid);
    fig.cpu = fig.process.user + fig.process.system;
    fig.hwmKb = procValue(pid, "status", "VmHWM:");
    fig.ioCalls = procValue(pid, "io", "syscr:") + procValue(pid, "io", "syscw:");
  }
  fig.screen = term.screen();
  if (prompted) term.send("x");
  term.finish(std::chrono::seconds(30));
  if (!callgrindCopy.empty())
    testsupport::writeFile(callgrindCopy, testsupport::readFile(term.cwd() + "/callgrind.out"));
  if (!prompted) fig.ok = false, fig.note += "no final prompt (timeout or crash); ";
  if (prompted && pid <= 0) fig.ok = false, fig.note += "process not found; ";
  if (term.exitStatus() != 0) fig.ok = false, fig.note += "exit status " + std::to_string(term.exitStatus()) + "; ";
  if (fig.screen.size() > 23 && fig.screen[23].find("finished with error") != std::string::npos)
    fig.ok = false, fig.note += "finished with error; ";
  if (fig.ok && binary == velkorBinary && args[0] == "-L") fig.reports = reportOn(term.cwd() + "/velkor.log");
  if (!keepDir.empty() && binary == velkorBinary) {
    std::string name = keepDir + "/" + args[0].substr(1) + "-" + std::to_string(runNumber++);
    std::string screen;
    for (const std::string& row : fig.screen) screen += row + "\n";
    testsupport::writeFile(name + ".screen", screen);
    testsupport::writeFile(name + ".log", term.runLog());
  }
  return fig;
}

Figures runVelkor(const Simulator& sim, const char* op, std::chrono::seconds timeout,
                  const std::vector<std::string>& wrapper = {}) {
  return runToPrompt(sim, velkorBinary, {op, "VOL1"}, kVelkorPromptRow, timeout, wrapper);
}

Figures runBaseline(const Simulator& sim, std::chrono::seconds timeout, const std::vector<std::string>& wrapper = {}) {
  Figures fig = runToPrompt(sim, baselineBinary, {"VOL1"}, kBaselinePromptRow, timeout, wrapper);
  if (fig.screen.empty() || fig.screen[0].rfind("Processed Files: ", 0) != 0)
    fig.ok = false, fig.note += "no count; ";
  return fig;
}

// velkor-batch -L to its exit; not ok unless its summary counts `objects`.
Figures runBatch(const Simulator& sim, uint64_t objects, std::chrono::seconds timeout,
                 std::vector<std::string> args = {}) {
  Figures fig;
  VelkorTerminal::Options options;
  options.binary = batchBinary;
  options.cols = 300;
  auto start = Clock::now();
  args.insert(args.end(), {"-L", "VOL1"});
  VelkorTerminal term(sim, args, options);
  bool ended = term.waitExit(timeout);
  fig.wall = seconds(Clock::now() - start);
  fig.screen = term.screen();
  if (!ended) fig.ok = false, fig.note += "no end (timeout); ";
  if (term.exitStatus() != 0 && term.exitStatus() != 4)
    fig.ok = false, fig.note += "exit status " + std::to_string(term.exitStatus()) + "; ";
  if (term.screenText().find("--list-all VOL1: " + std::to_string(objects) + " objects in ") == std::string::npos)
    fig.ok = false, fig.note += "summary does not count the volume; ";
  return fig;
}

// Compares the screen's counters with the generator's expectations.
bool countsMatch(const std::vector<std::string>& screen, const nlohmann::json& expected, std::string* note) {
  static const char* const keys[8] = {"processed", "ccBitCleared", "good",  "openSkipped",
                                      "fixable",   "corrupted",    "fixed", "deleted"};
  std::vector<uint64_t> shown = testsupport::counters(screen);
  bool ok = shown.size() == 8;
  for (int i = 0; ok && i < 8; ++i) {
    // The screen shows counters as 32-bit numbers.
    uint64_t want = expected.value(keys[i], uint64_t(0)) & 0xffffffffu;
    if (shown[i] != want) ok = false, *note += std::string(keys[i]) + " " + std::to_string(shown[i]) + " expected " + std::to_string(want) + "; ";
  }
  if (shown.size() != 8) *note += "counter block not found; ";
  return ok;
}

// ---- System calls per object, from strace on two short runs ----

// Calls by name from an `strace -c` table.
std::map<std::string, long> straceCounts(const std::string& path) {
  std::map<std::string, long> calls;
  std::istringstream in(testsupport::readFile(path));
  for (std::string line; std::getline(in, line);) {
    std::istringstream fields(line);
    std::vector<std::string> f;
    for (std::string w; fields >> w;) f.push_back(w);
    // % time, seconds, usecs/call, calls, [errors,] name
    if (f.size() < 5 || !isdigit(static_cast<unsigned char>(f[0][0])) || f.back() == "total") continue;
    calls[f.back()] += std::stol(f[3]);
  }
  return calls;
}

std::map<std::string, long> tracedRun(bool velkor, uint64_t objects, uint64_t seed) {
  Simulator::Options o;
  o.generate = objects;
  o.seed = seed;
  o.requestLog = false;
  Simulator sim(o);
  testsupport::TempDir dir;
  std::vector<std::string> wrapper = {"strace", "-f", "-c", "-o", dir.file("calls")};
  auto timeout = std::chrono::seconds(300);
  Figures f = velkor ? runVelkor(sim, "-L", timeout, wrapper) : runBaseline(sim, timeout, wrapper);
  if (!f.ok) printf("  traced run FAILED: %s\n", f.note.c_str());
  return straceCounts(dir.file("calls"));
}

struct SyscallFigures {
  double velkor = 0, baseline = 0;
};

SyscallFigures countSyscalls(uint64_t seed) {
  const uint64_t small = 2000, large = 6000;
  SyscallFigures out;
  printf("\nsystem calls per object (strace -f -c, list runs of %" PRIu64 " and %" PRIu64 " objects, difference)\n",
         small, large);
  for (bool velkor : {false, true}) {
    std::map<std::string, long> a = tracedRun(velkor, small, seed), b = tracedRun(velkor, large, seed);
    double total = 0;
    std::string detail;
    for (const auto& [name, calls] : b) {
      double perObject = static_cast<double>(calls - (a.count(name) ? a[name] : 0)) / static_cast<double>(large - small);
      total += perObject;
      char piece[64];
      if (perObject >= 0.05) snprintf(piece, sizeof piece, " %s %.2f", name.c_str(), perObject), detail += piece;
    }
    printf("  %-9s %6.2f:%s\n", velkor ? "velkor -L" : "baseline", total, detail.c_str());
    (velkor ? out.velkor : out.baseline) = total;
  }
  return out;
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
  Figures b = runBaseline(sim, std::chrono::seconds(120));
  std::vector<std::string> baseline = requestTexts(sim, program.size());
  printf("request check on %" PRIu64 " objects: velkor -L made %zu exchanges, the baseline %zu (%s)\n", objects,
         program.size(), baseline.size(), b.screen.empty() ? "" : b.screen[0].c_str());
  if (!v.ok || !b.ok) {
    printf("  run failed: %s%s\n", v.note.c_str(), b.note.c_str());
    return false;
  }
  for (size_t i = 0; i < program.size() || i < baseline.size(); ++i) {
    const std::string x = i < program.size() ? program[i] : "(none)";
    const std::string y = i < baseline.size() ? baseline[i] : "(none)";
    if (x != y) {
      printf("  exchange %zu differs:\n    velkor:   %s\n    baseline: %s\n", i, x.c_str(), y.c_str());
      return false;
    }
  }
  printf("  the same requests, byte for byte, in the same order\n");
  return true;
}

// ---- Reporting ----

struct SizeResult {
  uint64_t objects = 0;
  std::vector<double> ratio, cpuRatio, baselineCpu, velkorCpu, velkorIo, baselineIo, listRate, batchRate;
  std::vector<double> checkpointRatio;  // velkor-batch -L's wall with checkpoints / without
  long velkorHwm = 0, baselineHwm = 0;
  double fixRate = 0;
  bool fixRan = false;
};

double loadAverage() {
  double load = 0;
  std::ifstream("/proc/loadavg") >> load;
  return load;
}

// One CSV row of the figures file; a figure not taken is left empty.
void figureRow(uint64_t objects, const std::string& run, double wall, double cpuUs, long peakKb, double perSecond,
               double mbPerSecond) {
  if (!figuresFile) return;
  auto number = [](double v, const char* format) {
    char text[32] = "";
    if (v > 0) snprintf(text, sizeof text, format, v);
    return std::string(text);
  };
  fprintf(figuresFile, "%" PRIu64 ",%s,%s,%s,%s,%s,%s,%.2f\n", objects, run.c_str(), number(wall, "%.3f").c_str(),
          number(cpuUs, "%.1f").c_str(), number(static_cast<double>(peakKb), "%.0f").c_str(),
          number(perSecond, "%.0f").c_str(), number(mbPerSecond, "%.1f").c_str(), loadAverage());
  fflush(figuresFile);
}

void printRow(const char* run, uint64_t objects, const Figures& f, const std::string& extra) {
  double n = static_cast<double>(objects);
  printf("  %-10s %9.2f %12.1f %11.2f %11ld %12.0f  %s\n", run, f.wall, f.cpu * 1e6 / n, f.ioCalls / n, f.hwmKb,
         f.wall > 0 ? n / f.wall : 0.0, extra.c_str());
  if (f.cpu > 0) {
    const ProcessFigures& p = f.process;
    std::string threads;
    for (size_t i = 0; i < p.threadCpu.size(); ++i) {
      char one[64];
      snprintf(one, sizeof one, "%s%.2f (%ld)", threads.empty() ? "" : " / ", p.threadCpu[i] * 1e6 / n,
               p.threadSwitches[i]);
      threads += one;
    }
    printf("  %-10s user %.1f + system %.1f us/obj, minor faults %.3f/obj, switches %.3f + %.3f/obj (voluntary + not), "
           "threads %s us/obj (voluntary switches)\n",
           "", p.user * 1e6 / n, p.system * 1e6 / n, p.minorFaults / n, p.voluntarySwitches / n,
           p.involuntarySwitches / n, threads.c_str());
  }
  if (f.ok) figureRow(objects, run, f.wall, f.cpu * 1e6 / n, f.hwmKb, f.wall > 0 ? n / f.wall : 0, 0);
  for (const ReportFigures& r : f.reports) {
    double rate = r.run.wall > 0 ? r.mb / r.run.wall : 0;
    printf("    velkor-report --format %-5s on its log (%.1f MB): %7.2f s %9.1f MB/s %9ld KiB%s\n", r.format, r.mb,
           r.run.wall, rate, r.run.peakKb, r.run.status == 0 ? "" : "  FAILED");
    if (r.run.status == 0) figureRow(objects, std::string("report ") + r.format, r.run.wall, 0, r.run.peakKb, 0, rate);
  }
}

std::vector<uint64_t> parseSizes(const char* text) {
  std::vector<uint64_t> out;
  std::stringstream in(text);
  for (std::string item; std::getline(in, item, ',');)
    if (!item.empty()) out.push_back(strtoull(item.c_str(), nullptr, 10));
  return out;
}

struct Options {
  std::vector<uint64_t> sizes = {10000, 100000};
  int rounds = 1;
  uint64_t seed = 1;
  bool withFix = true, check = false, smoke = false, syscalls = true, withBatch = true;
  std::string callgrindDir;  // --callgrind DIR: instructions per object instead (bench/callgrind.sh)
  std::string window;           // --windows DURATION: one pass in windows
  std::vector<uint64_t> rates;  // --pacer R,R,R: --max-rate's accuracy
};

// Reads the command line; sets the binaries' globals and opens the figures
// file. Returns -1 to go on, or the exit status.
int parseArgs(int argc, char** argv, Options& o) {
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--objects" && i + 1 < argc) o.sizes = parseSizes(argv[++i]);
    else if (a == "--rounds" && i + 1 < argc) o.rounds = std::max(1, atoi(argv[++i]));
    else if (a == "--seed" && i + 1 < argc) o.seed = strtoull(argv[++i], nullptr, 10);
    else if (a == "--no-fix") o.withFix = false;
    else if (a == "--no-syscalls") o.syscalls = false;
    else if (a == "--check-requests") o.check = true;
    else if (a == "--smoke") o.smoke = true;
    else if (a == "--velkor" && i + 1 < argc) velkorBinary = argv[++i];
    else if (a == "--keep" && i + 1 < argc) keepDir = argv[++i];
    else if (a == "--no-batch") o.withBatch = false;
    else if (a == "--callgrind" && i + 1 < argc) o.callgrindDir = argv[++i];
    else if (a == "--windows" && i + 1 < argc) o.window = argv[++i];
    else if (a == "--pacer" && i + 1 < argc) o.rates = parseSizes(argv[++i]);
    else if (a == "--figures" && i + 1 < argc) {
      const char* path = argv[++i];
      bool fresh = access(path, F_OK) != 0;
      if (!(figuresFile = fopen(path, "a"))) return perror(path), 2;
      if (fresh) fprintf(figuresFile, "objects,run,wall_s,cpu_us_per_object,peak_kib,objects_per_s,mb_per_s,load\n");
    } else {
      fprintf(stderr,
              "usage: bench_scan [--objects N[,N...]] [--rounds R] [--seed S] [--no-fix] [--no-syscalls] "
              "[--check-requests] [--smoke] [--velkor BINARY] [--keep DIR] [--no-batch] [--figures FILE] "
              "[--callgrind DIR]\n");
      return 2;
    }
  }
  if (velkorBinary.empty()) velkorBinary = testsupport::velkorBinary();
  // The program runs in another working directory.
  if (char* absolute = realpath(velkorBinary.c_str(), nullptr)) velkorBinary = absolute, free(absolute);
  baselineBinary = testsupport::binaryPath("bench/bench_baseline");
  batchBinary = testsupport::binaryPath("util/velkor/velkor-batch");
  return -1;
}

Simulator::Options generated(uint64_t n, uint64_t seed) {
  Simulator::Options o;
  o.generate = n;
  o.seed = seed;
  o.requestLog = false;
  return o;
}

// One round on a volume of n objects: velkor -L, the baseline, and
// velkor-batch -L when asked. Adds the figures to r; false when a run failed.
bool listRound(const Simulator& sim, const nlohmann::json& expected, const Options& o, std::chrono::seconds timeout,
               SizeResult& r) {
  const uint64_t n = r.objects;
  // velkor first: on a long run that must be cut short, its row is the one
  // the targets need.
  Figures v = runVelkor(sim, "-L", timeout);
  if (v.ok && !countsMatch(v.screen, expected.at("list"), &v.note)) v.ok = false;
  printRow("velkor -L", n, v, v.ok ? "" : "FAILED: " + v.note);
  Figures b = runBaseline(sim, timeout);
  std::string visited = b.screen.empty() ? "" : b.screen[0];
  if (visited != "Processed Files: " + std::to_string(n)) b.ok = false, b.note += "visited: " + visited + "; ";
  char extra[96] = "";
  if (b.wall > 0 && b.cpu > 0)
    snprintf(extra, sizeof extra, "velkor's wall ratio %.3f, CPU ratio %.3f", v.wall / b.wall, v.cpu / b.cpu);
  printRow("baseline", n, b, (b.ok ? "" : "FAILED: " + b.note) + extra);
  if (!b.ok || !v.ok) return false;
  double objects = static_cast<double>(n);
  r.ratio.push_back(v.wall / b.wall);
  r.cpuRatio.push_back(b.cpu > 0 ? v.cpu / b.cpu : 0);
  r.baselineCpu.push_back(b.cpu * 1e6 / objects);
  r.velkorCpu.push_back(v.cpu * 1e6 / objects);
  r.baselineIo.push_back(b.ioCalls / objects);
  r.velkorIo.push_back(v.ioCalls / objects);
  r.listRate.push_back(objects / v.wall);
  r.velkorHwm = std::max(r.velkorHwm, v.hwmKb);
  r.baselineHwm = std::max(r.baselineHwm, b.hwmKb);
  if (!o.withBatch) return true;
  // Its checkpoints in its working directory, on the disk of the temporary
  // directories (the sandbox's own /var/lib/velkor is in memory).
  Figures batch = runBatch(sim, n, timeout, {"--state-dir=state"});
  snprintf(extra, sizeof extra, "%.2f x velkor's objects/s", v.wall / batch.wall);
  printRow("batch -L", n, batch, (batch.ok ? "" : "FAILED: " + batch.note) + extra);
  if (!batch.ok) return false;
  r.batchRate.push_back(objects / batch.wall);
  // The checkpoint's cost: the same run keeping none, right after.
  Figures bare = runBatch(sim, n, timeout, {"--no-checkpoint"});
  snprintf(extra, sizeof extra, "with checkpoints / without: %.3f", batch.wall / bare.wall);
  printRow("batch -L, no checkpoint", n, bare, (bare.ok ? "" : "FAILED: " + bare.note) + extra);
  if (!bare.ok) return false;
  r.checkpointRatio.push_back(batch.wall / bare.wall);
  return true;
}

// Every run at one size; sets *failed when one failed.
SizeResult measureSize(uint64_t n, const Options& o, bool* failed) {
  SizeResult r;
  r.objects = n;
  // A timeout far beyond any expected run: ten milliseconds an object.
  auto timeout = std::chrono::seconds(120 + n / 100);
  printf("\n%" PRIu64 " objects (seed %" PRIu64 ", load %.2f)\n", n, o.seed, loadAverage());
  printf("  %-10s %9s %12s %11s %11s %12s\n", "run", "wall s", "CPU us/obj", "rd+wr/obj", "peak KiB", "objects/s");
  {
    Simulator sim(generated(n, o.seed));
    nlohmann::json expected = sim.expected();
    for (int round = 0; round < o.rounds; ++round)
      if (!listRound(sim, expected, o, timeout, r)) *failed = true;
  }
  if (o.withFix) {
    Simulator fresh(generated(n, o.seed));
    Figures f = runVelkor(fresh, "-F", timeout);
    if (f.ok && !countsMatch(f.screen, fresh.expected().at("fix"), &f.note)) f.ok = false;
    printRow("velkor -F", n, f, f.ok ? "" : "FAILED: " + f.note);
    if (!f.ok) *failed = true;
    r.fixRate = f.wall > 0 ? static_cast<double>(n) / f.wall : 0;
    r.fixRan = true;
  }
  return r;
}

void printSummary(const std::vector<SizeResult>& results, int rounds) {
  printf("\nsummary: medians of %d round%s (load %.2f at the end)\n", rounds, rounds == 1 ? "" : "s", loadAverage());
  printf("  %9s %7s %16s %16s %9s %13s %13s %11s %11s %11s\n", "objects", "wall", "CPU us/obj", "CPU us/obj", "CPU",
         "rd+wr/obj", "peak KiB", "-L", "-F", "batch -L");
  printf("  %9s %7s %16s %16s %9s %13s %13s %11s %11s %11s\n", "", "ratio", "baseline", "velkor", "ratio",
         "base/velkor", "base/velkor", "objects/s", "objects/s", "objects/s");
  for (const SizeResult& r : results) {
    char fix[32] = "-";
    if (r.fixRan) snprintf(fix, sizeof fix, "%.0f", r.fixRate);
    char batch[32] = "-";
    if (!r.batchRate.empty()) snprintf(batch, sizeof batch, "%.0f", median(r.batchRate));
    printf("  %9" PRIu64 " %7.3f %16.1f %16.1f %9.3f %6.2f/%-6.2f %6ld/%-6ld %11.0f %11s %11s\n", r.objects,
           median(r.ratio), median(r.baselineCpu), median(r.velkorCpu), median(r.cpuRatio), median(r.baselineIo),
           median(r.velkorIo), r.baselineHwm, r.velkorHwm, median(r.listRate), fix, batch);
  }
}

void printTargets(const std::vector<SizeResult>& results, const SyscallFigures& calls, bool smoke) {
  printf("\ntargets (goals, printed; %s)\n", smoke ? "a smoke run judges none of them" : "not tests");
  const SizeResult *at10k = nullptr, *at100k = nullptr;
  for (const SizeResult& r : results) {
    if (r.objects == 10000) at10k = &r;
    if (r.objects == 100000) at100k = &r;
  }
  if (at100k && !at100k->ratio.empty()) {
    double ratio = median(at100k->ratio), cpu = median(at100k->cpuRatio);
    printf("  wall ratio at 100,000 objects <= 1.20 (stretch 1.10): %.3f  %s\n", ratio,
           ratio <= 1.10 ? "met, stretch too" : ratio <= 1.20 ? "met" : "MISSED");
    printf("  CPU per object <= 1.25 x the baseline's at 100,000 objects: %.3f  %s\n", cpu, cpu <= 1.25 ? "met" : "MISSED");
    double batch = median(at100k->batchRate) / median(at100k->listRate);
    if (!at100k->batchRate.empty())
      printf("  velkor-batch -L objects/s >= 1.5 x velkor -L's at 100,000 objects: %.2f  %s\n", batch,
             batch >= 1.5 ? "met" : "MISSED");
    if (!at100k->checkpointRatio.empty()) {
      const double cost = median(at100k->checkpointRatio);
      printf("  velkor-batch -L with checkpoints / without at 100,000 objects <= 1.02: %.3f  %s\n", cost,
             cost <= 1.02 ? "met" : "MISSED");
    }
  } else {
    printf("  wall and CPU ratios at 100,000 objects: not run\n");
  }
  if (calls.velkor > 0)
    printf("  system calls per object <= 16: %.2f (baseline %.2f)  %s\n", calls.velkor, calls.baseline,
           calls.velkor <= 16 ? "met" : "MISSED");
  else
    printf("  system calls per object <= 16: not counted\n");
  const SizeResult* largest = results.empty() ? nullptr : &results.back();
  if (at10k && largest && largest->objects > 10000 && at10k->velkorHwm > 0) {
    double growth = static_cast<double>(largest->velkorHwm) / static_cast<double>(at10k->velkorHwm);
    printf("  velkor's peak memory at %" PRIu64 " within 5%% of 10,000: %ld KiB vs %ld KiB (x%.3f)  %s\n",
           largest->objects, largest->velkorHwm, at10k->velkorHwm, growth, growth <= 1.05 ? "met" : "MISSED");
  } else {
    printf("  velkor's peak memory within 5%% of 10,000: needs 10,000 and a larger size last\n");
  }
  if (at100k && largest && largest->objects > 100000 && !at100k->listRate.empty() && !largest->listRate.empty()) {
    double rate = median(largest->listRate) / median(at100k->listRate);
    printf("  velkor -L objects/s at %" PRIu64 " within 10%% of 100,000's: x%.3f  %s\n", largest->objects, rate,
           rate >= 0.90 ? "met" : "MISSED");
  }
}

// ---- User-space instructions per object, from callgrind ----

// The instructions (Ir, all threads) of a callgrind output file; -1 when none.
double callgrindTotal(const std::string& path) {
  std::istringstream in(testsupport::readFile(path));
  for (std::string line; std::getline(in, line);)
    if (line.rfind("totals:", 0) == 0 || line.rfind("summary:", 0) == 0) return std::stod(line.substr(line.find(':') + 1));
  return -1;
}

// velkor -L and the baseline under callgrind at each size (at least two), in
// the sandbox on one generated volume per size; prints the instructions per
// object of the last size less the first, divided by the difference in
// objects, so that start-up and end cancel out. The binaries and the scripts
// that run them under valgrind are put in `dir` (the sandbox binds a
// program's own directory); the output files are kept there.
bool measureInstructions(const Options& o, const std::string& dir) {
  struct Side {
    const char* name;
    std::string binary;
    std::vector<double> totals;
  } sides[2] = {{"velkor", velkorBinary, {}}, {"baseline", baselineBinary, {}}};
  for (Side& side : sides) {
    testsupport::writeFile(dir + "/" + side.name + ".bin", testsupport::readFile(side.binary));
    testsupport::writeFile(dir + "/" + side.name,
                           "#!/bin/sh\nexec valgrind -q --tool=callgrind --callgrind-out-file=callgrind.out \"$(dirname "
                           "\"$0\")/" + std::string(side.name) + ".bin\" \"$@\"\n");
    chmod((dir + "/" + side.name + ".bin").c_str(), 0755);
    chmod((dir + "/" + side.name).c_str(), 0755);
  }
  bool ok = true;
  for (uint64_t n : o.sizes) {
    Simulator sim(generated(n, o.seed));
    const auto timeout = std::chrono::seconds(600 + n / 20);
    for (Side& side : sides) {
      callgrindCopy = dir + "/" + side.name + "-" + std::to_string(n) + ".out";
      const bool velkor = &side == &sides[0];
      Figures f = runToPrompt(sim, dir + "/" + side.name, velkor ? std::vector<std::string>{"-L", "VOL1"}
                                                                 : std::vector<std::string>{"VOL1"},
                              velkor ? kVelkorPromptRow : kBaselinePromptRow, timeout);
      side.totals.push_back(callgrindTotal(callgrindCopy));
      // Under valgrind the process is not found by its binary's name: its
      // /proc figures are not read here, only the instructions.
      if (!f.ok && f.note == "process not found; ") f.ok = true;
      printf("  %-8s %8" PRIu64 " objects: %.0f instructions%s\n", side.name, n, side.totals.back(),
             f.ok ? "" : ("  FAILED: " + f.note).c_str());
      if (!f.ok || side.totals.back() < 0) ok = false;
    }
  }
  callgrindCopy.clear();
  if (!ok || o.sizes.size() < 2) return false;
  const double objects = static_cast<double>(o.sizes.back() - o.sizes.front());
  const double velkor = (sides[0].totals.back() - sides[0].totals.front()) / objects;
  const double baseline = (sides[1].totals.back() - sides[1].totals.front()) / objects;
  printf("instructions per object (%" PRIu64 " less %" PRIu64 " objects): velkor -L %.0f, baseline %.0f, ratio %.3f  %s\n",
         o.sizes.back(), o.sizes.front(), velkor, baseline, velkor / baseline, velkor / baseline <= 1.10 ? "met (<= 1.10)" : "MISSED (> 1.10)");
  return true;
}

}  // namespace

// --max-rate on the real clock: velkor-batch -L at each rate on a volume of
// n objects; the rate its summary gives against the limit.
bool pacerAccuracy(uint64_t n, const std::vector<uint64_t>& rates, uint64_t seed) {
  Simulator sim(generated(n, seed));
  bool ok = true;
  printf("\n--max-rate on %" PRIu64 " objects (load %.2f)\n", n, loadAverage());
  for (uint64_t rate : rates) {
    Figures fig = runBatch(sim, n, std::chrono::seconds(120 + 3 * n / rate), {"--max-rate", std::to_string(rate)});
    // The run's own figure (its summary: objects over its time from start to end).
    double achieved = 0, runSeconds = 0;
    for (const std::string& row : fig.screen) {
      const size_t at = row.find(" objects in ");
      if (row.find("--list-all VOL1: ") != std::string::npos && at != std::string::npos)
        runSeconds = atof(row.c_str() + at + 12);
    }
    if (runSeconds > 0) achieved = static_cast<double>(n) / runSeconds;
    const double error = achieved / static_cast<double>(rate) - 1;
    printf("  limit %6" PRIu64 "/s: %8.1f objects/s over the run's %.2f s (%.1f s with the sandbox), %+.1f%%  %s\n",
           rate, achieved, runSeconds, fig.wall, error * 100,
           fig.ok && error <= 0.10 && error >= -0.10 ? "within 10%" : "MISSED");
    ok = ok && fig.ok;
  }
  return ok;
}

// A pass in windows: velkor-batch --resume --max-duration=WINDOW until the
// pass has ended, then velkor-report's pass against the generator's counts.
bool passInWindows(uint64_t n, const std::string& window, uint64_t seed) {
  Simulator sim(generated(n, seed));
  const nlohmann::json expected = sim.expected()["list"];
  testsupport::TempDir dir;
  printf("\n%" PRIu64 " objects listed in windows of %s (load %.2f)\n", n, window.c_str(), loadAverage());
  int runs = 0;
  const auto start = Clock::now();
  do {
    VelkorTerminal::Options options;
    options.binary = batchBinary;
    options.cwd = dir.path();
    options.cols = 300;
    VelkorTerminal term(sim, {"--state-dir=state", "--resume", "--max-duration=" + window, "-L", "VOL1"}, options);
    term.finish(std::chrono::hours(2));
    ++runs;
    std::string summary;
    for (const std::string& row : term.screen())
      if (row.find("--list-all VOL1: ") != std::string::npos) summary = row;
    printf("  run %d: exit %d: %s\n", runs, term.exitStatus(), summary.c_str());
  } while (access(dir.file("state/VOL1.checkpoint").c_str(), F_OK) == 0 && runs < 100);
  printf("  %d runs in %.0f s\n", runs, seconds(Clock::now() - start));
  testsupport::ProcessResult report = testsupport::runProcess(
      {testsupport::binaryPath("report/velkor-report"), "--format=json", dir.file("velkor.log")});
  const nlohmann::json last = nlohmann::json::parse(report.out)["runs"].back();
  const bool met = !last["pass"].is_null() && last["pass"]["ended"] == true && last["pass"]["objects"] == expected["processed"] &&
                   last["remainingFixable"] == expected["fixable"] && last["remainingCorrupted"] == expected["corrupted"] &&
                   last["skipped"] == expected["openSkipped"];
  printf("  velkor-report: pass %s of %s runs, %s of %s objects, %s fixable, %s corrupted, %s skipped; generator: "
         "%s objects, %s fixable, %s corrupted, %s skipped  %s\n",
         last["pass"].is_null() ? "none" : last["pass"]["name"].dump().c_str(), last["pass"]["runs"].dump().c_str(),
         last["pass"]["objects"].dump().c_str(), last["pass"]["total"].dump().c_str(),
         last["remainingFixable"].dump().c_str(), last["remainingCorrupted"].dump().c_str(),
         last["skipped"].dump().c_str(), expected["processed"].dump().c_str(), expected["fixable"].dump().c_str(),
         expected["corrupted"].dump().c_str(), expected["openSkipped"].dump().c_str(), met ? "met" : "MISSED");
  testsupport::ProcessResult check = testsupport::runProcess(
      {testsupport::binaryPath("report/velkor-report"), "--check", "--volume=VOL1", dir.file("velkor.log")});
  printf("  velkor-report --check: %s", check.out.c_str());
  return met && runs >= 3;
}

int main(int argc, char** argv) {
  Options o;
  if (int status = parseArgs(argc, argv, o); status >= 0) return status;
  setvbuf(stdout, nullptr, _IOLBF, 0);
  printf("load average at the start: %.2f\n", loadAverage());
  if (!o.window.empty()) return passInWindows(o.sizes.back(), o.window, o.seed) ? 0 : 1;
  if (!o.rates.empty()) return pacerAccuracy(o.sizes.back(), o.rates, o.seed) ? 0 : 1;

  if (!o.callgrindDir.empty()) return measureInstructions(o, o.callgrindDir) ? 0 : 1;
  bool failed = false;
  if (o.check && !checkRequests(200, o.seed)) failed = true;
  std::vector<SizeResult> results;
  for (uint64_t n : o.sizes) results.push_back(measureSize(n, o, &failed));
  SyscallFigures calls;
  if (o.syscalls && !o.smoke) calls = countSyscalls(o.seed);
  printSummary(results, o.rounds);
  printTargets(results, calls, o.smoke);
  if (failed) printf("\nsome runs FAILED (see above)\n");
  return failed ? 1 : 0;
}
