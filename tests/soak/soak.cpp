// Chaos soak: many fix (-F), delete (-D) and Cc clear (-C) runs of the real
// velkor on small generated volumes, each with random fault rules in the
// simulator and often a termination signal at a random moment. After each run:
//
//  - it ended within the bound, by the signal sent or with status 0;
//  - the terminal is left usable: the alternate screen left, the cursor shown,
//    echo and canonical input on;
//  - every change of the volume is explained by a request that ran: the
//    request log is replayed on a copy of the volume as it stood before, and
//    the copy must end equal to the volume;
//  - every request that changed something is one the operation calls for,
//    judged by the row of the object's kind in the generator's table: whether
//    a delete run removes it and what its repair changes;
//  - the run log holds no torn entry line.
//
//   velkor_soak [--runs N] [--seed S] [--run K] [--objects N] [--verbose]
//
// Run K of seed S is the same run whatever --runs says, so a violation is
// replayed with --seed S --run K. Exits 1 when any run broke a rule.
#include <signal.h>
#include <sys/resource.h>
#include <termios.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "e2e.h"
#include "fixture.h"
#include "kinds.h"
#include "model.h"
#include "requests.h"

namespace {

using nlohmann::json;
using testsupport::Simulator;
using testsupport::VelkorTerminal;
using Clock = std::chrono::steady_clock;

constexpr auto kBound = std::chrono::seconds(60);  // a run that takes longer hangs

struct Options {
  int runs = 12;
  uint64_t seed = 1;
  int only = -1;  // one run alone
  uint64_t objects = 0;  // 0: a few hundred, chosen per run
  bool verbose = false;
};

// What one run does; drawn from the seed and the run's number.
struct Plan {
  std::string op;  // -F, -D or -C
  uint64_t objects = 0, volumeSeed = 0;
  json faults = json::array();
  std::vector<std::string> faultNames;  // how each rule is counted in the summary
  int signal = 0;                       // 0: none
  std::chrono::milliseconds signalAt{0};
};

class Draw {
 public:
  Draw(uint64_t seed, int run) {
    std::seed_seq sequence{seed, uint64_t(run)};
    rng_.seed(sequence);
  }
  uint64_t between(uint64_t low, uint64_t high) { return std::uniform_int_distribution<uint64_t>(low, high)(rng_); }
  bool chance(double p) { return std::bernoulli_distribution(p)(rng_); }
  template <typename T, size_t N>
  const T& pick(const T (&items)[N]) { return items[between(0, N - 1)]; }

