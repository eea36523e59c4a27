// The generated volume: its counts checked against an independent reading of
// the problem rules over state.json, and the daemon under concurrent load.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <set>
#include <thread>

#include "simtest.h"

using namespace simtest;
using nlohmann::json;
using testsupport::Simulator;

namespace {

bool has(const json& tags, const char* tag) {
  for (const auto& t : tags)
    if (t == tag) return true;
  return false;
}

// The problem word of one file, read from state.json the way the program's
// detection reads the replies.
unsigned problems(const json& b, const std::map<uint64_t, json>& comps) {
  unsigned w = 1;
  auto set = [&w](unsigned bit) { w = (w & ~1u) | bit; };
  const json& attrs = b["attributes"];
  bool dsc = has(attrs, "dataStreamCompress");
  if (has(attrs, "subdirectory")) return w;
  if (b["openCount"] != 0) return 2;
  if (!b.contains("comp")) {
    if (dsc) set(4);
    if (b["eof"] != 0 && b["physSize"] == 0) set(1024);
    return w;
  }
  const json& c = b["comp"];
  uint64_t zid = c["compZid"];
  auto it = comps.find(zid);
  const json* cb = it == comps.end() ? nullptr : &it->second;
  if (zid && !cb) return 64;
  bool uncompressed = has(c["status"], "uncompressed"), compressed = has(c["status"], "compressed");
  bool clean = has(c["status"], "clean"), addLog = has(c["action"], "addCompLog");
  int uc = c["ucPrecious"], cp = c["cPrecious"];
  if (uc == 1 && cp == 0) {
    if (!uncompressed || compressed || dsc || addLog == clean) set(8);
  } else if (uc == 1 && cp == 1) {
    set(8);
    if (!zid) set(32);
  } else if (uc == 0 && cp == 1) {
    if (uncompressed || !compressed || !clean || !dsc) set(8);
    if (!zid) set(32);
  } else {
    set(8);
  }
  if (!zid) return w;
  bool deleted = true;
  for (const auto& p : b["parents"]) deleted &= p == "DeletedFile";
  if ((*cb)["variableData"] && (*cb)["deleted"] != deleted) set(16);
  if (cp == 0) return w;
  if ((*cb)["eof"] == 0) {
    set(128);
    return w;
  }
  if ((*cb)["owner"] != b["zid"]) set(512);
  const json& h = (*cb)["header"];
  if (h["compressCode"] > 2 || h["majorVersion"] != 1 || h["minorVersion"] != 0 || h["originalLength"] != b["eof"] ||
      h["compressedLength"] == 0)
    set(256);
  return w;
}

TEST(Generator, CountsMatchAnIndependentReadingOfTheState) {
  Simulator::Options o;
  o.generate = 3000;
  o.seed = 7;
  Simulator sim(o);
  json state = sim.state();
  const json& v = state["volumes"][0];
  std::map<uint64_t, json> comps;
  for (const auto& c : v["compBeasts"]) comps[c["zid"]] = c;
  std::map<std::string, uint64_t> n;
  unsigned seen = 0;
  for (const auto& b : v["beasts"]) {
    unsigned w = problems(b, comps);
    seen |= w;
    ++n["processed"];
    ++n[w & 0x7E0 ? "corrupted" : w & 0x1C ? "fixable" : w & 2 ? "openSkipped" : "good"];
  }
  json expected = sim.expected()["list"];
  for (const char* key : {"processed", "good", "openSkipped", "fixable", "corrupted"})
    EXPECT_EQ(n[key], expected[key].get<uint64_t>()) << key;
  EXPECT_EQ(seen, 0x7FFu) << "every problem code occurs";
  EXPECT_EQ(v["liveBeasts"], 3000);
  EXPECT_GT(sim.expected()["delete"]["deleted"], 0);
  EXPECT_EQ(sim.expected()["afterDelete"]["corrupted"], 0);
  EXPECT_GT(sim.expected()["fix"]["fixed"], 0);
  EXPECT_NE(v["stats"], sim.expected()["statsRecount"]) << "statistics start out stale";

  // The same seed gives the same volume; another seed another one.
  o.seed = 7;
  Simulator again(o);
  EXPECT_EQ(again.state(), state);
  o.seed = 8;
  Simulator other(o);
  EXPECT_NE(other.state(), state);
}

TEST(Generator, WrittenFixtureLoadsBackToTheSameState) {
  testsupport::TempDir dir;
  std::string kvfsim = testsupport::binaryPath("sim/kvfsim");
  auto written = testsupport::runProcess(
      {kvfsim, "--generate", "500", "--seed", "4", "--write-fixture", dir.file("f.json"), "--expect", dir.file("e.json")});
  ASSERT_EQ(written.exitStatus, 0) << written.err;
  Simulator::Options o;
  o.generate = 500;
  o.seed = 4;
  Simulator generated(o);
  Simulator loaded = Simulator::withFixture(testsupport::readFile(dir.file("f.json")));
  EXPECT_EQ(loaded.state(), generated.state());
  EXPECT_EQ(json::parse(testsupport::readFile(dir.file("e.json"))), generated.expected());

  // Usage and fixture errors end at once with a message.
  EXPECT_EQ(testsupport::runProcess({kvfsim, dir.path()}).exitStatus, 2);
  EXPECT_EQ(testsupport::runProcess({kvfsim, "--generate", "x", dir.path()}).exitStatus, 2);
  testsupport::writeFile(dir.file("bad.json"), R"({"volumes":[{"name":"V","beasts":[{"zid":1,"attributes":["nope"]}]}]})");
  auto bad = testsupport::runProcess({kvfsim, "--fixture", dir.file("bad.json"), dir.path()});
  EXPECT_EQ(bad.exitStatus, 1);
  EXPECT_NE(bad.err.find("nope"), std::string::npos) << bad.err;
}

// Scans the whole volume as the program does: batches of 20 after the last
// zid narrowed to 32 bits, one full query per zid.
uint64_t scan(const Simulator& sim, std::atomic<int>& failures) {
  uint64_t visited = 0;
  int sequence = 0;
  for (;;) {
    std::string batch = sim.manage(browseBeasts("VOL1", 20, sequence));
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
  for (const auto& b : state["volumes"][0]["beasts"])
    if (b["classId"] == 3 && !has(b["attributes"], "subdirectory") && b["parents"][0] == "File")
      names.push_back(b["name"]);

  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) threads.emplace_back([&] { visited += scan(sim, failures); });
  threads.emplace_back([&] {
    for (size_t i = 0; i < names.size() && i < 200; i += 2)
      if (unlink((sim.volumeDir("VOL1") + names[i]).c_str()) != 0) ++failures;
  });
  threads.emplace_back([&] {
    for (int i = 0; i < 200; ++i) {
      std::string r = sim.manage(fixCompStats("VOL1"));
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
