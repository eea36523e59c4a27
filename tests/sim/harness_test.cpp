// The end-to-end harness itself: the real program lists a generated volume in
// the sandbox, and its screen, exit, run log and requests come back.
#include <gtest/gtest.h>

#include <signal.h>
#include <termios.h>

#include <regex>

#include "simtest.h"

using testsupport::Simulator;
using testsupport::VelkorTerminal;

namespace {

uint64_t counter(const std::string& screen, const std::string& label) {
  std::smatch m;
  if (!std::regex_search(screen, m, std::regex(label + ":\\s+(\\d+)"))) return ~0ull;
  return std::stoull(m[1]);
}

class Harness : public ::testing::TestWithParam<bool> {};

TEST_P(Harness, ListRunShowsTheGeneratorsCounts) {
  Simulator::Options o;
  o.generate = 300;
  o.pretty = GetParam();
  Simulator sim(o);
  VelkorTerminal run(sim, {"-L", "VOL1"});
  ASSERT_TRUE(run.waitFor("Press any key")) << run.screenText();
  std::string screen = run.screenText();
  run.send("x");
  run.finish();
  EXPECT_EQ(run.exitStatus(), 0);
  EXPECT_EQ(run.signal(), 0);

  nlohmann::json expected = sim.expected()["list"];
  EXPECT_EQ(counter(screen, "Processed Files"), expected["processed"]) << screen;
  EXPECT_EQ(counter(screen, "Good Files"), expected["good"]);
  EXPECT_EQ(counter(screen, "Open Files Skipped"), expected["openSkipped"]);
  EXPECT_EQ(counter(screen, "Fixable Files"), expected["fixable"]);
  EXPECT_EQ(counter(screen, "Corrupted Files"), expected["corrupted"]);

  EXPECT_NE(run.runLog().find("</velkor>"), std::string::npos);
  auto requests = sim.requests();
  ASSERT_FALSE(requests.empty());
  EXPECT_NE(requests.front()["request"].get<std::string>().find("<getVolumeInfo>"), std::string::npos);
  EXPECT_EQ(sim.state()["volumes"][0]["liveBeasts"], 300);  // a list run changes nothing
}

// The counters a finished run shows, as a count object of the expectations.
nlohmann::json runCounts(const Simulator& sim, const std::vector<std::string>& args) {
  VelkorTerminal run(sim, args);
  EXPECT_TRUE(run.waitFor("Press any key")) << run.screenText();
  std::string screen = run.screenText();
  run.send("x");
  run.finish();
  EXPECT_EQ(run.exitStatus(), 0);
  nlohmann::json n;
  const char* const labels[][2] = {{"processed", "Processed Files"}, {"good", "Good Files"},
                                   {"openSkipped", "Open Files Skipped"}, {"fixable", "Fixable Files"},
                                   {"corrupted", "Corrupted Files"}, {"fixed", "Fixed Files"},
                                   {"deleted", "Deleted Files"}, {"ccBitCleared", "CC Bit Cleared"}};
  for (const auto& l : labels) n[l[0]] = counter(screen, l[1]);
  return n;
}

// The generator's expectations for fix, delete and clear runs, and for the
// list runs after them.
TEST(HarnessRuns, FixDeleteAndClearYieldWhatTheGeneratorExpects) {
  Simulator::Options o;
  o.generate = 300;
  o.seed = 3;
  Simulator fixed(o);
  nlohmann::json e = fixed.expected();
  EXPECT_EQ(runCounts(fixed, {"-F", "VOL1"}), e["fix"]);
  EXPECT_EQ(runCounts(fixed, {"-L", "VOL1"}), e["afterFix"]);

  Simulator deleted(o);
  EXPECT_EQ(runCounts(deleted, {"-D", "VOL1"}), e["delete"]);
  EXPECT_EQ(runCounts(deleted, {"-L", "VOL1"}), e["afterDelete"]);
  EXPECT_EQ(deleted.state()["volumes"][0]["liveBeasts"], e["afterDelete"]["processed"]);

  Simulator cleared(o);
  nlohmann::json n = runCounts(cleared, {"-C", "VOL1"});
  EXPECT_EQ(n["processed"], e["clear"]["processed"]);
  EXPECT_EQ(n["ccBitCleared"], e["clear"]["ccBitCleared"]);
  EXPECT_EQ(runCounts(cleared, {"-C", "VOL1"})["ccBitCleared"], 0);

  // Fix-stats on an active volume asks first; the recount then matches.
  VelkorTerminal stats(cleared, {"-S", "VOL1"});
  ASSERT_TRUE(stats.waitFor("Do you want to continue")) << stats.screenText();
  stats.send("y");
  EXPECT_TRUE(stats.waitFor("Press any key")) << stats.screenText();
  stats.send("x");
  stats.finish();
  nlohmann::json recount = cleared.state()["volumes"][0]["stats"];
  EXPECT_EQ(recount["compressedFiles"], e["statsRecount"]["compressedFiles"]);
  EXPECT_EQ(recount["preCompressionBlocks"], e["statsRecount"]["preCompressionBlocks"]);
  EXPECT_EQ(recount["uncompressibleFiles"], 0);  // the Cc attributes were cleared
}

// A signal reaches the program, not the sandbox; the terminal's state is seen
// both ways: the alternate screen and hidden cursor while the program shows
// its screen, given back when its handler leaves curses mode.
TEST(HarnessRuns, SignalToTheProgramAndTheTerminalItLeaves) {
  Simulator::Options o;
  o.generate = 50;
  Simulator sim(o);
  VelkorTerminal run(sim, {"-L", "VOL1"});
  struct termios modes;
  ASSERT_TRUE(run.waitFor("Press any key")) << run.screenText();
  EXPECT_TRUE(run.alternateScreen());
  EXPECT_FALSE(run.cursorVisible());
  EXPECT_FALSE(run.modesAtEnd(&modes));
  ASSERT_TRUE(run.signalProgram(SIGTERM));
  ASSERT_TRUE(run.waitExit());
  EXPECT_EQ(run.exitStatus(), 128 + SIGTERM) << "the sandbox passes on how the program ended";
  EXPECT_FALSE(run.signalProgram(SIGTERM)) << "no program left to signal";
  EXPECT_FALSE(run.alternateScreen());
  EXPECT_TRUE(run.cursorVisible());
  ASSERT_TRUE(run.modesAtEnd(&modes));
  EXPECT_TRUE(modes.c_lflag & ECHO);
  EXPECT_TRUE(modes.c_lflag & ICANON);
  EXPECT_NE(run.runLog().find("Resending signal to default handler."), std::string::npos);
}

// Compact and pretty-printed replies read the same.
INSTANTIATE_TEST_SUITE_P(Replies, Harness, ::testing::Values(false, true));

}  // namespace
