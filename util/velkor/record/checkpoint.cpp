#include "velkor/checkpoint.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <sstream>

#include "velkor/identity.h"
#include "velkor/pacer.h"
#include "velkor/volumeLock.h"

namespace velkor {

const char* stateDir = "/var/lib/velkor";

namespace {

constexpr char kFirstLine[] = "velkor-batch checkpoint 1";
constexpr char kRisk[] = "replace the checkpoints in it";
constexpr size_t kMaxText = 1 << 16;

std::string systemReason(const std::string& what) { return what + ": " + strerror(errno); }

std::string fileName(const std::string& volume) { return safeFileName(volume) + ".checkpoint"; }

// safeFileName's %XX read back; false when `text` is not such a text.
bool unescape(const std::string& text, std::string* out) {
  out->clear();
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      *out += text[i];
      continue;
    }
    if (i + 2 >= text.size()) return false;
    char hex[3] = {text[i + 1], text[i + 2], 0};
    char* end = nullptr;
    const unsigned long value = strtoul(hex, &end, 16);
    if (*end || !isxdigit(static_cast<unsigned char>(hex[0]))) return false;
    *out += static_cast<char>(value);
    i += 2;
  }
  return true;
}

bool number(const std::string& text, uint64_t* value) {
  if (text.empty() || text.size() > 20 || text.find_first_not_of("0123456789") != std::string::npos) return false;
  errno = 0;
  *value = strtoull(text.c_str(), nullptr, 10);
  return errno == 0;
}

// Why the checkpoint file, as `st` describes it, is refused; empty when it
// is the administrator's own alone.
std::string notOwnFile(const std::string& path, const struct stat& st) {
  const std::string remedy = ": another user could steer the pass with it; it is left in place (rm " + path +
                             " begins a new pass)";
  if (!S_ISREG(st.st_mode)) return path + " is not a regular file" + remedy;
  const std::string why = notOwnAlone(path, st);
  return why.empty() ? why : why + remedy;
}

}  // namespace

std::string checkpointPath(const std::string& volume) { return std::string(stateDir) + "/" + fileName(volume); }

std::string checkpointText(const Checkpoint& c) {
  std::ostringstream text;
  text << kFirstLine << "\nvolume " << safeFileName(c.volume) << "\noperation " << safeFileName(c.operation)
       << "\nlog " << safeFileName(c.log) << "\npass " << safeFileName(c.pass) << "\nbegan " << c.began << "\nrun "
       << c.run << "\nposition " << static_cast<uint32_t>(c.next.position) << "\nvisited " << (c.next.visitedAny ? 1 : 0)
       << "\nhighest " << c.next.highest << "\nobjects " << c.objects << "\nproblems " << c.problems << "\nfixed "
       << c.fixed << "\ndeleted " << c.deleted << "\nend\n";
  return text.str();
}

bool parseCheckpoint(const std::string& text, Checkpoint* c) {
  std::istringstream lines(text);
  std::string line;
  if (!std::getline(lines, line) || line != kFirstLine) return false;
  std::map<std::string, std::string> fields;
  bool ended = false;
  while (std::getline(lines, line)) {
    if (ended) return false;
    if (line == "end") {
      ended = true;
      continue;
    }
    const size_t space = line.find(' ');
    if (space == std::string::npos || !fields.emplace(line.substr(0, space), line.substr(space + 1)).second)
      return false;
  }
  if (!ended || fields.size() != 13) return false;
  uint64_t began, run, position, visited;
  const bool read = unescape(fields["volume"], &c->volume) && unescape(fields["operation"], &c->operation) &&
                    unescape(fields["log"], &c->log) && unescape(fields["pass"], &c->pass) &&
                    number(fields["began"], &began) && number(fields["run"], &run) &&
                    number(fields["position"], &position) && number(fields["visited"], &visited) &&
                    number(fields["highest"], &c->next.highest) && number(fields["objects"], &c->objects) &&
                    number(fields["problems"], &c->problems) && number(fields["fixed"], &c->fixed) &&
                    number(fields["deleted"], &c->deleted);
  if (!read || run == 0 || run >= 1000000 || position > UINT32_MAX || visited > 1 || began > INT64_MAX) return false;
  c->began = static_cast<int64_t>(began);
  c->run = static_cast<unsigned>(run);
  c->next.position = static_cast<int>(static_cast<uint32_t>(position));
  c->next.visitedAny = visited == 1;
  return true;
}

