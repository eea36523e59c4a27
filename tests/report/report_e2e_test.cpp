// velkor-report on one log that the real velkor wrote on the simulator, run
// after run: its counts against the generator's expectations, velkor-batch's
// log of the same steps, the requests the simulator saw and the status velkor
// showed; --check's exit status for each run; and the manual page's
// unattended recipe, run as it stands there.
#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <map>
#include <regex>
#include <set>

#include "e2e.h"
#include "fixtures.h"
#include "loggedFile.h"
#include "velkor/logElements.h"

using e2efixtures::FinishedRun;
using e2efixtures::json;
using e2efixtures::kVol;
using testsupport::ProcessResult;
using testsupport::Simulator;
using testsupport::VelkorTerminal;

namespace {

ProcessResult velkorReport(const std::vector<std::string>& args) {
  return testsupport::runBuilt("report/velkor-report", args);
}

// The status velkor showed at its end: "STATUS: <text>, check ./velkor.log for details".
std::string shownStatus(const std::vector<std::string>& screen) {
  std::smatch m;
  std::string line = e2efixtures::row(screen, 23);
  return std::regex_search(line, m, std::regex("STATUS: (.*), check ")) ? m[1].str() : "";
}

// The requests the simulator saw during one run: [from, to) of its log.
struct Requests {
  const std::vector<json>& all;
  size_t from, to;
  std::vector<json> run() const {
    return {all.begin() + std::min(from, all.size()), all.begin() + std::min(to, all.size())};
  }
  size_t count(const std::string& kind) const { return Simulator::ofKind(run(), kind).size(); }
  // The ids the requests of one kind name.
  std::set<std::string> ids(const std::string& kind) const {
    std::vector<std::string> ids = e2efixtures::requestIds(Simulator::ofKind(run(), kind));
    return {ids.begin(), ids.end()};
  }
  // The full names unlinked in the volumes' name trees.
  std::set<std::string> unlinked() const {
    std::set<std::string> names;
    for (const json& r : run()) {
      std::string text = r.value("request", "");
      if (text.rfind("unlink ", 0) == 0) names.insert(text.substr(7));
    }
    return names;
  }
};

uint64_t problemFiles(const json& counts) { return counts["fixable"].get<uint64_t>() + counts["corrupted"].get<uint64_t>(); }

// Processed, cleared, good, open skipped, fixable, corrupted, fixed, deleted.
std::vector<uint64_t> expectedCounters(const json& e) {
  return {e["processed"], e["ccBitCleared"], e["good"], e["openSkipped"],
          e["fixable"],   e["corrupted"],    e["fixed"], e["deleted"]};
}

// The problem words of a run's log entries, each with the number of entries
// that carry it, keyed as the generator's "words".
json loggedWords(const std::vector<std::string>& entries) {
  std::map<std::string, uint64_t> words;
  const std::regex element("<(\\w+)/>");
  for (const std::string& e : entries) {
    size_t from = e.find("<fileStatus>"), to = e.find("</fileStatus>");
    std::string status = e.substr(from, to - from);
    uint32_t word = 0;
    for (std::sregex_iterator m(status.begin(), status.end(), element), end; m != end; ++m)
      for (size_t bit = 0; bit < velkor::kNamedProblemBits; ++bit)
        if (velkor::kProblemElements[bit] == (*m)[1].str()) word |= 1u << bit;
    ++words[std::to_string(word)];
  }
  return words;
}

// A run log's documents, in order.
std::vector<std::string> documents(const std::string& log) {
  std::vector<std::string> runs;
  for (size_t at = 0; (at = log.find("<velkor>\n", at)) != std::string::npos; ++at)
    runs.push_back(log.substr(at, std::min(log.find("</velkor>", at), log.find("<velkor>\n", at + 1)) - at));
  return runs;
}

// A document without what differs from run to run and program to program:
// times, the build, the program's path, argument indexes, and velkor-batch's
// pass and --yes.
std::string comparable(const std::string& document) {
  static const std::regex varying(
      "<CurrentTime [^>]*/>|  Build: [^\n]*|argv=\"[^\"]*velkor(-batch)?\"|  velkor(-batch)? - |index=\"\\d+\"");
  static const std::regex pass("\n  Pass [^\n]*|<msg>pass [^<]*</msg>\n| <argv index=\"\\d+\" argv=\"--yes\" />\n");
  return std::regex_replace(std::regex_replace(document, pass, ""), varying, "#");
}

// velkor run in one working directory, so that every run appends to one log.
class OneLog {
 public:
  std::string log() const { return dir_.file("velkor.log"); }
  VelkorTerminal::Options options() const {
    VelkorTerminal::Options o;
    o.cwd = dir_.path();
    return o;
  }
  // Runs velkor to its final prompt; returns the screen at the prompt.
  std::vector<std::string> finished(const Simulator& sim, const std::vector<std::string>& args,
                                    const std::string& answer = "") {
    FinishedRun run(sim, args, options(), answer);
    EXPECT_TRUE(run.finalScreen) << args[0];
    return run.screen;
  }
  // Starts a list run slowed down by a delay on every object and kills it
  // (SIGKILL, in the middle of its output) once it has checked some.
  void killedList(const Simulator& sim) {
    sim.setFaults(R"({"request":"getBeastInfo","action":"delay","ms":5,"count":0})");
    VelkorTerminal terminal(sim, {"-L", "VOL1"}, options());
    EXPECT_TRUE(terminal.waitUntil([&] {
      std::vector<uint64_t> shown = testsupport::counters(terminal.screen());
      return !shown.empty() && shown[0] >= 20;
    }));
    terminal.sendSignal(SIGKILL);
    terminal.finish();
    sim.setFaults("[]");
  }

