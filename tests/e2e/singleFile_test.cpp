// Single-file operations end to end: the real velkor in a terminal in the
// sandbox, against the simulator; the screen, the run log and the requests.
#include <gtest/gtest.h>
#include <signal.h>
#include <termios.h>

#include <regex>
#include <string>

#include "e2e.h"
#include "fixtures.h"

using namespace e2efixtures;
using testsupport::Simulator;
using testsupport::VelkorTerminal;

namespace {

const std::string kLongName = "/" + std::string(69, 'n');

// One volume with a file of each kind the report draws differently.
json fixture(bool compression = true) {
  json good = compressedFile(100, "/good.dat");
  json fixable = compressedFile(110, "/fixable.dat");
  fixable["attributes"] = {"archive"};
  json corrupted = corruptedFile(120, "/corrupted.dat");
  json open = compressedFile(130, "/open.dat");
  open["openCount"] = 1;
  json directory = {{"zid", 140}, {"name", "/dir"}, {"attributes", {"subdirectory"}}};
  json stream = {{"zid", 150}, {"name", "/stream"}, {"classId", 1}, {"parents", {"DeletedFile"}}, {"eof", 10},
                 {"physSize", 4096}};
  json longName = compressedFile(160, kLongName);
  return volume({good, fixable, corrupted, open, directory, stream, longName},
                {compData(100), compData(110), compData(120), compData(130), compData(160)}, compression);
}

}  // namespace

TEST(SingleFile, GoodFixedAndDeletedFilesScreensAndLogEntries) {
  Simulator sim = Simulator::withFixture(fixture().dump());
  FinishedRun run(sim, {"-l", kVol + "/good.dat"});
  ASSERT_TRUE(run.finalScreen) << run.terminal.screenText();
  EXPECT_EQ(0, run.terminal.exitStatus());
  EXPECT_EQ("                    KVF Compression Validate and Fix Screen", run.at(0));
  // The command line as given, unless the build's path makes it too long for
  // its line: then it is cut and ends in "...".
  std::string command = testsupport::velkorBinary() + " -l /media/kvf/VOL1/good.dat";
  EXPECT_EQ("  Command: " + (command.size() <= 67 ? command : command.substr(0, 64) + "..."), run.at(2));
  EXPECT_TRUE(std::regex_match(run.at(4), std::regex("  Time Elapsed: \\d\\d:\\d\\d:\\d\\d")));
  EXPECT_EQ("  Summary:", run.at(6));
  EXPECT_EQ("    Processed Files:                  1    CC Bit Cleared:                    0", run.at(8));
  EXPECT_EQ("    Good Files:                       1    Open Files Skipped:                0", run.at(9));
  EXPECT_EQ("    Fixable Files:                    0    Corrupted Files:                   0", run.at(10));
  EXPECT_EQ("    Fixed Files:                      0    Deleted Files:                     0", run.at(11));
  EXPECT_EQ("  Last File Checked: (type: file)", run.at(13));
  EXPECT_EQ("    Volume Name:  VOL1", run.at(14));
  EXPECT_EQ("    File Name:    /good.dat", run.at(15));
  EXPECT_EQ("    File Status:  Good                             Action Taken:  checked", run.at(16));
  EXPECT_EQ("    Zid:          0x64                             Attributes:    0x4000020", run.at(17));
  EXPECT_EQ("    Created Time: 2023/03/29 05:36:58                   Accessed Time: 2023/05/05 21:43:10", run.at(18));
  EXPECT_EQ("    CompZid: 0x65                  UCPrecious: 0            CPrecious: 1", run.at(19));
  EXPECT_EQ("    Status:  10                                             Action:    0", run.at(20));
  EXPECT_EQ("    Compress Header: 1 1 0 8569 4285", run.at(21));
  EXPECT_EQ("  STATUS: finished successfully, check ./velkor.log for details", run.at(23));
  EXPECT_FALSE(run.statusBold);
  EXPECT_EQ("  Press any key to continue....", run.at(24));

  ASSERT_EQ(1u, run.entries().size());
  EXPECT_EQ(
      "<entry><volume>VOL1</volume><name>/good.dat</name><type><file/></type><fileStatus><good/></fileStatus>"
      "<zid>100</zid><attributes>0x4000020</attributes><createdTime>2023/03/29 05:36:58</createdtime>"
      "<accessedTime>2023/05/05 21:43:10</accessedTime><compInfo><compZid>101</compZid><ucPrecious>0</ucPrecious>"
      "<cPrecious>1</cPrecious><status>10</status><action>0</action></compInfo><compHeader><compressCode>1"
      "</compressCode><compressMajorVersion>1</compressMajorVersion><compressMinorVersion>0</compressMinorVersion>"
      "<originalFileLength>8569</originalFileLength><compressedFileLength>4285</compressedFileLength></entry>",
      run.entries()[0]);
  EXPECT_NE(std::string::npos, run.terminal.runLog().find("<finishStatus>finished successfully</finishStatus>\n"));

  // A fixed and a deleted file. (That the fix took and that the file was
  // unlinked by its name: FileCheck's FixAndDeleteThenListAgain.)
  FinishedRun fix(sim, {"-f", kVol + "/fixable.dat"});
  ASSERT_TRUE(fix.finalScreen) << fix.terminal.screenText();
  EXPECT_EQ("    Fixable Files:                    1    Corrupted Files:                   0", fix.at(10));
  EXPECT_EQ("    Fixed Files:                      1    Deleted Files:                     0", fix.at(11));
  EXPECT_EQ("    File Status:  1: Invalid state                 Action Taken:  fixed", fix.at(16));
  EXPECT_EQ("  STATUS: finished with problem files found, check ./velkor.log for details", fix.at(23));
  EXPECT_TRUE(fix.statusBold);
  ASSERT_EQ(1u, fix.entries().size());
  EXPECT_NE(std::string::npos,
            fix.entries()[0].find("<fileStatus><invalidState/></fileStatus><action><fixed/></action><zid>110</zid>"));

  FinishedRun del(sim, {"-H", "-d", kVol + "/corrupted.dat"});
  ASSERT_TRUE(del.finalScreen) << del.terminal.screenText();
  EXPECT_EQ("    Fixed Files:                      0    Deleted Files:                     1", del.at(11));
  EXPECT_EQ("    File Status:  1: Invalid zid                   Action Taken:  deleted", del.at(16));
  EXPECT_EQ("    CompZid: 0x0                   UCPrecious: 0            CPrecious: 1", del.at(19));
  EXPECT_EQ("", del.at(21)) << "no header line with -H, and no compressed-data record";
  ASSERT_EQ(1u, del.entries().size());
  EXPECT_NE(std::string::npos, del.entries()[0].find("<fileStatus><invalidZid/></fileStatus><actionTaken><deleted/>"
                                                     "</actionTaken><zid>120</zid>"));
}

