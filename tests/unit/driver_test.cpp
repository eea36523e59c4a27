#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "e2e.h"
#include "velkor/checkpoint.h"
#include "velkor/commandLine.h"
#include "velkor/pacer.h"
#include "velkor/runStart.h"
#include "velkor/volumeLock.h"

TEST(ObjectPath, VolumeNamesAndAbsolutePathsAreKeptRelativePathsJoined) {
  char* cwd = getcwd(nullptr, 0);
  struct { unsigned int operation; const char* argument; std::string expected; } cases[] = {
      {0x8, "../f", "../f"},
      {0x10, "VOL1", "VOL1"},
      {0x800, "/abs/f", "/abs/f"},
      {0x800, "../f", std::string(cwd) + "/../f"},
      {0x1000, "d/f", std::string(cwd) + "/d/f"},
      {128, "x", "x"},
      {129, "x", std::string(cwd) + "/x"},
  };
  for (const auto& c : cases) {
    char* path = formObjectPath(c.operation, c.argument);
    ASSERT_NE(nullptr, path);
    EXPECT_EQ(c.expected, path) << c.operation << " " << c.argument;
    free(path);
  }
  free(cwd);
}

// The manual page and the program cannot drift apart: every option the
// parser accepts, and every option the help text names, is in velkor.8.
TEST(ManualPage, NamesEveryOptionOfTheParserAndTheHelpText) {
  std::string page = testsupport::readFile(testsupport::sourcePath("util/velkor/velkor.8"));
  auto roff = [](const std::string& option) {
    std::string text;
    for (char c : option) text += c == '-' ? std::string("\\-") : std::string(1, c);
    return text;
  };
  for (const struct option* row = velkor::kLongOptions; row->name; ++row) {
    // Each option's item names its short and long form together.
    std::string item = ".BR " + roff(std::string("-") + static_cast<char>(row->val)) + " \", \" " +
                       roff(std::string("--") + row->name);
    EXPECT_NE(std::string::npos, page.find(item)) << item;
  }
  std::string text = testsupport::usageText("./velkor.log");
  std::regex option("(^|[\\s,])(--?[A-Za-z][A-Za-z-]*)");
  int found = 0;
  for (auto it = std::sregex_iterator(text.begin(), text.end(), option); it != std::sregex_iterator(); ++it, ++found)
    EXPECT_NE(std::string::npos, page.find(roff((*it)[2]))) << (*it)[2];
  EXPECT_GT(found, 20);
}

// No volume name leads out of the lock directory or onto another volume's
// lock file, nor onto a run log's.
TEST(RunLocks, VolumeLockNamesStayInTheirDirectory) {
  const std::pair<std::string, std::string> cases[] = {
      {"VOL1", "VOL1.lock"},   {"..", "%2E..lock"},        {"a/b", "a%2Fb.lock"}, {".x", "%2Ex.lock"},
      {"%", "%25.lock"},       {"\xff", "%FF.lock"},       {"", ".lock"},         {"x.y-z_0", "x.y-z_0.lock"},
      {"log@8:1-5", "log%408%3A1-5.lock"},
  };
  for (const auto& [volume, expected] : cases) EXPECT_EQ(expected, velkor::volumeLockName(volume)) << volume;
}

// The lock directory's parent, when missing, is made as every system has
// /run/lock (open to all, sticky), whatever the umask; the directory itself
// is the run's user's alone.
TEST(RunLocks, MissingParentIsMadeStickyAndOpenToAllWhateverTheUmask) {
  testsupport::TempDir dir;
  const std::string locks = dir.file("lock/velkor");
  const char* saved = velkor::runLockDir;
  velkor::runLockDir = locks.c_str();
  const mode_t mask = umask(027);
  std::string why;
  const int fd = velkor::takeRunLock("probe", "the probe", &why);
  umask(mask);
  velkor::runLockDir = saved;
  ASSERT_GE(fd, 0) << why;
  velkor::releaseRunLock(fd);
  struct stat parent, own;
  ASSERT_EQ(0, stat(dir.file("lock").c_str(), &parent));
  ASSERT_EQ(0, stat(locks.c_str(), &own));
  EXPECT_EQ(01777u, parent.st_mode & 07777);
  EXPECT_EQ(0700u, own.st_mode & 07777);
}

