// Deletion by path as root among other users' files: a user who can rename
// directories on the volume, a file system whose replies name the wrong
// place, files whose names go away during a delete run. Each case runs the
// real binary in the sandbox against the simulator's name tree.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <iostream>
#include <string>
#include <thread>

#include "e2e.h"
#include "fixtures.h"

using nlohmann::json;
using testsupport::Simulator;
using testsupport::TempDir;
using testsupport::VelkorTerminal;
using e2efixtures::kVol;
using e2efixtures::corruptedFile;
using e2efixtures::plainFile;

namespace {

Simulator simulatorOf(const json& fixture, bool zidInodes) {
  Simulator::Options options;
  options.fixture = fixture.dump();
  options.zidInodes = zidInodes;
  return Simulator(options);
}

// A fault rule: before the nth path lookup is answered (or right after),
// two names of the volume's tree swap places.
std::string exchangeAtLookup(int nth, const std::string& a, const std::string& b, bool after = false) {
  return json({{"request", "getFileInfo"}, {"nth", nth}, {"action", "exchange"}, {"text", "volumes/VOL1" + a},
               {"with", "volumes/VOL1" + b}, {"after", after}})
      .dump();
}

// The shared project tree: mallory owns /proj/mallory and may rename in
// /proj, where alice's directory also stands. Mallory's files are corrupted;
// alice's files of the same names are sound.
json projectTree(int files) {
  json beasts = json::array();
  for (int i = 0; i < files; ++i) {
    const std::string name = "/f" + std::to_string(i) + ".dat";
    beasts.push_back(plainFile(10000 + i, "/proj/alice" + name));
    beasts.push_back(corruptedFile(20000 + 2 * i, "/proj/mallory" + name));
  }
  return e2efixtures::volume(beasts, json::array());
}

}  // namespace

// Mallory renames between the moments root's deletion looks at the path.
// Path lookups: the command line's path (1), the volume's probe (2), the
// confirmation where inode numbers are not zids (3).
struct RaceCase {
  const char* name;
  bool inodesAreZids;
  std::vector<std::string> faults;
  std::string why;
};

void PrintTo(const RaceCase& c, std::ostream* os) { *os << c.name; }

class RenameRace : public ::testing::TestWithParam<RaceCase> {};
INSTANTIATE_TEST_SUITE_P(
    Moments, RenameRace,
    ::testing::Values(
        // After the name was read the directories swap, so that the held
        // directory is alice's: the inode there is not the zid judged.
        RaceCase{"DirectoriesSwappedInodesAreZids", true, {exchangeAtLookup(2, "/proj/alice", "/proj/mallory")},
                 "not deleted: its name now leads to zid 10000"},
        // The same, and back again before the file system confirms the path:
        // a fresh resolution leads to another directory than the one held.
        RaceCase{"DirectoriesSwappedAndBack", false,
                 {exchangeAtLookup(2, "/proj/alice", "/proj/mallory"), exchangeAtLookup(3, "/proj/alice", "/proj/mallory")},
                 "not deleted: its directory changed while it was checked"},
        // Right after the confirmation, the name is given to alice's file in
        // the same directory: it is no longer the file first found there.
        RaceCase{"FileSwappedAfterTheConfirmation", false,
                 {exchangeAtLookup(3, "/proj/mallory/f0.dat", "/proj/mallory/alice.dat", true)},
                 "not deleted: its name changed while it was checked"}),
    [](const auto& info) { return std::string(info.param.name); });

// Alice's files survive every interleaving, and mallory's entry says why it
// was not deleted.
TEST_P(RenameRace, NothingButTheFileJudgedIsUnlinked) {
  const RaceCase& c = GetParam();
  json fixture = projectTree(1);
  fixture["volumes"][0]["beasts"].push_back(plainFile(15000, "/proj/mallory/alice.dat"));
  Simulator sim = simulatorOf(fixture, c.inodesAreZids);
  json rules = json::array();
  for (const std::string& rule : c.faults) rules.push_back(json::parse(rule));
  sim.setFaults(rules.dump());
  e2efixtures::FinishedRun run(sim, {"-d", kVol + "/proj/mallory/f0.dat"});
  ASSERT_TRUE(run.finalScreen) << run.terminal.screenText();

  EXPECT_FALSE(sim.beast(10000).is_null()) << "alice's file was deleted";
  EXPECT_FALSE(sim.beast(15000).is_null()) << "alice's file was deleted";
  EXPECT_FALSE(sim.beast(20000).is_null());
  const std::string log = run.terminal.runLog();
  EXPECT_NE(std::string::npos, log.find("<error>" + c.why + "</error>")) << log;
  EXPECT_NE(std::string::npos, log.find(c.inodesAreZids ? "<msg>deletion by path: this volume numbers its inodes by zid"
                                                        : "<msg>deletion by path: this volume's inode numbers are not"))
      << log;
}

