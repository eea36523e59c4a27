// Volume operations end to end: scans in batches, abort, Cc clearing, the
// compression statistics, the background-candidate check and faults that
// break off a scan.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "e2e.h"
#include "fixtures.h"
#include "velkor/logElements.h"

using namespace e2efixtures;
using testsupport::Simulator;
using testsupport::VelkorTerminal;

using testsupport::counters;

TEST(VolumeScan, BatchesOfTwentyAndTheirScanPositions) {
  struct Case {
    int objects;
    std::vector<std::string> sequences;
  } cases[] = {{0, {"0"}}, {19, {"0"}}, {20, {"0", "1019"}}, {21, {"0", "1019"}}, {45, {"0", "1019", "1039"}}};
  for (const Case& c : cases) {
    Simulator sim = Simulator::withFixture(volume(plainFiles(c.objects), json::array()).dump());
    FinishedRun run(sim, {"-L", "VOL1"});
    ASSERT_TRUE(run.finalScreen) << c.objects;
    EXPECT_EQ(c.sequences, scanPositions(sim.requestsOf("browseBeasts"))) << c.objects;
    EXPECT_EQ(c.sequences.size(), sim.requestsOf("getVolumeInfo").size() - 1)
        << "the total is fetched again before each batch";
    EXPECT_EQ((std::vector<uint64_t>{uint64_t(c.objects), 0, uint64_t(c.objects), 0, 0, 0, 0, 0}),
              counters(run.screen))
        << c.objects;
    EXPECT_EQ("  STATUS: finished successfully, check ./velkor.log for details", run.at(23));
    EXPECT_TRUE(run.entries().empty()) << "a scan logs only files with something to report";
    EXPECT_EQ(testsupport::requestText(velkor::browseRequest, "VOL1", true, 0, 20, 0),
              sim.requestsOf("browseBeasts").at(0)["request"]);
  }
}

TEST(VolumeScan, EscapeThenYesAbortsEscapeThenNoGoesOn) {
  Simulator sim = Simulator::withFixture(volume(plainFiles(120), json::array()).dump());
  sim.setFaults(R"({"request":"getBeastInfo","action":"delay","ms":15,"count":0})");
  for (std::string answer : {"n", "Y"}) {
    size_t before = sim.requestsOf("getBeastInfo").size();
    VelkorTerminal terminal(sim, {"-L", "VOL1"});
    ASSERT_TRUE(terminal.waitFor("Processed Files:"));
    terminal.send("\x1b");
    ASSERT_TRUE(terminal.waitFor("Do you want to abort velkor (y/n)?"));
    terminal.send(answer);
    if (answer == "n") {
      ASSERT_TRUE(terminal.waitFor("STATUS: running, press <ESC> to abort"));
    }
    ASSERT_TRUE(terminal.waitFor("Press any key", std::chrono::seconds(30)));
    std::vector<std::string> screen = terminal.screen();
    bool bold = terminal.bold(23, 10);
    terminal.send("x");
    terminal.finish();
    uint64_t processed = counters(screen)[0];
    if (answer == "n") {
      EXPECT_EQ(120u, processed);
      EXPECT_EQ("  STATUS: finished successfully, check ./velkor.log for details", row(screen, 23));
      continue;
    }
    EXPECT_LT(processed, 120u);
    EXPECT_EQ(processed, sim.requestsOf("getBeastInfo").size() - before)
        << "the scan stops after the object it was checking";
    EXPECT_EQ("  STATUS: user aborted, check ./velkor.log for details", row(screen, 23));
    EXPECT_TRUE(bold) << "the aborted status is drawn bold";
    EXPECT_NE(std::string::npos, terminal.runLog().find("<finishStatus>user aborted</finishStatus>"));
  }
}