  json report() const {
    ProcessResult r = velkorReport({"--format", "json", "--files", log()});
    EXPECT_EQ(0, r.exitStatus) << r.err;
    return json::parse(r.out);
  }
  int check(size_t run) const { return velkorReport({"--check", "--run", std::to_string(run), log()}).exitStatus; }

 private:
  testsupport::TempDir dir_;
};

// One log of every kind of run that velkor writes on a generated volume,
// run by the real velkor and appended to one log: on the first copy list,
// list without the header check (pretty-printed replies), fix, list, a scan
// ended by a fault and a killed run; on a second copy Cc clear twice and the
// statistics recount; on a third, delete. Each test below reads its own view
// of it: the generator's counts, velkor-batch's log of the same steps, and
// velkor-report's.
struct LoggedRuns {
  struct Run {
    std::vector<std::string> args;
    const char* expected;  // the generator's counts of the run, or nullptr
    int check;             // --check's status
    int batch;             // velkor-batch's exit status for the same step; -1: not repeated
    int sim;               // which copy of the volume
    std::string answer = {};  // to the recount question
    std::string status = {};  // as velkor showed it
    std::vector<uint64_t> counters = {};
    size_t from = 0, to = 0;  // the run's requests
  };
  enum { kFirst, kCleared, kDeleted, kCopies };
  std::vector<Run> runs = {
      {{"-L", "VOL1"}, "list", 1, 4, kFirst},
      {{"-H", "-L", "VOL1"}, "listNoHeader", 1, 4, kFirst},
      {{"--fix-all", "VOL1"}, "fix", 1, 4, kFirst},
      {{"-L", "VOL1"}, "afterFix", 1, 4, kFirst},
      {{"-L", "VOL1"}, nullptr, 2, -1, kFirst},  // a fault in the middle of the scan
      {{"-L", "VOL1"}, nullptr, 2, -1, kFirst},  // killed
      {{"--clear-all", "VOL1"}, nullptr, 0, 0, kCleared},
      {{"-C", "VOL1"}, nullptr, 0, 0, kCleared},
      {{"-S", "VOL1"}, nullptr, 0, -1, kCleared, "y"},
      {{"-D", "VOL1"}, "delete", 1, 4, kDeleted},
  };
  static constexpr size_t kList = 0, kFix = 2, kAfterFix = 3, kFault = 4, kKilled = 5, kClear = 6, kRecount = 8,
                          kDelete = 9;
  Simulator::Options options;
  OneLog log;
  json expected;
  std::vector<json> requests[kCopies];
  json recount;       // the statistics after the recount
  json liveAfterDelete;
  std::vector<uint64_t> afterDelete;  // list after delete (in a log of its own)
  json afterDeleteWords;

