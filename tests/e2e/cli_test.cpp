// The command line and the run log, through the real binary in the sandbox.
#include <gtest/gtest.h>

#include <unistd.h>

#include <regex>

#include "e2e.h"

using testsupport::ProcessResult;
using testsupport::TempDir;

namespace {

class CommandLine : public ::testing::Test {
 protected:
  void SetUp() override { testsupport::writeFile(dir.file("manage.cmd"), ""); }

  // Runs velkor in the sandbox with a plain file as the management file (or
  // none), in the test's own directory.
  ProcessResult velkor(std::vector<std::string> args, bool withAdmin = true) {
    std::vector<std::string> command = testsupport::sandboxCommand({"--cwd", dir.path()});
    if (withAdmin) command.insert(command.end(), {"--manage-file", dir.file("manage.cmd")});
    command.insert(command.end(), {"--", testsupport::velkorBinary()});
    command.insert(command.end(), args.begin(), args.end());
    return testsupport::runProcess(command, "", dir.path());
  }

  // A run that gets to its screen: answers the final prompt with a key.
  int velkorRun(std::vector<std::string> args) {
    testsupport::VelkorTerminal::Options options;
    options.cwd = dir.path();
    options.sandbox = {"--manage-file", dir.file("manage.cmd")};
    testsupport::VelkorTerminal run(args, options);
    run.runToEnd();
    return run.exitStatus();
  }

  std::string log(const std::string& name = "velkor.log") { return testsupport::readFile(dir.file(name)); }

  TempDir dir;
};

const char* const kTry = "Try 'velkor --help' for more information.\n";

// The usage the program's help writer gives for `log`, and nothing else.
void expectUsage(const ProcessResult& r, const std::string& log) {
  EXPECT_EQ(0, r.exitStatus);
  EXPECT_EQ(testsupport::usageText(log), r.out);
  EXPECT_EQ(0u, r.out.find("THIS UTILITY WILL ONLY WORK WITH KVF FILE SYSTEM !\n"));
  EXPECT_NE(std::string::npos, r.out.find("Specifies log file location (default: \"" + log + "\")\n"));
  EXPECT_TRUE(std::regex_search(r.out, std::regex("\nReport bugs to <[^>]+>\n\n\n$"))) << r.out;
}

}  // namespace

// The rights are checked before anything else, the help and the version
// only then; none of them opens a run log.
TEST_F(CommandLine, RightsThenHelpAndVersion) {
  for (auto args : {std::vector<std::string>{}, {"--help"}, {"-v"}, {"-L", "vol"}}) {
    ProcessResult r = velkor(args, false);
    EXPECT_EQ(1, r.exitStatus);
    EXPECT_EQ(" ERROR Either the Admin volume was not found or you don't have rights to access it.\n", r.out);
    EXPECT_EQ("", r.err);
  }
  expectUsage(velkor({}), "./velkor.log");
  expectUsage(velkor({"-h"}), "./velkor.log");
  expectUsage(velkor({"--help", "-L"}), "./velkor.log");
  expectUsage(velkor({"-p", "/tmp/x.log", "-h"}), "/tmp/x.log");
  expectUsage(velkor({"-h", "-p", "/tmp/x.log"}), "./velkor.log");

  ProcessResult v = velkor({"--version"});
  EXPECT_EQ(0, v.exitStatus);
  EXPECT_TRUE(std::regex_match(v.out, std::regex("velkor \\(KVF\\) 1\\.00\n[^\n]*Copyright[^\n]*\n?"))) << v.out;
  EXPECT_EQ("", log());
}

TEST_F(CommandLine, RejectedCommandLines) {
  struct Case {
    std::vector<std::string> args;
    std::string err;  // after the parser's own complaint, if any
  } cases[] = {
      {{"-p", "-L", "vol"}, "velkor: option '-p' requires an argument.\n"},
      {{"-I", "-l", "file"}, "velkor: option '-?' is invalid.\n"},
      {{"--non-interactive", "-l", "file"}, "velkor: option '-?' is invalid.\n"},
      {{"-H", "vol"}, "velkor: missing VOPTION or FOPTION argument.\n"},
      {{"-L", "-l", "x"}, "velkor: more than one VOPTION or FOPTION found.\n"},
      {{"-F", "-f", "x"}, "velkor: more than one VOPTION or FOPTION found.\n"},
      {{"--clear-all", "--fix-stats", "x"}, "velkor: more than one VOPTION or FOPTION found.\n"},
      {{"-L"}, "velkor: missing VOLUMENAME or FILENAME argument.\n"},
      {{"-x", "-L", "vol"}, ""},
      {{"--logpath=x.log", "-L", "vol"}, ""},
      {{"-L", "vol", "-p"}, ""},
  };
  for (const Case& c : cases) {
    ProcessResult r = velkor(c.args);
    std::string what = c.args[0] + " " + (c.args.size() > 1 ? c.args[1] : "");
    EXPECT_EQ(1, r.exitStatus) << what;
    EXPECT_EQ("", r.out) << what;
    std::string expected = c.err + kTry;
    // Without a message of velkor's own the parser complains first.
    ASSERT_GE(r.err.size(), expected.size() + c.err.empty()) << what;
    EXPECT_EQ(expected, c.err.empty() ? r.err.substr(r.err.size() - expected.size()) : r.err) << what;
  }
  EXPECT_EQ("", log()) << "no run log is opened for a rejected command line";
}