// The pacer against a clock the test sets: each batch's share of time is
// slept after it, so the rate holds on average and from batch to batch; a
// slow stretch gives credit for half a second's objects, no more.
TEST(Pacer, SleepsEachBatchesShareAndNeverBursts) {
  struct TestClock : velkor::PacerClock {
    double t = 100, slept = 0;
    std::vector<double> sleeps;
    double now() override { return t; }
    void sleepFor(double s) override {
      sleeps.push_back(s);
      t += s;
      slept += s;
    }
  } clock;
  velkor::Pacer pacer(200, clock);
  for (int batch = 0; batch < 50; ++batch) {
    clock.t += 0.01;  // the batch's own work
    pacer.done(20);
  }
  EXPECT_NEAR(5.0, clock.t - 100, 1e-9) << "1000 objects at 200/s";
  for (double s : clock.sleeps) EXPECT_NEAR(0.09, s, 1e-9);
  // A stall of three seconds: half a second's objects (100) are made up at
  // full speed, then the batches are paced again.
  clock.t += 3;
  clock.sleeps.clear();
  for (int batch = 0; batch < 6; ++batch) pacer.done(20);
  ASSERT_EQ(1u, clock.sleeps.size()) << "the stall was made up by a longer burst, or not at all";
  EXPECT_NEAR(0.1, clock.sleeps[0], 1e-9);
  velkor::Pacer unlimited(0, clock);
  unlimited.done(1000000);
  EXPECT_EQ(1u, clock.sleeps.size());
}

// A checkpoint's text reads back as written, whatever its volume and log
// names hold; a cut-off or altered one is not read.
TEST(Checkpoint, TextReadsBackAndAnyDamageIsRefused) {
  velkor::Checkpoint c;
  c.volume = "VOL 1\n%x";
  c.operation = "fix-all";
  c.log = "/var/log/velkor/velkor.log\nposition 0";
  c.pass = "1764099558-4242";
  c.began = 1764099558;
  c.run = 3;
  c.next = {static_cast<int>(4000000000u), true, 12345678901234ull};
  c.objects = 7;
  c.problems = 3;
  c.fixed = 2;
  c.deleted = 1;
  const std::string text = velkor::checkpointText(c);
  velkor::Checkpoint read;
  ASSERT_TRUE(velkor::parseCheckpoint(text, &read)) << text;
  EXPECT_EQ(text, velkor::checkpointText(read));
  EXPECT_FALSE(velkor::parseCheckpoint(text.substr(0, text.size() - 4), &read)) << "no end line";
  EXPECT_FALSE(velkor::parseCheckpoint(text + "run 4\n", &read)) << "a line after the end";
  std::string twice = text;
  twice.insert(twice.find("run "), "run 1\n");
  EXPECT_FALSE(velkor::parseCheckpoint(twice, &read)) << "a field twice";
  std::string bad = text;
  bad.replace(bad.find("position ") + 9, 1, "-");
  EXPECT_FALSE(velkor::parseCheckpoint(bad, &read));
  velkor::PassLine line;
  ASSERT_TRUE(velkor::readPassLine(velkor::passLineOf(c), &line)) << velkor::passLineOf(c);
  EXPECT_EQ(c.pass, line.pass);
  EXPECT_EQ(3u, line.run);
  EXPECT_TRUE(line.resumed);
  EXPECT_EQ(4000000000, line.position);
  EXPECT_FALSE(velkor::readPassLine("  Pass 1-2, run 1: from the first object and more", &line));
}
