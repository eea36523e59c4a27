#include "velkor/batch.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <clocale>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include "common_cpp/kvfError.h"
#include "velkor/beastQueries.h"
#include "velkor/beastRecords.h"
#include "velkor/channel.h"
#include "velkor/checkpoint.h"
#include "velkor/commandLine.h"
#include "velkor/compCandidate.h"
#include "velkor/deletionPlan.h"
#include "velkor/duration.h"
#include "velkor/errorWords.h"
#include "velkor/logElements.h"
#include "velkor/operations.h"
#include "velkor/runLog.h"
#include "velkor/terminalText.h"
#include "velkor/identity.h"
#include "velkor/runStart.h"
#include "velkor/volumeStats.h"

namespace velkor {

namespace {

// Set by the first SIGINT, SIGTERM or SIGHUP; the scan stops taking objects.
std::atomic<int> stopSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "the signal handler writes it");

// The stop signals are blocked in every thread and taken by one of their
// own. A caught signal would wait for its handler until the exchange in hand
// ends, which a hung file system never ends; this thread ends the process at
// the second signal even then. The first only asks the scan to stop: the
// object in hand is finished, its exchanges untouched.
void catchStopSignals() {
  sigset_t stops;
  sigemptyset(&stops);
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&stops, sig);
  pthread_sigmask(SIG_BLOCK, &stops, nullptr);
  std::thread([stops] {
    for (;;) {
      int sig = 0;
      if (sigwait(&stops, &sig) != 0) continue;
      const bool second = stopSignal.exchange(sig) != 0;
      // A second signal: end now, without the end of the log.
      static const char kFirst[] = "velkor-batch: stopping after the object in hand; a second signal stops at once\n";
      static const char kSecond[] = "velkor-batch: a second signal: stopped at once\n";
      ssize_t ignored = second ? write(STDERR_FILENO, kSecond, sizeof kSecond - 1)
                               : write(STDERR_FILENO, kFirst, sizeof kFirst - 1);
      (void)ignored;
      if (second) _exit(kBatchStopped);
    }
  }).detach();
  // A reader that went away (velkor-batch ... | head) fails the writes to
  // it; the run and its log go on.
  signal(SIGPIPE, SIG_IGN);
}

double secondsSince(const struct timespec& start, const struct timespec& now) {
  return static_cast<double>(now.tv_sec - start.tv_sec) + (now.tv_nsec - start.tv_nsec) / 1e9;
}

struct timespec monotonicNow() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now;
}

std::string hoursMinutesSeconds(double seconds) {
  long s = seconds < 0 ? 0 : static_cast<long>(seconds + 0.5);
  char text[32];
  snprintf(text, sizeof text, "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
  return text;
}

// The problem names of a word, as the run log names them, joined by commas.
std::string problemNames(unsigned long problems) {
  std::string names;
  forEachProblem(problems, [&names](std::string_view name) {
    if (!names.empty()) names += ",";
    names += name;
  });
  return names;
}

// What went wrong, in the operator's words first; then the error as the log
// has it.
std::string errorWords(const KVFError& e, unsigned int operation, const char* target, bool beforeAnyObject) {
  const auto* config = dynamic_cast<const ConfigFileError*>(&e);
  return (config ? config->operatorWords()
                 : velkor::errorWords(e.isKvfCode, e.number(), e.what(), operation, target, beforeAnyObject)) +
         " (" + e.what() + ", error " + std::to_string(e.number()) + " " + e.numberName() + " at " + e.location + ")";
}

bool parseSeconds(const char* text, unsigned* seconds) {
  if (!text || !*text) return false;
  char* end = nullptr;
  errno = 0;
  unsigned long value = strtoul(text, &end, 10);
  if (errno || *end || text[0] == '-' || value == 0 || value > 86400) return false;
  *seconds = static_cast<unsigned>(value);
  return true;
}

// The run log's path as a checkpoint records it: the same log by any path.
std::string absoluteLogPath(const char* path) {
  std::unique_ptr<char, decltype(&free)> real(realpath(path, nullptr), free);
  return real ? real.get() : path;
}

// The zids of a deletion plan (velkor/deletionPlan.h) of `volume`; false,
// with `why` set, when it cannot be read or is another volume's.
bool readDeletionPlan(const char* path, const char* volume, std::set<std::string>* zids, std::string* why) {
  std::ifstream in(path);
  std::string line, zid, name;
  if (!in || !std::getline(in, line) || line != kPlanFirstLine) {
    *why = "is not a deletion plan (velkor-report --plan --run N writes one)";
    return false;
  }
  if (!std::getline(in, line) || line != planVolumeLine(volume).substr(0, planVolumeLine(volume).size() - 1)) {
    *why = "is not a plan of volume " + printable(volume) + " (" + printable(line) + ")";
    return false;
  }
  while (std::getline(in, line)) {
    if (!readPlanFileLine(line, &zid, &name)) {
      *why = "holds a line that names no file: " + printable(line);
      return false;
    }
    zids->insert(zid);
  }
  return true;
}

bool parseRate(const char* text, double* rate) {
  char* end = nullptr;
  errno = 0;
  const unsigned long value = strtoul(text, &end, 10);
  if (errno || *end || !isdigit(static_cast<unsigned char>(text[0])) || value == 0 || value > 10000000) return false;
  *rate = static_cast<double>(value);
  return true;
}

void batchUsage() {
  VELKOR_Usage(logPath);
  std::cout << "velkor-batch runs the operations above without a screen, for cron, systemd and ssh:\n"
            << "      --yes                    Answer yes to the operation's question (the statistics\n"
            << "                               recount on a volume not in maintenance state); -d and\n"
            << "                               -D delete nothing without it\n"
            << "      --progress[=SECONDS]     A progress line on standard error every SECONDS\n"
            << "                               (default 10; on when standard error is a terminal)\n"
            << "      --quiet                  Errors only\n"
            << "      --resume                 Go on with the volume's stopped pass (-L, -F, -D, -C)\n"
            << "                               from its checkpoint, else begin a new one\n"
            << "      --state-dir DIR          Keep the checkpoints in DIR (default /var/lib/velkor)\n"
            << "      --no-checkpoint          Keep no checkpoint of the pass\n"
            << "      --max-duration DURATION  End the run after DURATION (30s, 90m, 4h); with a\n"
            << "                               checkpoint, --resume goes on with the pass next time\n"
            << "      --max-rate N             At most N objects a second, paced smoothly\n"
            << "Exit status (bits combined): 0 nothing found, 1 problems found and all repaired or\n"
            << "deleted, 4 problems left, 8 operational error, 16 usage error, 32 stopped before the end.\n";
  std::cout.flush();
}

int usageError(const std::string& message) { return failWithTry(message, kBatchUsage); }

}  // namespace

