// The generated volume: a written fixture loads back to the same state, and
// the daemon under concurrent load.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <set>
#include <thread>

#include "simtest.h"

using namespace simtest;
using nlohmann::json;
using testsupport::Simulator;

namespace {

TEST(Generator, WrittenFixtureLoadsBackToTheSameState) {
  testsupport::TempDir dir;
  auto written = testsupport::runBuilt(
      "sim/kvfsim", {"--generate", "500", "--seed", "4", "--write-fixture", dir.file("f.json"), "--expect", dir.file("e.json")});
  ASSERT_EQ(written.exitStatus, 0) << written.err;
  Simulator generated = Simulator::generated(500, 4);
  Simulator loaded = Simulator::withFixture(testsupport::readFile(dir.file("f.json")));
  EXPECT_EQ(loaded.state(), generated.state());
  // The name tree too: a fixture lists its name index, a generated volume its directories' objects.
  auto tree = [](const Simulator& sim) {
    std::set<std::string> paths;
    for (const auto& e : std::filesystem::recursive_directory_iterator(sim.volumeDir("VOL1")))
      paths.insert(e.path().string().substr(sim.volumeDir("VOL1").size()));
    return paths;
  };
  std::set<std::string> names = tree(generated);
  EXPECT_GT(names.size(), 400u);
  EXPECT_EQ(tree(loaded), names);
  json expected = json::parse(testsupport::readFile(dir.file("e.json")));
  EXPECT_EQ(expected, generated.expected());
  uint32_t problems = 0;  // the kinds raise every problem bit
  for (const auto& [word, files] : expected["list"]["words"].items()) problems |= std::stoul(word);
  EXPECT_EQ(0x7FEu, problems);

  // Usage and fixture errors end at once with a message.
  EXPECT_EQ(testsupport::runBuilt("sim/kvfsim", {dir.path()}).exitStatus, 2);
  EXPECT_EQ(testsupport::runBuilt("sim/kvfsim", {"--generate", "x", dir.path()}).exitStatus, 2);
  testsupport::writeFile(dir.file("bad.json"), R"({"volumes":[{"name":"V","beasts":[{"zid":1,"attributes":["nope"]}]}]})");
  auto bad = testsupport::runBuilt("sim/kvfsim", {"--fixture", dir.file("bad.json"), dir.path()});
  EXPECT_EQ(bad.exitStatus, 1);
  EXPECT_NE(bad.err.find("nope"), std::string::npos) << bad.err;
}

// Scans the whole volume as the program does: batches of 20 after the last
// zid narrowed to 32 bits, one full query per zid.
uint64_t scan(const Simulator& sim, std::atomic<int>& failures) {
  uint64_t visited = 0;
  int sequence = 0;
  for (;;) {
    std::string batch = sim.manage(requestText(velkor::browseRequest, "VOL1", true, 0, 20, sequence));
    if (resultOf(batch, "browseBeasts") != 0) {
      ++failures;
      return visited;
    }
    int n = std::stoi(first(batch, "numBeastsReturned"));
    size_t at = 0;
    for (int i = 0; i < n; ++i) {
      at = batch.find("<zid>", at) + 5;
      std::string zid = batch.substr(at, batch.find('<', at) - at);
      long result = resultOf(sim.manage(getBeastInfo("VOL1", zid.c_str(), 15, true)), "getBeastInfo");
      if (result != 0 && result != 24999) ++failures;  // 24999: deleted meanwhile
      sequence = int(std::stoull(zid));
      ++visited;
    }
    if (n != 20) return visited;
  }
}

TEST(Generator, ManyThreadsScanWhileOthersChangeTheVolume) {
  Simulator::Options o;
  o.generate = 4000;
  o.requestLog = false;
  Simulator sim(o);
  std::atomic<int> failures{0};
  std::atomic<uint64_t> visited{0};
  json state = sim.state();
  std::vector<std::string> names;
  for (const json& b : state["volumes"][0]["beasts"]) {
    const json& tags = b["attributes"];
    if (b["classId"] == 3 && std::count(tags.begin(), tags.end(), "subdirectory") == 0 && b["parents"][0] == "File")
      names.push_back(b["name"]);
  }

  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) threads.emplace_back([&] { visited += scan(sim, failures); });
  threads.emplace_back([&] {
    for (size_t i = 0; i < names.size() && i < 200; i += 2)
      if (unlink((sim.volumeDir("VOL1") + names[i]).c_str()) != 0) ++failures;
  });
  threads.emplace_back([&] {
    for (int i = 0; i < 200; ++i) {
      std::string r = sim.manage(requestText(velkor::fixCompStatsRequest, "VOL1"));
      if (resultOf(r, "fixCompStats") != 0) ++failures;
      sim.manage("garbage");
    }
  });
  for (auto& t : threads) t.join();
  EXPECT_EQ(failures, 0);
  EXPECT_GE(visited, 4u * 3900);
  EXPECT_EQ(sim.state()["volumes"][0]["liveBeasts"], 4000 - 100);
  EXPECT_EQ(sim.stop(), 0) << sim.daemonOutput();
}

}  // namespace
