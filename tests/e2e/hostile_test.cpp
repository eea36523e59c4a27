// velkor run as root among files that another user names: each case is an
// attack such a user can make, run against the real binary in the sandbox.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <regex>
#include <set>
#include <cstdio>
#include <string>
#include <thread>

#include "e2e.h"
#include "fixtures.h"

using nlohmann::json;
using testsupport::ProcessResult;
using testsupport::Simulator;
using testsupport::TempDir;
using testsupport::VelkorTerminal;
using e2efixtures::compData;
using e2efixtures::compressedFile;
using e2efixtures::corruptedFile;
using e2efixtures::kVol;

namespace {

// velkor in the sandbox without a terminal: what it prints before a screen
// would start, and its exit status.
// `sandbox`: more sandbox arguments; `binary`: another program of the build.
ProcessResult velkorPlain(const Simulator& sim, const std::string& cwd, std::vector<std::string> args,
                          std::vector<std::string> sandbox = {}, const std::string& binary = testsupport::velkorBinary()) {
  sandbox.insert(sandbox.end(), {"--admin", sim.adminDir(), "--cwd", cwd, "--", binary});
  std::vector<std::string> command = testsupport::sandboxCommand(sandbox);
  command.insert(command.end(), args.begin(), args.end());
  return testsupport::runProcess(command, "", cwd);
}

}  // namespace

// A name holding "]]>" would close its CDATA section early, and the rest
// (another CDATA section) would make the request name the victim. Every
// operation refuses such an argument before it sends anything.
TEST(HostileNames, ArgumentThatWouldEndItsCdataSectionIsRefused) {
  const std::string bait = "/victim]]><![CDATA[junk";
  Simulator sim = Simulator::withFixture(
      e2efixtures::volume({corruptedFile(100, "/victim"), compressedFile(110, bait)}, json::array({compData(110)})).dump());
  const json before = sim.state();
  TempDir dir;
  for (std::string op : {"-l", "-f", "-d", "-c", "-b"}) {
    ProcessResult r = velkorPlain(sim, dir.path(), {op, kVol + bait});
    EXPECT_EQ(1, r.exitStatus) << op;
    EXPECT_EQ("velkor: the FILENAME \"" + kVol + bait +
                  "\" holds \"]]>\" and cannot be sent to the file system; nothing was done.\n",
              r.err)
        << op;
  }
  ProcessResult volume = velkorPlain(sim, dir.path(), {"-D", "VOL1]]><![CDATA[VOL2"});
  EXPECT_EQ(1, volume.exitStatus);
  EXPECT_NE(std::string::npos, volume.err.find("the VOLUMENAME \"VOL1]]><![CDATA[VOL2\" holds \"]]>\""));

  EXPECT_TRUE(sim.requests().empty()) << sim.requests().front().dump();
  EXPECT_EQ(before, sim.state());
  EXPECT_NE(0, access(dir.file("velkor.log").c_str(), F_OK)) << "no run was logged";
}

// A corrupted file named "/victim]]>junk" comes back in a reply whose raw
// CDATA section a reader ends at "/victim": the healthy /victim must not be
// unlinked in its place, and the entry says why nothing was deleted.
TEST(HostileNames, DeleteRunNeverUnlinksAnotherFileThanTheOneJudged) {
  Simulator sim = Simulator::withFixture(
      e2efixtures::volume({compressedFile(100, "/victim"), corruptedFile(120, "/victim]]>junk")}, json::array({compData(100)}))
          .dump());
  e2efixtures::FinishedRun run(sim, {"-D", "VOL1"});
  ASSERT_TRUE(run.finalScreen) << run.terminal.screenText();
  EXPECT_FALSE(sim.beast(100).is_null()) << "the healthy file was removed";
  EXPECT_FALSE(sim.beast(120).is_null());
  std::vector<std::string> entries = run.entries();
  ASSERT_EQ(1u, entries.size());
  EXPECT_NE(std::string::npos,
            entries[0].find("<name>/victim]]&gt;junk</name><type><file/></type><fileStatus><invalidZid/></fileStatus>"
                            "<error>not deleted: the file system's reply did not hold its name whole</error><zid>120</zid>"))
      << entries[0];
  EXPECT_EQ(std::string::npos, entries[0].find("<deleted/>"));
  // velkor-batch, which asks names only of problem files, judges alike.
  VelkorTerminal::Options batch;
  batch.binary = testsupport::binaryPath("util/velkor/velkor-batch");
  VelkorTerminal batchRun(sim, {"--yes", "-D", "VOL1"}, batch);
  batchRun.finish();
  EXPECT_EQ(4, batchRun.exitStatus()) << "the corrupted file is left";
  EXPECT_FALSE(sim.beast(100).is_null()) << "the healthy file was removed by velkor-batch";
  EXPECT_NE(std::string::npos, batchRun.runLog().find("<error>not deleted: the file system's reply did not hold"));
  for (const json& r : sim.requests()) EXPECT_EQ(std::string::npos, r.value("request", "").find("unlink")) << r;
}

