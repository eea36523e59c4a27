#include "runModel.h"

#include <algorithm>

#include "velkor/commandLine.h"
#include "velkor/logElements.h"
#include "velkor/velkorTypes.h"

namespace velkorreport {

namespace {

// The finish statuses the writers use (logElements.h).
constexpr std::string_view kProblemsFoundStatus = velkor::kFinishedWithProblemFiles;
// The finish statuses of a run stopped before its end: velkor's operator
// abort, and velkor-batch's "stopped by a signal" and "stopped: ...".
constexpr std::string_view kAbortedStatus = velkor::kUserAborted;
using velkor::kStoppedPrefix;

}  // namespace

bool Entry::has(std::string_view problem) const {
  for (const std::string& p : problems)
    if (p == problem) return true;
  return false;
}

bool Entry::skipped() const { return has(velkor::kSkippedElement); }

bool Entry::problemFile() const {
  // A skipped file was not checked: whatever else its entry holds, it is
  // counted as skipped, never also as a problem file.
  if (skipped()) return false;
  for (const std::string& p : problems)
    if (p != velkor::kGoodElement && p != velkor::kSkippedElement) return true;
  return false;
}

bool Entry::remains() const { return !fixed && !deleted && problemFile(); }

bool Entry::corrupted() const {
  for (size_t bit = 0; bit < velkor::kNamedProblemBits; ++bit)
    if ((velkor::kCorruptedProblems >> bit & 1) && has(velkor::kProblemElements[bit])) return true;
  return false;
}

void NameList::push_back(const std::string& name) {
  if (count_ == 0) file_.reset(tmpfile(), [](FILE* f) { if (f) fclose(f); });
  ++count_;
  const uint32_t length = static_cast<uint32_t>(name.size());
  // Each name reaches the file before the next (a full temporary directory
  // is noticed at the name it refused).
  if (!file_ || fwrite(&length, sizeof length, 1, file_.get()) != 1 ||
      fwrite(name.data(), 1, name.size(), file_.get()) != name.size() || fflush(file_.get()) != 0) {
    // Keep the rest in memory, after those the file holds whole. A name
    // whose flush failed may yet reach the file when it is read back: only
    // the names before it are taken from there.
    if (file_) {
      std::vector<std::string> held = all();
      held.resize(std::min(held.size(), count_ - 1));
      file_.reset();
      inMemory_ = std::move(held);
    }
    inMemory_.push_back(name);
  }
}

void NameList::forEach(const std::function<void(const std::string&)>& f) const {
  if (file_) {
    FILE* in = file_.get();
    fflush(in);
    rewind(in);
    std::string name;
    for (uint32_t length; fread(&length, sizeof length, 1, in) == 1;) {
      name.resize(length);
      if (length && fread(name.data(), 1, length, in) != length) break;
      f(name);
    }
    fseek(in, 0, SEEK_END);
  }
  for (const std::string& name : inMemory_) f(name);
}

std::vector<std::string> NameList::all() const {
  std::vector<std::string> names;
  forEach([&names](const std::string& name) { names.push_back(name); });
  return names;
}

std::string Entry::action() const {
  if (fixed && deleted) return "fixed deleted";
  return fixed ? "fixed" : deleted ? "deleted" : "";
}

bool Entry::outcomeUnknown() const { return error.compare(0, velkor::kOutcomeUnknown.size(), velkor::kOutcomeUnknown) == 0; }

void Run::deriveOperation() {
  operation.clear();
  operationCode = 0;
  target.clear();
  fileTarget = false;
  if (argv.empty()) return;
  // getopt_long reorders the vector it is given: it parses a copy.
  std::vector<std::string> copy = argv;
  std::vector<char*> args;
  for (std::string& a : copy) args.push_back(a.data());
  args.push_back(nullptr);
  // velkor-batch's table: it holds velkor's options and velkor-batch's own
  // (velkor refuses the latter before it logs a run).
  static const std::vector<struct option> options = velkor::batchLongOptions();
  velkor::CommandLine line = velkor::parseCommandLine(static_cast<int>(copy.size()), args.data(),
                                                      velkor::kShortOptions, false, options.data());
  if (line.end != velkor::ParseEnd::operand) return;
  const char* name = velkor::operationName(line.operation);
  if (!name) return;
  operation = name;
  operationCode = line.operation;
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
  if (entry.problemFile()) ++problemFiles;
  if (entry.outcomeUnknown()) ++outcomeUnknown;
  if (entry.remains()) {
    ++remaining;
    if (entry.corrupted()) ++remainingCorrupted;
    for (const std::string& p : entry.problems)
      if (p != velkor::kGoodElement) ++remainingByProblem[p];
  }
  volumes.insert(entry.volume);
}

bool Run::concerns(const std::string& volume) const {
  if (!operation.empty() && !fileTarget) return target == volume;
  return volumes.count(volume) != 0;
}

bool Run::decidesVolume() const {
  return (operationCode & (velkor::opListAll | velkor::opFixAll | velkor::opDeleteAll)) != 0 && !leftPassOpen();
}

bool Run::windowEnded() const { return hasFinishStatus && finishStatus == velkor::kWindowEndedStatus; }

std::string Run::incompleteReason() const {
  if (!end.present) return "it has no end time";
  if (!closed) return "its document is not closed";
  if (beganInside != 0)
    return "it begins inside an element left unfinished at line " + std::to_string(beganInside);
  if (tooLong != 0)
    return "an element at line " + std::to_string(tooLong) + " is longer than the " + std::to_string(kMaxElement) +
           " bytes read";
  // velkor ends a run that counted fixable or corrupted files with this
  // status, and logs an entry for each of them (fixed, deleted or not).
  if (hasFinishStatus && finishStatus == kProblemsFoundStatus && problemFiles == 0)
    return "its finish status says problem files were found, but it holds no entry of one";
  return "";
}

bool Run::stopped() const {
  return hasFinishStatus && (finishStatus == kAbortedStatus || finishStatus.rfind(kStoppedPrefix, 0) == 0);
}

std::string Run::statusText() const {
  if (!complete()) return "incomplete";
  return hasFinishStatus ? finishStatus : "no status";
}

}  // namespace velkorreport
