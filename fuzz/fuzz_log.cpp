// Fuzzes the run-log reader with arbitrary log text, fed in blocks whose size
// the first byte picks, and writes every run it reads as JSON (with its
// entries), CSV and metrics. The text sits in a heap block of exactly its size, so
// AddressSanitizer reports any read outside it.
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <streambuf>

#include "logReader.h"
#include "output.h"

namespace {

// Throws away what it is given.
struct NullBuffer : std::streambuf {
  int overflow(int c) override { return c; }
  std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
};

// Checks the counts of each run against the entries handed over, and passes
// the runs to the outputs.
struct Checking : velkorreport::RunSink {
  std::vector<velkorreport::Output*> outputs;
  std::vector<velkorreport::Entry> entries;
  uint64_t lastIndex = 0;
  void entry(const velkorreport::Run& run, const velkorreport::Entry& e) override {
    entries.push_back(e);
    if (run.entries != entries.size()) __builtin_trap();
  }
  void runEnd(velkorreport::Run& run) override {
    if (run.entries != entries.size() || run.remaining + run.skipped > run.entries || run.index != lastIndex + 1)
      __builtin_trap();
    lastIndex = run.index;
    for (velkorreport::Output* o : outputs) o->run(run, entries);
    entries.clear();
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t block = 1 + data[0] % 64;
  const size_t length = size - 1;
  std::unique_ptr<char[]> text(new char[length ? length : 1]);
  memcpy(text.get(), data + 1, length);

  NullBuffer null;
  std::ostream out(&null);
  velkorreport::Options json;
  json.format = velkorreport::Format::json;
  json.files = true;
  velkorreport::Options csv;
  csv.format = velkorreport::Format::csv;
  csv.lastRun = true;  // handed whole runs
  std::unique_ptr<velkorreport::Output> jsonOut = velkorreport::makeOutput(json, out);
  std::unique_ptr<velkorreport::Output> csvOut = velkorreport::makeOutput(csv, out);
  velkorreport::Options metrics;
  metrics.format = velkorreport::Format::prometheus;
  std::unique_ptr<velkorreport::Output> metricsOut = velkorreport::makeOutput(metrics, out);

  Checking sink;
  sink.outputs = {jsonOut.get(), csvOut.get(), metricsOut.get()};
  velkorreport::LogReader reader(sink);
  reader.begin("fuzz.log");
  for (size_t at = 0; at < length; at += block) reader.feed(text.get() + at, std::min(block, length - at));
  reader.finish();
  jsonOut->finish(reader.skippedLines());
  csvOut->finish(reader.skippedLines());
  metricsOut->finish(reader.skippedLines());
  if (sink.lastIndex != reader.runs()) __builtin_trap();
  return 0;
}