CheckpointRead readCheckpoint(const std::string& volume, Checkpoint* saved, std::string* why) {
  const int dir = openOwnDirectory(stateDir, kRisk, why);
  if (dir < 0) return CheckpointRead::kRefused;
  const std::string path = checkpointPath(volume);
  const int fd = openat(dir, fileName(volume).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  struct stat st;
  if (fd < 0) {
    const int error = errno;
    const bool present = fstatat(dir, fileName(volume).c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
    close(dir);
    if (!present && error == ENOENT) return CheckpointRead::kNone;
    if (present && !(*why = notOwnFile(path, st)).empty()) return CheckpointRead::kRefused;
    errno = error;
    *why = systemReason(path);
    return CheckpointRead::kRefused;
  }
  close(dir);
  if (fstat(fd, &st) != 0) {
    *why = systemReason(path);
    close(fd);
    return CheckpointRead::kRefused;
  }
  if (!(*why = notOwnFile(path, st)).empty()) {
    close(fd);
    return CheckpointRead::kRefused;
  }
  std::string text;
  char block[4096];
  ssize_t got;
  while ((got = read(fd, block, sizeof block)) > 0 && text.size() < kMaxText) text.append(block, got);
  close(fd);
  if (got < 0 || text.size() >= kMaxText || !parseCheckpoint(text, saved)) {
    *why = "the checkpoint " + path + " cannot be read";
    return CheckpointRead::kUnusable;
  }
  if (saved->volume != volume) {
    *why = "the checkpoint " + path + " is of another volume";
    return CheckpointRead::kUnusable;
  }
  return CheckpointRead::kFound;
}

bool saveCheckpoint(const Checkpoint& checkpoint, std::string* why) {
  const int dir = openOwnDirectory(stateDir, kRisk, why);
  if (dir < 0) return false;
  const std::string name = fileName(checkpoint.volume), temporary = name + ".new";
  const std::string text = checkpointText(checkpoint);
  bool saved = false;
  const int fd = openat(dir, temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd >= 0) {
    saved = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(fd) == 0;
    saved = close(fd) == 0 && saved;
    saved = saved && renameat(dir, temporary.c_str(), dir, name.c_str()) == 0 && fsync(dir) == 0;
  }
  if (!saved) {
    *why = systemReason(std::string(stateDir) + "/" + temporary);
    unlinkat(dir, temporary.c_str(), 0);
  }
  close(dir);
  return saved;
}

bool removeCheckpoint(const std::string& volume, std::string* why) {
  const int dir = openOwnDirectory(stateDir, kRisk, why);
  if (dir < 0) return false;
  const bool removed = unlinkat(dir, fileName(volume).c_str(), 0) == 0 || errno == ENOENT;
  if (!removed) *why = systemReason(checkpointPath(volume));
  if (removed) fsync(dir);
  close(dir);
  return removed;
}

std::string passLineOf(const Checkpoint& checkpoint) {
  PassLine line;
  line.pass = checkpoint.pass;
  line.run = checkpoint.run;
  line.resumed = checkpoint.run > 1;
  line.position = static_cast<uint32_t>(checkpoint.next.position);
  return passLineText(line);
}

bool PassKeeper::begin(const std::string& volume, const std::string& operation, const std::string& log,
                       bool resume) {
  Checkpoint saved;
  std::string why;
  const CheckpointRead read = readCheckpoint(volume, &saved, &why);
  if (read == CheckpointRead::kRefused) {
    fprintf(stderr, "%s: %s.\n", appName, why.c_str());
    return false;
  }
  const std::string path = checkpointPath(volume);
  if (read == CheckpointRead::kFound && saved.operation != operation)
    why = "the checkpoint " + path + " is of a --" + saved.operation + " pass, not of --" + operation;
  else if (read == CheckpointRead::kFound && saved.log != log)
    why = "the checkpoint " + path + " is of a pass logged in " + saved.log + ", not in " + log;
  const bool usable = read == CheckpointRead::kFound && why.empty();
  if (resume && usable) {
    pass_ = saved;
    ++pass_.run;
    fprintf(stderr, "%s: resuming pass %s (run %u) of %s at scan position %u\n", appName, pass_.pass.c_str(),
            pass_.run, volume.c_str(), static_cast<unsigned>(static_cast<uint32_t>(pass_.next.position)));
  } else {
    if (resume && read == CheckpointRead::kNone)
      fprintf(stderr, "%s: no checkpoint of %s in %s: a new pass begins\n", appName, volume.c_str(), stateDir);
    else if (read == CheckpointRead::kUnusable || !why.empty())
      fprintf(stderr, "%s: %s: a new pass begins and replaces it\n", appName, why.c_str());
    else if (usable)
      fprintf(stderr, "%s: a new pass begins and replaces pass %s, stopped at scan position %u (--resume continues it)\n",
              appName, saved.pass.c_str(), static_cast<unsigned>(static_cast<uint32_t>(saved.next.position)));
    pass_ = Checkpoint();
    pass_.volume = volume;
    pass_.operation = operation;
    pass_.log = log;
    pass_.began = time(nullptr);
    pass_.pass = std::to_string(pass_.began) + "-" + std::to_string(getpid());
  }
  base_ = pass_;
  lastSave_ = monotonicClock().now();
  return true;
}

void PassKeeper::position(const ScanPosition& next, bool stopping, uint64_t objects, uint64_t problems,
                          uint64_t fixed, uint64_t deleted) {
  pass_.next = next;
  pass_.objects = base_.objects + objects;
  pass_.problems = base_.problems + problems;
  pass_.fixed = base_.fixed + fixed;
  pass_.deleted = base_.deleted + deleted;
  const double now = monotonicClock().now();
  if (!stopping && (++batches_ < kBatchesBetweenSaves || now - lastSave_ < kSecondsBetweenSaves)) return;
  batches_ = 0;
  lastSave_ = now;
  save();
}

void PassKeeper::save() {
  std::string why;
  if (saveCheckpoint(pass_, &why) || !failure_.empty()) return;
  failure_ = "the checkpoint could not be saved (" + why + ")";
  fprintf(stderr, "%s: %s; the run goes on\n", appName, failure_.c_str());
}

void PassKeeper::end() {
  std::string why;
  if (removeCheckpoint(pass_.volume, &why)) return;
  failure_ = "the checkpoint of the ended pass could not be removed (" + why + ")";
  fprintf(stderr, "%s: %s\n", appName, failure_.c_str());
}

}  // namespace velkor
