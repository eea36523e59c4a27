// The screen against a hostile terminal and hostile names: resizes in the
// middle of a repair (absurd sizes, a series of tiny and huge ones) and file
// names that hold wide characters, control characters and escape sequences.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "e2e.h"
#include "fixtures.h"

using namespace e2efixtures;
using testsupport::Simulator;
using testsupport::VelkorTerminal;

namespace {

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
  // (That each fix counted was made: FileCheck's FixAndDeleteThenListAgain.)
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

// A file's name is drawn as the operator's character set shows it, each
// character whole and as wide as it is on the screen; what is not a
// printable character is drawn escaped, so that no name moves the cursor,
// paints elsewhere or sends the terminal a sequence of its own. The run log
// keeps the name's bytes as they are.
TEST(UntrustedNames, AreDrawnAsTheirCharactersOrEscapedAndNothingElseMoves) {
  const std::string cjk = "\xe6\x95\xb0\xe6\x8d\xae\xe2\x80\x94\xc5\x93";  // 数据—œ
  std::string longCjk = "/";
  for (int i = 0; i < 40; ++i) longCjk += "\xe6\x95\xb0";  // 数, two columns each
  // Raw, "\e[2J" clears the screen, "\e[41m" paints red, the newline and the
  // carriage return move the drawing; U+009B starts a sequence on a terminal
  // that takes C1 controls and U+202E reverses what follows on some.
  const std::string hostile = "/a\x1b[2J\x1b[41mb\nc\rd\\e\xc2\x9b\xe2\x80\xae" "f.dat";
  struct Case {
    const char* what;
    std::string name, locale, shown;
    std::string logged = "";  // the name in the run log, when it is not the name itself
  } cases[] = {
      {"plain name (the screen every good file gets: SingleFile tests)", "/plain.dat", "C.UTF-8", "/plain.dat"},
      {"UTF-8 name", "/" + cjk + ".dat", "C.UTF-8", "/" + cjk + ".dat"},
      {"UTF-8 name, ASCII locale", "/" + cjk + ".dat", "C", "/\\xe6\\x95\\xb0\\xe6\\x8d\\xae\\xe2\\x80\\x94\\xc5\\x93.dat"},
      {"long CJK name: cut at 60 columns", longCjk + ".dat", "C.UTF-8",
       longCjk.substr(0, 1 + 29 * 3) + "..."},  // the 30th character would end in column 61
      {"escape sequences and controls", hostile, "C.UTF-8", "/a\\x1b[2J\\x1b[41mb\\nc\\rd\\\\e\\u009b\\u202ef.dat",
       "/a&#27;[2J&#27;[41mb&#10;c&#13;d\\e\xc2\x9b\xe2\x80\xae" "f.dat"},
  };
  std::vector<std::string> plain;  // the plain name's screen but for its command, time and name
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    json file = compressedFile(100, c.name);
    Simulator sim = Simulator::withFixture(volume(json::array({file}), json::array({compData(100)})).dump());
    // The path is looked up by hand (the simulator's lookup takes no control
    // characters); the name drawn is the one the file system gives for the zid.
    sim.setFaults(fileInfoFault("100"));
    VelkorTerminal::Options options;
    options.wrapper = {"env", "LC_ALL=" + c.locale};
    FinishedRun run(sim, {"-l", kVol + c.name}, options);
    ASSERT_TRUE(run.finalScreen) << run.terminal.screenText();
    EXPECT_EQ(0, run.terminal.exitStatus());
    EXPECT_EQ("    File Name:    " + c.shown, run.at(15));

    // The rest of the screen is the one the plain name gets.
    EXPECT_EQ(0u, run.at(2).find("  Command: ")) << run.at(2);
    std::vector<std::string> rest = run.screen;
    rest.at(2) = rest.at(4) = rest.at(15) = "";
    if (plain.empty()) plain = rest;
    EXPECT_EQ(plain, rest);
    // The name's row is drawn in the colours of its label, cell for cell.
    std::istringstream snapshot(run.terminal.snapshot());
    std::string colours;
    for (int line = 0; line <= 2 * 15 + 1; ++line) std::getline(snapshot, colours);
    EXPECT_EQ(std::string(80 - 4, colours[4]), colours.substr(4, 80 - 4)) << colours;

    ASSERT_EQ(1u, run.entries().size()) << run.terminal.runLog();
    std::string logged = c.logged.empty() ? c.name : c.logged;
    EXPECT_NE(std::string::npos, run.entries()[0].find("<name>" + logged + "</name>"))
        << run.entries()[0];
  }
}

// On a standard 80x24 terminal the layout's last row (the final prompt) lies
// below the screen: the view follows the rows drawn, so the status and the
// prompt are seen, one row up.
TEST(TerminalSize, StatusAndFinalPromptAreSeenOnAnEightyByTwentyFourTerminal) {
  Simulator sim = Simulator::withFixture(e2efixtures::fixableVolume(100, 3).dump());
  VelkorTerminal::Options options;
  options.rows = 24;
  options.cols = 80;
  VelkorTerminal run(sim, {"-L", "VOL1"}, options);
  ASSERT_TRUE(run.waitForRow(23, "Press any key to continue....", std::chrono::seconds(30))) << run.screenText();
  EXPECT_EQ("  STATUS: finished with problem files found, check ./velkor.log for details", run.row(22));
  run.send("x");
  run.finish();
  EXPECT_EQ(0, run.exitStatus());
}
