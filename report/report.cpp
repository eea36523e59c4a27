#include "report.h"

#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>

#include "logReader.h"
#include "output.h"
#include "velkor/logElements.h"

namespace velkorreport {

namespace {

const char kName[] = "velkor-report";

// Warnings about skipped text name each piece up to this many; then one line
// tells how many more there were.
const uint64_t kMaxWarnings = 20;

const size_t kBlock = 1 << 20;  // bytes read at a time

// Applies the filters and hands the runs (and, when wanted, their entries) to
// the output.
class ReportSink : public RunSink {
 public:
  ReportSink(const Options& options, Output& output, std::ostream& err)
      : options_(options), output_(output), err_(err) {}

  // The run has counted the entry. Whether the run is shown does not change
  // after an entry that is shown: its index and operation are known, and the
  // entry itself names the volume and has the problem asked for. So entries
  // are handed over as they are read, and only for runs that are shown.
  void entry(const Run& run, const Entry& entry) override {
    if (!entryShown(entry) || !runShown(run)) return;
    if (output_.streamsEntries()) {
      output_.entry(run, entry);
      streamed_ = true;
    } else if (output_.wantsEntries()) {
      entries_.push_back(entry);
    }
  }

  void runEnd(Run& run) override {
    // A run whose entries were handed over is always ended in the output.
    if (streamed_ || runShown(run)) {
      ++shown_;
      if (options_.lastRun) {
        // Only the last one is shown: it is kept until the logs end.
        last_ = std::move(run);
        lastEntries_.swap(entries_);
        haveLast_ = true;
      } else {
        output_.run(run, entries_);
      }
    }
    entries_.clear();
    streamed_ = false;
  }

  void skipped(const std::string& source, uint64_t line, uint64_t lines, std::string_view text) override {
    if (++warnings_ > kMaxWarnings) return;
    err_ << kName << ": " << printable(source) << ":" << line << ": skipped " << lines
         << (lines == 1 ? " line" : " lines") << " outside the run log's elements: "
         << printable(text.substr(0, 60)) << (text.size() > 60 ? "..." : "") << "\n";
  }

  // How many runs the filters let through (all candidates for --run last).
  uint64_t shown() const { return shown_; }

  void finish() {
    if (haveLast_) output_.run(last_, lastEntries_);
    if (warnings_ > kMaxWarnings)
      err_ << kName << ": " << warnings_ - kMaxWarnings << " more pieces of skipped text not shown\n";
  }

 private:
  bool entryShown(const Entry& entry) const {
    return (options_.volume.empty() || entry.volume == options_.volume) &&
           (options_.problem.empty() || entry.has(options_.problem));
  }
  // --check judges the run whatever its problems: --problem only narrows what it counts.
  bool runShown(const Run& run) const {
    return (options_.run == 0 || run.index == options_.run) &&
           (options_.volume.empty() || run.concerns(options_.volume)) &&
           (options_.check || options_.problem.empty() || run.problems.count(options_.problem) != 0);
  }

  const Options& options_;
  Output& output_;
  std::ostream& err_;
  std::vector<Entry> entries_;
  Run last_;
  std::vector<Entry> lastEntries_;
  bool haveLast_ = false;
  bool streamed_ = false;  // entries of the run being read were handed over
  uint64_t shown_ = 0;
  uint64_t warnings_ = 0;
};

// Opens a log for reading; -1 after saying why it cannot be.
int openLog(const std::string& path, std::ostream& err) {
  int fd = path == "-" ? 0 : open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) err << kName << ": " << printable(path) << ": " << strerror(errno) << "\n";
  return fd;
}

// Reads one log through the reader and closes it; false after saying why it
// could not be read to its end.
bool readLog(const std::string& path, int fd, LogReader& reader, std::ostream& err) {
  reader.begin(path);
  std::unique_ptr<char[]> block(new char[kBlock]);
  bool ok = true;
  for (;;) {
    ssize_t n = read(fd, block.get(), kBlock);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      err << kName << ": " << printable(path) << ": " << strerror(errno) << "\n";
      ok = false;
      break;
    }
    if (n == 0) break;
    reader.feed(block.get(), static_cast<size_t>(n));
  }
  reader.finish();
  if (fd != 0) close(fd);
  return ok;
}