  Requests during(size_t i) const { return Requests{requests[runs[i].sim], runs[i].from, runs[i].to}; }
};

void writeEveryKindOfRun(LoggedRuns& r) {
  r.options.generate = 2000;
  r.options.seed = 5;
  Simulator::Options pretty = r.options;
  pretty.pretty = true;
  Simulator first(pretty), cleared(r.options), deleted(r.options);
  const Simulator* sims[] = {&first, &cleared, &deleted};
  r.expected = first.expected();
  for (size_t i = 0; i < r.runs.size(); ++i) {
    LoggedRuns::Run& run = r.runs[i];
    const Simulator& sim = *sims[run.sim];
    run.from = sim.requests().size();
    if (i == LoggedRuns::kKilled) {
      r.log.killedList(sim);
    } else {
      if (i == LoggedRuns::kFault) sim.setFaults(R"({"request":"getBeastInfo","nth":25,"action":"result","value":20400})");
      std::vector<std::string> screen = r.log.finished(sim, run.args, run.answer);
      sim.setFaults("[]");
      run.status = shownStatus(screen);
      run.counters = testsupport::counters(screen);
    }
    run.to = sim.requests().size();
  }
  for (int copy = 0; copy < LoggedRuns::kCopies; ++copy) r.requests[copy] = sims[copy]->requests();
  r.recount = cleared.state()["volumes"][0]["stats"];
  r.liveAfterDelete = deleted.state()["volumes"][0]["liveBeasts"];
  FinishedRun list(deleted, {"-L", "VOL1"});
  ASSERT_TRUE(list.finalScreen);
  r.afterDelete = testsupport::counters(list.screen);
  r.afterDeleteWords = loggedWords(list.entries());
}

// The generator's counts: the counters each run showed and the problem words
// it logged; what the second Cc clear and the recount found, and what the
// deletion left.
void checkGeneratorsCounts(const LoggedRuns& r, const std::vector<std::string>& documents) {
  SCOPED_TRACE("the generator's counts");
  for (size_t i = 0; i < r.runs.size(); ++i) {
    const char* key = r.runs[i].expected;
    if (!key) continue;
    EXPECT_EQ(expectedCounters(r.expected[key]), r.runs[i].counters) << key;
    EXPECT_EQ(r.expected[key]["words"], loggedWords(e2efixtures::entries(documents.at(i)))) << key;
  }
  std::vector<uint64_t> clear = r.runs[LoggedRuns::kClear].counters;
  ASSERT_EQ(8u, clear.size());
  EXPECT_EQ(r.expected["clear"]["processed"], clear[0]);
  EXPECT_EQ(r.expected["clear"]["ccBitCleared"], clear[1]);
  EXPECT_EQ(0u, r.runs[LoggedRuns::kClear + 1].counters.at(1)) << "the second clear found Cc attributes";
  EXPECT_EQ(r.recount["compressedFiles"], r.expected["statsRecount"]["compressedFiles"]);
  EXPECT_EQ(r.recount["preCompressionBlocks"], r.expected["statsRecount"]["preCompressionBlocks"]);
  EXPECT_EQ(r.recount["uncompressibleFiles"], 0);  // the Cc attributes were cleared
  EXPECT_EQ(expectedCounters(r.expected["afterDelete"]), r.afterDelete);
  EXPECT_EQ(r.expected["afterDelete"]["words"], r.afterDeleteWords);
  EXPECT_EQ(r.liveAfterDelete, r.expected["afterDelete"]["processed"]);
}

// velkor-batch repeats the steps it can on copies of its own, into a log of
// its own: each exit status says what was left, and the log holds the same
// documents as velkor's, entry for entry.
void checkBatchLogsTheSame(const LoggedRuns& r, const std::vector<std::string>& velkorDocuments) {
  SCOPED_TRACE("velkor-batch");
  Simulator::Options quiet = r.options;
  quiet.requestLog = false;
  Simulator::Options quietPretty = quiet;
  quietPretty.pretty = true;
  Simulator copies[] = {Simulator(quietPretty), Simulator(quiet), Simulator(quiet)};
  testsupport::TempDir dir;
  std::vector<std::string> byVelkor;
  for (size_t i = 0; i < r.runs.size(); ++i) {
    const LoggedRuns::Run& run = r.runs[i];
    if (run.batch < 0) continue;
    byVelkor.push_back(comparable(velkorDocuments.at(i)));
    std::vector<std::string> args = run.args;
    if (args[0] == "-D") args.push_back("--yes");
    VelkorTerminal::Options options;
    options.binary = testsupport::binaryPath("util/velkor/velkor-batch");
    options.cwd = dir.path();
    options.cols = 300;  // a message on one line
    VelkorTerminal batch(copies[run.sim], args, options);
    batch.finish();
    EXPECT_EQ(run.batch, batch.exitStatus()) << args[0] << "\n" << batch.screenText();
    EXPECT_TRUE(std::regex_search(batch.screenText(), std::regex("velkor-batch: --[a-z-]+ VOL1: \\d+ objects in ")))
        << batch.screenText();
  }
  const std::string log = testsupport::readFile(dir.file("velkor.log"));
  EXPECT_NE(std::string::npos, log.find("  velkor-batch - Validate and fix KVF compression files\n"));
  std::vector<std::string> byBatch = documents(log);
  ASSERT_EQ(byVelkor.size(), byBatch.size());
  for (size_t i = 0; i < byBatch.size(); ++i) EXPECT_EQ(byVelkor[i], comparable(byBatch[i])) << "run " << i;
  EXPECT_NE(std::string::npos, byBatch[0].find("<entry>")) << "the volume has no problem file";
}

// Each run's finish status and completeness as velkor showed them, and
// --check's status for it.
void checkVerdicts(const LoggedRuns& r, const json& runs) {
  SCOPED_TRACE("verdicts");
  for (size_t i = 0; i < runs.size(); ++i) {
    const json& run = runs[i];
    EXPECT_EQ(i + 1, run["index"].get<size_t>());
    if (i != LoggedRuns::kKilled) {
      EXPECT_EQ(r.runs[i].status, run["finishStatus"]) << i;
      EXPECT_TRUE(run["complete"].get<bool>()) << i;
    } else {
      EXPECT_FALSE(run["complete"].get<bool>()) << i;
      EXPECT_TRUE(run["end"].is_null()) << i;
    }
    EXPECT_EQ(r.runs[i].check, r.log.check(i + 1)) << "run " << i + 1 << "\n" << run.dump(1).substr(0, 2000);
  }
  // (A run whose status speaks of problem files it has no entry of is not
  // clean: outputs_test's RunsForgedByNamesOfOlderLogsAreNotClean.)
}

// List, fix, list again, statistics, the fault and the killed run: the
// generator's counts and the requests the simulator saw.
void checkScansAndStatistics(const LoggedRuns& r, const json& runs) {
  SCOPED_TRACE("list, fix, statistics, fault and killed runs");
  const json& list = runs[LoggedRuns::kList];
  EXPECT_EQ("list-all", list["operation"]);
  EXPECT_EQ("VOL1", list["target"]);
  EXPECT_EQ(problemFiles(r.expected["list"]), list["remaining"].get<uint64_t>());
  EXPECT_EQ(r.expected["list"]["openSkipped"], list["skipped"]);
  ASSERT_EQ(list["skipped"], list["skippedFiles"].size());
  for (const json& name : list["skippedFiles"]) EXPECT_EQ('/', name.get<std::string>().at(0)) << name;
  EXPECT_EQ(list["skipped"].get<uint64_t>() + list["remaining"].get<uint64_t>(), list["entries"].get<uint64_t>());
  const json& fix = runs[LoggedRuns::kFix];
  EXPECT_EQ("fix-all", fix["operation"]) << "the long option";
  EXPECT_EQ(r.expected["fix"]["fixed"], fix["actions"]["fixed"]);
  // Every file the run changed is logged as fixed (some repairs need no change).
  std::set<std::string> fixedZids;
  for (const json& f : fix["files"])
    if (f["action"] == "fixed") fixedZids.insert(f["zid"].get<std::string>());
  for (const std::string& zid : r.during(LoggedRuns::kFix).ids("setBeastInfo")) EXPECT_EQ(1u, fixedZids.count(zid)) << zid;
  EXPECT_EQ(problemFiles(r.expected["list"]) - r.expected["fix"]["fixed"].get<uint64_t>(),
            fix["remaining"].get<uint64_t>());
  EXPECT_EQ(problemFiles(r.expected["afterFix"]), runs[LoggedRuns::kAfterFix]["remaining"].get<uint64_t>());
  // Statistics log no entries.
  EXPECT_EQ("fix-stats", runs[LoggedRuns::kRecount]["operation"]);
  EXPECT_EQ(0u, runs[LoggedRuns::kRecount]["entries"].get<uint64_t>());
  EXPECT_EQ(1u, r.during(LoggedRuns::kRecount).count("fixCompStats"));
  // The fault's error.
  EXPECT_EQ(1u, runs[LoggedRuns::kFault]["errors"].size());
  EXPECT_EQ(25u, r.during(LoggedRuns::kFault).count("getBeastInfo")) << "the scan stopped at the fault";
  EXPECT_LE(runs[LoggedRuns::kFault]["entries"].get<uint64_t>(), 24u);
  // The killed run holds what it logged before the end.
  size_t checked = r.during(LoggedRuns::kKilled).count("getBeastInfo");
  EXPECT_LT(checked, 2000u);
  EXPECT_LE(runs[LoggedRuns::kKilled]["entries"].get<uint64_t>(), checked);
}

// Cc clear logs no entries; delete: the generator's counts and the
// deletions its copy of the volume saw, by zid or by unlinking the name.
void checkClearAndDelete(const LoggedRuns& r, const json& runs) {
  SCOPED_TRACE("clear and delete");
  EXPECT_EQ("clear-all", runs[LoggedRuns::kClear]["operation"]);
  EXPECT_EQ(0u, runs[LoggedRuns::kClear]["entries"].get<uint64_t>());
  const json& remove = runs[LoggedRuns::kDelete];
  EXPECT_EQ("delete-all", remove["operation"]);
  EXPECT_EQ(r.expected["delete"]["deleted"], remove["actions"]["deleted"]);
  Requests deletions = r.during(LoggedRuns::kDelete);
  std::set<std::string> unlinked = deletions.unlinked();
  std::set<std::string> byId = deletions.ids("deleteBeast");
  EXPECT_EQ(remove["actions"]["deleted"].get<size_t>(), byId.size() + unlinked.size());
  for (const json& f : remove["files"]) {
    bool seen = byId.count(f["zid"]) || unlinked.count(f["name"]);
    EXPECT_EQ(f["action"] == "deleted", seen) << f.dump();
  }
  EXPECT_EQ(r.expected["delete"]["fixable"], remove["remaining"]);
}

// The table, the last run judged by default, --volume, --problem, and the
// refusals of a missing log and a missing run.
void checkSelections(const LoggedRuns& r, const json& runs) {
  SCOPED_TRACE("selections");
  const std::string log = r.log.log();
  ProcessResult table = velkorReport({log});
  EXPECT_EQ(0, table.exitStatus);
  EXPECT_EQ(runs.size() + 1, static_cast<size_t>(std::count(table.out.begin(), table.out.end(), '\n')));
  EXPECT_EQ(1, velkorReport({"--check", log}).exitStatus);
  EXPECT_EQ(1, velkorReport({"--check", "--volume", "VOL1", log}).exitStatus);
  EXPECT_EQ(3, velkorReport({"--check", "--volume", "VOL2", log}).exitStatus);
  // --problem: the CSV rows of the first run with each of its problems.
  for (const auto& [problem, count] : runs[0]["problems"].items()) {
    ProcessResult csv = velkorReport({"--format", "csv", "--run", "1", "--problem", problem, log});
    EXPECT_EQ(count.get<size_t>() + 1, static_cast<size_t>(std::count(csv.out.begin(), csv.out.end(), '\n')))
        << problem;
  }
  EXPECT_EQ(3, velkorReport({"--check", log + ".missing"}).exitStatus);
  EXPECT_EQ(3, velkorReport({"--format", "json", "--run", std::to_string(runs.size() + 1), log}).exitStatus);
}

// The metrics of the runs: the text format as promtool reads it, each
// volume's verdict as --check gives it, and what the last run left.
void checkMetrics(const std::string& log, const json& lastRun) {
  SCOPED_TRACE("metrics");
  testsupport::TempDir dir;
  const std::string prom = dir.file("velkor.prom");
  ProcessResult written = velkorReport({"--format", "prometheus", "--output", prom, log});
  ASSERT_EQ(0, written.exitStatus) << written.err;
  std::string metrics = testsupport::readFile(prom);
  ProcessResult promtool = testsupport::runProcess({"promtool", "check", "metrics"}, metrics);
  EXPECT_EQ(0, promtool.exitStatus) << promtool.out << promtool.err << metrics;
  int verdict = velkorReport({"--check", "--volume", "VOL1", log}).exitStatus;
  EXPECT_NE(std::string::npos, metrics.find("velkor_last_run_verdict{volume=\"VOL1\"} " + std::to_string(verdict)))
      << metrics;
  uint64_t left = 0;
  std::regex problemFiles("velkor_problem_files\\{volume=\"VOL1\",problem=\"\\w+\"\\} (\\d+)");
  for (std::sregex_iterator it(metrics.begin(), metrics.end(), problemFiles), end; it != end; ++it)
    left += std::stoull((*it)[1]);
  EXPECT_EQ(lastRun["remaining"].get<uint64_t>(), left) << metrics;
  EXPECT_NE(std::string::npos,
            metrics.find("velkor_last_run_deleted_files{volume=\"VOL1\"} " + lastRun["actions"]["deleted"].dump()));
}

}  // namespace