// Links and renames in the volume's name tree: the tree is a real directory
// bound at the mount point, where a user has replaced a directory by a link
// to a directory outside the volume. The file outside survives.
TEST(HostileNames, DeletionByPathFollowsNoLinkAndChecksTheZidFirst) {
  Simulator sim = Simulator::withFixture(e2efixtures::volume({corruptedFile(120, "/dir/victim.dat"),
                                                              corruptedFile(130, "/renamed.dat"),
                                                              corruptedFile(140, "/other.dat")},
                                                             json::array())
                                             .dump());
  TempDir cwd, tree;
  ASSERT_EQ(0, mkdir(cwd.file("outside").c_str(), 0755));
  testsupport::writeFile(cwd.file("outside/victim.dat"), "keep me\n");
  ASSERT_EQ(0, symlink(cwd.file("outside").c_str(), tree.file("dir").c_str()));
  testsupport::writeFile(tree.file("renamed.dat"), "someone else's file\n");
  testsupport::writeFile(tree.file("other.dat"), "a third file\n");
  // The tree's inode numbers are not zids. The paths now lead to other
  // objects: the file system says zid 130 of another volume (for the probe
  // of the mount point and for /renamed.dat), then zid 999 (/other.dat).
  sim.setFaults(json::array({{{"request", "getFileInfo"}, {"action", "raw"}, {"count", 2},
                              {"text", e2efixtures::fileInfoReply("<![CDATA[130]]>", "VOL2")}},
                             {{"request", "getFileInfo"}, {"action", "raw"}, {"nth", 3},
                              {"text", e2efixtures::fileInfoReply("<![CDATA[999]]>")}}})
                    .dump());

  VelkorTerminal::Options options;
  options.cwd = cwd.path();
  options.volumes = {};
  options.sandbox = {"--volume", kVol + "=" + tree.path()};
  e2efixtures::FinishedRun run(sim, {"-D", "VOL1"}, options);
  ASSERT_TRUE(run.finalScreen) << run.terminal.screenText();

  EXPECT_EQ("keep me\n", testsupport::readFile(cwd.file("outside/victim.dat")));
  EXPECT_EQ("someone else's file\n", testsupport::readFile(tree.file("renamed.dat")));
  EXPECT_EQ("a third file\n", testsupport::readFile(tree.file("other.dat")));
  std::vector<std::string> entries = run.entries();
  ASSERT_EQ(3u, entries.size());
  EXPECT_NE(std::string::npos, entries[0].find("<error>not deleted: a directory on its path is a symbolic link</error>"))
      << entries[0];
  EXPECT_NE(std::string::npos, entries[1].find("<error>not deleted: its path now leads to zid 130 of volume VOL2</error>"))
      << entries[1];
  EXPECT_NE(std::string::npos, entries[2].find("<error>not deleted: its path now leads to zid 999 of volume VOL1</error>"))
      << entries[2];
  EXPECT_EQ(3u, testsupport::counters(run.screen)[5]) << "corrupted";
  EXPECT_EQ(0u, testsupport::counters(run.screen)[7]) << "deleted";
}

