// A scan's counters reach the terminal while it runs, although the screen is
// sent at a human rate; its final screen is exact and it logs the files with
// problems only.
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

#include "e2e.h"
#include "fixtures.h"

using namespace e2efixtures;
using testsupport::Simulator;
using testsupport::VelkorTerminal;

TEST(VolumeScan, CountersReachTheTerminalWhileTheScanRunsAndTheFinalScreenIsExact) {
  json beasts = plainFiles(150);
  beasts[10]["physSize"] = 0;   // no physical data: corrupted
  beasts[30]["openCount"] = 1;  // open: skipped
  Simulator sim = Simulator::withFixture(volume(beasts, json::array()).dump());
  // Three objects are answered late: each holds the scan past the timer's
  // repaint, which sends the counters drawn so far.
  sim.setFaults(R"([{"request":"getBeastInfo","zid":1040,"action":"delay","ms":1200},
                   {"request":"getBeastInfo","zid":1080,"action":"delay","ms":1200},
                   {"request":"getBeastInfo","zid":1120,"action":"delay","ms":1200}])");
  VelkorTerminal terminal(sim, {"-L", "VOL1"});
  std::set<uint64_t> seen;  // processed counts shown before the end
  for (int i = 0; i < 3; ++i)
    ASSERT_TRUE(terminal.waitUntil([&] {
      std::vector<uint64_t> shown = testsupport::counters(terminal.screen());
      return !shown.empty() && shown[0] > 0 && shown[0] < 150 && seen.insert(shown[0]).second;
    })) << "intermediate counts shown while the scan ran\n" << terminal.screenText();
  ASSERT_TRUE(terminal.waitForRow(24, "Press any key to continue....", std::chrono::seconds(20)));
  std::vector<std::string> screen = terminal.screen();
  terminal.send("x");
  terminal.finish();

  const std::vector<std::string> expected = {
      "                    KVF Compression Validate and Fix Screen",
      "",
      "",  // the command line, checked below
      "",
      "",  // the elapsed time (and the percentage of the timer's last repaint), checked below
      "",
      "  Summary:",
      "",
      "    Processed Files:                150    CC Bit Cleared:                    0",
      "    Good Files:                     148    Open Files Skipped:                1",
      "    Fixable Files:                    0    Corrupted Files:                   1",
      "    Fixed Files:                      0    Deleted Files:                     0",
  };
  ASSERT_EQ(25u, screen.size());
  for (size_t r = 0; r < 23; ++r) {
    if (r == 2) EXPECT_EQ(0u, screen[r].find("  Command: ")) << screen[r];
    else if (r == 4) EXPECT_TRUE(std::regex_match(screen[r], std::regex("  Time Elapsed: 00:00:\\d\\d( {23}Percent finished: \\d+%)?"))) << screen[r];
    else EXPECT_EQ(r < expected.size() ? expected[r] : "", screen[r]) << "row " << r;
  }
  EXPECT_EQ("  STATUS: finished with problem files found, check ./velkor.log for details", screen[23]);
  EXPECT_EQ("  Press any key to continue....", screen[24]);
  std::vector<std::string> logged = entries(terminal.runLog());
  ASSERT_EQ(2u, logged.size());
  EXPECT_NE(std::string::npos, logged[0].find("<zid>1010</zid>"));
  EXPECT_NE(std::string::npos, logged[0].find("<noPhysicalData/>"));
  EXPECT_EQ("<entry><volume>VOL1</volume><name>/f1030</name><type><file/></type><fileStatus><skippedChecking/>"
            "</fileStatus></entry>",
            logged[1]);
}

// While a scan runs the percentage never reads 100, even when the volume
// shrank below what was already processed: a delete run removes 20 of 21
// objects in its first batch, and its second batch is held back long enough
// for the timer to repaint with 20 processed of 1.
TEST(VolumeScan, PercentFinishedStopsAt99WhileTheScanRuns) {
  json beasts = plainFiles(21);
  for (int i = 0; i < 20; ++i) beasts[i]["physSize"] = 0;  // no physical data: corrupted, deleted
  Simulator sim = Simulator::withFixture(volume(beasts, json::array()).dump());
  sim.setFaults(R"({"request":"browseBeasts","nth":2,"action":"delay","ms":3000})");
  VelkorTerminal terminal(sim, {"-D", "VOL1"});
  std::smatch m;
  std::regex percent("  Time Elapsed: \\d\\d:\\d\\d:\\d\\d {23}Percent finished: (\\d+)%");
  std::string line;
  ASSERT_TRUE(terminal.waitUntil([&] {
    line = terminal.row(4);
    return std::regex_match(line, m, percent) && std::stoi(m[1]) > 95;  // 20 of 21 is 95
  })) << terminal.screenText();
  EXPECT_EQ("Percent finished: 99%", line.substr(line.find("Percent")));
  ASSERT_TRUE(terminal.waitForRow(24, "Press any key to continue....", std::chrono::seconds(30)));
  EXPECT_EQ((std::vector<uint64_t>{21, 0, 1, 0, 0, 20, 0, 20}), testsupport::counters(terminal.screen()));
  terminal.send("x");
  terminal.finish();
}
