#include "faults.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

namespace kvfsim {

using nlohmann::json;

namespace {

const char* const kActions[] = {"result", "raw", "empty", "cut", "pad", "repeat", "eio_write", "eio_read", "delay", "exchange", "hang"};

FaultRule readRule(const json& j) {
  if (!j.is_object()) throw std::runtime_error("a fault rule must be a JSON object");
  FaultRule r;
  r.request = j.value("request", r.request);
  if (j.contains("file")) r.file = j.at("file").get<std::string>();
  if (j.contains("volume")) r.volume = j.at("volume").get<std::string>();
  if (j.contains("zid")) r.zid = j.at("zid").is_string() ? j.at("zid").get<std::string>() : j.at("zid").dump();
  r.nth = j.value("nth", r.nth);
  r.count = j.value("count", r.count);
  r.action = j.value("action", std::string());
  bool known = false;
  for (const char* a : kActions) known |= r.action == a;
  if (!known) throw std::runtime_error("unknown fault action \"" + r.action + "\"");
  r.value = j.value("value", int64_t(0));
  r.text = j.value("text", std::string());
  r.bytes = j.value("bytes", r.action == "pad" ? uint64_t(9000) : uint64_t(0));
  r.ms = j.value("ms", uint64_t(0));
  r.with = j.value("with", std::string());
  r.after = j.value("after", false);
  if (r.action == "exchange" && (r.text.empty() || r.with.empty()))
    throw std::runtime_error("fault rule: exchange needs the two names, text and with");
  r.apply = j.value("apply", r.action == "cut" || r.action == "pad" || r.action == "eio_read" || r.action == "delay" ||
                                 r.action == "exchange" || r.action == "hang");
  if (r.nth == 0) throw std::runtime_error("fault rule: nth counts from 1");
  return r;
}

}  // namespace

void Faults::load(const std::string& text) {
  std::vector<FaultRule> rules;
  try {
    json j = json::parse(text);
    if (j.is_array())
      for (const json& r : j) rules.push_back(readRule(r));
    else
      rules.push_back(readRule(j));
    KVF::MutexLock lock(mutex_);
    if (j.is_array()) rules_ = std::move(rules);
    else rules_.push_back(std::move(rules.front()));
  } catch (const json::exception& e) {
    throw std::runtime_error(e.what());
  }
}

std::string Faults::dump() const {
  json out = json::array();
  KVF::MutexLock lock(mutex_);
  for (const FaultRule& r : rules_) {
    json j = {{"request", r.request}, {"nth", r.nth},       {"count", r.count}, {"action", r.action},
              {"value", r.value},     {"text", r.text},     {"bytes", r.bytes}, {"ms", r.ms}, {"with", r.with}, {"after", r.after},
              {"apply", r.apply},     {"seen", r.seen}};
    if (r.file) j["file"] = *r.file;
    if (r.volume) j["volume"] = *r.volume;
    if (r.zid) j["zid"] = *r.zid;
    out.push_back(j);
  }
  return out.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

void Faults::rememberReply(const std::string& kind, const std::string& reply) {
  KVF::MutexLock lock(mutex_);
  lastReplies_[kind] = reply;
}

std::string Faults::previousReply(const std::string& kind) const {
  KVF::MutexLock lock(mutex_);
  auto it = lastReplies_.find(kind);
  return it == lastReplies_.end() ? std::string() : it->second;
}

std::optional<FaultRule> Faults::match(const std::string& kind, const std::string& file, const std::string& volume,
                                       const std::string& zid) {
  KVF::MutexLock lock(mutex_);
  std::optional<FaultRule> chosen;
  for (FaultRule& r : rules_) {
    if (r.request != "*" && r.request != kind) continue;
    if (r.request == "*" && (kind == "unlink" || kind == "open")) continue;  // picked only by name
    if ((r.file && *r.file != file) || (r.volume && *r.volume != volume) || (r.zid && *r.zid != zid)) continue;
    uint64_t occurrence = ++r.seen;
    if (!chosen && occurrence >= r.nth && (r.count == 0 || occurrence < r.nth + r.count)) chosen = r;
  }
  return chosen;
}

std::string reshapeReply(const FaultRule& rule, std::string reply) {
  if (rule.action == "cut") {
    if (reply.size() > rule.bytes) reply.resize(rule.bytes);
  } else if (rule.action == "pad" && reply.size() < rule.bytes) {
    // White space before the root's end tag keeps the document well-formed.
    size_t end = reply.rfind("</");
    if (end == std::string::npos) end = reply.size();
    reply.insert(end, rule.bytes - reply.size(), ' ');
  }
  return reply;
}

}  // namespace kvfsim
