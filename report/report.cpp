#include "report.h"

#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

#include <ext/stdio_filebuf.h>
#include <sys/stat.h>
#include <zlib.h>

#include <cerrno>
#include <clocale>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <set>

#include "logReader.h"
#include "output.h"
#include "passes.h"
#include "velkor/duration.h"
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
  // `notTaken`: per fix run, the zids of its entries not taken by the fix.
  ReportSink(const Options& options, Output& output, std::ostream& err,
             const std::map<uint64_t, std::set<std::string>>& notTaken)
      : options_(options), output_(output), err_(err), notTaken_(notTaken) {}

  // The run has counted the entry. Whether the run is shown does not change
  // after an entry that is shown: its index and operation are known, and the
  // entry itself names the volume and has the problem asked for. So entries
  // are handed over as they are read, and only for runs that are shown.
  void entry(const Run& run, const Entry& read) override {
    passes_.entry(run, read);
    if (!entryShown(read) || !runShown(run)) return;
    const Entry* shown = &read;
    Entry marked;
    auto taken = notTaken_.find(run.index);
    if (taken != notTaken_.end() && taken->second.count(read.zid)) {
      marked = read;
      marked.notTaken = true;
      shown = &marked;
    }
    const Entry& entry = *shown;
    if (output_.streamsEntries()) {
      output_.entry(run, entry);
      streamed_ = true;
    } else if (output_.wantsEntries()) {
      entries_.push_back(entry);
    }
  }

  void runEnd(Run& run) override {
    passes_.runEnd(run);
    auto taken = notTaken_.find(run.index);
    if (taken != notTaken_.end()) run.notTaken = taken->second.size();
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
  const std::map<uint64_t, std::set<std::string>>& notTaken_;
  PassJoiner passes_;
  std::vector<Entry> entries_;
  Run last_;
  std::vector<Entry> lastEntries_;
  bool haveLast_ = false;
  bool streamed_ = false;  // entries of the run being read were handed over
  uint64_t shown_ = 0;
  uint64_t warnings_ = 0;
};

// The first reading of the logs, for the outputs that show what a fix did
// not take: the problem files of each fix run wait for the next list run of
// their volume; those it finds again with the same problems were not taken.
// It keeps the problem files of the fix runs not yet followed by a list run.
class FixFollowUp : public RunSink {
 public:
  void entry(const Run& run, const Entry& entry) override {
    if (!entry.problemFile()) return;
    if (run.operation == "fix-all" || run.operation == "fix") {
      pending_[entry.volume].emplace(entry.zid, Waiting{run.index, entry.problems});
    } else if (run.operation == "list-all") {
      auto volume = pending_.find(entry.volume);
      if (volume == pending_.end()) return;
      auto [from, to] = volume->second.equal_range(entry.zid);
      for (auto it = from; it != to; ++it)
        if (it->second.problems == entry.problems) notTaken_[it->second.fixRun].insert(entry.zid);
    }
  }
  // A list run that covered its volume settles the fix runs before it; one
  // that stopped short leaves the files it did not reach waiting.
  void runEnd(Run& run) override {
    if (run.operation == "list-all" && run.complete() && !run.stopped()) pending_.erase(run.target);
  }
  const std::map<uint64_t, std::set<std::string>>& notTaken() const { return notTaken_; }

 private:
  struct Waiting {
    uint64_t fixRun;
    std::vector<std::string> problems;
  };
  std::map<std::string, std::multimap<std::string, Waiting>> pending_;  // by volume, then zid
  std::map<uint64_t, std::set<std::string>> notTaken_;
};

bool writeAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    ssize_t n = write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