 private:
  std::mt19937_64 rng_;
};

// One random fault rule; its summary name in `name`.
json drawFault(Draw& d, const Plan& plan, std::string* name) {
  const char* kinds[] = {"getBeastInfo", "getBeastInfo", "getBeastInfo", "browseBeasts", "getVolumeInfo",
                         "getBeastFullName", "setBeastInfo", "setBeastInfo", "deleteBeast"};
  json rule;
  switch (d.between(0, 9)) {
    case 0: {  // the file system changed the object between read and set
      rule = {{"request", "setBeastInfo"}, {"action", "result"}, {"value", 20019},
              {"nth", d.between(1, 6)}, {"count", d.between(1, 5)}};
      *name = "setBeastInfo refused 20019";
      return rule;
    }
    case 1:
      rule = {{"action", "result"}, {"value", d.pick({20400LL, 20008LL, 24999LL, 21702LL, 20019LL})}};
      break;
    case 2: rule = {{"action", "cut"}, {"bytes", d.between(0, 400)}}; break;
    case 3: rule = {{"action", "empty"}}; break;
    case 4: rule = {{"action", "eio_read"}}; break;
    case 5: rule = {{"action", "eio_write"}}; break;
    case 6: rule = {{"action", "delay"}, {"ms", d.between(20, 400)}}; break;
    case 7: rule = {{"action", "pad"}, {"bytes", d.pick({9000ULL, 70000ULL})}}; break;
    case 8:  // a management file that stops opening (the rights probe passes)
      rule = {{"request", "open"}, {"action", "result"}, {"value", d.pick({5LL, 13LL, 24LL})},
              {"nth", d.between(2, 60)}};
      *name = "open fails";
      return rule;
    default:  // the name tree refuses an unlink
      rule = {{"request", "unlink"}, {"action", "result"}, {"value", d.pick({5LL, 1LL, 16LL})},
              {"nth", d.between(1, 4)}};
      *name = "unlink fails";
      return rule;
  }
  std::string kind = d.pick(kinds);
  uint64_t reach = kind == "getBeastInfo" ? plan.objects : kind == "browseBeasts" || kind == "getVolumeInfo"
                                                               ? plan.objects / 20 + 1
                                                               : 8;
  rule["request"] = kind;
  rule["nth"] = d.between(1, reach);
  rule["count"] = d.chance(0.15) && rule["action"] != "delay" ? 0 : d.between(1, 3);
  *name = rule["action"].get<std::string>() + (rule["action"] == "result" ? " " + rule["value"].dump() : "");
  return rule;
}

Plan drawPlan(const Options& o, int run) {
  Draw d(o.seed, run);
  Plan plan;
  plan.op = d.pick({"-F", "-D", "-C"});
  plan.objects = o.objects ? o.objects : d.between(150, 400);
  plan.volumeSeed = d.between(1, 1u << 30);
  for (uint64_t n = d.between(0, 3); n > 0; --n) {
    std::string name;
    plan.faults.push_back(drawFault(d, plan, &name));
    plan.faultNames.push_back(name);
  }
  if (d.chance(0.7)) {
    plan.signal = d.pick({SIGTERM, SIGHUP, SIGINT, SIGQUIT});
    // A run of a few hundred objects takes a few tenths of a second: most
    // signals fall inside it, the others at the final prompt.
    plan.signalAt = std::chrono::milliseconds(d.chance(0.7) ? d.between(0, 250) : d.between(250, 1500));
  }
  return plan;
}

// What a run broke, one line each.
using Findings = std::vector<std::string>;

// ---- The volume: every change explained by a request the operation calls for.

int64_t resultOf(const std::string& reply) {
  size_t at = reply.find("<result value=\"");
  return at == std::string::npos ? -1 : std::strtoll(reply.c_str() + at + 15, nullptr, 10);
}

// The fields a request may change on a file, with its compressed data's flag.
struct Settable {
  uint32_t attributes, action, status, cPrecious, ucPrecious;
  bool compDeleted;
  bool operator==(const Settable& o) const {
    return attributes == o.attributes && action == o.action && status == o.status && cPrecious == o.cPrecious &&
           ucPrecious == o.ucPrecious && compDeleted == o.compDeleted;
  }
};

Settable settable(kvfsim::Volume& v, const kvfsim::Beast& b) {
  const kvfsim::CompBeast* c = b.hasComp && b.comp.compZid ? v.findCompBeast(b.comp.compZid) : nullptr;
  return {b.attributes, b.comp.action, b.comp.status, b.comp.cPrecious, b.comp.ucPrecious, c && c->deleted};
}

// The fields as the kind's repair leaves them.
Settable repaired(const Settable& s, const kvfsim::Repair& r, bool namesDeleted) {
  return {(s.attributes | r.attributesOn) & ~r.attributesOff, s.action & ~r.actionOff,
          (s.status | r.statusOn) & ~r.statusOff,          r.cPreciousOn ? 1 : s.cPrecious,
          s.ucPrecious,                                      r.deletedFlagFromNames ? namesDeleted : s.compDeleted};
}

// Replays the run's requests on a copy of the volume as it stood before and
// judges each one that changed it.
class Replay {
 public:
  Replay(const std::string& op, const json& before, uint64_t seed) : op_(op), seed_(seed), handler_(copy_, false) {
    kvfsim::loadFixture(before.dump(), original_);
    kvfsim::loadFixture(before.dump(), copy_);
  }

