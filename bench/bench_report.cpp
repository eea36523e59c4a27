// bench_report: velkor-report on a large run log (not a test). It writes a log
// of N file entries with velkor's own document and entry writers, then times
// the built velkor-report on it in several outputs, and the log reader alone
// in this process, and prints MB/s and the command's peak memory.
//
//   bench_report [--entries N] [--runs R] [--rounds K] [--keep FILE]
#include <sys/stat.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "logReader.h"
#include "logText.h"
#include "process.h"
#include "velkor/velkorTypes.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

// One entry in 50 of a kind; the rest as a volume scan logs them.
testsupport::LoggedFile fileNumber(uint64_t i) {
  testsupport::LoggedFile f;
  f.zid = 4097 + 3 * i;
  f.name = "/dir" + std::to_string(i % 97) + "/sub" + std::to_string(i % 13) + "/file" + std::to_string(f.zid) + ".dat";
  switch (i % 10) {
    case 0: f.problems = velkor::skippedChecking; break;
    case 1: f.problems = velkor::invalidAttribute; f.fixed = true; break;
    case 2: f.problems = velkor::badCompHeader | velkor::mismatchedZid; f.removed = true; break;
    case 3: f.problems = velkor::noPhysicalData; f.compressed = false; break;
    case 4: f.problems = velkor::invalidState; f.classId = 1; f.deleted = true; break;
    default: f.problems = velkor::invalidState | velkor::compBeastEOFZero; break;
  }
  return f;
}

// Counts what the reader hands over, and nothing else.
struct Counting : velkorreport::RunSink {
  uint64_t runs = 0, entries = 0, skippedLines = 0;
  void entry(const velkorreport::Run&, const velkorreport::Entry&) override { ++entries; }
  void runEnd(velkorreport::Run&) override { ++runs; }
  void skipped(const std::string&, uint64_t, uint64_t lines, std::string_view) override { skippedLines += lines; }
};

}  // namespace

int main(int argc, char** argv) {
  uint64_t entries = 1000000, runs = 10;
  int rounds = 3;
  std::string keep;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--entries" && i + 1 < argc) entries = std::stoull(argv[++i]);
    else if (a == "--runs" && i + 1 < argc) runs = std::max<uint64_t>(1, std::stoull(argv[++i]));
    else if (a == "--rounds" && i + 1 < argc) rounds = std::max(1, std::atoi(argv[++i]));
    else if (a == "--keep" && i + 1 < argc) keep = argv[++i];
    else {
      fprintf(stderr, "usage: bench_report [--entries N] [--runs R] [--rounds K] [--keep FILE]\n");
      return 2;
    }
  }

  testsupport::TempDir dir;
  std::string log = keep.empty() ? dir.file("velkor.log") : keep;
  Clock::time_point start = Clock::now();
  {
    std::ofstream out(log, std::ios::binary);
    testsupport::LogText text(out);
    for (uint64_t r = 0, i = 0; r < runs; ++r) {
      text.start({"velkor", "-F", "VOL1"});
      for (uint64_t end = entries * (r + 1) / runs; i < end; ++i) text.entry(fileNumber(i), velkor::opFixAll);
      text.end();
    }
  }
  struct stat st;
  if (stat(log.c_str(), &st) != 0) return 1;
  const double mb = static_cast<double>(st.st_size) / 1e6;
  printf("log: %llu entries in %llu runs, %.1f MB (%.0f bytes an entry), written in %.1f s\n",
         static_cast<unsigned long long>(entries), static_cast<unsigned long long>(runs), mb,
         static_cast<double>(st.st_size) / static_cast<double>(entries), seconds(Clock::now() - start));

  const std::string report = testsupport::binaryPath("report/velkor-report");
  struct Case {
    const char* what;
    std::vector<std::string> args;
  } cases[] = {
      {"velkor-report (table)", {report, log}},
      {"velkor-report --check", {report, "--check", log}},
      {"velkor-report --format json", {report, "--format", "json", log}},
      {"velkor-report --format csv", {report, "--format", "csv", log}},
      {"velkor-report --format json --files", {report, "--format", "json", "--files", log}},
  };
  printf("%-38s %8s %9s %10s %s\n", "", "wall s", "MB/s", "peak KiB", "(best of rounds; exit status)");
  for (const Case& c : cases) {
    testsupport::TimedRun best;
    for (int round = 0; round < rounds; ++round) {
      testsupport::TimedRun t = testsupport::runTimed(c.args);
      if (round == 0 || t.wall < best.wall) best = t;
    }
    printf("%-38s %8.2f %9.1f %10ld (%d)\n", c.what, best.wall, mb / best.wall, best.peakKb, best.status);
  }

  // The reader alone, in 1 MiB blocks as the command reads.
  double bestReader = 0;
  Counting counted;
  for (int round = 0; round < rounds; ++round) {
    counted = Counting();
    velkorreport::LogReader reader(counted);
    std::vector<char> block(1 << 20);
    int fd = open(log.c_str(), O_RDONLY);
    Clock::time_point t0 = Clock::now();
    reader.begin(log);
    for (ssize_t n; (n = read(fd, block.data(), block.size())) > 0;) reader.feed(block.data(), size_t(n));
    reader.finish();
    double wall = seconds(Clock::now() - t0);
    close(fd);
    if (round == 0 || wall < bestReader) bestReader = wall;
  }
  printf("%-38s %8.2f %9.1f %10s (%llu runs, %llu entries, %llu skipped lines)\n", "reader alone, in process",
         bestReader, mb / bestReader, "-", static_cast<unsigned long long>(counted.runs),
         static_cast<unsigned long long>(counted.entries), static_cast<unsigned long long>(counted.skippedLines));
  return counted.entries == entries && counted.runs == runs && counted.skippedLines == 0 ? 0 : 1;
}
