#include "runModel.h"

#include "velkor/commandLine.h"
#include "velkor/logElements.h"

namespace velkorreport {

bool Entry::has(std::string_view problem) const {
  for (const std::string& p : problems)
    if (p == problem) return true;
  return false;
}

bool Entry::skipped() const { return has(velkor::kSkippedElement); }

bool Entry::remains() const {
  // A skipped file was not checked: whatever else its entry holds, it is
  // counted as skipped, never also as remaining.
  if (fixed || deleted || skipped()) return false;
  for (const std::string& p : problems)
    if (p != velkor::kGoodElement && p != velkor::kSkippedElement) return true;
  return false;
}

std::string Entry::action() const {
  if (fixed && deleted) return "fixed deleted";
  return fixed ? "fixed" : deleted ? "deleted" : "";
}

void Run::deriveOperation() {
  operation.clear();
  target.clear();
  fileTarget = false;
  if (argv.empty()) return;
  // getopt_long reorders the vector it is given: it parses a copy.
  std::vector<std::string> copy = argv;
  std::vector<char*> args;
  for (std::string& a : copy) args.push_back(a.data());
  args.push_back(nullptr);
  velkor::CommandLine line = velkor::parseCommandLine(static_cast<int>(copy.size()), args.data(),
                                                      velkor::kShortOptions, false);
  if (line.end != velkor::ParseEnd::operand) return;
  const char* name = velkor::operationName(line.operation);
  if (!name) return;
  operation = name;
  target = args[line.operand];
  fileTarget = !velkor::isVolumeOperation(line.operation);
}

void Run::add(const Entry& entry) {
  ++entries;
  for (const std::string& p : entry.problems) ++problems[p];
  ++types[entry.type];
  if (entry.fixed) ++actions["fixed"];
  if (entry.deleted) ++actions["deleted"];
  if (entry.skipped()) {
    ++skipped;
    if (listSkipped) skippedFiles.push_back(entry.name);
  }
  if (entry.remains()) {
    ++remaining;
    for (const std::string& p : entry.problems)
      if (p != velkor::kGoodElement) ++remainingByProblem[p];
  }
  volumes.insert(entry.volume);
}

bool Run::concerns(const std::string& volume) const {
  if (!operation.empty() && !fileTarget) return target == volume;
  return volumes.count(volume) != 0;
}

std::string Run::statusText() const {
  if (!complete()) return "incomplete";
  return hasFinishStatus ? finishStatus : "no status";
}

}  // namespace velkorreport