BatchView::BatchView(const BatchSettings& settings, unsigned int operation, const char* target)
    : settings_(settings), operation_(operation), target_(printable(target)), pacer_(settings.maxRate) {
  start_ = lastLine_ = monotonicNow();
}

void BatchView::fileChecked(const FileResult& result) {
  if (following_ && planned_.count(result.file->zid)) {
    plannedSeen_.insert(result.file->zid);
    if (!(result.problems & kCorruptedProblems)) ++plannedNotCorrupted_;
  }
  if (result.problems & (kFixableProblems | kCorruptedProblems)) {
    ++found_;
    if (result.fixed || result.deleted) ++resolved_;
  }
  if (result.fixed) ++fixed_;
  if (result.deleted) ++deleted_;
  if (result.volumeLevel) return;  // a scan counts its objects in objectDone
  ++done_;
  if (!settings_.quiet)
    printf("%s: %s, %s\n", result.name ? printable(result.name).c_str() : target_.c_str(),
           problemNames(result.problems).c_str(), result.fixed ? "fixed" : result.deleted ? "deleted" : "checked");
}

void BatchView::compressionOff() {
  if (!settings_.quiet) printf("%s: compression is not enabled on this volume; nothing to do\n", target_.c_str());
}

void BatchView::statistics(const VolumeStatistics& before, const VolumeStatistics* after) {
  char line[128];
  results_ = "Compression Statistics:\n";
  snprintf(line, sizeof line, "  %-26s%20s%s\n", "", "Old", after ? "                  New" : "");
  results_ += line;
  for (int row = 0; row < 5; ++row) {
    snprintf(line, sizeof line, "  %s%20llu", kStatisticLabels[row], static_cast<unsigned long long>(before.figure[row]));
    results_ += line;
    if (after) {
      snprintf(line, sizeof line, " %20llu", static_cast<unsigned long long>(after->figure[row]));
      results_ += line;
    }
    results_ += "\n";
  }
}

void BatchView::candidate(bool isCandidate) {
  results_ = target_ + ": " + (isCandidate ? "" : "not ") + kCandidateWords + "\n";
}

bool BatchView::confirm(Question) {
  if (settings_.yes) return true;
  declined_ = true;
  const char* text = "the question was not answered (no --yes): nothing was changed";
  LogMessage(text);
  fprintf(stderr, "%s: %s\n", appName, text);
  return false;
}

bool BatchView::abortRequested() const {
  if (stopSignal != 0) return true;
  if (settings_.maxDuration > 0 && !windowEnded_ && secondsSince(start_, monotonicNow()) >= settings_.maxDuration)
    windowEnded_ = true;
  return windowEnded_;
}

bool BatchView::mayDelete(const char* zid) const { return !following_ || planned_.count(zid) != 0; }

void BatchView::scanStart(ScanPosition* at) {
  if (pass_) pass_->start(at);
}