// Writing the log costs most of the time, so it is written once and each
// group of checks reads it under its own name.
TEST(ReportEndToEnd, EveryKindOfRunInOneLog) {
  LoggedRuns r;
  ASSERT_NO_FATAL_FAILURE(writeEveryKindOfRun(r));
  const std::vector<std::string> logged = documents(testsupport::readFile(r.log.log()));
  ASSERT_EQ(r.runs.size(), logged.size());
  checkGeneratorsCounts(r, logged);
  checkBatchLogsTheSame(r, logged);
  const json report = r.log.report();
  const json& runs = report["runs"];
  ASSERT_EQ(r.runs.size(), runs.size()) << report.dump(1);
  checkVerdicts(r, runs);
  checkScansAndStatistics(r, runs);
  checkClearAndDelete(r, runs);
  checkSelections(r, runs);
  checkMetrics(r.log.log(), runs.back());
}

// A fix that reports a file fixed the file system did not change (the reply
// says done, the record stays): the next list finds it again, and the report
// shows it as not taken by the fix, the other fixed files not.
TEST(ReportEndToEnd, AFixThatDidNotTakeAndARunsError) {
  Simulator sim = Simulator::withFixture(e2efixtures::fixableVolume(1000, 3).dump());
  OneLog log;
  log.finished(sim, {"-L", "VOL1"});
  sim.setFaults(R"({"request":"setBeastInfo","zid":"1010","action":"result","value":0})");
  log.finished(sim, {"-F", "VOL1"});
  sim.setFaults("[]");
  log.finished(sim, {"-L", "VOL1"});
  json runs = log.report()["runs"];
  ASSERT_EQ(3u, runs.size());
  EXPECT_EQ(3, runs[1]["actions"]["fixed"]);
  EXPECT_EQ(1, runs[1]["notTaken"]);
  for (const json& f : runs[1]["files"]) EXPECT_EQ(f["zid"] == "1010", f["notTaken"].get<bool>()) << f.dump();
  EXPECT_EQ(0, runs[0]["notTaken"]);
  EXPECT_EQ(1, runs[2]["remainingFixable"]);
  EXPECT_EQ(0, runs[2]["remainingCorrupted"]);
  // The same through standard input, which is read twice from a copy.
  ProcessResult detail = testsupport::runProcess(
      {testsupport::binaryPath("report/velkor-report"), "--run", "2", "-"}, testsupport::readFile(log.log()));
  EXPECT_NE(std::string::npos, detail.out.find("VOL1  /f1  zid 1010  invalidState  fixed, not taken by the fix\n"))
      << detail.out;
  EXPECT_NE(std::string::npos, detail.out.find("  Not taken:   1 ")) << detail.out;
  EXPECT_EQ(std::string::npos, detail.out.find("/f0  zid 1000  invalidState  fixed, not")) << detail.out;
  // The table shows it beside FIXABLE.
  ProcessResult table = velkorReport({log.log()});
  EXPECT_TRUE(std::regex_search(table.out, std::regex("FIXABLE  NOT TAKEN  CORRUPTED\n.*\n +2 .* fix-all .* +3 +0 +1 +0\n")))
      << table.out;

  // A run's error is shown in the operator's words first, as velkor-batch
  // says it on standard error, then as the log records it: in --check's line
  // and in the run in detail.
  VelkorTerminal::Options batch = log.options();
  batch.binary = testsupport::binaryPath("util/velkor/velkor-batch");
  VelkorTerminal run(sim, {"-L", "VOL2"}, batch);
  run.finish();
  ASSERT_EQ(8, run.exitStatus()) << run.screenText();
  std::smatch shown;
  const std::string said = run.screenText();
  ASSERT_TRUE(std::regex_search(said, shown, std::regex("velkor-batch: (volume VOL2 not found on this server) \\(")))
      << said;
  ProcessResult check = velkorReport({"--check", "--volume", "VOL2", log.log()});
  EXPECT_EQ(2, check.exitStatus);
  EXPECT_NE(std::string::npos,
            check.out.find("ended with an error: " + shown[1].str() + " (util/velkor/velkorUI[994] originated from"))
      << check.out;
  detail = velkorReport({"--run", "last", log.log()});
  EXPECT_NE(std::string::npos, detail.out.find("  Error:       " + shown[1].str() + " (util/velkor/velkorUI[994]"))
      << detail.out;
}