// Reads one log through the reader, from where fd stands; false after saying
// why it could not be read to its end. A log compressed by gzip (a rotated
// log) is read as the text it holds. With a `copy`, what is read is also
// written there (a log that cannot be read twice, such as a pipe).
bool readLog(const std::string& path, int fd, LogReader& reader, std::ostream& err, int copy = -1) {
  reader.begin(path);
  int own = dup(fd);  // gzclose closes its descriptor; fd stays open for a second reading
  gzFile gz = own < 0 ? nullptr : gzdopen(own, "rb");
  if (!gz) {
    err << kName << ": " << printable(path) << ": " << strerror(own < 0 ? errno : ENOMEM) << "\n";
    if (own >= 0) close(own);
    return false;
  }
  gzbuffer(gz, kBlock);
  std::unique_ptr<char[]> block(new char[kBlock]);
  bool ok = true;
  for (;;) {
    int n = gzread(gz, block.get(), kBlock);
    int code = Z_OK;
    // zlib's text names the descriptor ("<fd:4>: "); the log's name is said instead.
    std::string why = n <= 0 ? gzerror(gz, &code) : "";
    if (code == Z_ERRNO) why = strerror(errno);
    else if (why.rfind("<fd:", 0) == 0 && why.find(": ") != std::string::npos) why.erase(0, why.find(": ") + 2);
    if (n > 0 && copy >= 0 && !writeAll(copy, block.get(), static_cast<size_t>(n))) {
      code = Z_ERRNO;
      why = strerror(errno);
    }
    // A compressed log cut short ends (n == 0) with an error too.
    if (n < 0 || code != Z_OK) {
      err << kName << ": " << printable(path) << ": " << why << "\n";
      ok = false;
      break;
    }
    if (n == 0) break;
    reader.feed(block.get(), static_cast<size_t>(n));
  }
  gzclose_r(gz);
  reader.finish();
  return ok;
}

// The logs read, in order, and their descriptors, closed at the end.
struct OpenLogs {
  std::vector<std::string> names;
  std::vector<int> fds;
  ~OpenLogs() {
    for (int fd : fds)
      if (fd > 0) close(fd);
  }
};

// A log's rotated siblings as logrotate leaves them, oldest first: PATH.2.gz
// ... PATH.1 (each plain or compressed), up to the first number missing.
std::vector<std::string> rotatedSiblings(const std::string& path) {
  std::vector<std::string> siblings;
  struct stat st;
  for (unsigned n = 1;; ++n) {
    std::string plain = path + "." + std::to_string(n);
    if (stat(plain.c_str(), &st) == 0) siblings.push_back(plain);
    else if (stat((plain + ".gz").c_str(), &st) == 0) siblings.push_back(plain + ".gz");
    else break;
  }
  return {siblings.rbegin(), siblings.rend()};
}

// Opens the logs the options name, each after its rotated siblings when a
// volume's latest run or verdict is looked for (--check, the metrics): a run
// that spans a rotation, or the last run before it, lies in those. A log
// missing after a rotation (no run has written it yet) is no error when its
// siblings are there. False after saying why a log cannot be read.
bool openLogs(const Options& options, OpenLogs& logs, std::ostream& out, std::ostream& err) {
  const bool latest = (options.check || options.format == Format::prometheus) && options.run == 0;
  for (const std::string& log : options.logs) {
    std::vector<std::string> names;
    if (latest && log != "-") names = rotatedSiblings(log);
    const bool rotated = !names.empty();
    names.push_back(log);
    for (const std::string& name : names) {
      int fd = name == "-" ? 0 : open(name.c_str(), O_RDONLY | O_CLOEXEC);
      if (fd < 0 && rotated && errno == ENOENT && name == log) continue;
      if (fd < 0) {
        err << kName << ": " << printable(name) << ": " << strerror(errno) << "\n";
        if (options.check) out << "the log " << printable(name) << " cannot be read\n";
        return false;
      }
      logs.names.push_back(name);
      logs.fds.push_back(fd);
    }
  }
  return true;
}