void BatchView::scanPosition(const ScanPosition& next, bool stopping) {
  if (pass_) pass_->position(next, stopping, done_, found_, fixed_, deleted_);
  if (!stopping) pacer_.done(kZidSlots);
}

void BatchView::objectDone() {
  ++done_;
  if (!settings_.progress) return;
  struct timespec now = monotonicNow();
  if (secondsSince(lastLine_, now) >= settings_.progress) progressLine(now);
}

void BatchView::progressLine(const struct timespec& now) {
  lastLine_ = now;
  const double seconds = secondsSince(start_, now), rate = seconds > 0 ? done_ / seconds : 0;
  const uint64_t total = total_ > done_ ? total_ : done_;
  char limit[48] = "";
  if (settings_.maxRate > 0) snprintf(limit, sizeof limit, " (at most %.0f/s)", settings_.maxRate);
  fprintf(stderr, "%s: %s: %llu of %llu objects (%llu%%), %.0f/s%s, %llu problems, %llu fixed, %llu deleted, %s left\n",
          appName, target_.c_str(), static_cast<unsigned long long>(done_), static_cast<unsigned long long>(total),
          static_cast<unsigned long long>(total ? done_ * 100 / total : 100), rate, limit,
          static_cast<unsigned long long>(found_), static_cast<unsigned long long>(fixed_),
          static_cast<unsigned long long>(deleted_),
          rate > 0 ? hoursMinutesSeconds((total - done_) / rate).c_str() : "?");
}

std::string BatchView::summary(const char* status) const {
  const double seconds = secondsSince(start_, monotonicNow());
  char figures[256];
  snprintf(figures, sizeof figures, "%llu objects in %.1f s (%.0f/s); %llu problem files (%llu fixed, %llu deleted, %llu left)",
           static_cast<unsigned long long>(done_), seconds, seconds > 0 ? done_ / seconds : 0.0,
           static_cast<unsigned long long>(found_), static_cast<unsigned long long>(fixed_),
           static_cast<unsigned long long>(deleted_), static_cast<unsigned long long>(found_ - resolved_));
  std::string plan;
  if (following_)
    plan = "; of the " + std::to_string(planned_.size()) + " planned files " +
           std::to_string(plannedNotCorrupted_) + " no longer corrupted, " +
           std::to_string(planned_.size() - plannedSeen_.size()) + " no longer there";
  return std::string(appName) + ": --" + operationName(operation_) + " " + target_ + ": " + figures + plan + "; " +
         status;
}

int BatchView::verdict() const {
  if (found_ == 0) return kBatchNothingFound;
  return found_ > resolved_ ? kBatchProblemsLeft : kBatchAllRepaired;
}

namespace {

// Reads the command line into `line` and `settings`; returns -1 to go on,
// or the exit status of a run that ends here (help, version, usage error).
int readCommandLine(int argc, char** argv, CommandLine* line, BatchSettings* settings) {
  static const std::vector<struct option> options = batchLongOptions();
  *line = parseCommandLine(argc, argv, kShortOptions, true, options.data());
  if (line->logPath) logPath = line->logPath;
  std::string problem;
  if (commandLineError(*line, &problem)) return usageError(problem);
  if (line->end == ParseEnd::help) {
    batchUsage();
    return 0;
  }
  if (line->end == ParseEnd::version) {
    std::cout << appName << " (KVF) " << appVersion << std::endl;
    return 0;
  }
  if (line->operand + 1 < argc)
    return usageError("unexpected argument '" + printable(argv[line->operand + 1]) + "'.");

  settings->progress = isatty(STDERR_FILENO) ? 10 : 0;
  for (const auto& [option, argument] : line->extras) {
    if (option == kBatchYes) settings->yes = true;
    if (option == kBatchQuiet) settings->quiet = true;
    if (option == kBatchProgress && !argument) settings->progress = 10;
    if (option == kBatchProgress && argument && !parseSeconds(argument, &settings->progress))
      return usageError("--progress takes a number of seconds from 1 to 86400, not '" + printable(argument) + "'.");
  }
  for (const auto& [option, argument] : line->extras) {
    int64_t seconds = 0;
    if (option == kBatchResume) settings->resume = true;
    if (option == kBatchNoCheckpoint) settings->checkpoint = false;
    if (option == kBatchStateDir) stateDir = argument;
    if (option == kBatchMaxDuration && !parseDuration(argument, &seconds))
      return usageError("--max-duration takes a duration such as 30s, 90m or 4h, not '" + printable(argument) + "'.");
    if (option == kBatchMaxDuration) settings->maxDuration = seconds;
    if (option == kBatchMaxRate && !parseRate(argument, &settings->maxRate))
      return usageError("--max-rate takes a number of objects a second from 1 to 10000000, not '" +
                        printable(argument) + "'.");
  }
  for (const auto& [option, argument] : line->extras)
    if (option == kBatchPlan) settings->plan = argument;
  if (settings->plan && line->operation != opDeleteAll)
    return usageError("--plan goes with -D: the files of a reviewed plan are deleted.");
  // Deleting cannot be undone: it is never what velkor-batch does unasked.
  if ((line->operation & (opDeleteAll | opDelete)) && !settings->yes && !settings->plan)
    return usageError(std::string("--") + operationName(line->operation) +
                      " deletes files, which cannot be undone: add --plan FILE (a plan velkor-report --plan wrote "
                      "and you reviewed) or --yes to delete the corrupted files it finds. Nothing was deleted.");
  if (settings->resume && !settings->checkpoint)
    return usageError("--resume needs the checkpoint that --no-checkpoint leaves out.");
  if (settings->quiet) settings->progress = 0;
  return -1;
}

}  // namespace

