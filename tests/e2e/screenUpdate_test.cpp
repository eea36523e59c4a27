// The screen layer's grouped updates: a group of outputs leaves the terminal
// showing exactly what a copy after every output shows (text, attributes,
// colours, cursor), and shows none of them before the group ends.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "e2e.h"

namespace {

const std::vector<std::string> kCheckpoints = {"first", "round1", "inside", "nested", "round2", "round3", "last"};

// Runs the probe in the sandbox's terminal and returns the screen (with
// attributes and cursor) at each checkpoint.
std::map<std::string, std::string> screensAt(const char* mode) {
  std::map<std::string, std::string> screens;
  testsupport::VelkorTerminal::Options options;
  options.cols = 100;
  options.binary = testsupport::binaryPath("tests/e2e/screen_probe");
  testsupport::VelkorTerminal probe({mode, "."}, options);
  for (const std::string& name : kCheckpoints) {
    struct stat st;
    std::string mark = probe.cwd() + "/" + name;
    if (!probe.waitUntil([&] { return stat(mark.c_str(), &st) == 0; })) {
      ADD_FAILURE() << mode << ": the probe did not reach " << name;
      break;
    }
    probe.settle(std::chrono::milliseconds(150));  // its output was written before the mark
    screens[name] = probe.snapshot();
    probe.send("x");
  }
  if (!probe.waitExit(std::chrono::seconds(10))) ADD_FAILURE() << mode << ": the probe did not end";
  return screens;
}

}  // namespace

// One run of the probe in each mode (a terminal run costs seconds): the
// checks below all read the same two sets of screens.
TEST(GroupedUpdate, ShowsWhatACopyPerOutputShowsAndNothingOfAnOpenGroup) {
  const std::map<std::string, std::string> each = screensAt("each"), grouped = screensAt("grouped");
  ASSERT_EQ(kCheckpoints.size(), each.size());
  ASSERT_EQ(kCheckpoints.size(), grouped.size());
  {
    SCOPED_TRACE("the probe drew what it should");
    const std::string& last = each.at("last");
    EXPECT_NE(std::string::npos, last.find("KVF Compression Validate and Fix Screen")) << last;
    EXPECT_NE(std::string::npos, last.find("Corrupted Files:            1000003")) << last;
    EXPECT_NE(std::string::npos, last.find("STATUS: user aborted")) << last;
    EXPECT_NE(std::string::npos, last.find("Time Elapsed: 00:00:03")) << last;
  }
  {
    SCOPED_TRACE("the end of a group shows what a copy per output shows");
    for (const char* name : {"first", "round1", "round2", "round3", "last"})
      EXPECT_EQ(each.at(name), grouped.at(name)) << "at " << name;
  }
  {
    SCOPED_TRACE("nothing of an open group is shown");
    // Copied per output, the new counters are there at once; grouped, the
    // terminal still shows the end of the previous round.
    EXPECT_NE(each.at("round1"), each.at("inside"));
    EXPECT_EQ(grouped.at("round1"), grouped.at("inside"));
    // The end of a nested group is not the end of the outer one.
    EXPECT_NE(each.at("inside"), each.at("nested"));
    EXPECT_EQ(grouped.at("round1"), grouped.at("nested"));
  }
  {
    SCOPED_TRACE("an empty group copies nothing");
    // A line cleared just before an empty group is still shown, as it is
    // when nothing is grouped.
    EXPECT_EQ(each.at("round3"), each.at("last"));
    EXPECT_EQ(grouped.at("round3"), grouped.at("last"));
    EXPECT_NE(std::string::npos, grouped.at("last").find("Last File Checked: (type: directory)"));
  }
}