  void run(const std::vector<json>& requests, Findings& f) {
    for (const json& r : requests) {
      std::string file = r.value("file", ""), request = r.value("request", ""), reply = r.value("reply", "");
      std::string fault = r.value("fault", "");
      if (file.rfind("volumes/", 0) == 0) {
        if (reply == "0") unlink(file.substr(8), request.substr(request.find(' ') + 1), f);
        continue;
      }
      // Which faulted requests still ran (the rules' own defaults).
      bool ran = fault.empty() || fault == "cut" || fault == "pad" || fault == "eio_read" || fault == "delay";
      kvfsim::RequestPtr parsed =
          handler_.parse(file == "files.cmd" ? kvfsim::CmdFile::kFiles : kvfsim::CmdFile::kManage, request);
      const std::string& kind = handler_.key(*parsed).kind;
      if (!ran || (kind != "setBeastInfo" && kind != "deleteBeast" && kind != "fixCompStats")) continue;
      kvfsim::Volume* v = copy_.findVolume(handler_.key(*parsed).volume);
      kvfsim::Beast* b = v ? findBeast(*v, handler_.key(*parsed).zid) : nullptr;
      std::optional<Settable> was;
      if (b) was = settable(*v, *b);
      std::string replayed = handler_.execute(*parsed);
      bool sameReply = fault == "cut" ? replayed.compare(0, reply.size(), reply) == 0
                                      : fault == "pad" || replayed == reply;
      if (!sameReply) f.push_back(kind + " replays with another reply: " + replayed + " (logged: " + reply + ")");
      if (resultOf(replayed) != 0) continue;
      if (kind == "fixCompStats") f.push_back("fixCompStats sent by " + op_);
      else if (!b) f.push_back(kind + " of " + handler_.key(*parsed).zid + " succeeded on no known object");
      else if (kind == "deleteBeast") removal(*b, "deleteBeast", f);
      else judgeSet(*v, *b, *was, f);
    }
  }

  // The copy must now be the volume as the run left it.
  void compare(const json& after, Findings& f) {
    std::ostringstream out;
    kvfsim::writeState(copy_, out);
    const json differ = json::diff(json::parse(out.str()), after);
    if (!differ.empty())
      f.push_back("the volume changed beyond its successful requests: " + differ.dump().substr(0, 1000));
  }

 private:
  static kvfsim::Beast* findBeast(kvfsim::Volume& v, const std::string& zid) {
    char* end = nullptr;
    uint64_t n = std::strtoull(zid.c_str(), &end, 10);
    kvfsim::Beast* b = !zid.empty() && *end == 0 ? v.findBeast(n) : nullptr;
    return b && !b->removed ? b : nullptr;
  }

  const kvfsim::KindRow& rowOf(uint64_t zid) const {
    return kvfsim::kindRow(kvfsim::kindOf(seed_, kvfsim::indexOfZid(zid)));
  }

  void unlink(const std::string& volume, const std::string& name, Findings& f) {
    kvfsim::Volume* v = copy_.findVolume(volume);
    kvfsim::Beast* b = v ? v->findByName(name) : nullptr;
    if (!b) return f.push_back("unlink of " + name + " succeeded on no known file");
    removal(*b, "unlink " + name, f);
    v->removeBeast(*b);
  }

  void removal(const kvfsim::Beast& b, const std::string& what, Findings& f) {
    const kvfsim::KindRow& row = rowOf(b.zid);
    if (op_ != "-D") f.push_back(what + " (" + std::to_string(b.zid) + ") sent by " + op_);
    else if (row.afterDelete != kvfsim::kGone)
      f.push_back(what + " removed " + std::to_string(b.zid) + ", a " + row.name + ", which a delete run keeps");
  }