// The manual page's unattended recipe, taken from the page and run as it
// stands in the sandbox, with velkor and velkor-report on the path and no
// terminal type set, as under cron.
TEST(ReportEndToEnd, TheManualsUnattendedRecipe) {
  std::ifstream manual(testsupport::sourcePath("report/velkor-report.1"));
  std::string recipe, line;
  bool section = false, example = false;
  while (std::getline(manual, line)) {
    if (line == ".SS Unattended use") section = true;
    else if (section && line == ".EX") example = true;
    else if (example && line == ".EE") break;
    else if (example) recipe += std::regex_replace(line, std::regex("\\\\-"), "-") + "\n";
  }
  ASSERT_NE(std::string::npos, recipe.find("velkor-report --check")) << recipe;
  ASSERT_EQ(std::string::npos, recipe.find('\\')) << "only \\- is written as roff";

  std::string velkorDir = testsupport::binaryPath("util/velkor"), reportDir = testsupport::binaryPath("report");
  Simulator problems = Simulator::generated(500);
  Simulator clean = Simulator::withFixture(e2efixtures::volume(e2efixtures::plainFiles(2), json::array()).dump());
  for (auto [sim, status] : {std::pair<const Simulator*, int>{&problems, 1}, {&clean, 0}}) {
    testsupport::TempDir dir;
    ProcessResult r = testsupport::runProcess(
        testsupport::sandboxCommand({"--admin", sim->adminDir(), "--volume", kVol + "=" + sim->volumeDir("VOL1"),
                                     "--ro", velkorDir, "--ro", reportDir, "--cwd", dir.path(), "--", "/bin/sh", "-c",
                                     "unset TERM; PATH=" + velkorDir + ":" + reportDir + ":$PATH\n" + recipe}),
        "", dir.path());
    EXPECT_EQ(status, r.exitStatus) << r.out << r.err;
    EXPECT_NE(std::string::npos, r.out.find("run 1 (list-all VOL1")) << r.out;
    ProcessResult runs = velkorReport({"--format", "json", dir.file("velkor.log")});
    json report = json::parse(runs.out);
    ASSERT_EQ(1u, report["runs"].size());
    EXPECT_TRUE(report["runs"][0]["complete"].get<bool>());
  }
}