// A file name shaped as the end of one run and the start of another cannot
// forge a run in the log: it is written escaped, and the log holds one run.
TEST(HostileNames, FileNameCannotForgeARunInTheLog) {
  const std::string forged =
      "/z\n</velkor>\n\n<velkor>\n<CommandLine>\n <argv index=\"0\" argv=\"velkor\" />\n</CommandLine>\n"
      "<startTime><CurrentTime time=\"Nov 15, 2026  04:30:05 PM  +0000\" timeValue=\"1700000000\" /></startTime>\nq";
  json fixture = e2efixtures::fixableVolume(100, 2);  // /f0 and /f1, both fixable
  fixture["volumes"][0]["beasts"][0]["name"] = forged;
  Simulator sim = Simulator::withFixture(fixture.dump());
  e2efixtures::FinishedRun run(sim, {"-L", "VOL1"});
  ASSERT_TRUE(run.finalScreen) << run.terminal.screenText();
  const std::string log = run.terminal.runLog();
  EXPECT_EQ(0u, log.find("<velkor>\n"));
  EXPECT_EQ(std::string::npos, log.find("\n<velkor>\n")) << "a second run begins in the log";
  EXPECT_NE(std::string::npos, log.find("<name>/z&#10;&lt;/velkor&gt;&#10;&#10;&lt;velkor&gt;&#10;"));
  // (The report reads such a name back whole: logReader_test's NamesAndArgumentsKeepEveryByte
  // and outputs_test's EscapedTextsAreShownDecoded.)
}

namespace {

// velkor run many times in one sandbox without a terminal (each run writes
// its log's header, then cannot make its screen and ends).
ProcessResult velkorLoop(const std::string& cwd, int runs, const std::vector<std::string>& args) {
  std::string loop = "for i in $(seq " + std::to_string(runs) + "); do " + testsupport::velkorBinary();
  for (const std::string& a : args) loop += " '" + a + "'";
  loop += " >/dev/null 2>&1 </dev/null; done; true";
  testsupport::writeFile(cwd + "/manage.cmd", "");
  return testsupport::runProcess(testsupport::sandboxCommand({"--cwd", cwd, "--manage-file", cwd + "/manage.cmd",
                                                              "--ro", testsupport::binaryPath("util"), "--",
                                                              "/usr/bin/env", "-u", "TERM", "/bin/sh", "-c", loop}),
                                 "", cwd);
}

// A tmpfs of `bytes` mounted at `dir` for the test's life.
struct SmallFileSystem {
  SmallFileSystem(const std::string& dir, size_t bytes) : dir(dir) {
    mkdir(dir.c_str(), 0755);
    mounted = mount("tmpfs", dir.c_str(), "tmpfs", 0, ("size=" + std::to_string(bytes)).c_str()) == 0;
  }
  ~SmallFileSystem() {
    if (mounted) umount2(dir.c_str(), MNT_DETACH);
  }
  std::string dir;
  bool mounted;
};

}  // namespace

// Another user swaps ./velkor.log between a plain file and a link to a file
// of root's while root runs velkor again and again in that directory: the
// log is opened once, never through the other user's link.
TEST(HostileLogPlaces, LinkSwappedInDuringTheOpenIsNeverFollowed) {
  TempDir dir;
  testsupport::writeFile(dir.file("precious"), "precious\n");
  std::atomic<bool> stop(false);
  std::thread swapper([&] {
    const std::string log = dir.file("velkor.log"), link = dir.file("link.tmp"), plain = dir.file("plain.tmp");
    while (!stop) {
      unlink(link.c_str());
      if (symlink("precious", link.c_str()) == 0 && lchown(link.c_str(), 4242, 4242) == 0)
        rename(link.c_str(), log.c_str());
      testsupport::writeFile(plain, "");
      rename(plain.c_str(), log.c_str());
    }
  });
  ProcessResult r = velkorLoop(dir.path(), 1000, {"-L", "VOL1"});
  stop = true;
  swapper.join();
  EXPECT_EQ(0, r.exitStatus) << r.err;
  EXPECT_EQ("precious\n", testsupport::readFile(dir.file("precious")));
}