// A real renamer swaps the two directories as fast as it can through a whole
// delete run over a thousand of mallory's files: with zids as inode numbers
// not one of alice's files is unlinked, and each of mallory's is either
// deleted or left with its reason.
TEST(RenameRaceLoop, ThousandDeletionsUnderARacingRenamerUnlinkOnlyTheFilesJudged) {
  const int files = 1000;
  Simulator sim = simulatorOf(projectTree(files), true);
  std::atomic<bool> stop(false);
  std::atomic<long> swaps(0);
  const std::string a = sim.volumeDir("VOL1") + "/proj/alice", b = sim.volumeDir("VOL1") + "/proj/mallory";
  std::thread renamer([&] {
    while (!stop)
      if (renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0) ++swaps;
  });
  e2efixtures::FinishedRun run(sim, {"-D", "VOL1"});
  stop = true;
  renamer.join();
  ASSERT_TRUE(run.finalScreen) << run.terminal.screenText();

  const json state = sim.state();
  int aliceLeft = 0, malloryLeft = 0;
  for (const json& beast : state["volumes"][0]["beasts"]) (beast["zid"].get<uint64_t>() < 20000 ? aliceLeft : malloryLeft)++;
  EXPECT_EQ(files, aliceLeft) << "alice's files unlinked";
  const std::string log = run.terminal.runLog();
  size_t refused = 0;
  for (size_t at = log.find("<error>not deleted: "); at != std::string::npos; at = log.find("<error>not deleted: ", at + 1))
    ++refused;
  EXPECT_EQ(size_t(malloryLeft), refused) << "a file of mallory's left without its reason";
  EXPECT_GT(swaps.load(), 0);
  std::cout << "attempts " << files << ", swaps " << swaps << ", refused " << refused << ", deleted "
            << files - malloryLeft << ", wrong unlinks " << files - aliceLeft << "\n";
}

// The file system names a plain directory, or a path inside another mount,
// as where the volume's files lie: no host file is unlinked there. The
// confirmations answer for every path (as a file system naming these places
// would), so only the mount checks stand between root and the host files.
TEST(DeletionPlaces, MountPointMustBeAMountsRootAndTheFileOnIt) {
  TempDir cwd, other;
  ASSERT_EQ(0, mkdir(cwd.file("plain").c_str(), 0755));
  testsupport::writeFile(cwd.file("plain/host.dat"), "host\n");
  testsupport::writeFile(other.file("host.dat"), "other mount\n");
  json unmounted = e2efixtures::volume(json::array({corruptedFile(120, "/host.dat")}), json::array());
  unmounted["volumes"][0]["mountPoint"] = cwd.file("plain");
  json inner = plainFile(125, "/inner");
  inner["attributes"] = {"subdirectory"};
  json nested = e2efixtures::volume(json::array({inner, corruptedFile(130, "/inner/host.dat")}), json::array());
  struct Case {
    json fixture;
    std::vector<std::string> volumes, sandbox;
    std::string zid, why;
  } cases[] = {{unmounted, {}, {}, "120",
                "not deleted: the volume's mount point " + cwd.file("plain") + " is not the root of a mounted file system"},
               {nested, {"VOL1"}, {"--volume", kVol + "/inner=" + other.path()}, "130",
                "not deleted: its path leads out of the volume"}};
  for (const Case& c : cases) {
    Simulator sim = Simulator::withFixture(c.fixture.dump());
    sim.setFaults(json({{"request", "getFileInfo"}, {"action", "raw"}, {"count", 0},
                        {"text", e2efixtures::fileInfoReply("<![CDATA[" + c.zid + "]]>")}})
                      .dump());
    VelkorTerminal::Options options;
    options.cwd = cwd.path();
    options.volumes = c.volumes;
    options.sandbox = c.sandbox;
    e2efixtures::FinishedRun run(sim, {"-D", "VOL1"}, options);
    ASSERT_TRUE(run.finalScreen) << run.terminal.screenText();
    const std::string log = run.terminal.runLog();
    EXPECT_NE(std::string::npos, log.find("<error>" + c.why + "</error><zid>" + c.zid + "</zid>")) << log;
  }
  EXPECT_EQ("host\n", testsupport::readFile(cwd.file("plain/host.dat")));
  EXPECT_EQ("other mount\n", testsupport::readFile(other.file("host.dat")));
}