TEST(CcAttribute, ClearAllWithMarkedTwiceMarkedAndUnmarkedObjects) {
  json beasts = plainFiles(4);
  beasts[0]["attributes"] = {"archive", "noStreamCompress"};
  beasts[1]["attributes"] = {"noStreamCompress"};
  beasts[2]["attributes"] = {"archive"};
  beasts[3]["attributes"] = {"readOnly", "noStreamCompress"};
  Simulator sim = Simulator::withFixture(volume(beasts, json::array()).dump());
  // The file system lists 1003's mark twice; and 1000 changes under the first two sets.
  sim.setFaults(R"([{"request":"getBeastInfo","zid":"1003","action":"raw","text":"<kvfReply><beast><getBeastInfo>)"
                R"(<result value=\"0\"/><beastInfo><namedBeastInfo><attributes><noStreamCompress/><readOnly/>)"
                R"(<noStreamCompress/></attributes></namedBeastInfo></beastInfo></getBeastInfo></beast></kvfReply>"},)"
                R"({"request":"setBeastInfo","zid":"1000","action":"result","value":20019,"count":2}])");
  FinishedRun run(sim, {"-C", "VOL1"});
  ASSERT_TRUE(run.finalScreen);
  EXPECT_EQ((std::vector<uint64_t>{4, 3, 0, 0, 0, 0, 0, 0}), counters(run.screen));
  EXPECT_EQ("  STATUS: finished successfully, check ./velkor.log for details", run.at(23));

  auto set = [](uint64_t zid, const std::string& oldValue, const std::string& newValue) {
    return testsupport::requestText(velkor::attributesSetRequest, "VOL1", std::to_string(zid).c_str(),
                                    oldValue.c_str(), newValue.c_str());
  };
  std::vector<std::string> sets;
  for (const json& r : sim.requestsOf("setBeastInfo")) sets.push_back(r["request"]);
  std::vector<std::string> expected = {
      set(1000, "<archive/><noStreamCompress/>", "<archive/>"), set(1000, "<archive/><noStreamCompress/>", "<archive/>"),
      set(1000, "<archive/><noStreamCompress/>", "<archive/>"), set(1001, "<noStreamCompress/>", ""),
      set(1003, "<noStreamCompress/><readOnly/><noStreamCompress/>", "<readOnly/><noStreamCompress/>")};
  EXPECT_EQ(expected, sets);  // (that they take: the generated volume's second clear clears none)

  FinishedRun one(sim, {"-H", "-c", kVol + "/f1002"});
  EXPECT_EQ((std::vector<uint64_t>{1, 0, 0, 0, 0, 0, 0, 0}), counters(one.screen));
}

TEST(Statistics, MaintenanceStateGoesStraightToTheTable) {
  json beasts = json::array({compressedFile(100, "/c1"), compressedFile(110, "/c2")});
  json fixture = volume(beasts, json::array({compData(100), compData(110)}), true, "maintenance");
  fixture["volumes"][0]["stats"] = {{"compressedFiles", 10}, {"compressedDeletedFiles", 2},
                                    {"uncompressibleFiles", 1}, {"preCompressionBlocks", 100},
                                    {"compressedBlocks", 40}};
  Simulator sim = Simulator::withFixture(fixture.dump());
  FinishedRun run(sim, {"-S", "VOL1"});
  ASSERT_TRUE(run.finalScreen);
  EXPECT_EQ("  Compression Statistics:", run.at(8));
  EXPECT_EQ("                                               Old                        New", run.at(10));
  // Old: the figures the volume held (8 files, 100 and 40 blocks); new: the
  // recount of its two compressed files (6 and 4 blocks in all).
  EXPECT_EQ("    Compressed Files:                            8                         2", run.at(12));
  EXPECT_EQ("    Precompressed Bytes:                    409600                     24576", run.at(15));
  EXPECT_EQ("    Compressed Bytes:                       163840                     16384", run.at(16));
  EXPECT_EQ(1u, sim.requestsOf("fixCompStats").size());
  EXPECT_EQ(testsupport::requestText(velkor::fixCompStatsRequest, "VOL1"),
            sim.requestsOf("fixCompStats")[0]["request"]);
}

