// velkor-batch end to end: every operation with its exit status, its log
// against velkor's own for the same volume, the question without --yes, a
// stop by signal in the middle of a fix, and the errors it names.
#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <map>
#include <set>
#include <sstream>
#include <regex>
#include <string>
#include <vector>

#include "e2e.h"
#include "fixtures.h"
#include "velkor/checkpoint.h"

using namespace e2efixtures;
using testsupport::Simulator;
using testsupport::TempDir;
using testsupport::VelkorTerminal;

namespace {

VelkorTerminal::Options batch(const std::string& cwd = "") {
  VelkorTerminal::Options options;
  options.binary = testsupport::binaryPath("util/velkor/velkor-batch");
  options.cwd = cwd;
  options.cols = 300;  // a message on one line
  return options;
}

// Runs velkor-batch to its end, with `cfg` as its configuration file (empty:
// none); returns its exit status.
int runBatch(const Simulator& sim, const std::vector<std::string>& args, const std::string& cwd,
             std::string* output = nullptr, const std::string& cfg = "") {
  VelkorTerminal::Options options = batch(cwd);
  options.cfg = cfg;
  VelkorTerminal run(sim, args, options);
  run.finish();
  if (output) *output = run.screenText();
  return run.exitStatus();
}

}  // namespace

// A volume scan, single files, the recount question and the errors: each
// with its status and words. A full name is asked only where a name is
// logged (velkor asks one for every object it shows).
TEST(Batch, FileOperationsQuestionAndErrors) {
  json fixable = fixableVolume(1000, 1)["volumes"][0];
  json beasts = fixable["beasts"];
  beasts.push_back(plainFile(2000, "/good"));
  beasts.push_back(compressedFile(3000, "/corrupt"));  // its compressed data is missing
  beasts.push_back(plainFile(4000, "/x\x1b[2J\x1b]0;owned\x07y"));  // a name that would command the terminal
  Simulator sim = Simulator::withFixture(volume(beasts, fixable["compBeasts"]).dump());
  TempDir dir;
  std::string out;
  EXPECT_EQ(4, runBatch(sim, {"-L", "VOL1"}, dir.path(), &out)) << out;
  EXPECT_EQ((std::vector<std::string>{"1000", "3000"}), requestIds(sim.requestsOf("getBeastFullName")));
  EXPECT_EQ(0, runBatch(sim, {"-l", "/media/kvf/VOL1/good"}, dir.path(), &out)) << out;
  EXPECT_NE(std::string::npos, out.find("/good: good, checked")) << out;
  EXPECT_NE(std::string::npos, out.find("--list /media/kvf/VOL1/good: 1 objects in ")) << out;
  EXPECT_EQ(4, runBatch(sim, {"-l", "/media/kvf/VOL1/f0"}, dir.path(), &out)) << out;
  EXPECT_EQ(1, runBatch(sim, {"-f", "/media/kvf/VOL1/f0"}, dir.path(), &out)) << out;
  EXPECT_NE(std::string::npos, out.find(", fixed")) << out;
  // A deletion is asked for in so many words; without them nothing goes.
  EXPECT_EQ(16, runBatch(sim, {"-d", "/media/kvf/VOL1/corrupt"}, dir.path(), &out)) << out;
  EXPECT_NE(std::string::npos, out.find("velkor-batch: --delete deletes files, which cannot be undone: add --plan "
                                        "FILE (a plan velkor-report --plan wrote and you reviewed) or --yes to "
                                        "delete the corrupted files it finds. Nothing was deleted.")) << out;
  EXPECT_EQ(16, runBatch(sim, {"-D", "VOL1"}, dir.path(), &out)) << out;
  EXPECT_EQ(1u, sim.requestsOf("browseBeasts").size()) << "the -L run's alone";
  EXPECT_EQ(1, runBatch(sim, {"--yes", "-d", "/media/kvf/VOL1/corrupt"}, dir.path(), &out)) << out;
  EXPECT_NE(std::string::npos, out.find("/corrupt: compBeastNotFound, deleted")) << out;
  EXPECT_EQ(0, runBatch(sim, {"-c", "/media/kvf/VOL1/good"}, dir.path(), &out)) << out;
  EXPECT_EQ(0, runBatch(sim, {"-l", "/media/kvf/VOL1/x\x1b[2J\x1b]0;owned\x07y"}, dir.path(), &out)) << out;
  EXPECT_NE(std::string::npos, out.find("/x\\x1b[2J\\x1b]0;owned\\x07y: good, checked")) << out;
  EXPECT_NE(std::string::npos, out.find("--list /media/kvf/VOL1/x\\x1b[2J\\x1b]0;owned\\x07y: 1 objects")) << out;
  EXPECT_EQ(0, runBatch(sim, {"-b", "/media/kvf/VOL1/good"}, dir.path(), &out, "/DaysUntouchedBeforeCompression=0\n"))
      << out;
  EXPECT_NE(std::string::npos, out.find("a background compression candidate at this moment")) << out;
  // The configuration file's errors are named as such.
  const std::pair<std::string, std::string> configErrors[] = {
      {"", "it cannot be read (No such file or directory)"},
      {"#" + std::string(300, 'x') + "\n", "a line longer than 255 characters"},
      {"/DeletedFilesCompressionOption=0\n", "no line sets DaysUntouchedBeforeCompression"},
  };
  for (const auto& [text, problem] : configErrors) {
    EXPECT_EQ(8, runBatch(sim, {"-b", "/media/kvf/VOL1/good"}, dir.path(), &out, text)) << problem;
    EXPECT_NE(std::string::npos,
              out.find("velkor-batch: the configuration file /etc/opt/quorlen/kvf/kvfstart.cfg: " + problem + " ("))
        << out;
  }

  EXPECT_EQ(32, runBatch(sim, {"-S", "VOL1"}, dir.path(), &out)) << out;
  EXPECT_NE(std::string::npos, out.find("the question was not answered (no --yes)")) << out;
  EXPECT_TRUE(sim.requestsOf("fixCompStats").empty()) << "recounted without --yes";
  EXPECT_EQ(0, runBatch(sim, {"--yes", "-S", "VOL1"}, dir.path(), &out)) << out;
  EXPECT_EQ(1u, sim.requestsOf("fixCompStats").size());
  EXPECT_NE(std::string::npos, out.find("Compression Statistics:")) << out;

  EXPECT_EQ(8, runBatch(sim, {"-L", "VOL2"}, dir.path(), &out)) << out;
  EXPECT_NE(std::string::npos, out.find("velkor-batch: volume VOL2 not found on this server (")) << out;
  EXPECT_EQ(16, runBatch(sim, {"-L"}, dir.path(), &out)) << out;
  EXPECT_EQ(16, runBatch(sim, {"--progress=soon", "-L", "VOL1"}, dir.path(), &out)) << out;
  EXPECT_EQ(16, runBatch(sim, {"-I", "VOL1"}, dir.path(), &out)) << out;
  EXPECT_EQ(8, runBatch(sim, {"-L", "VOL1", "-p", dir.path()}, dir.path(), &out)) << out;

  const std::string log = testsupport::readFile(dir.file("velkor.log"));
  EXPECT_NE(std::string::npos, log.find("<msg>the question was not answered (no --yes): nothing was changed</msg>\n"
                                        "<finishStatus>stopped: a question needs --yes</finishStatus>"));
  EXPECT_NE(std::string::npos, log.find("<finishStatus>finished with error</finishStatus>"));
}