TEST(SingleFile, SkippedDirectoryStreamLongNameAndFailedLookup) {
  Simulator sim = Simulator::withFixture(fixture().dump());
  FinishedRun open(sim, {"-l", kVol + "/open.dat"});
  EXPECT_EQ("    File Status:  Skipped checking                 Action Taken:  checked", open.at(16));
  EXPECT_EQ("", open.at(17)) << "a skipped file shows rows 13 to 16 only";
  EXPECT_EQ("    Good Files:                       0    Open Files Skipped:                1", open.at(9));
  EXPECT_EQ(std::vector<std::string>{"<entry><volume>VOL1</volume><name>/open.dat</name><type><file/></type>"
                                     "<fileStatus><skippedChecking/></fileStatus></entry>"},
            open.entries());

  FinishedRun directory(sim, {"-l", kVol + "/dir"});
  EXPECT_EQ("  Last File Checked: (type: directory)", directory.at(13));
  EXPECT_EQ("    Zid:          0x8c                             Attributes:    0x10", directory.at(17));
  EXPECT_EQ("", directory.at(18));
  ASSERT_EQ(1u, directory.entries().size());
  EXPECT_NE(std::string::npos, directory.entries()[0].find("<type><directory/></type>"));
  EXPECT_NE(std::string::npos, directory.entries()[0].find("<attributes>0x10</attributes></entry>"));

  sim.setFaults(fileInfoFault("150"));  // a deleted stream has no live name
  FinishedRun stream(sim, {"-l", kVol + "/stream"});
  sim.setFaults("[]");
  EXPECT_EQ("  Last File Checked: (type: deleted data stream)", stream.at(13));
  ASSERT_EQ(1u, stream.entries().size());
  EXPECT_NE(std::string::npos, stream.entries()[0].find("<type><deleted/><dataStream/></type>"));

  FinishedRun longName(sim, {"-l", kVol + kLongName});
  EXPECT_EQ("    File Name:    " + kLongName.substr(0, 60) + "...", longName.at(15));
  EXPECT_EQ(0u, longName.at(2).find("  Command: "));
  EXPECT_EQ(std::string::npos, longName.at(2).find(kLongName)) << "a long command line is cut";

  FinishedRun missing(sim, {"-f", kVol + "/nothing-here"});
  ASSERT_TRUE(missing.finalScreen);
  EXPECT_EQ("  STATUS: finished with error, check ./velkor.log for details", missing.at(23));
  EXPECT_FALSE(missing.statusBold);
  EXPECT_EQ("", missing.at(6)) << "no counters are drawn when the lookup fails";
  std::string log = missing.terminal.runLog();
  std::regex error("<error>util/velkor/velkorUI\\[994\\] originated from:util/common_cpp/qXML\\[1254\\] error: "
                   "\\d+ \\S+ message: Reply results</error>\n");
  EXPECT_EQ(1, std::distance(std::sregex_iterator(log.begin(), log.end(), error), std::sregex_iterator())) << log;
  EXPECT_NE(std::string::npos, log.find("<finishStatus>finished with error</finishStatus>"));
}