TEST(Statistics, OtherStatesAskFirst) {
  json fixture = volume(plainFiles(3), json::array());
  fixture["volumes"][0]["stats"] = {{"compressedFiles", 5}, {"compressedDeletedFiles", 7}};
  Simulator sim = Simulator::withFixture(fixture.dump());
  VelkorTerminal terminal(sim, {"-S", "VOL1"});
  ASSERT_TRUE(terminal.waitFor("Do you want to continue (y/n)?"));
  EXPECT_EQ("  Compression statistics won't be calculated correctly because volume is not in",
            row(terminal.screen(), 10));
  EXPECT_EQ("  maintenance state. Do you want to continue (y/n)?", row(terminal.screen(), 11));
  terminal.send("n");
  ASSERT_TRUE(terminal.waitFor("Press any key"));
  EXPECT_EQ(std::string::npos, terminal.screenText().find("Compression Statistics:"));
  terminal.send("x");
  terminal.finish();
  EXPECT_TRUE(sim.requestsOf("fixCompStats").empty());

  FinishedRun yes(sim, {"-S", "VOL1"}, {}, "Y");
  ASSERT_TRUE(yes.finalScreen);
  // More deleted than compressed files: the first figure wraps around.
  EXPECT_NE(std::string::npos, yes.at(12).find("18446744073709551614"));
  EXPECT_EQ("", yes.at(11));
  EXPECT_EQ(1u, sim.requestsOf("fixCompStats").size());
}

TEST(Statistics, CompressionOffShowsTheNotSupportedLine) {
  Simulator sim = Simulator::withFixture(volume(plainFiles(2), json::array(), false, "maintenance").dump());
  FinishedRun run(sim, {"-S", "VOL1"});
  ASSERT_TRUE(run.finalScreen);
  EXPECT_EQ("  Volume doesn't have compression feature enabled. Nothing to do.", run.at(18));
  EXPECT_EQ("  STATUS: finished successfully, check ./velkor.log for details", run.at(23));
  EXPECT_NE(std::string::npos, run.at(12).find("Compressed Files:")) << "the old figures stay";
  EXPECT_NE(std::string::npos,
            run.terminal.runLog().find("<msg>Volume doesn't have compression feature turned on</msg>\n"));
}

// The background check end to end: its verdict either way and an error, on
// the screen and in the log (every rule: fileCheck_test's Candidate table).
TEST(Candidate, VerdictsAndErrorsOnTheScreen) {
  const struct {
    json attributes;
    const char* config;    // null: no configuration file
    const char* expected;  // the verdict line, or the error's message
  } cases[] = {
      {{"compressImmediate"}, nullptr, "File is a background compression candidate at this moment"},
      {{"doNotCompress"}, "/DaysUntouchedBeforeCompression=0\n", "File is not a background compression candidate at this moment"},
      {{"archive"}, "/DeletedFilesCompressionOption=2\n", "Error getting set parameter value"},
  };
  json beasts = json::array();
  for (size_t i = 0; i < 3; ++i) {
    beasts.push_back(plainFile(200 + i, "/c" + std::to_string(200 + i)));
    beasts.back()["attributes"] = cases[i].attributes;
  }
  Simulator sim = Simulator::withFixture(volume(beasts, json::array()).dump());
  for (size_t i = 0; i < 3; ++i) {
    const auto& c = cases[i];
    VelkorTerminal::Options options;
    if (c.config) options.cfg = c.config;
    FinishedRun run(sim, {"-b", kVol + "/c" + std::to_string(200 + i)}, options);
    ASSERT_TRUE(run.finalScreen) << c.expected;
    std::string expected = c.expected;
    if (expected.rfind("File is", 0) == 0) {
      EXPECT_EQ("    " + expected, run.at(12));
      EXPECT_EQ("  STATUS: finished successfully, check ./velkor.log for details", run.at(23)) << c.expected;
    } else {
      EXPECT_EQ("", run.at(12));
      std::string log = run.terminal.runLog();
      EXPECT_NE(std::string::npos, log.find(" message: " + expected + "</error>")) << log;
      EXPECT_EQ("  STATUS: finished with error, check ./velkor.log for details", run.at(23));
    }
  }
}

