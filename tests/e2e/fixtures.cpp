#include "fixtures.h"

#include <gtest/gtest.h>

#include <regex>

namespace e2efixtures {

const std::string kVol = "/media/kvf/VOL1";

json compressedFile(uint64_t zid, const std::string& name) {
  return {{"zid", zid},
          {"name", name},
          {"attributes", {"archive", "dataStreamCompress"}},
          {"eof", 8569},
          {"created", {{"utc", 1680068218}, {"text", "2023/03/29 05:36:58"}}},
          {"accessed", {{"utc", 1683322990}, {"text", "2023/05/05 21:43:10"}}},
          {"comp", {{"compZid", zid + 1}, {"chunkSize", 65536}, {"ucPrecious", 0}, {"cPrecious", 1},
                    {"status", {"compressed", "clean"}}, {"action", json::array()}}}};
}

json corruptedFile(uint64_t zid, const std::string& name) {
  json f = compressedFile(zid, name);
  f["comp"]["compZid"] = 0;
  return f;
}

json compData(uint64_t owner) {
  return {{"zid", owner + 1}, {"owner", owner}, {"eof", 4285}, {"physSize", 8192},
          {"header", {{"compressCode", 1}, {"originalLength", 8569}, {"compressedLength", 4285}}}};
}

json plainFile(uint64_t zid, const std::string& name) {
  return {{"zid", zid}, {"name", name}, {"eof", 100}, {"physSize", 4096}};
}

json volume(const json& beasts, const json& compBeasts, bool compression, const std::string& state) {
  return {{"volumes",
           {{{"name", "VOL1"},
             {"state", state},
             {"compression", compression},
             {"beasts", beasts},
             {"compBeasts", compBeasts}}}}};
}

json fixableVolume(uint64_t first, int n) {
  json beasts = json::array(), comps = json::array();
  for (int i = 0; i < n; ++i) {
    json file = compressedFile(first + 10 * i, "/f" + std::to_string(i));
    file["attributes"] = {"archive"};
    beasts.push_back(file);
    comps.push_back(compData(first + 10 * i));
  }
  return volume(beasts, comps);
}

json plainFiles(int n, uint64_t first) {
  json beasts = json::array();
  for (int i = 0; i < n; ++i) beasts.push_back(plainFile(first + i, "/f" + std::to_string(first + i)));
  return beasts;
}

std::string fileInfoReply(const std::string& id, const std::string& volume) {
  return "<fileReply><fileInfo><getFileInfo><result value=\"0\"/><standardInfo><id>" + id +
         "</id><volumeName><![CDATA[" + volume + "]]></volumeName></standardInfo></getFileInfo></fileInfo></fileReply>";
}

std::string fileInfoFault(const std::string& zid, int count) {
  return json({{"request", "getFileInfo"}, {"action", "raw"}, {"count", count},
               {"text", fileInfoReply("<![CDATA[" + zid + "]]>")}})
      .dump();
}

namespace {

// What the first group of `pattern` catches in each request's text, in
// order (requests it does not match are left out).
std::vector<std::string> caught(const std::vector<json>& requests, const std::regex& pattern) {
  std::vector<std::string> found;
  for (const json& r : requests) {
    std::smatch m;
    const std::string text = r.value("request", "");
    if (std::regex_search(text, m, pattern)) found.push_back(m[1]);
  }
  return found;
}

}  // namespace

std::vector<std::string> requestIds(const std::vector<json>& requests) {
  return caught(requests, std::regex("<id><!\\[CDATA\\[(\\d+)\\]\\]></id>"));
}

std::vector<std::string> scanPositions(const std::vector<json>& browses) {
  return caught(browses, std::regex("<scanSequence>(-?\\d+)</scanSequence>"));
}

std::string row(const std::vector<std::string>& screen, size_t i) { return i < screen.size() ? screen[i] : ""; }

std::vector<std::string> entries(const std::string& log) {
  std::vector<std::string> found;
  std::regex entry("<entry>.*</entry>");
  for (auto it = std::sregex_iterator(log.begin(), log.end(), entry); it != std::sregex_iterator(); ++it)
    found.push_back(it->str());
  return found;
}

FinishedRun::FinishedRun(const testsupport::Simulator& sim, std::vector<std::string> args,
                         const testsupport::VelkorTerminal::Options& options, const std::string& answer)
    : terminal(sim, args, options) {
  if (!answer.empty()) {
    EXPECT_TRUE(terminal.waitFor("(y/n)?")) << terminal.screenText();
    terminal.send(answer);
  }
  finalScreen = terminal.waitFor("Press any key to continue....", std::chrono::seconds(120));
  // The timer thread, started with the screen, draws the elapsed time on its
  // own: a run quicker than its start (a loaded machine) ends before it.
  if (finalScreen) terminal.waitForRow(4, "  Time Elapsed: ", std::chrono::seconds(10));
  screen = terminal.screen();
  statusBold = terminal.bold(23, 10);
  terminal.send("x");
  terminal.finish();
}

}  // namespace e2efixtures
