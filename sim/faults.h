// Fault rules loaded at run time through control/faults: each rule picks
// requests by kind, volume, zid and occurrence and changes what they get.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/threadSafety.h"

namespace kvfsim {

struct FaultRule {
  std::string request = "*";  // request kind, "open" of a management file, "unlink" in the name tree, or "*"
  std::optional<std::string> file, volume, zid;
  uint64_t nth = 1;    // first matching occurrence the rule applies to (1-based)
  uint64_t count = 1;  // occurrences it applies to; 0: every one from nth on
  std::string action;  // result, raw, empty, cut, pad, repeat, eio_write, eio_read, delay, exchange, hang
  int64_t value = 0;   // result: the reply's result value (open, unlink: the errno)
  std::string text;    // raw: the reply
  uint64_t bytes = 0;  // cut: bytes kept; pad: size reached
  uint64_t ms = 0;     // delay, hang
  std::string with;    // exchange: the name `text` swaps places with
  bool after = false;  // exchange: once the request has run, not before
  bool apply = false;  // run the request all the same
  uint64_t seen = 0;   // matching occurrences so far
};

class Faults {
 public:
  // A JSON object appends one rule, an array replaces all; throws std::runtime_error.
  void load(const std::string& json);
  std::string dump() const;
  // Counts the occurrence for every rule that matches; returns the first rule
  // in force for it.
  std::optional<FaultRule> match(const std::string& kind, const std::string& file, const std::string& volume,
                                 const std::string& zid);
  // The reply last given to a request of this kind ("repeat" answers with it
  // again, as a file system that does not advance would).
  void rememberReply(const std::string& kind, const std::string& reply);
  std::string previousReply(const std::string& kind) const;

 private:
  mutable KVF::Mutex mutex_;
  std::vector<FaultRule> rules_ GUARDED_BY(mutex_);
  std::map<std::string, std::string> lastReplies_ GUARDED_BY(mutex_);
};

// Applies a cut or pad rule to a reply.
std::string reshapeReply(const FaultRule& rule, std::string reply);

}  // namespace kvfsim
