// How the termination-signal layer ends (or keeps) a process.
#include <gtest/gtest.h>
#include <signal.h>

#include "process.h"

using testsupport::ProcessResult;

// Each way the layer is driven and how the process ends: registration
// mistakes exit with 404 and 408 (a process status keeps the low eight bits);
// a termination signal runs the cleanup, then the process dies by the same
// signal, the handler's messages going to the given descriptor; the file-size
// signal and an ignored signal are survived.
TEST(SignalLayer, EachModeEndsAsItShould) {
  const struct {
    std::vector<std::string> args;
    int status, signal;
    std::string out, err;
  } cases[] = {
      {{"null"}, 404 & 0xff, 0, "", ""},
      {{"twice"}, 408 & 0xff, 0, "", ""},
      {{"term"}, -1, SIGTERM, "Handling signal 15.\ncleanup ran\n", "Resending signal to default handler.\n"},
      {{"segv"}, -1, SIGSEGV, "Handling signal 11.\ncleanup ran\n", "Resending signal to default handler.\n"},
      {{"term", "to-stdout"}, -1, SIGTERM, "Handling signal 15.\ncleanup ran\nResending signal to default handler.\n",
       ""},
      {{"xfsz"}, 0, 0, "Handling signal 25.\nsurvived\n", ""},
      {{"ignored-hup"}, 0, 0, "survived\n", ""},
  };
  for (const auto& c : cases) {
    ProcessResult r = testsupport::runBuilt("tests/e2e/signal_probe", c.args);
    EXPECT_EQ(c.status, r.exitStatus) << c.args.back();
    EXPECT_EQ(c.signal, r.signal) << c.args.back();
    EXPECT_EQ(c.out, r.out) << c.args.back();
    EXPECT_EQ(c.err, r.err) << c.args.back();
  }
}