int batchMain(int argc, char** argv) {
  appName = "velkor-batch";
  // Names are shown as characters of the operator's character set, as on
  // velkor's screen (common/shownText.h); only the character handling
  // follows the environment.
  setlocale(LC_CTYPE, "");
  CommandLine line;
  BatchSettings settings;
  if (int status = readCommandLine(argc, argv, &line, &settings); status >= 0) return status;

  const unsigned int operation = line.operation;
  std::unique_ptr<char, decltype(&free)> path(formObjectPath(operation, argv[line.operand]), free);
  if (!path) return kBatchError;
  if (!nameFitsRequests(operation, path.get())) return kBatchUsage;
  if (VELKOR_HaveRights() == 0) {
    fprintf(stderr, "%s: the management file %s cannot be opened (%s): is this a KVF server, and are you root?\n",
            appName, managecmd, strerror(errno));
    return kBatchError;
  }

  RunLog log;
  if (!log.open(logPath)) return kBatchError;
  if (!lockVolumeOperation(operation, path.get())) return kBatchError;
  std::set<std::string> planned;
  std::string why;
  if (settings.plan && !readDeletionPlan(settings.plan, path.get(), &planned, &why)) {
    fprintf(stderr, "%s: the plan %s %s: nothing was deleted.\n", appName, printable(settings.plan).c_str(),
            why.c_str());
    return kBatchUsage;
  }
  PassKeeper pass;
  const bool keepsPass = settings.checkpoint && (operation & (opListAll | opFixAll | opDeleteAll | opClearAll));
  if (keepsPass && !pass.begin(path.get(), operationName(operation), absoluteLogPath(logPath), settings.resume))
    return kBatchError;
  catchStopSignals();
  LogDocumentStart(argc, argv, keepsPass ? pass.descriptionLine() : std::string());

  BatchView view(settings, operation, path.get());
  if (keepsPass) view.keepPass(&pass);
  if (settings.plan) view.followPlan(std::move(planned));
  CompStats stats(&view);
  stats.fixable = stats.fixed = stats.deleted = 0;
  view.attach(&stats);
  bool error = false;
  try {
    LogRequireWritable();
    runOperation(operation, path.get(), line.checkHeader ? 0 : 1, &stats);
  } catch (const KVFError& e) {
    LogError(e);
    error = true;
    fprintf(stderr, "%s: %s\n", appName,
            errorWords(e, operation, printable(path.get()).c_str(), stats.processed == 0).c_str());
  }

  int status = view.verdict();
  const char* text = finishedStatusText(finishedAs(error, stats));
  if (stopSignal != 0) {
    text = kStoppedBySignal;
    status |= kBatchStopped;
  } else if (view.declined()) {
    text = kStoppedForQuestion;
    status |= kBatchStopped;
  } else if (view.windowEnded() && !error) {
    text = kWindowEndedStatus;
  }
  // A pass that ran to its end (or found no compression) leaves no checkpoint;
  // one stopped or failed keeps its last for --resume.
  if (keepsPass && !error && stopSignal == 0 && !view.windowEnded() && !view.declined()) pass.end();
  if (keepsPass && !pass.failure().empty()) status |= kBatchError;
  if (error) status |= kBatchError;
  if (!LogFailure()) {
    const uint64_t passObjects = pass.objectsBefore() + view.done();
    if (keepsPass)
      LogMessage(passProgressText(pass.pass().pass, passObjects, std::max(passObjects, view.total())).c_str());
    LogFinishStatus(text);
    LogDocumentEnd();
  }
  if (LogFailure()) {
    fprintf(stderr, "%s: the run log could not be written: %s\n", appName, LogFailure());
    status |= kBatchError;
  }
  if (!settings.quiet) {
    fputs(view.resultLines().c_str(), stdout);
    printf("%s\n", view.summary(text).c_str());
  }
  fflush(stdout);
  return status;
}

}  // namespace velkor
