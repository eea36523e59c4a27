#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <regex>
#include <string>

#include "e2e.h"
#include "velkor/commandLine.h"
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
  for (const auto& [volume, expected] : cases) {
    const std::string name = velkor::volumeLockName(volume);
    EXPECT_EQ(expected, name) << volume;
    EXPECT_EQ(std::string::npos, name.find('/')) << volume;
  }
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
