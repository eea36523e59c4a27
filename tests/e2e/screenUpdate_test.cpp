// The screen layer's grouped updates: a group of outputs leaves the terminal
// showing exactly what a copy after every output shows (text, attributes,
// colours, cursor), and shows none of them before the group ends.
#include <fcntl.h>
#include <unistd.h>

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
  auto reached = [&](const std::string& mark) { return access((probe.cwd() + "/" + mark).c_str(), F_OK) == 0; };
  for (const std::string& name : kCheckpoints) {
    if (!probe.waitUntil([&] { return reached(name); })) {
      ADD_FAILURE() << mode << ": the probe did not reach " << name;
      break;
    }
    probe.settle(std::chrono::milliseconds(150));  // its output was written before the mark
    screens[name] = probe.snapshot();
    probe.send("x");
  }
  // The layer's keys: an Escape among keys typed ahead is seen and they are
  // all eaten (the prompt's default stays until its own answer comes).
  if (probe.waitUntil([&] { return reached("keys"); })) {
    probe.send("ab\x1b" "cd");
    probe.settle(std::chrono::milliseconds(150));
    close(open((probe.cwd() + "/sent").c_str(), O_WRONLY | O_CREAT, 0644));
    EXPECT_TRUE(probe.waitForRow(16, "Go on? n", std::chrono::seconds(10))) << mode << ": no question";
    probe.send("y");
    if (probe.waitUntil([&] { return reached("answered"); })) {
      probe.settle(std::chrono::milliseconds(150));
      screens["answered"] = probe.snapshot();
    }
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
  ASSERT_EQ(kCheckpoints.size() + 1, each.size());  // and "answered"
  ASSERT_EQ(kCheckpoints.size() + 1, grouped.size());
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
    SCOPED_TRACE("keys typed ahead and a yes/no question");
    const std::string& answered = each.at("answered");
    EXPECT_NE(std::string::npos, answered.find("escape typed ahead: yes")) << answered;
    EXPECT_NE(std::string::npos, answered.find("answer: yes")) << answered;
  }
  {
    SCOPED_TRACE("an empty group copies nothing");
    // A line cleared just before an empty group is still shown, as it is
    // when nothing is grouped.
    EXPECT_EQ(each.at("round3"), each.at("last"));
    EXPECT_NE(std::string::npos, grouped.at("last").find("Last File Checked: (type: directory)"));
  }
}