TEST(SingleFile, VolumeWithoutCompression) {
  Simulator plain = Simulator::withFixture(fixture(false).dump());
  FinishedRun off(plain, {"-l", kVol + "/good.dat"});
  EXPECT_EQ("  Volume doesn't have compression feature enabled. Nothing to do.", off.at(18));
  EXPECT_EQ("", off.at(6));
  EXPECT_EQ("", off.at(13));
  EXPECT_EQ("  STATUS: finished successfully, check ./velkor.log for details", off.at(23));
  EXPECT_TRUE(off.entries().empty());
}

// While a file operation runs the status has no Escape hint. Ctrl-C at the
// final prompt: the handler leaves curses mode, the process dies by the
// signal, and the log says so but is not finished.
TEST(SingleFile, RunningStatusAndAnInterruptThatLeavesTheTerminalUsable) {
  Simulator sim = Simulator::withFixture(fixture().dump());
  sim.setFaults(R"({"request":"getBeastInfo","action":"delay","ms":1500})");
  // As at a real terminal, a shell that survives Ctrl-C leads the session:
  // were the sandbox the leader, its death would also send SIGHUP. Ctrl-C
  // also ends the sandbox, so the shell stays until velkor itself has gone:
  // velkor inherits the write end of a pipe whose reader (immune to Ctrl-C)
  // ends when the last writer closes it.
  VelkorTerminal::Options options;
  options.wrapper = {"/bin/bash", "-c",
                     "trap : INT; exec 9> >(trap '' INT; cat); \"$@\"; s=$?; exec 9>&-; wait $!; exit $s", "bash"};
  VelkorTerminal run(sim, {"-l", kVol + "/good.dat"}, options);
  // The status is first drawn before the operation is known, then again
  // before its first request; the file's information is answered late.
  ASSERT_TRUE(run.waitUntil([&] { return !sim.requests().empty(); }));
  EXPECT_TRUE(run.waitUntil([&] { return run.row(23) == "  STATUS: running"; })) << run.row(23);
  ASSERT_TRUE(run.waitFor("Press any key to continue....")) << run.screenText();
  EXPECT_TRUE(run.alternateScreen() && !run.cursorVisible()) << "seen while curses shows its screen";
  run.send("\x03");
  run.finish();
  EXPECT_TRUE(run.signal() == SIGINT || run.exitStatus() == 128 + SIGINT) << run.exitStatus() << " " << run.signal();
  EXPECT_NE(std::string::npos, run.screenText().find("Handling signal 2.")) << run.screenText();
  // Leaving curses mode shows the cursor again, leaves the alternate screen
  // and gives back echo and canonical input.
  EXPECT_TRUE(run.cursorVisible());
  EXPECT_FALSE(run.alternateScreen());
  struct termios modes;
  ASSERT_TRUE(run.modesAtEnd(&modes));
  EXPECT_TRUE((modes.c_lflag & ECHO) && (modes.c_lflag & ICANON));
  std::string log = run.runLog();
  EXPECT_NE(std::string::npos, log.find("Resending signal to default handler.\n"));
  EXPECT_EQ(std::string::npos, log.find("</velkor>"));
}
