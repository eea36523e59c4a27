// Fault rules loaded through control/faults: choosing by volume and zid, what
// each rule has matched, the actions whose effect on the volume the
// end-to-end runs cannot see (a write error runs nothing, a read error runs
// the request), and refused rules. The reply-shaping actions are pinned by
// the end-to-end tests that use them (FaultsBreakOffAScan, AbsurdReplies).
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>

#include "simtest.h"

using namespace simtest;
using testsupport::Simulator;

namespace {

using Faults = FixtureTest;

TEST_F(Faults, RulesPickByVolumeAndZid) {
  sim.setFaults(R"({"zid":"103","count":0,"action":"raw","text":"<nothing/>"})");
  sim.setFaults(R"({"volume":"VOL2","count":0,"action":"result","value":-1})");
  EXPECT_EQ(sim.manage(getBeastInfo("VOL1", "103", 2, false)), "<nothing/>");
  EXPECT_EQ(sim.manage(getBeastFullName("VOL1", "103")), "<nothing/>");
  EXPECT_EQ(resultOf(sim.manage(getBeastInfo("VOL1", "101", 15, true)), "getBeastInfo"), 0);
  EXPECT_EQ(resultOf(sim.manage(getVolumeInfo("VOL2")), "getVolumeInfo"), -1);
  EXPECT_EQ(resultOf(sim.manage(getVolumeInfo("VOL1")), "getVolumeInfo"), 0);
  // Reading the rules back shows how often each matched; [] clears them.
  nlohmann::json rules = nlohmann::json::parse(testsupport::readFile(sim.mount() + "/control/faults"));
  ASSERT_EQ(rules.size(), 2u);
  EXPECT_EQ(rules[0]["seen"], 2);
  EXPECT_EQ(rules[1]["seen"], 1);
  sim.setFaults("[]");
  EXPECT_EQ(resultOf(sim.manage(getBeastFullName("VOL1", "103")), "getBeastFullName"), 0);
}

TEST_F(Faults, InputOutputErrorsAndDelay) {
  std::string set = setStatus("VOL1", "101", "<compressed/><clean/>", "<compressed/>");
  std::string reply;
  int error = 0;
  sim.setFaults(R"({"request":"setBeastInfo","action":"eio_write"})");
  EXPECT_FALSE(sim.exchange("manage.cmd", set, &reply, &error));
  EXPECT_EQ(error, EIO);
  EXPECT_EQ(sim.beast(101)["comp"]["status"].dump(), R"(["compressed","clean"])");  // not run

  sim.setFaults(R"([{"request":"setBeastInfo","action":"eio_read"}])");
  EXPECT_FALSE(sim.exchange("manage.cmd", set, &reply, &error));
  EXPECT_EQ(error, EIO);
  EXPECT_EQ(sim.beast(101)["comp"]["status"].dump(), R"(["compressed"])");  // run, but the reply cannot be read

  sim.setFaults(R"([{"request":"getVolumeInfo","action":"delay","ms":300}])");
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(resultOf(sim.manage(getVolumeInfo("VOL1")), "getVolumeInfo"), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));

  sim.setFaults(R"([{"request":"deleteBeast","action":"empty","apply":true}])");
  EXPECT_EQ(sim.manage(deleteBeast("VOL1", "104")), "");
  EXPECT_EQ(sim.state()["volumes"][0]["liveBeasts"], 6);
}

TEST_F(Faults, OpenAndUnlinkFailWithTheGivenErrno) {
  sim.setFaults(R"({"request":"open","file":"files.cmd","nth":2,"action":"result","value":13})");
  std::string reply;
  int error = 0;
  std::string query = getFileInfo("/media/kvf/VOL1/docs/b.txt");
  EXPECT_TRUE(sim.exchange("files.cmd", query, &reply, &error));
  EXPECT_FALSE(sim.exchange("files.cmd", query, &reply, &error));
  EXPECT_EQ(error, EACCES);
  EXPECT_EQ(resultOf(sim.manage(getVolumeInfo("VOL1")), "getVolumeInfo"), 0);  // another file, not counted
  EXPECT_TRUE(sim.exchange("files.cmd", query, &reply, &error));

  sim.setFaults(R"({"request":"unlink","action":"result","value":13})");
  std::string path = sim.volumeDir("VOL1") + "/docs/b.txt";
  EXPECT_EQ(unlink(path.c_str()), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(access(path.c_str(), F_OK), 0);
  EXPECT_EQ(unlink(path.c_str()), 0);
}

TEST_F(Faults, BadRulesAreRefused) {
  EXPECT_THROW(sim.setFaults(R"({"action":"explode"})"), std::runtime_error);
  EXPECT_THROW(sim.setFaults(R"({"action":"result")"), std::runtime_error);
  EXPECT_THROW(sim.setFaults(R"({"action":"result","nth":0})"), std::runtime_error);
  EXPECT_EQ(testsupport::readFile(sim.mount() + "/control/faults"), "[]\n");
}

}  // namespace