// SIGTERM in the middle of a fix: the object in hand is finished (both of
// its set requests are sent), no further object is taken, the log ends with
// the stop, and the status is 32 with what was found all repaired (1).
TEST(Batch, SignalMidFixFinishesTheObjectInHandAndEndsTheLog) {
  Simulator sim = Simulator::withFixture(fixableVolume(100, 40).dump());
  sim.setFaults(R"({"request":"setBeastInfo","count":0,"action":"delay","ms":100})");
  TempDir dir;
  VelkorTerminal run(sim, {"--progress=1", "-F", "VOL1"}, batch(dir.path()));
  ASSERT_TRUE(run.waitUntil([&] { return sim.requestsOf("setBeastInfo").size() >= 15; }));
  ASSERT_TRUE(run.signalProgram(SIGTERM));
  run.finish();
  EXPECT_EQ(32 | 1, run.exitStatus()) << run.screenText();

  const std::string log = testsupport::readFile(dir.file("velkor.log"));
  EXPECT_NE(std::string::npos, log.find("<finishStatus>stopped by a signal</finishStatus>\n<endTime>")) << log;
  EXPECT_EQ(log.size() - 13, log.find("</velkor>\n\n\n\n"));
  const size_t fixedEntries = entries(log).size();
  EXPECT_LT(fixedEntries, 40u) << "the stop took no effect";
  // Every repair logged was made (one set request each); nothing past it
  // was touched.
  EXPECT_EQ(fixedEntries, sim.requestsOf("setBeastInfo").size());
  EXPECT_TRUE(std::regex_search(run.screenText(), std::regex("VOL1: \\d+ of 40 objects \\(\\d+%\\)")))
      << run.screenText();
}