// (-p FILE: hostile_test's log places.)
TEST_F(CommandLine, AcceptedCommandLinesWriteTheLog) {
  EXPECT_EQ(0, velkorRun({"-L", "-L", "vol"}));
  EXPECT_EQ(0, velkorRun({"-H", "--list", "file", "ignored"}));
  EXPECT_EQ(0, velkorRun({"--path=x.log", "-S", "VOL"}));
  EXPECT_NE(std::string::npos, log().find(" <argv index=\"3\" argv=\"vol\" />\n"));
  EXPECT_NE(std::string::npos, log().find(" <argv index=\"4\" argv=\"ignored\" />\n"));
  EXPECT_NE(std::string::npos, log("x.log").find(" <argv index=\"1\" argv=\"--path=x.log\" />\n"));
}

// Two runs append two documents; times and the build stamp are masked. The
// management file is a plain file, so each operation ends in an error.
TEST_F(CommandLine, RunLogDocumentsAppend) {
  ASSERT_EQ(0, velkorRun({"-L", "VOL1"}));
  ASSERT_EQ(0, velkorRun({"-H", "-p", "velkor.log", "-S", "VOL1"}));
  std::string text = log();
  std::regex time(R"(<CurrentTime time="[A-Z][a-z]{2} \d{2}, \d{4}  \d{2}:\d{2}:\d{2} [AP]M  [+-]\d{4}" timeValue="\d+" />)");
  text = std::regex_replace(text, time, "<CurrentTime T/>");
  text = std::regex_replace(text, std::regex(R"(  Build: [A-Z][a-z]{2} [ \d]\d \d{4} at \d{2}:\d{2}:\d{2}\n)"), "  Build: B\n");
  std::string binary = testsupport::velkorBinary();
  auto document = [&](const std::vector<std::string>& args) {
    std::string d =
        "<velkor>\n<description>\n  velkor - Validate and fix KVF compression files\n  Version: 1.00\n"
        "  Build: B\n</description>\n<CommandLine>\n";
    for (size_t i = 0; i < args.size(); ++i)
      d += " <argv index=\"" + std::to_string(i) + "\" argv=\"" + args[i] + "\" />\n";
    // A plain file echoes the request back: a reply without a result.
    return d + "</CommandLine>\n<startTime><CurrentTime T/></startTime>\n"
               "<error>util/velkor/velkorUI[994] originated from:util/common_cpp/qXML[1225] error: 21702 "
               "zERR_XML_IS_BAD message: Can't find result tag</error>\n"
               "<finishStatus>finished with error</finishStatus>\n"
               "<endTime><CurrentTime T/></endTime>\n</velkor>\n\n\n\n";
  };
  EXPECT_EQ(document({binary, "-L", "VOL1"}) + document({binary, "-H", "-p", "velkor.log", "-S", "VOL1"}), text);
}

// Without a terminal the interface cannot be made: the log says why and the
// document stays open (no final status, no end time).
TEST_F(CommandLine, NoScreenEndsTheRunWithTheReason) {
  std::vector<std::string> command = testsupport::sandboxCommand(
      {"--cwd", dir.path(), "--manage-file", dir.file("manage.cmd"), "--ro", testsupport::binaryPath("util"), "--",
       "/usr/bin/env", "-u", "TERM", testsupport::velkorBinary(), "-L", "VOL1"});
  ProcessResult r = testsupport::runProcess(command, "", dir.path());
  EXPECT_EQ(1, r.exitStatus);
  std::string text = log();
  EXPECT_NE(std::string::npos, text.find("</startTime>\n"
                                         "Exception while attempting to create a UserInterface Object:  "
                                         "Could not access VELKOR screen via ScreenInterface\n"
                                         "util/velkor/velkor[617]\n"))
      << text;
  EXPECT_EQ(std::string::npos, text.find("<endTime>"));
  EXPECT_EQ(std::string::npos, text.find("</velkor>"));
}

// Run as root in another user's directory, the log is not appended through a
// symbolic link that user planted, nor to a file of theirs (they would read
// the run's findings, or write a run of their own into it); a link of the
// user's own is followed.
TEST_F(CommandLine, LogOfAnotherUserOrThroughTheirLinkIsRefused) {
  testsupport::writeFile(dir.file("target"), "precious\n");
  ASSERT_EQ(0, symlink(dir.file("target").c_str(), dir.file("velkor.log").c_str()));
  ASSERT_EQ(0, lchown(dir.file("velkor.log").c_str(), 4242, 4242));
  ProcessResult r = velkor({"-L", "VOL1"});
  EXPECT_EQ(1, r.exitStatus);
  EXPECT_EQ("velkor: ./velkor.log is a symbolic link owned by another user (uid 4242); the run log is not "
            "written through it.\n",
            r.err);
  EXPECT_EQ("precious\n", log("target"));
  testsupport::writeFile(dir.file("theirs.log"), "their own\n");
  ASSERT_EQ(0, chmod(dir.file("theirs.log").c_str(), 0666));
  ASSERT_EQ(0, chown(dir.file("theirs.log").c_str(), 4242, 4242));
  r = velkor({"-p", "theirs.log", "-L", "VOL1"});
  EXPECT_EQ(1, r.exitStatus);
  EXPECT_EQ("velkor: theirs.log is a file owned by another user (uid 4242); the run log is not written to it.\n", r.err);
  EXPECT_EQ("their own\n", log("theirs.log"));

  ASSERT_EQ(0, lchown(dir.file("velkor.log").c_str(), geteuid(), getegid()));
  EXPECT_EQ(0, velkorRun({"-L", "VOL1"}));
  EXPECT_EQ(0u, log("target").find("precious\n<velkor>\n"));
}