// What stands at the log's path must be a regular file (or /dev/null): a
// FIFO would hang the run before its screen, a device would swallow it. A
// log that cannot be opened is named with the reason, and so is a lock
// directory another user could hold, before any request; a log a reader has
// locked is written all the same.
TEST(HostileLogPlaces, OnlyARegularFileIsALogAndOnlyRootsDirectoryHoldsTheLocks) {
  Simulator sim = Simulator::withFixture(e2efixtures::fixableVolume(100, 2).dump());
  TempDir dir;
  ASSERT_EQ(0, mkfifo(dir.file("fifo").c_str(), 0600));
  ASSERT_EQ(0, mkdir(dir.file("directory").c_str(), 0755));
  const std::string notRegular = "; the run log must be a regular file.\n";
  struct Case {
    std::string path, err, out;
  } cases[] = {{"fifo", "velkor: fifo is a FIFO" + notRegular, ""},
               {"directory", "velkor: directory is a directory" + notRegular, ""},
               {"/dev/full", "velkor: /dev/full is a device" + notRegular, ""},
               {"/dev/zero", "velkor: /dev/zero is a device" + notRegular, ""},
               {"no/such/dir/x.log", "no/such/dir/x.log: No such file or directory\n", "\n"}};
  for (const Case& c : cases) {
    ProcessResult r = velkorPlain(sim, dir.path(), {"-p", c.path, "-F", "VOL1"});
    EXPECT_EQ(1, r.exitStatus) << c.path;
    EXPECT_EQ(c.err, r.err);
    EXPECT_EQ(c.out, r.out) << c.path;
  }
  // /run/lock is open to all: a user who makes /run/lock/velkor first, or an
  // administrator who leaves it open to others, would let that user hold
  // every run's locks. Such a directory is refused, saying whose it is and
  // what to do; each program ends as at its other refusals.
  TempDir locks;
  const std::string remedy =
      ": another user could hold or replace the locks in it; remove it (rm -r /run/lock/velkor) and run again.\n";
  ASSERT_EQ(0, chown(locks.path().c_str(), 4242, 4242));
  const std::pair<std::string, int> programs[] = {{"velkor", 1}, {"velkor-batch", 8}};
  for (const auto& [program, status] : programs) {
    ProcessResult r = velkorPlain(sim, dir.path(), {"-L", "VOL1"}, {"--lock-dir", locks.path()},
                                  testsupport::binaryPath("util/velkor/" + program));
    EXPECT_EQ(status, r.exitStatus) << program;
    EXPECT_EQ(program + ": /run/lock/velkor is owned by uid 4242, not by root (uid 0) who runs this" + remedy, r.err);
  }
  ASSERT_EQ(0, chown(locks.path().c_str(), 0, 0));
  ASSERT_EQ(0, chmod(locks.path().c_str(), 0777));
  ProcessResult open = velkorPlain(sim, dir.path(), {"-L", "VOL1"}, {"--lock-dir", locks.path()});
  EXPECT_EQ(1, open.exitStatus);
  EXPECT_EQ("velkor: /run/lock/velkor may be written by other users (mode 0777)" + remedy, open.err);
  EXPECT_TRUE(sim.requests().empty());

  VelkorTerminal::Options options;
  options.cwd = dir.path();
  e2efixtures::FinishedRun run(sim, {"-p", "/dev/null", "-F", "VOL1"}, options);
  EXPECT_TRUE(run.finalScreen) << run.terminal.screenText();
  EXPECT_EQ(0, run.terminal.exitStatus());
  EXPECT_EQ(2u, testsupport::counters(run.screen)[6]) << "fixed";

  // Any user who may read a 0644 log may lock it too: the run's own lock is
  // taken elsewhere, so a reader's lock keeps no run out.
  testsupport::writeFile(dir.file("velkor.log"), "");
  const int reader = ::open(dir.file("velkor.log").c_str(), O_RDONLY | O_CLOEXEC);
  struct flock lock = {};
  lock.l_type = F_RDLCK;
  lock.l_whence = SEEK_SET;
  ASSERT_EQ(0, fcntl(reader, F_SETLK, &lock));
  e2efixtures::FinishedRun locked(sim, {"-L", "VOL1"}, options);
  close(reader);
  EXPECT_TRUE(locked.finalScreen) << locked.terminal.screenText();
  EXPECT_EQ(0, locked.terminal.exitStatus());
  EXPECT_EQ(0u, locked.terminal.runLog().find("<velkor>\n"));
}

