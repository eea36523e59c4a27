// velkor-batch: the operations of velkor without a screen or a key, for cron,
// systemd and ssh. The same option table, run log, lock and operations; the
// verdict is the exit status (the fsck convention, bits combined).
#pragma once

#include <cstdint>
#include <ctime>
#include <set>
#include <string>

#include "velkor/compStats.h"
#include "velkor/logElements.h"
#include "velkor/pacer.h"

namespace velkor {

// Exit status bits.
enum BatchExit : int {
  kBatchNothingFound = 0,
  kBatchAllRepaired = 1,   // problems found, each repaired or deleted
  kBatchProblemsLeft = 4,  // problem files remain (listed, or not taken by the fix or the delete)
  kBatchError = 8,         // error element, channel failure, configuration, log or lock
  kBatchUsage = 16,
  kBatchStopped = 32,      // a signal, or a question without --yes
};

struct BatchSettings {
  bool yes = false;         // --yes: answer yes to the operation's question
  unsigned progress = 0;    // seconds between progress lines; 0: none
  bool quiet = false;       // --quiet: errors only
  bool resume = false;      // --resume: go on with the volume's saved pass
  bool checkpoint = true;   // --no-checkpoint: keep none
  int64_t maxDuration = 0;  // --max-duration in seconds; 0: none
  double maxRate = 0;       // --max-rate: objects a second; 0: no limit
  const char* plan = nullptr;  // --plan FILE: delete only the files it names
};

// The view of a run without a screen: progress lines on standard error, the
// figures velkor shows as plain lines on standard output at the end, and the
// tallies the exit status is made of.
// Everything runs on the operation's thread; only stop() is called from a
// signal handler.
class BatchView : public OperationView {
 public:
  BatchView(const BatchSettings& settings, unsigned int operation, const char* target);

  void attach(CompStats* stats) { stats_ = stats; }

  void fileChecked(const FileResult& result) override;
  void compressionOff() override;
  void statistics(const VolumeStatistics& before, const VolumeStatistics* after) override;
  void candidate(bool isCandidate) override;
  bool confirm(Question question) override;
  bool abortRequested() const override;
  void setTotal(uint64_t objects) override { total_ = objects; }
  void objectDone() override;
  bool showsEveryName() const override { return false; }
  void scanStart(ScanPosition* at) override;
  void scanPosition(const ScanPosition& next, bool stopping) override;

  bool mayDelete(const char* zid) const override;
  // A deletion plan: only its files are deleted; the summary tells of the
  // others.
  void followPlan(std::set<std::string> zids) { planned_ = std::move(zids); following_ = true; }

  // The pass whose checkpoint this run keeps (volume operations).
  void keepPass(class PassKeeper* pass) { pass_ = pass; }
  uint64_t done() const { return done_; }
  uint64_t total() const { return total_; }
  // The run was ended by --max-duration.
  bool windowEnded() const { return windowEnded_; }

  // The statistics and the candidate verdict as plain lines, for the end.
  const std::string& resultLines() const { return results_; }
  // The one-line summary of the run, ending with `status`.
  std::string summary(const char* status) const;
  // The exit status bits of what was found and done (no error or stop bits).
  int verdict() const;
  bool declined() const { return declined_; }

 private:
  void progressLine(const struct timespec& now);

  BatchSettings settings_;
  unsigned int operation_;
  std::string target_;
  CompStats* stats_ = nullptr;
  std::string results_;
  uint64_t total_ = 0, done_ = 0;
  uint64_t found_ = 0, resolved_ = 0, fixed_ = 0, deleted_ = 0;
  bool declined_ = false;
  struct timespec start_ = {}, lastLine_ = {};
  class PassKeeper* pass_ = nullptr;
  Pacer pacer_;
  mutable bool windowEnded_ = false;
  bool following_ = false;
  std::set<std::string> planned_, plannedSeen_;
  uint64_t plannedNotCorrupted_ = 0;
};

// The program: parses the command line, opens the log, takes the lock, runs
// the operation and returns the exit status.
int batchMain(int argc, char** argv);

}  // namespace velkor