  // A set request that succeeded: -C only drops the Cc mark; -F and -D only
  // move fields to what the repair of the object's kind sets.
  void judgeSet(kvfsim::Volume& v, const kvfsim::Beast& b, const Settable& was, Findings& f) {
    Settable now = settable(v, b);
    std::string zid = std::to_string(b.zid);
    if (op_ == "-C") {
      Settable cleared = was;
      cleared.attributes &= ~uint32_t(kvfsim::kNoStreamCompress);
      if (!(was.attributes & kvfsim::kNoStreamCompress)) f.push_back("-C set object " + zid + ", which had no Cc mark");
      else if (!(now == cleared)) f.push_back("-C changed object " + zid + " beyond its Cc mark");
      return;
    }
    const kvfsim::KindRow& row = rowOf(b.zid);
    kvfsim::Volume& original = *original_.volumes.at(0);
    const kvfsim::Beast& before = *original.findBeast(b.zid);
    Settable target = repaired(settable(original, before), row.repair, before.allNamesDeleted());
    auto field = [&](const char* name, uint64_t w, uint64_t n, uint64_t t) {
      if (n != w && n != t)
        f.push_back(op_ + " set " + name + " of " + zid + " (a " + row.name + ") to " + std::to_string(n) +
              ", its repair sets " + std::to_string(t));
    };
    field("attributes", was.attributes, now.attributes, target.attributes);
    field("action", was.action, now.action, target.action);
    field("status", was.status, now.status, target.status);
    field("cPrecious", was.cPrecious, now.cPrecious, target.cPrecious);
    field("ucPrecious", was.ucPrecious, now.ucPrecious, target.ucPrecious);
    field("the deleted flag", was.compDeleted, now.compDeleted, target.compDeleted);
  }

  std::string op_;
  uint64_t seed_;
  kvfsim::Model original_, copy_;
  kvfsim::RequestHandler handler_;
};

// ---- The terminal and the run log.

void checkTerminal(const VelkorTerminal& t, Findings& f) {
  if (t.alternateScreen()) f.push_back("the terminal was left in the alternate screen");
  if (!t.cursorVisible()) f.push_back("the cursor was left hidden");
  struct termios modes;
  if (!t.modesAtEnd(&modes)) return f.push_back("the terminal's modes could not be read at the end");
  if (!(modes.c_lflag & ECHO)) f.push_back("the terminal was left without echo");
  if (!(modes.c_lflag & ICANON)) f.push_back("the terminal was left without canonical input");
}

void checkRunLog(const std::string& log, Findings& f) {
  std::istringstream lines(log);
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (line.find("<entry") == std::string::npos) continue;
    const std::string end = "</entry>";
    if (line.rfind("<entry", 0) != 0 || line.size() < end.size() ||
        line.compare(line.size() - end.size(), end.size(), end) != 0)
      f.push_back("torn entry on run log line " + std::to_string(number) + ": " + line.substr(0, 160));
  }
}

// ---- One run.

struct Outcome {
  bool signalSent = false;
  bool diedBySignal = false;  // ended by the signal sent
  Findings findings;
};

Outcome runOnce(const Plan& plan, const Options& o) {
  Outcome out;
  Findings& f = out.findings;
  Simulator sim = Simulator::generated(plan.objects, plan.volumeSeed);
  json before = sim.state();
  if (!plan.faults.empty()) sim.setFaults(plan.faults.dump());

  VelkorTerminal t(sim, {plan.op, "VOL1"});
  auto start = Clock::now();
  bool answered = false, ended = false;
  while (Clock::now() - start < kBound) {
    if (t.waitExit(std::chrono::milliseconds(20))) {
      ended = true;
      break;
    }
    if (plan.signal && !out.signalSent && Clock::now() - start >= plan.signalAt)
      out.signalSent = t.signalProgram(plan.signal);
    // At the final prompt a planned signal is awaited a while, then the key is typed.
    bool waited = !plan.signal || out.signalSent || Clock::now() - start >= plan.signalAt + kBound / 6;
    if (!answered && waited && t.screenText().find("Press any key to continue....") != std::string::npos) {
      t.send("x");
      answered = true;
    }
  }
  if (!ended) {
    f.push_back("did not end within " + std::to_string(kBound.count()) + " s; last screen:\n" + t.screenText());
    t.finish(std::chrono::milliseconds(0));
  } else {
    int sig = t.signal() ? t.signal() : t.exitStatus() > 128 ? t.exitStatus() - 128 : 0;
    out.diedBySignal = sig && out.signalSent && sig == plan.signal;
    if (sig && !out.diedBySignal)
      f.push_back("ended by signal " + std::to_string(sig) + " (status " + std::to_string(t.exitStatus()) + ")");
    // Errors end a run with an error element and status 0; anything else is
    // a start-up failure or a sanitizer's report.
    else if (!sig && t.exitStatus() != 0) f.push_back("exited with status " + std::to_string(t.exitStatus()));
    checkTerminal(t, f);
  }
  checkRunLog(t.runLog(), f);

  Replay replay(plan.op, before, plan.volumeSeed);
  replay.run(sim.requests(), f);
  replay.compare(sim.state(), f);
  if (o.verbose || !f.empty())
    std::printf("    status %d signal %d in %.1f s; %zu requests\n", t.exitStatus(), t.signal(),
                std::chrono::duration<double>(t.elapsed()).count(), sim.requests().size());
  return out;
}

