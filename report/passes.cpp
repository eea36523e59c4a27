#include "passes.h"

#include "velkor/logElements.h"

namespace velkorreport {

void PassJoiner::entry(const Run& run, const Entry& entry) {
  if (run.pass.run == 0 || !run.concerns(entry.volume)) return;
  Pass& pass = passes_[run.pass.pass];
  // A file whose check was skipped (open) has no zid: it is known by its name.
  if (entry.skipped()) {
    pass.skipped.insert(entry.name);
    return;
  }
  if (entry.fixed) ++pass.fixed;
  if (entry.deleted) ++pass.deleted;
  File& file = pass.files[entry.zid];
  file.problem = entry.problemFile();
  file.remains = entry.remains();
  file.corrupted = entry.corrupted();
  file.problems = entry.problems;
}

void PassJoiner::runEnd(Run& run) {
  if (run.pass.run == 0) return;
  for (const std::string& message : run.messages)
    velkor::readPassProgress(message, run.pass.pass, &run.passObjects, &run.passTotal);
  Pass& pass = passes_[run.pass.pass];
  if (run.pass.run == 1 || !pass.start.present) pass.start = run.start;
  ++pass.runs;
  // A run that leaves the pass open, or fails, leaves it to the next run.
  if (run.leftPassOpen() || !run.complete() || !run.errors.empty()) return;
  run.passRuns = pass.runs;
  run.passStart = pass.start;
  run.entries = run.skipped = pass.skipped.size();
  run.problemFiles = run.remaining = run.remainingCorrupted = 0;
  run.remainingByProblem.clear();
  run.actions.clear();
  if (pass.fixed) run.actions["fixed"] = pass.fixed;
  if (pass.deleted) run.actions["deleted"] = pass.deleted;
  for (const auto& [zid, file] : pass.files) {
    ++run.entries;
    if (!file.problem) continue;
    ++run.problemFiles;
    if (!file.remains) continue;
    ++run.remaining;
    if (file.corrupted) ++run.remainingCorrupted;
    for (const std::string& problem : file.problems)
      if (problem != velkor::kGoodElement) ++run.remainingByProblem[problem];
  }
  passes_.erase(run.pass.pass);
}

}  // namespace velkorreport
