// Replies no file system should send, each refused with one error element:
// batches larger than asked, numbers of 25 and more digits, replies of
// megabytes, empty and cut replies, nested and unclosed CDATA. The run ends,
// the terminal is given back and the volume is left as it was.
#include <gtest/gtest.h>

#include <string>

#include "e2e.h"
#include "fixtures.h"

using namespace e2efixtures;
using testsupport::Simulator;

namespace {

// A reply of the request's shape around `body` (after its result element).
std::string reply(const std::string& group, const std::string& request, const std::string& body,
                  const std::string& result = "0") {
  return "<kvfReply><" + group + "><" + request + "><result value=\"" + result + "\"/>" + body + "</" + request +
         "></" + group + "></kvfReply>";
}

std::string browse(const std::string& last, const std::string& count, const std::string& zids) {
  return reply("volume", "browseBeasts",
               "<lastZidReturned>" + last + "</lastZidReturned><numBeastsReturned>" + count +
                   "</numBeastsReturned><beastZids>" + zids + "</beastZids>");
}

std::string zidList(uint64_t first, int n) {
  std::string zids;
  for (int i = 0; i < n; ++i) zids += "<zid>" + std::to_string(first + 10 * i) + "</zid>";
  return zids;
}

json rawRule(const std::string& request, const std::string& text, const std::string& zid = "") {
  json rule = {{"request", request}, {"action", "raw"}, {"text", text}};
  if (!zid.empty()) rule["zid"] = zid;
  return rule;
}

struct AbsurdCase {
  const char* what;
  std::vector<std::string> args;
  json rules;
  std::string error;  // the end of the error element: number, its name, message
};

}  // namespace