// A fault in the middle of a fix run ends it with one error element; what was
// done before stays done, each object repaired once. So does a scan whose next
// batch brings no zid above the last one checked, instead of repairing the same
// objects for ever: zids above 2^32, whose position the file system reads as
// 32 bits, and a file system that answers a batch again.
TEST(VolumeScan, FaultsBreakOffAScan) {
  const uint64_t high = (uint64_t(1) << 32) + 1000;
  const std::string noAdvance = "error: 24999 zERR_GENERIC_KVF_ERROR message: Volume scan did not advance: the batch "
                                "after zid ";
  struct Fault {
    const char* rule;
    uint64_t firstZid;
    size_t done;  // the objects checked and repaired before it
    std::string error;
  } faults[] = {
      {R"({"request":"getBeastInfo","nth":25,"action":"result","value":20400})", 1000, 24,
       "originated from:util/common_cpp/qXML[1254] error: 20400 zERR_UNKNOWN_ERROR message: Reply results</error>"},
      {R"({"request":"getBeastInfo","nth":25,"action":"empty"})", 1000, 24,
       "originated from:util/common_cpp/qXML[1218] error: 21702 zERR_XML_IS_BAD message: Can't find content for tag "
       "getBeastInfo</error>"},
      {R"({"request":"getBeastInfo","nth":25,"action":"eio_read"})", 1000, 24,
       "originated from:util/velkor/velkorClass[185] error: 5 Input/output error message: Failed to read file</error>"},
      {R"({"request":"getBeastInfo","nth":25,"action":"cut","bytes":200})", 1000, 24,
       "originated from:util/common_cpp/qXML[1218] error: 21702 zERR_XML_IS_BAD message: Can't find content for tag "
       "getBeastInfo</error>"},
      {"[]", high, 20, noAdvance + std::to_string(high + 190) + " holds no zid above it</error>"},
      {R"({"request":"browseBeasts","nth":2,"count":0,"action":"repeat"})", 1000, 20,
       noAdvance + "1190 holds no zid above it</error>"},
  };
  for (const Fault& f : faults) {
    SCOPED_TRACE(std::string(f.rule) + " from zid " + std::to_string(f.firstZid));
    Simulator sim = Simulator::withFixture(fixableVolume(f.firstZid, 45).dump());
    sim.setFaults(f.rule);
    FinishedRun run(sim, {"-F", "VOL1"});
    ASSERT_TRUE(run.finalScreen);
    EXPECT_EQ(0, run.terminal.exitStatus());
    EXPECT_EQ("  STATUS: finished with error, check ./velkor.log for details", run.at(23));
    std::vector<uint64_t> counts = counters(run.screen);
    EXPECT_EQ(f.done, counts[0]);
    EXPECT_EQ(f.done, counts[6]);
    std::string log = run.terminal.runLog();
    size_t error = log.find("<error>util/velkor/velkorUI[994] ");
    ASSERT_NE(std::string::npos, error) << log;
    EXPECT_EQ(std::string::npos, log.find("<error>", error + 1)) << "exactly one error element";
    EXPECT_NE(std::string::npos, log.find(f.error, error)) << log.substr(error, 300);
    std::map<std::string, int> repairs;
    for (const std::string& zid : requestIds(sim.requestsOf("setBeastInfo"))) ++repairs[zid];
    EXPECT_EQ(f.done, repairs.size());
    for (auto& [zid, n] : repairs) EXPECT_EQ(1, n) << "zid " << zid << " repaired twice";
    json beasts = sim.state()["volumes"][0]["beasts"];
    EXPECT_EQ(json({"archive", "dataStreamCompress"}), beasts[f.done - 1]["attributes"]);
    EXPECT_EQ(json({"archive"}), beasts[f.done]["attributes"]);
  }
}