// In a delete run, a file whose name does not lead to it, or whose local
// unlink fails (its name gone, a path too long, a denied unlink), is left
// with the reason in its entry, and the run goes on to delete the next
// corrupted file.
TEST(DeletionPlaces, FileThatCannotBeUnlinkedIsLeftWithItsReasonAndTheRunGoesOn) {
  json sub = plainFile(160, "/sub");
  sub["attributes"] = {"subdirectory"};
  struct Case {
    uint64_t zid;
    std::string name, why;  // the name the file system gives; "" its own
  } cases[] = {{100, "/renamed-by-its-owner.dat", "not deleted: its name: No such file or directory"},
               {110, "/" + std::string(200, 'd') + std::string(4000, 'x'), "not deleted: its path: File name too long"},
               {120, "", "not deleted: unlink: Permission denied"},
               {130, "relative.dat", "not deleted: its name is not the path of a file"},
               {140, "/sub/..", "not deleted: its name is not the path of a file"},
               {150, "/sub", "not deleted: its name is not a regular file"},
               {155, "", ""}};
  json beasts = json::array({sub}), rules = json::array({{{"request", "unlink"}, {"zid", "120"}, {"action", "result"}, {"value", 13}}});
  for (const Case& c : cases) {
    beasts.push_back(corruptedFile(c.zid, "/f" + std::to_string(c.zid)));
    if (!c.name.empty())
      rules.push_back({{"request", "getBeastFullName"}, {"zid", std::to_string(c.zid)}, {"action", "raw"},
                       {"text", "<kvfReply><beast><getBeastFullName><result value=\"0\"/><name><![CDATA[" + c.name +
                                    "]]></name></getBeastFullName></beast></kvfReply>"}});
  }
  Simulator sim = Simulator::withFixture(e2efixtures::volume(beasts, json::array()).dump());
  sim.setFaults(rules.dump());
  e2efixtures::FinishedRun run(sim, {"-D", "VOL1"});
  ASSERT_TRUE(run.finalScreen) << run.terminal.screenText();
  EXPECT_EQ(0, run.terminal.exitStatus());
  const std::string log = run.terminal.runLog();
  for (const Case& c : cases) {
    const std::string zid = "<zid>" + std::to_string(c.zid) + "</zid>";
    EXPECT_NE(std::string::npos, log.find(c.why.empty() ? "<actionTaken><deleted/></actionTaken>" + zid
                                                        : "<error>" + c.why + "</error>" + zid))
        << c.zid << "\n" << log;
  }
  EXPECT_TRUE(sim.beast(155).is_null());
  EXPECT_EQ(7u, testsupport::counters(run.screen)[5]) << "corrupted";
  EXPECT_EQ(1u, testsupport::counters(run.screen)[7]) << "deleted";
  EXPECT_EQ(std::string::npos, log.find("<error>util/velkor/")) << "the run ended with an error";
}

// A change whose reply is lost may have been made: the object's entry is
// written before the run's error, saying so, for a repair and a deletion.
TEST(DeletionPlaces, ChangeWhoseReplyIsLostIsOnRecord) {
  json fixture = e2efixtures::fixableVolume(100, 1);
  json deleted = corruptedFile(200, "/was.dat");
  deleted["parents"] = {"DeletedFile"};
  fixture["volumes"][0]["beasts"].push_back(deleted);
  struct Case {
    std::string op, request, zid;
  } cases[] = {{"-F", "setBeastInfo", "100"}, {"-D", "deleteBeast", "200"}};
  for (const Case& c : cases) {
    Simulator sim = Simulator::withFixture(fixture.dump());
    sim.setFaults(json({{"request", c.request}, {"action", "cut"}, {"bytes", 20}}).dump());
    e2efixtures::FinishedRun run(sim, {c.op, "VOL1"});
    ASSERT_TRUE(run.finalScreen) << run.terminal.screenText();
    const std::string log = run.terminal.runLog();
    const size_t entry = log.find("<zid>" + c.zid + "</zid>");
    const size_t unknown = log.find("<error>a change was sent and its outcome is unknown: ");
    const size_t runError = log.find("<error>util/");
    EXPECT_LT(unknown, entry) << c.op << log;
    EXPECT_LT(entry, runError) << c.op << log;
    // The report counts the file as left and in doubt, to be checked again.
    testsupport::ProcessResult report =
        testsupport::runBuilt("report/velkor-report", {"--run", "last", run.terminal.cwd() + "/velkor.log"});
    EXPECT_NE(std::string::npos, report.out.find("  In doubt:    1 files a change was sent to whose reply was lost"))
        << report.out;
    EXPECT_NE(std::string::npos, report.out.find(", change in doubt: check again\n")) << report.out;
  }
}