// A file system that never answers: the first signal asks for the stop
// after the object in hand, the second ends the run at once, while the reply
// is still awaited. A reader that goes away does not kill a run either: its
// log is ended.
TEST(Batch, SecondSignalEndsARunWaitingForAReplyAndAClosedPipeKillsNone) {
  Simulator sim = Simulator::withFixture(fixableVolume(100, 10).dump());
  sim.setFaults(R"({"request":"getBeastInfo","nth":3,"action":"hang","ms":600000})");
  TempDir dir;
  VelkorTerminal run(sim, {"-L", "VOL1"}, batch(dir.path()));
  ASSERT_TRUE(run.waitUntil([&] {
    return nlohmann::json::parse(testsupport::readFile(sim.mount() + "/control/faults"))[0]["seen"] == 3;
  }));
  ASSERT_TRUE(run.signalProgram(SIGTERM));
  ASSERT_TRUE(run.waitFor("velkor-batch: stopping after the object in hand; a second signal stops at once"));
  ASSERT_TRUE(run.signalProgram(SIGTERM));
  run.finish();
  EXPECT_EQ(32, run.exitStatus()) << run.screenText();
  EXPECT_NE(std::string::npos, run.screenText().find("velkor-batch: a second signal: stopped at once"));
  const std::string stopped = testsupport::readFile(dir.file("velkor.log"));
  EXPECT_EQ(std::string::npos, stopped.find("<finishStatus>")) << "the run waited for the reply";

  sim.setFaults("[]");
  const std::string loop = testsupport::binaryPath("util/velkor/velkor-batch") +
                           " --progress=1 -L VOL1 2>&1 | true; echo ${PIPESTATUS[0]} > status";
  testsupport::ProcessResult piped = testsupport::runProcess(
      testsupport::sandboxCommand({"--admin", sim.adminDir(), "--cwd", dir.path(), "--ro", testsupport::binaryPath("util"),
                                   "--", "/bin/bash", "-c", loop}),
      "", dir.path());
  EXPECT_EQ(0, piped.exitStatus) << piped.err;
  EXPECT_EQ("4\n", testsupport::readFile(dir.file("status"))) << "problems left, not killed by SIGPIPE";
  const std::string log = testsupport::readFile(dir.file("velkor.log")).substr(stopped.size());
  EXPECT_EQ(log.size() - 13, log.find("</velkor>\n\n\n\n")) << log;
}