Options parse(int argc, char** argv) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    auto value = [&]() -> std::string {
      if (i + 1 >= argc) {
        std::fprintf(stderr, "%s needs a value\n", a.c_str());
        std::exit(2);
      }
      return argv[++i];
    };
    if (a == "--runs") o.runs = std::stoi(value());
    else if (a == "--seed") o.seed = std::stoull(value());
    else if (a == "--run") o.only = std::stoi(value());
    else if (a == "--objects") o.objects = std::stoull(value());
    else if (a == "--verbose") o.verbose = true;
    else {
      std::fprintf(stderr, "usage: velkor_soak [--runs N] [--seed S] [--run K] [--objects N] [--verbose]\n");
      std::exit(2);
    }
  }
  return o;
}

}  // namespace

int main(int argc, char** argv) {
  Options o = parse(argc, argv);
  // A process ended by SIGQUIT leaves no core file behind.
  struct rlimit noCore = {0, 0};
  setrlimit(RLIMIT_CORE, &noCore);

  std::map<std::string, int> ops, faults, signalsPlanned, signalsSent;
  int runs = 0, violations = 0, failedRuns = 0, diedBySignal = 0;
  int first = o.only >= 0 ? o.only : 0, last = o.only >= 0 ? o.only + 1 : o.runs;
  for (int run = first; run < last; ++run) {
    Plan plan = drawPlan(o, run);
    std::string signal = plan.signal ? std::string("SIG") + sigabbrev_np(plan.signal) : "";
    std::printf("run %d: velkor %s on %llu objects (volume seed %llu), faults %s%s\n", run, plan.op.c_str(),
                static_cast<unsigned long long>(plan.objects), static_cast<unsigned long long>(plan.volumeSeed),
                plan.faults.dump().c_str(),
                plan.signal ? (", " + signal + " at " + std::to_string(plan.signalAt.count()) + " ms").c_str() : "");
    std::fflush(stdout);
    Outcome outcome;
    try {
      outcome = runOnce(plan, o);
    } catch (const std::exception& e) {
      outcome.findings.push_back(std::string("the run could not be made: ") + e.what());
    }
    ++runs;
    ++ops[plan.op];
    for (const std::string& name : plan.faultNames) ++faults[name];
    if (plan.signal) {
      ++signalsPlanned[signal];
      if (outcome.signalSent) ++signalsSent[signal];
      if (outcome.diedBySignal) ++diedBySignal;
    }
    for (const std::string& line : outcome.findings) std::printf("  VIOLATION: %s\n", line.c_str());
    violations += int(outcome.findings.size());
    failedRuns += !outcome.findings.empty();
    std::fflush(stdout);
  }

  std::printf("\nsoak: %d runs (seed %llu):", runs, static_cast<unsigned long long>(o.seed));
  for (auto& [op, n] : ops) std::printf(" %s %d", op.c_str(), n);
  std::printf("\nfaults tried:");
  for (auto& [name, n] : faults) std::printf(" [%s] %d", name.c_str(), n);
  std::printf("\nsignals (sent/planned; the rest came after the end):");
  for (auto& [name, n] : signalsPlanned) std::printf(" %s %d/%d", name.c_str(), signalsSent[name], n);
  std::printf("; %d runs ended by their signal", diedBySignal);
  std::printf("\nviolations: %d in %d runs\n", violations, failedRuns);
  return violations ? 1 : 0;
}