TEST(AbsurdReplies, EachIsRefusedWithAnErrorAndChangesNothing) {
  const std::string digits25 = "1234567890123456789012345";
  json beasts = json::array(), comps = json::array();
  for (int i = 0; i < 30; ++i) {
    json file = compressedFile(1000 + 10 * i, "/f" + std::to_string(i));
    file["attributes"] = {"archive", "noStreamCompress"};  // fixable, and marked for -C
    beasts.push_back(file);
    comps.push_back(compData(1000 + 10 * i));
  }
  const std::string fix = "-F", clear = "-C", vol = "VOL1";
  const std::string name = "<kvfReply><beast><getBeastFullName><result value=\"0\"/><name>";
  const std::string nameEnd = "</name></getBeastFullName></beast></kvfReply>";
  const std::string fileInfo = "<fileReply><fileInfo><getFileInfo><result value=\"0\"/><standardInfo><id>";
  const std::string fileInfoEnd =
      "</id><volumeName><![CDATA[VOL1]]></volumeName></standardInfo></getFileInfo></fileInfo></fileReply>";
  const std::vector<std::string> one = {"-f", kVol + "/f0"};
  // The file system's own reply about /f0, to be spoiled.
  std::string beastInfo;
  {
    Simulator sim = Simulator::withFixture(volume(beasts, comps).dump());
    FinishedRun run(sim, {"-l", kVol + "/f0"});
    ASSERT_FALSE(sim.requestsOf("getBeastInfo").empty());
    beastInfo = sim.requestsOf("getBeastInfo")[0]["reply"];
  }
  auto spoiled = [&beastInfo](const std::string& from, const std::string& to) {
    std::string text = beastInfo;
    size_t at = text.find(from);
    return at == std::string::npos ? "<no " + from + ">" : text.replace(at, from.size(), to);
  };
  const std::string tooSmall = "20004 zERR_BUFFER_TOO_SMALL message: ";
  const std::string refused = "24999 zERR_GENERIC_KVF_ERROR message: Reply results";
  const std::string noContent = "21702 zERR_XML_IS_BAD message: ";
  const AbsurdCase cases[] = {
      {"a batch of more zids than asked", {fix, vol},
       json::array({rawRule("browseBeasts", browse("1200", "21", zidList(1000, 21)))}),
       tooSmall + "More zids returned than the batch holds"},
      {"a batch count of 25 digits", {fix, vol},
       json::array({rawRule("browseBeasts", browse("1000", digits25, zidList(1000, 1)))}),
       tooSmall + "Batch count does not fit its field"},
      // Read as another number, the length made a good file look corrupted.
      {"an end of file of 25 digits", {"-d", kVol + "/f0"},
       json::array({rawRule("getBeastInfo", spoiled("<eof>8569</eof>", "<eof>" + digits25 + "</eof>"))}),
       tooSmall + "Number does not fit its field"},
      {"a precious flag beyond 32 bits", one,
       json::array({rawRule("getBeastInfo", spoiled("<cPrecious>1</cPrecious>", "<cPrecious>4294967297</cPrecious>"))}),
       tooSmall + "Number does not fit its field"},
      {"a zid of 25 digits in a batch", {fix, vol},
       json::array({rawRule("browseBeasts", browse("1000", "1", "<zid>" + digits25 + "</zid>"))}),
       tooSmall + "Zid text too long"},
      {"an object zid of 25 digits", one,
       json::array({rawRule("getBeastInfo", spoiled("<zid>1000</zid>", "<zid>" + digits25 + "</zid>"))}),
       tooSmall + "Value too long for its field"},
      {"a compressed-data zid of 25 digits", one,
       json::array(
           {rawRule("getBeastInfo", spoiled("<compZid>1001</compZid>", "<compZid>" + digits25 + "</compZid>"))}),
       tooSmall + "Value too long for its field"},
      // An id is passed on as text; the file system does not know it.
      {"a file id of 25 digits", one,
       json::array({rawRule("getFileInfo", fileInfo + "<![CDATA[" + digits25 + "]]>" + fileInfoEnd)}), refused},
      // A zid the volume does not hold, answered with six megabytes.
      {"a reply of six megabytes", {fix, vol},
       json::array({rawRule("browseBeasts", browse("999", "1", "<zid>999</zid>")),
                    {{"request", "getBeastInfo"}, {"action", "pad"}, {"bytes", 6000000}}}),
       refused},
      {"an empty reply", {fix, vol}, json::array({{{"request", "browseBeasts"}, {"action", "empty"}}}),
       noContent + "Can't find content for tag browseBeasts"},
      {"a cut reply", {clear, vol}, json::array({{{"request", "getVolumeInfo"}, {"action", "cut"}, {"bytes", 60}}}),
       noContent + "Can't find content for tag getVolumeInfo"},
      {"unclosed CDATA in a name", {fix, vol},
       json::array({rawRule("getBeastFullName", name + "<![CDATA[/a" + nameEnd)}),
       noContent + "Error getting tag content"},
      {"unclosed CDATA in a file id", one,
       json::array({rawRule("getFileInfo", fileInfo + "<![CDATA[1000" + fileInfoEnd)}),
       noContent + "Error getting tag content"},
      {"nested CDATA in a file id", one,
       json::array({rawRule("getFileInfo", fileInfo + "<![CDATA[<![CDATA[1000]]>]]>" + fileInfoEnd)}), refused},
  };
  for (const AbsurdCase& c : cases) {
    Simulator sim = Simulator::withFixture(volume(beasts, comps).dump());
    json before = sim.state();
    sim.setFaults(c.rules.dump());
    FinishedRun run(sim, c.args);
    ASSERT_TRUE(run.finalScreen) << c.what << "\n" << run.terminal.screenText();
    EXPECT_EQ(0, run.terminal.exitStatus()) << c.what;
    EXPECT_FALSE(run.terminal.alternateScreen()) << c.what;
    EXPECT_EQ("  STATUS: finished with error, check ./velkor.log for details", run.at(23)) << c.what;
    std::string log = run.terminal.runLog();
    size_t error = log.find("<error>");
    ASSERT_NE(std::string::npos, error) << c.what << "\n" << log;
    EXPECT_EQ(std::string::npos, log.find("<error>", error + 1)) << c.what << ": exactly one error element";
    std::string element = log.substr(error, log.find('\n', error) - error);
    EXPECT_NE(std::string::npos, element.find(c.error + "</error>")) << c.what << "\n" << element;
    EXPECT_EQ(before, sim.state()) << c.what << ": the volume is left as it was";
  }
}
