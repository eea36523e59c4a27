// The end-to-end harness itself: the real program lists a generated volume in
// the sandbox, and its screen, exit, run log and requests come back.
#include <gtest/gtest.h>

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

// Compact and pretty-printed replies read the same.
INSTANTIATE_TEST_SUITE_P(Replies, Harness, ::testing::Values(false, true));

}  // namespace
