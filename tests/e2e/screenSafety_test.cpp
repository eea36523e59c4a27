// The screen against a hostile terminal: resizes in the middle of a repair
// (absurd sizes, a series of tiny and huge ones).
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "e2e.h"
#include "fixtures.h"

using namespace e2efixtures;
using testsupport::Simulator;
using testsupport::VelkorTerminal;

namespace {

// Whether every file of the volume carries the stream mark the repair sets.
bool allMarked(const Simulator& sim) {
  const json state = sim.state();
  for (const json& beast : state["volumes"][0]["beasts"]) {
    bool marked = false;
    for (const json& attribute : beast["attributes"]) marked |= attribute == "dataStreamCompress";
    if (!marked) return false;
  }
  return true;
}

using Sizes = std::vector<std::pair<int, int>>;

// A fix run of `files` fixable files, resized to each of `whileRepairing` as
// it goes (the next size once it has checked a dozen more files), then to
// each of `atThePrompt` once it has ended and waits for its final key.
void repairWhileResized(int files, const Sizes& whileRepairing, const Sizes& atThePrompt) {
  Simulator sim = Simulator::withFixture(fixableVolume(1000, files).dump());
  sim.setFaults(R"({"request":"getBeastInfo","action":"delay","ms":40,"count":0})");
  VelkorTerminal terminal(sim, {"-F", "VOL1"});
  auto checked = [&] { return sim.requestsOf("getBeastInfo").size(); };
  ASSERT_TRUE(terminal.waitUntil([&] { return checked() >= 5; })) << terminal.screenText();
  for (auto [rows, cols] : whileRepairing) {
    terminal.resize(rows, cols);
    size_t before = checked();
    ASSERT_TRUE(terminal.waitUntil([&] { return checked() >= before + 12; }))
        << "stopped at " << rows << "x" << cols << " (signal " << terminal.signal() << ")\n"
        << terminal.screenText();
  }
  ASSERT_LT(checked(), size_t(files)) << "the repair was over before the last resize";
  if (!atThePrompt.empty()) {
    // The final status is logged once the abort watch has stopped reading keys.
    ASSERT_TRUE(terminal.waitUntil([&] { return terminal.runLog().find("<finishStatus>") != std::string::npos; }));
    for (auto [rows, cols] : atThePrompt) terminal.resize(rows, cols);
  }
  ASSERT_TRUE(terminal.waitForRow(24, "Press any key to continue....", std::chrono::seconds(30)))
      << "signal " << terminal.signal() << "\n"
      << terminal.screenText();
  std::vector<std::string> screen = terminal.screen();
  terminal.send("x");
  terminal.finish();
  EXPECT_EQ(0, terminal.exitStatus());
  EXPECT_EQ("                    KVF Compression Validate and Fix Screen", row(screen, 0));
  uint64_t n = uint64_t(files);
  EXPECT_EQ((std::vector<uint64_t>{n, 0, 0, 0, n, 0, n, 0}), testsupport::counters(screen));
  EXPECT_EQ("  STATUS: finished with problem files found, check ./velkor.log for details", row(screen, 23));
  EXPECT_TRUE(allMarked(sim)) << "every fixable file is fixed";
}

}  // namespace

// A fix run is resized while it repairs: to a size no terminal has (the
// screen keeps the one it has), and through a series of tiny and large sizes
// back to the first one; the last step is also taken once the run has ended
// and waits for its final key, where no key is read that would notice it.
// Either way the repair goes on to its end, and the counters, the final
// status and the prompt are drawn where the operator sees them.
TEST(TerminalResize, TheRepairFinishesAndItsEndIsShown) {
  const Sizes series = {{5, 20}, {2, 2}, {1, 1}, {500, 2000}, {5, 20}};
  Sizes seriesBack = series;
  seriesBack.push_back({25, 120});
  struct Case {
    const char* name;
    Sizes whileRepairing, atThePrompt;
  } cases[] = {
      {"an absurd size", {{65535, 65535}}, {}},
      {"a series", seriesBack, {}},
      {"a series ended at the prompt", series, {{25, 120}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    repairWhileResized(120, c.whileRepairing, c.atThePrompt);
  }
}