namespace {

// The zids each getBeastInfo request named, counted: an object visited once
// is asked for as often as a run that nothing stopped asks for it.
std::map<std::string, int> visits(const Simulator& sim, const std::string& kind = "getBeastInfo") {
  std::map<std::string, int> counted;
  for (const std::string& zid : requestIds(sim.requestsOf(kind))) ++counted[zid];
  return counted;
}


std::string savedPosition(const std::string& checkpoint) {
  std::smatch m;
  const std::string text = testsupport::readFile(checkpoint);
  return std::regex_search(text, m, std::regex("\nposition (\\d+)\n")) ? std::string(m[1]) : "none";
}

// A generated volume, its pass run in several runs, and a copy of it that
// one run nothing stopped went over (`operation`).
struct Pass {
  explicit Pass(const std::string& operation = "-L")
      : sim(Simulator::generated(2000, 29)), reference(Simulator::generated(2000, 29)) {
    EXPECT_EQ(4, runBatch(reference, {"--no-checkpoint", operation, "VOL1"}, referenceDir.path()));
    sim.setFaults(R"({"request":"browseBeasts","count":0,"action":"delay","ms":25})");
  }
  // A run of the pass that is stopped once `browses` browse requests were made.
  int stoppedRun(int sig, size_t browses, std::vector<std::string> args = {"-L", "VOL1"}) {
    args.insert(args.begin(), {"--state-dir=state"});
    VelkorTerminal run(sim, args, batch(dir.path()));
    // The delay rule's count of the browse requests it has seen: cheap to read while the run goes on.
    EXPECT_TRUE(run.waitUntil([&] {
      return nlohmann::json::parse(testsupport::readFile(sim.mount() + "/control/faults"))[0]["seen"] >= browses;
    }));
    EXPECT_TRUE(run.signalProgram(sig));
    run.finish();
    return run.exitStatus();
  }
  // Runs `--resume` runs of at most `window` until the pass has ended.
  void resumeToTheEnd(const std::string& window, std::vector<std::string> args = {"-L", "VOL1"}) {
    args.insert(args.begin(), {"--state-dir=state", "--resume", "--max-duration=" + window});
    for (int run = 0; run < 100 && exists(checkpoint()); ++run) {
      const size_t before = sim.requestsOf("browseBeasts").size();
      const std::string saved = savedPosition(checkpoint());
      std::string out;
      const int status = runBatch(sim, args, dir.path(), &out);
      EXPECT_TRUE(status == 0 || status == 1 || status == 4) << status << out;
      const std::vector<std::string> sent = scanPositions(sim.requestsOf("browseBeasts"));
      ASSERT_LT(before, sent.size());
      EXPECT_EQ(saved, sent[before]) << "the resumed run began elsewhere";
      EXPECT_NE(std::string::npos, out.find("velkor-batch: resuming pass ")) << out;
    }
    EXPECT_FALSE(exists(checkpoint())) << "the pass never ended";
  }
  std::string checkpoint() const { return dir.file("state/VOL1.checkpoint"); }
  // velkor-report on the pass's log.
  testsupport::ProcessResult report(std::vector<std::string> args, bool ofReference = false) const {
    args.push_back((ofReference ? referenceDir : dir).file("velkor.log"));
    return testsupport::runBuilt("report/velkor-report", args);
  }
  // The pass as velkor-report joins it: one pass, its files counted once,
  // as many as the generator made and one run nothing stopped found, and
  // the verdict its own.
  void reportMeetsTheGenerator(const std::string& counts) const {
    const nlohmann::json runs = nlohmann::json::parse(report({"--format=json"}).out)["runs"];
    const nlohmann::json once = nlohmann::json::parse(report({"--format=json"}, true).out)["runs"].back();
    const nlohmann::json& last = runs.back(), expected = sim.expected()[counts];
    ASSERT_FALSE(last["pass"].is_null()) << last;
    EXPECT_TRUE(last["pass"]["ended"].get<bool>()) << last;
    EXPECT_EQ(runs.size(), last["pass"]["runs"].get<size_t>()) << last;
    EXPECT_EQ(expected["processed"], last["pass"]["objects"]);
    EXPECT_EQ(expected["processed"], last["pass"]["total"]);
    EXPECT_EQ(expected["openSkipped"], last["skipped"]);
    EXPECT_EQ(expected["fixed"], last["actions"]["fixed"]);
    if (counts == "list") {
      EXPECT_EQ(expected["fixable"], last["remainingFixable"]);
      EXPECT_EQ(expected["corrupted"], last["remainingCorrupted"]);
    }
    for (const char* key : {"entries", "remaining", "remainingFixable", "remainingCorrupted", "remainingByProblem"})
      EXPECT_EQ(once[key], last[key]) << key;
    const std::string metrics = report({"--format=prometheus"}).out;
    EXPECT_NE(std::string::npos, metrics.find("velkor_pass_progress_ratio{volume=\"VOL1\"} 1\n")) << metrics;
    EXPECT_NE(std::string::npos, metrics.find("velkor_problem_files_left{volume=\"VOL1\",operation=\"" +
                                              last["operation"].get<std::string>() + "\"} " +
                                              last["remaining"].dump() + "\n")) << metrics;
    const testsupport::ProcessResult check = report({"--check", "--volume=VOL1"});
    EXPECT_EQ(1, check.exitStatus) << check.out;
    EXPECT_NE(std::string::npos, check.out.find("problem files remain")) << check.out;
  }
  static bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

  Simulator sim, reference;
  TempDir dir, referenceDir;
};

}  // namespace