// The log's file system fills up during a fix run: the run stops, says so on
// the screen and in its exit status, and every file it repaired has its
// entry in the log.
TEST(HostileLogPlaces, FullLogStopsTheRunAndNoRepairGoesUnrecorded) {
  Simulator sim = Simulator::withFixture(e2efixtures::fixableVolume(1000, 80).dump());
  TempDir dir;
  SmallFileSystem logs(dir.file("logs"), 16384);
  ASSERT_TRUE(logs.mounted);
  VelkorTerminal::Options options;
  options.cwd = dir.path();
  e2efixtures::FinishedRun run(sim, {"-p", "logs/velkor.log", "-F", "VOL1"}, options);
  ASSERT_TRUE(run.finalScreen) << run.terminal.screenText();
  EXPECT_EQ("  STATUS: the run log could not be written: No space left on device", run.at(23));
  EXPECT_EQ(1, run.terminal.exitStatus());

  std::set<std::string> repaired, recorded;
  for (const std::string& zid : e2efixtures::requestIds(sim.requestsOf("setBeastInfo"))) repaired.insert(zid);
  const std::regex fixedEntry("<action><fixed/></action><zid>(\\d+)</zid>");
  const std::string log = testsupport::readFile(dir.file("logs/velkor.log"));
  for (std::sregex_iterator m(log.begin(), log.end(), fixedEntry), end; m != end; ++m) recorded.insert((*m)[1]);
  EXPECT_FALSE(repaired.empty());
  EXPECT_LT(repaired.size(), 80u) << "the run went on without its log";
  EXPECT_EQ(repaired, recorded);
}

// Two runs at once: on one volume (each with its own log), and into one log
// (on two volumes); velkor-batch on a volume a velkor run holds, and the
// other way round. The second is refused before any request; the log holds
// the first run alone, whole.
TEST(HostileLogPlaces, SecondRunOnTheSameVolumeOrLogIsRefused) {
  Simulator sim = Simulator::withFixture(e2efixtures::fixableVolume(100, 10).dump());
  sim.setFaults(R"({"request":"getBeastInfo","count":0,"action":"delay","ms":300})");
  TempDir first, second, locks;
  auto sharedLocks = [&](const std::string& cwd, bool batch = false) {
    VelkorTerminal::Options options;
    options.cwd = cwd;
    options.sandbox = {"--lock-dir", locks.path()};
    if (batch) options.binary = testsupport::binaryPath("util/velkor/velkor-batch");
    options.cols = 300;  // a message on one line
    return options;
  };
  VelkorTerminal running(sim, {"-F", "VOL1"}, sharedLocks(first.path()));
  ASSERT_TRUE(running.waitFor("STATUS: running")) << running.screenText();

  VelkorTerminal sameVolume(sim, {"-L", "VOL1"}, sharedLocks(second.path()));
  ASSERT_TRUE(sameVolume.waitExit());
  EXPECT_EQ(1, sameVolume.exitStatus());
  EXPECT_TRUE(std::regex_search(sameVolume.screenText(),
                                std::regex("velkor: volume VOL1 is in use by another run \\(pid \\d+\\); try again")))
      << sameVolume.screenText();
  VelkorTerminal sameLog(sim, {"-L", "VOL2"}, sharedLocks(first.path()));
  ASSERT_TRUE(sameLog.waitExit());
  EXPECT_EQ(1, sameLog.exitStatus());
  EXPECT_NE(std::string::npos,
            sameLog.screenText().find("velkor: the run log ./velkor.log is in use by another run (pid "))
      << sameLog.screenText();
  VelkorTerminal batch(sim, {"-L", "VOL1"}, sharedLocks(second.path(), true));
  batch.finish();
  EXPECT_EQ(8, batch.exitStatus());
  EXPECT_TRUE(std::regex_search(batch.screenText(),
                                std::regex("velkor-batch: volume VOL1 is in use by another run \\(pid \\d+\\)")))
      << batch.screenText();

  ASSERT_TRUE(running.runToEnd(std::chrono::seconds(60)));
  EXPECT_EQ(0, running.exitStatus());
  const std::string log = running.runLog();
  EXPECT_EQ(0u, log.find("<velkor>\n"));
  EXPECT_EQ(std::string::npos, log.find("<velkor>", 1));
  EXPECT_EQ(log.size() - 13, log.find("</velkor>\n\n\n\n"));
  EXPECT_EQ(1u, sim.requestsOf("browseBeasts").size()) << "a second scan began";
  EXPECT_EQ("", testsupport::readFile(second.file("velkor.log")));

  VelkorTerminal batchRun(sim, {"-L", "VOL1"}, sharedLocks(second.path(), true));
  ASSERT_TRUE(batchRun.waitUntil([&] { return sim.requestsOf("browseBeasts").size() == 2; }));
  VelkorTerminal velkorRun(sim, {"-L", "VOL1"}, sharedLocks(first.path()));
  velkorRun.finish();
  EXPECT_EQ(1, velkorRun.exitStatus()) << velkorRun.screenText();
  batchRun.finish();
  EXPECT_EQ(0, batchRun.exitStatus()) << batchRun.screenText();
}
