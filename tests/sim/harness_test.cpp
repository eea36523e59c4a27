// The end-to-end harness itself: what it tells of the program's terminal.
#include <gtest/gtest.h>

#include <signal.h>
#include <termios.h>

#include "simtest.h"

using testsupport::Simulator;
using testsupport::VelkorTerminal;

namespace {

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

}  // namespace