// A pass stopped by SIGTERM and then run in windows that --max-duration ends
// visits every object of the volume exactly once; each resumed run's first
// browse request carries the position the checkpoint saved, and the log
// says which runs resume which pass.
TEST(Resume, PassStoppedAndRunInWindowsVisitsEveryObjectOnce) {
  Pass pass;
  EXPECT_EQ(32 | 4, pass.stoppedRun(SIGTERM, 10));
  ASSERT_TRUE(Pass::exists(pass.checkpoint()));
  const testsupport::ProcessResult underWay = pass.report({"--check", "--volume=VOL1"});
  EXPECT_EQ(3, underWay.exitStatus) << underWay.out;
  EXPECT_NE(std::string::npos, underWay.out.find("a newer pass is under way: pass ")) << underWay.out;
  pass.resumeToTheEnd("1s");
  EXPECT_EQ(visits(pass.reference), visits(pass.sim));
  pass.reportMeetsTheGenerator("list");
  const std::string log = testsupport::readFile(pass.dir.file("velkor.log"));
  EXPECT_NE(std::string::npos, log.find("<finishStatus>stopped by a signal</finishStatus>"));
  EXPECT_TRUE(std::regex_search(log, std::regex("\n  Pass \\d+-\\d+, run 1: from the first object\n")));
  EXPECT_TRUE(std::regex_search(log, std::regex("\n  Pass \\d+-\\d+, run 2: resumes the pass at scan position \\d+\n")));
}

// After SIGKILL the pass goes on from its last save (its first browse
// request carries the saved position): no object is missed, and only what
// the killed run visited after that save is visited twice.
TEST(Resume, KilledPassMissesNothingAndRepeatsOneSaveInterval) {
  Pass pass;
  {
    VelkorTerminal run(pass.sim, {"--state-dir=state", "-L", "VOL1"}, batch(pass.dir.path()));
    ASSERT_TRUE(run.waitUntil([&] { return Pass::exists(pass.checkpoint()); }));
    ASSERT_TRUE(run.signalProgram(SIGKILL));
    run.finish();
  }
  const std::string saved = testsupport::readFile(pass.checkpoint());
  std::smatch highest;
  ASSERT_TRUE(std::regex_search(saved, highest, std::regex("\nhighest (\\d+)\n"))) << saved;
  const std::map<std::string, int> killed = visits(pass.sim);
  size_t afterTheSave = 0;
  for (const auto& [zid, count] : killed) afterTheSave += std::stoull(zid) > std::stoull(highest[1]);
  pass.resumeToTheEnd("600s");
  const std::map<std::string, int> once = visits(pass.reference), resumed = visits(pass.sim);
  ASSERT_EQ(once.size(), resumed.size());
  size_t twice = 0;
  for (const auto& [zid, count] : once) {
    EXPECT_LE(count, resumed.at(zid)) << zid << " missed";
    if (resumed.at(zid) == count) continue;
    ++twice;
    EXPECT_EQ(1u, killed.count(zid)) << zid << " visited twice, yet not by the killed run";
  }
  // The objects after the save, and a file's compressed data asked for with it.
  EXPECT_LE(twice, 2 * afterTheSave);
  pass.reportMeetsTheGenerator("list");
}

// A fix pass stopped and resumed repairs each fixable file once; a
// checkpoint of another operation or log begins a new pass, saying why; one
// another user owns is refused and left in place.
TEST(Resume, FixPassRepairsOnceAndForeignCheckpointsAreNotFollowed) {
  Pass pass("-F");
  EXPECT_EQ(32 | 4, pass.stoppedRun(SIGTERM, 10, {"-F", "VOL1"}));
  pass.resumeToTheEnd("600s", {"-F", "VOL1"});
  EXPECT_EQ(visits(pass.reference, "setBeastInfo"), visits(pass.sim, "setBeastInfo"));
  EXPECT_FALSE(visits(pass.sim, "setBeastInfo").empty());
  pass.reportMeetsTheGenerator("fix");

  EXPECT_EQ(32 | 4, pass.stoppedRun(SIGTERM, pass.sim.requestsOf("browseBeasts").size() + 5));
  std::string out;
  const std::string path = "state/VOL1.checkpoint";
  runBatch(pass.sim, {"--state-dir=state", "--resume", "--max-duration=1s", "-C", "VOL1"}, pass.dir.path(), &out);
  EXPECT_NE(std::string::npos, out.find("velkor-batch: the checkpoint " + path +
                                        " is of a --list-all pass, not of --clear-all: a new pass begins and "
                                        "replaces it")) << out;
  EXPECT_EQ(32 | 4, pass.stoppedRun(SIGTERM, pass.sim.requestsOf("browseBeasts").size() + 5));
  runBatch(pass.sim, {"--state-dir=state", "--resume", "--max-duration=1s", "-p", "other.log", "-L", "VOL1"},
           pass.dir.path(), &out);
  EXPECT_NE(std::string::npos, out.find(" is of a pass logged in " + pass.dir.file("velkor.log") + ", not in " +
                                        pass.dir.file("other.log") + ": a new pass begins")) << out;

  testsupport::writeFile(pass.checkpoint(), "theirs\n");
  ASSERT_EQ(0, chown(pass.checkpoint().c_str(), 4242, 4242));
  const std::string before = testsupport::readFile(pass.checkpoint());
  const size_t browses = pass.sim.requestsOf("browseBeasts").size();
  EXPECT_EQ(8, runBatch(pass.sim, {"--state-dir=state", "-L", "VOL1"}, pass.dir.path(), &out));
  EXPECT_NE(std::string::npos, out.find("velkor-batch: " + path + " is owned by uid 4242, not by root (uid 0) who "
                                        "runs this: another user could steer the pass with it; it is left in "
                                        "place (rm " + path + " begins a new pass).")) << out;
  EXPECT_EQ(before, testsupport::readFile(pass.checkpoint()));
  EXPECT_EQ(browses, pass.sim.requestsOf("browseBeasts").size());
}