void usage(std::ostream& out) {
  out << "Usage: " << kName << " [OPTION]... [LOG]...\n"
      << "Reads velkor's run logs (default ./velkor.log; - is standard input) and reports their runs.\n"
      << "\n"
      << "  -f, --format=FORMAT   table (default), json or csv\n"
      << "      --files           json: each run's file entries too\n"
      << "  -r, --run=N|last      only run N (1 = the oldest) or the last run; a table shows it in detail\n"
      << "      --volume=NAME     only runs on volume NAME and file runs on its files\n"
      << "      --problem=NAME    only files with the problem NAME, and runs that have one\n"
      << "      --check           judge the last run (of --volume): exit 0 clean, 1 problem files remain,\n"
      << "                        2 error or incomplete, 3 no run or unreadable log\n"
      << "  -h, --help            this text\n"
      << "\n"
      << "See velkor-report(1).\n";
}

bool usageError(std::ostream& err, const std::string& message, int* status) {
  err << kName << ": " << message << "\n" << "Try '" << kName << " --help' for more information.\n";
  *status = kNoAnswer;
  return false;
}

}  // namespace

bool parseOptions(int argc, char** argv, Options* options, std::ostream& out, std::ostream& err, int* status) {
  enum { kFiles = 256, kVolume, kProblem, kCheck };
  static const struct option longOptions[] = {
      {"format", required_argument, nullptr, 'f'}, {"files", no_argument, nullptr, kFiles},
      {"run", required_argument, nullptr, 'r'},    {"volume", required_argument, nullptr, kVolume},
      {"problem", required_argument, nullptr, kProblem}, {"check", no_argument, nullptr, kCheck},
      {"help", no_argument, nullptr, 'h'},         {nullptr, 0, nullptr, 0},
  };
  optind = 0;
  opterr = 0;
  int option;
  while ((option = getopt_long(argc, argv, "f:r:h", longOptions, nullptr)) != -1) {
    std::string value = optarg ? optarg : "";
    switch (option) {
      case 'f':
        if (value == "table") options->format = Format::table;
        else if (value == "json") options->format = Format::json;
        else if (value == "csv") options->format = Format::csv;
        else return usageError(err, "unknown format '" + value + "' (table, json or csv)", status);
        break;
      case kFiles:
        options->files = true;
        break;
      case 'r':
        if (value == "last") {
          options->lastRun = true;
        } else {
          char* end = nullptr;
          errno = 0;
          unsigned long long n = strtoull(value.c_str(), &end, 10);
          if (value.empty() || *end || errno || n == 0 || value[0] == '-')
            return usageError(err, "--run takes a run index from 1, or last", status);
          options->run = n;
        }
        break;
      case kVolume:
        options->volume = value;
        break;
      case kProblem: {
        bool known = false;
        std::string names;
        for (std::string_view name : velkor::kProblemElements) {
          known = known || name == value;
          names += names.empty() ? "" : ", ";
          names += name;
        }
        if (!known) return usageError(err, "unknown problem '" + value + "' (" + names + ")", status);
        options->problem = value;
        break;
      }
      case kCheck:
        options->check = true;
        break;
      case 'h':
        usage(out);
        *status = kClean;
        return false;
      default:
        return usageError(err, std::string("invalid option '") + (optind > 0 && optind <= argc ? argv[optind - 1] : "") + "'",
                          status);
    }
  }
  for (int i = optind; i < argc; ++i) options->logs.push_back(argv[i]);
  if (options->logs.empty()) options->logs.push_back("./velkor.log");
  return true;
}

int report(const Options& options, std::ostream& out, std::ostream& err) {
  // Every log is opened before anything is written, so an unreadable one
  // leaves no half report behind.
  std::vector<int> fds;
  for (const std::string& log : options.logs) {
    int fd = openLog(log, err);
    if (fd < 0) {
      for (int open : fds)
        if (open != 0) close(open);
      if (options.check) out << "the log " << printable(log) << " cannot be read\n";
      return kNoAnswer;
    }
    fds.push_back(fd);
  }
  std::unique_ptr<Output> output = makeOutput(options, out);
  ReportSink sink(options, *output, err);
  // Only JSON lists the skipped files.
  LogReader reader(sink, options.format == Format::json && !options.check);
  bool ok = true;
  for (size_t i = 0; i < fds.size(); ++i) {
    if (ok) ok = readLog(options.logs[i], fds[i], reader, err);
    else if (fds[i] != 0) close(fds[i]);
  }
  if (!ok) {
    if (options.check) out << "a log cannot be read to its end\n";
    return kNoAnswer;
  }
  sink.finish();
  int status = output->finish(reader.skippedLines());
  if (!options.check && (options.run != 0 || options.lastRun) && sink.shown() == 0) {
    err << kName << ": no such run in the log\n";
    status = kNoAnswer;
  }
  out.flush();
  return status;
}

int reportMain(int argc, char** argv) {
  Options options;
  int status = kClean;
  if (!parseOptions(argc, argv, &options, std::cout, std::cerr, &status)) return status;
  return report(options, std::cout, std::cerr);
}

}  // namespace velkorreport