// Reads the logs once to find what fix runs did not take, and goes back to
// where each began. A log that cannot be read again (a pipe) is copied into an
// unnamed temporary file, which takes its place for the second reading.
bool followFixes(OpenLogs& logs, FixFollowUp& followUp, std::ostream& err) {
  LogReader reader(followUp, false);
  for (size_t i = 0; i < logs.fds.size(); ++i) {
    int copy = -1;
    off_t start = lseek(logs.fds[i], 0, SEEK_CUR);  // standard input may stand anywhere in a file
    if (start < 0) {
      start = 0;
      copy = open(P_tmpdir, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
      if (copy < 0) {
        err << kName << ": no temporary file for " << printable(logs.names[i]) << ": " << strerror(errno) << "\n";
        return false;
      }
    }
    bool ok = readLog(logs.names[i], logs.fds[i], reader, err, copy);
    if (copy >= 0) {
      if (logs.fds[i] > 0) close(logs.fds[i]);
      logs.fds[i] = copy;
    }
    if (!ok || lseek(logs.fds[i], start, SEEK_SET) < 0) return false;
  }
  return true;
}

void usage(std::ostream& out) {
  out << "Usage: " << kName << " [OPTION]... [LOG]...\n"
      << "Reads velkor's run logs (default ./velkor.log; - is standard input) and reports their runs.\n"
      << "\n"
      << "  -f, --format=FORMAT   table (default), json, csv or prometheus (node exporter textfile)\n"
      << "      --files           json: each run's file entries too\n"
      << "  -o, --output=FILE     write the report into FILE, replacing it only once it is whole\n"
      << "  -r, --run=N|last      only run N (1 = the oldest) or the last run; a table shows it in detail\n"
      << "      --volume=NAME     only runs on volume NAME and file runs on its files\n"
      << "      --problem=NAME    only files with the problem NAME, and runs that have one\n"
      << "      --plan            with --run N: the deletion plan of that list run, for velkor-batch -D --plan\n"
      << "      --check           judge the last run, or with --volume the volume's last list, fix or\n"
      << "                        delete run: exit 0 clean, 1 problem files remain, 2 error, incomplete\n"
      << "                        or stopped, 3 no run or unreadable log; rotated logs are read too\n"
      << "      --max-age=DURATION  with --check or prometheus: a last run older than DURATION\n"
      << "                        (26h, 90m, 7d, 3600s) is judged 2\n"
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
  enum { kFiles = 256, kVolume, kProblem, kCheck, kMaxAge, kPlan };
  static const struct option longOptions[] = {
      {"format", required_argument, nullptr, 'f'}, {"files", no_argument, nullptr, kFiles},
      {"run", required_argument, nullptr, 'r'},    {"volume", required_argument, nullptr, kVolume},
      {"problem", required_argument, nullptr, kProblem}, {"check", no_argument, nullptr, kCheck},
      {"max-age", required_argument, nullptr, kMaxAge}, {"output", required_argument, nullptr, 'o'},
      {"plan", no_argument, nullptr, kPlan},       {"help", no_argument, nullptr, 'h'},
      {nullptr, 0, nullptr, 0},
  };
  optind = 0;
  opterr = 0;
  int option;
  while ((option = getopt_long(argc, argv, "f:o:r:h", longOptions, nullptr)) != -1) {
    std::string value = optarg ? optarg : "";
    switch (option) {
      case 'f':
        if (value == "table") options->format = Format::table;
        else if (value == "json") options->format = Format::json;
        else if (value == "csv") options->format = Format::csv;
        else if (value == "prometheus") options->format = Format::prometheus;
        else return usageError(err, "unknown format '" + value + "' (table, json, csv or prometheus)", status);
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
      case kPlan:
        options->plan = true;
        break;
      case kMaxAge:
        if (!parseDuration(value, &options->maxAge))
          return usageError(err, "--max-age takes a duration: a number and s, m, h or d (26h), not '" + value + "'",
                            status);
        break;
      case 'o':
        if (value.empty()) return usageError(err, "--output takes a file name", status);
        options->output = value;
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
  if (options->maxAge != 0 && !options->check && options->format != Format::prometheus)
    return usageError(err, "--max-age judges runs: it goes with --check or --format prometheus",
                      status);
  if (options->plan && ((options->run == 0 && !options->lastRun) || options->check))
    return usageError(err, "--plan writes the deletion plan of one list run: give it --run N (and no --check)",
                      status);
  for (int i = optind; i < argc; ++i) options->logs.push_back(argv[i]);
  if (options->logs.empty()) options->logs.push_back("./velkor.log");
  return true;
}

bool parseDuration(const std::string& text, int64_t* seconds) { return velkor::parseDuration(text, seconds); }

int report(const Options& options, std::ostream& out, std::ostream& err, bool* logsRead) {
  if (logsRead) *logsRead = false;
  // Every log is opened before anything is written, so an unreadable one
  // leaves no half report behind.
  OpenLogs logs;
  if (!openLogs(options, logs, out, err)) return kNoAnswer;
  std::unique_ptr<Output> output = makeOutput(options, out);
  FixFollowUp followUp;
  if (output->showsNotTaken() && !followFixes(logs, followUp, err)) return kNoAnswer;
  ReportSink sink(options, *output, err, followUp.notTaken());
  // Only JSON lists the skipped files.
  LogReader reader(sink, options.format == Format::json && !options.check);
  bool ok = true;
  for (size_t i = 0; i < logs.fds.size() && ok; ++i) ok = readLog(logs.names[i], logs.fds[i], reader, err);
  if (!ok) {
    if (options.check) out << "a log cannot be read to its end\n";
    return kNoAnswer;
  }
  if (logsRead) *logsRead = true;
  sink.finish();
  int status = output->finish(reader.skippedLines());
  if (options.check || options.format == Format::prometheus) {
    std::string read;
    for (const std::string& name : logs.names) read += (read.empty() ? "" : ", ") + printable(name);
    out << (options.check ? "" : "# ") << "logs read: " << read << "\n";
  }
  if (!options.check && (options.run != 0 || options.lastRun) && sink.shown() == 0) {
    err << kName << ": no such run in the log\n";
    status = kNoAnswer;
  }
  out.flush();
  return status;
}

namespace {

// What a file that is not a regular file is, for the refusal.
const char* fileKind(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR: return "a directory";
    case S_IFLNK: return "a symbolic link";
    case S_IFIFO: return "a FIFO";
    case S_IFSOCK: return "a socket";
    case S_IFCHR: return "a character device";
    case S_IFBLK: return "a block device";
    default: return "not a regular file";
  }
}

}  // namespace

int reportToFile(const Options& options, std::ostream& err) {
  const std::string& path = options.output;
  size_t slash = path.rfind('/');
  std::string dir = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  std::string temp = (slash == std::string::npos ? "" : dir) + "." +
                     path.substr(slash == std::string::npos ? 0 : slash + 1) + ".XXXXXX";
  int fd = mkostemp(temp.data(), O_CLOEXEC);
  int kept = fd < 0 ? -1 : dup(fd);  // for the mode, after the buffer has closed fd
  if (fd < 0 || kept < 0) {
    err << kName << ": " << printable(path) << ": cannot write a temporary file in " << printable(dir) << ": "
        << strerror(errno) << "\n";
    if (fd >= 0) {
      unlink(temp.c_str());
      close(fd);
    }
    return kNoAnswer;
  }
  bool logsRead = false;
  int status;
  bool written;
  {
    __gnu_cxx::stdio_filebuf<char> buffer(fd, std::ios::out);
    std::ostream out(&buffer);
    status = report(options, out, err, &logsRead);
    out.flush();
    written = out.good() && fsync(fd) == 0;
  }  // the buffer closes fd
  // Only a regular file is replaced, keeping its mode; a new one is readable
  // by the collector that reads the directory, as a file written under the
  // usual umask would be. Looked at last, just before the rename.
  struct stat target;
  bool exists = logsRead && written && lstat(path.c_str(), &target) == 0;
  int error = errno;
  if (exists && !S_ISREG(target.st_mode)) {
    err << kName << ": " << printable(path) << " is " << fileKind(target.st_mode)
        << ", not a regular file: it is not replaced\n";
    written = false;
    error = 0;
  } else if (written && logsRead && fchmod(kept, exists ? target.st_mode & 07777 : 0644) != 0) {
    error = errno;
    written = false;
  }
  close(kept);
  if (written && logsRead && rename(temp.c_str(), path.c_str()) == 0) return status;
  if (written && logsRead) error = errno;
  unlink(temp.c_str());
  if (!logsRead || error == 0) return kNoAnswer;  // the reason is written; the file is left as it was
  err << kName << ": " << printable(path) << ": " << strerror(error) << "\n";
  return kNoAnswer;
}

int reportMain(int argc, char** argv) {
  // Texts on the terminal are shown as characters of the operator's
  // character set, as on velkor's screen (common/shownText.h); only the
  // character handling follows the environment.
  setlocale(LC_CTYPE, "");
  Options options;
  int status = kClean;
  if (!parseOptions(argc, argv, &options, std::cout, std::cerr, &status)) return status;
  if (!options.output.empty()) return reportToFile(options, std::cerr);
  return report(options, std::cout, std::cerr);
}

}  // namespace velkorreport