// Deletion as plan, then apply: velkor-report writes the plan of a list run;
// velkor-batch -D --plan deletes only the planned files still corrupted,
// tells of those no longer corrupted or no longer there, and refuses a plan
// of another volume.
TEST(DeletionPlan, OnlyPlannedFilesStillCorruptedAreDeleted) {
  Simulator sim = Simulator::generated(600, 11);
  TempDir dir;
  EXPECT_EQ(4, runBatch(sim, {"-L", "VOL1"}, dir.path()));
  const testsupport::ProcessResult plan =
      testsupport::runBuilt("report/velkor-report", {"--plan", "--run", "1", dir.file("velkor.log")});
  ASSERT_EQ(0, plan.exitStatus) << plan.out << plan.err;
  std::vector<std::string> lines;
  std::istringstream in(plan.out);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  ASSERT_GT(lines.size(), 4u) << plan.out;
  EXPECT_EQ("velkor deletion plan 1", lines[0]);
  EXPECT_EQ("volume VOL1", lines[1]);
  // The reviewer takes the first file off the plan; a zid that is gone is
  // put on it.
  const std::string kept = lines[2].substr(0, lines[2].find(' '));
  std::string reviewed = lines[0] + "\n" + lines[1] + "\n";
  for (size_t i = 3; i < lines.size(); ++i) reviewed += lines[i] + "\n";
  reviewed += "99999999 /gone\n";
  testsupport::writeFile(dir.file("plan"), reviewed);
  testsupport::writeFile(dir.file("other-plan"), "velkor deletion plan 1\nvolume VOL2\n" + lines[3] + "\n");

  std::string out;
  EXPECT_EQ(16, runBatch(sim, {"-D", "VOL1", "--plan", "other-plan"}, dir.path(), &out)) << out;
  EXPECT_NE(std::string::npos, out.find("velkor-batch: the plan other-plan is not a plan of volume VOL1 (volume VOL2): "
                                        "nothing was deleted.")) << out;
  EXPECT_EQ(4, runBatch(sim, {"-D", "VOL1", "--plan", "plan"}, dir.path(), &out)) << out;
  const std::string log = testsupport::readFile(dir.file("velkor.log"));
  std::set<std::string> deleted;
  static const std::regex deletedEntry("<actionTaken><deleted/></actionTaken><zid>(\\d+)</zid>");
  const std::string lastRun = log.substr(log.rfind("<velkor>"));
  for (std::sregex_iterator it(lastRun.begin(), lastRun.end(), deletedEntry), end; it != end; ++it)
    deleted.insert((*it)[1]);
  std::set<std::string> planned;
  for (size_t i = 3; i < lines.size(); ++i) planned.insert(lines[i].substr(0, lines[i].find(' ')));
  EXPECT_EQ(planned, deleted) << "deleted beyond or short of the plan";
  EXPECT_EQ(0u, deleted.count(kept));
  EXPECT_NE(std::string::npos, out.find("; of the " + std::to_string(planned.size() + 1) +
                                        " planned files 0 no longer corrupted, 1 no longer there; ")) << out;
}
