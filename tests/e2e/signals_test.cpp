// How the termination-signal layer ends (or keeps) a process.
#include <gtest/gtest.h>
#include <signal.h>

#include "process.h"

using testsupport::ProcessResult;

namespace {

ProcessResult probe(const std::vector<std::string>& args) { return testsupport::runBuilt("tests/e2e/signal_probe", args); }

}  // namespace

// The layer exits with 404 and 408; a process status keeps the low eight bits.
TEST(SignalLayer, RegistrationMistakesHaveTheirOwnExitStatus) {
  EXPECT_EQ(404 & 0xff, probe({"null"}).exitStatus);
  ProcessResult twice = probe({"twice"});
  EXPECT_EQ(408 & 0xff, twice.exitStatus);
  EXPECT_EQ("", twice.out);
}

TEST(SignalLayer, TerminationRunsCleanupThenDiesByTheSameSignal) {
  for (auto [mode, number] : {std::pair<std::string, int>{"term", SIGTERM}, {"segv", SIGSEGV}}) {
    ProcessResult r = probe({mode});
    EXPECT_EQ(number, r.signal) << mode;
    EXPECT_EQ("Handling signal " + std::to_string(number) + ".\ncleanup ran\n", r.out) << mode;
    EXPECT_EQ("Resending signal to default handler.\n", r.err) << mode;
  }
}

TEST(SignalLayer, HandlerMessagesGoToTheGivenDescriptor) {
  ProcessResult r = probe({"term", "to-stdout"});
  EXPECT_EQ(SIGTERM, r.signal);
  EXPECT_EQ("Handling signal 15.\ncleanup ran\nResending signal to default handler.\n", r.out);
  EXPECT_EQ("", r.err);
}

TEST(SignalLayer, FileSizeSignalAndIgnoredSignalsAreSurvived) {
  ProcessResult xfsz = probe({"xfsz"});
  EXPECT_EQ(0, xfsz.exitStatus);
  EXPECT_EQ("Handling signal 25.\nsurvived\n", xfsz.out);
  ProcessResult hup = probe({"ignored-hup"});
  EXPECT_EQ(0, hup.exitStatus);
  EXPECT_EQ("survived\n", hup.out);
}