// A run that spans a rotation by the shipped logrotate configuration (real
// logrotate, forced) stays whole in the rotated log, and --check --volume and
// the metrics on the log's path find it there, naming the files they read:
// the day after the rotation the log itself holds no run (or does not
// exist), and after the next rotation the run lies compressed in .2.gz.
TEST(ReportEndToEnd, ARunThatSpansALogRotationIsFound) {
  Simulator sim = Simulator::generated(300);
  OneLog log;
  const std::string path = log.log();
  testsupport::TempDir state;
  std::string config = testsupport::readFile(testsupport::sourcePath("server/velkor.logrotate"));
  config = std::regex_replace(config, std::regex("/var/log/velkor/"), path.substr(0, path.rfind('/') + 1));
  testsupport::writeFile(state.file("velkor.logrotate"), config);
  auto rotate = [&] {
    ProcessResult r = testsupport::runProcess(
        {"logrotate", "-f", "-s", state.file("state"), state.file("velkor.logrotate")});
    EXPECT_EQ(0, r.exitStatus) << r.out << r.err;
  };
  {
    // Rotated while the slowed list run is between its entries; it goes on
    // at full speed once the log is rotated.
    sim.setFaults(R"({"request":"getBeastInfo","action":"delay","ms":50,"count":0})");
    VelkorTerminal terminal(sim, {"-L", "VOL1"}, log.options());
    ASSERT_TRUE(terminal.waitUntil([&] { return testsupport::readFile(path).find("<entry>") != std::string::npos; }));
    ASSERT_EQ(std::string::npos, testsupport::readFile(path).find("<endTime>"));
    rotate();
    sim.setFaults("[]");
    ASSERT_TRUE(terminal.runToEnd());
  }
  // Whole (an incomplete run would be 2) and found by the log's path.
  auto judged = [&](const std::string& read) {
    ProcessResult check = velkorReport({"--check", "--max-age", "8d", "--volume", "VOL1", path});
    EXPECT_EQ(1, check.exitStatus) << check.out << check.err;
    EXPECT_NE(std::string::npos, check.out.find("run 1 (list-all VOL1")) << check.out;
    EXPECT_NE(std::string::npos, check.out.find("logs read: " + read + "\n")) << check.out;
    ProcessResult metrics = velkorReport({"--format", "prometheus", path});
    EXPECT_NE(std::string::npos, metrics.out.find("velkor_last_run_verdict{volume=\"VOL1\"} 1\n")) << metrics.out;
    EXPECT_NE(std::string::npos, metrics.out.find("# logs read: " + read + "\n")) << metrics.out;
    EXPECT_EQ("", check.err + metrics.err);
  };
  // The day after: no log yet, then an empty one.
  judged(path + ".1");
  testsupport::writeFile(path, "");
  judged(path + ".1, " + path);
  // A recount follows (it does not decide the verdict); the next rotation
  // compresses the list run.
  testsupport::writeFile(path, reporttests::loggedRun({"velkor", "-S", "VOL1"}, {}));
  rotate();
  ASSERT_TRUE(std::ifstream(path + ".2.gz").good());
  judged(path + ".2.gz, " + path + ".1");
  // A compressed log named on its own is read as the log it holds.
  ProcessResult table = velkorReport({path + ".2.gz"});
  EXPECT_EQ(0, table.exitStatus);
  EXPECT_EQ("", table.err);
  EXPECT_TRUE(std::regex_search(table.out, std::regex("list-all +VOL1"))) << table.out;
  // One cut short cannot be read to its end.
  const std::string compressed = testsupport::readFile(path + ".2.gz");
  testsupport::writeFile(path + ".2.gz", compressed.substr(0, compressed.size() / 2));
  ProcessResult cut = velkorReport({"--check", "--volume", "VOL1", path});
  EXPECT_EQ(3, cut.exitStatus) << cut.out;
  EXPECT_EQ(0u, cut.err.find("velkor-report: " + path + ".2.gz: unexpected end of file\n")) << cut.err;
}
