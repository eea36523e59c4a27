// Replies no file system should send, each refused with one error element:
// batches larger than asked, numbers of 25 and more digits, replies of
// megabytes, empty and cut replies, nested and unclosed CDATA. The run ends,
// the terminal is given back and the volume is left as it was.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

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

const std::string kDigits25 = "1234567890123456789012345";
const std::string kTooSmall = "20004 zERR_BUFFER_TOO_SMALL message: ";
const std::string kRefused = "24999 zERR_GENERIC_KVF_ERROR message: Reply results";
const std::string kNoContent = "21702 zERR_XML_IS_BAD message: ";
const std::string kName = "<kvfReply><beast><getBeastFullName><result value=\"0\"/><name>";
const std::string kNameEnd = "</name></getBeastFullName></beast></kvfReply>";

// 30 fixable files /f0, /f1, ... marked for -C too.
json absurdVolume() {
  json fixture = fixableVolume(1000, 30);
  for (json& file : fixture["volumes"][0]["beasts"]) file["attributes"] = {"archive", "noStreamCompress"};
  return fixture;
}

// The file system's own getBeastInfo reply about /f0 with `from` replaced by
// `to` (taken once per process from a real run).
std::string spoiled(const std::string& from, const std::string& to) {
  static const std::string beastInfo = [] {
    Simulator sim = Simulator::withFixture(absurdVolume().dump());
    FinishedRun run(sim, {"-l", kVol + "/f0"});
    auto requests = sim.requestsOf("getBeastInfo");
    return requests.empty() ? std::string() : requests[0]["reply"].get<std::string>();
  }();
  std::string text = beastInfo;
  size_t at = text.find(from);
  return at == std::string::npos ? "<no " + from + ">" : text.replace(at, from.size(), to);
}

// The same with element `tag` holding `value` instead of `was`, as a rule.
json spoiledRule(const std::string& tag, const std::string& was, const std::string& value) {
  auto element = [&](const std::string& text) { return "<" + tag + ">" + text + "</" + tag + ">"; };
  return rawRule("getBeastInfo", spoiled(element(was), element(value)));
}

struct AbsurdCase {
  const char* name;
  std::vector<std::string> args;
  std::function<json()> rules;  // a rule, or an array of them
  std::string error;  // the end of the error element: number, its name, message
};

// gtest names a failing case by this rather than by its bytes.
void PrintTo(const AbsurdCase& c, std::ostream* out) { *out << c.name; }

// (Spelled out: the cases are made before another file's kVol may be.)
const std::vector<std::string> kFix = {"-F", "VOL1"}, kClear = {"-C", "VOL1"}, kOne = {"-f", "/media/kvf/VOL1/f0"};

const AbsurdCase kCases[] = {
    {"BatchOfMoreZidsThanAsked", kFix, [] { return rawRule("browseBeasts", browse("1200", "21", zidList(1000, 21))); },
     kTooSmall + "More zids returned than the batch holds"},
    {"BatchCountOf25Digits", kFix, [] { return rawRule("browseBeasts", browse("1000", kDigits25, zidList(1000, 1))); },
     kTooSmall + "Batch count does not fit its field"},
    // Read as another number, the length made a good file look corrupted.
    {"EndOfFileOf25Digits", {"-d", "/media/kvf/VOL1/f0"}, [] { return spoiledRule("eof", "8569", kDigits25); },
     kTooSmall + "Number does not fit its field"},
    {"PreciousFlagBeyond32Bits", kOne, [] { return spoiledRule("cPrecious", "1", "4294967297"); },
     kTooSmall + "Number does not fit its field"},
    {"ZidOf25DigitsInABatch", kFix,
     [] { return rawRule("browseBeasts", browse("1000", "1", "<zid>" + kDigits25 + "</zid>")); },
     kTooSmall + "Zid text too long"},
    {"ObjectZidOf25Digits", kOne, [] { return spoiledRule("zid", "1000", kDigits25); },
     kTooSmall + "Value too long for its field"},
    {"CompressedDataZidOf25Digits", kOne, [] { return spoiledRule("compZid", "1001", kDigits25); },
     kTooSmall + "Value too long for its field"},
    // An id is passed on as text; the file system does not know it.
    {"FileIdOf25Digits", kOne,
     [] { return rawRule("getFileInfo", fileInfoReply("<![CDATA[" + kDigits25 + "]]>")); }, kRefused},
    // A zid the volume does not hold, answered with six megabytes.
    {"ReplyOfSixMegabytes", kFix,
     [] {
       return json::array({rawRule("browseBeasts", browse("999", "1", "<zid>999</zid>")),
                           {{"request", "getBeastInfo"}, {"action", "pad"}, {"bytes", 6000000}}});
     },
     kRefused},
    {"EmptyReply", kFix, [] { return json{{"request", "browseBeasts"}, {"action", "empty"}}; },
     kNoContent + "Can't find content for tag browseBeasts"},
    {"CutReply", kClear, [] { return json{{"request", "getVolumeInfo"}, {"action", "cut"}, {"bytes", 60}}; },
     kNoContent + "Can't find content for tag getVolumeInfo"},
    {"UnclosedCdataInAName", kFix, [] { return rawRule("getBeastFullName", kName + "<![CDATA[/a" + kNameEnd); },
     kNoContent + "Error getting tag content"},
    {"UnclosedCdataInAFileId", kOne, [] { return rawRule("getFileInfo", fileInfoReply("<![CDATA[1000")); },
     kNoContent + "Error getting tag content"},
    {"NestedCdataInAFileId", kOne,
     [] { return rawRule("getFileInfo", fileInfoReply("<![CDATA[<![CDATA[1000]]>]]>")); }, kRefused},
};

class AbsurdReplies : public ::testing::TestWithParam<AbsurdCase> {};

}  // namespace

TEST_P(AbsurdReplies, AreRefusedWithOneErrorAndChangeNothing) {
  const AbsurdCase& c = GetParam();
  Simulator sim = Simulator::withFixture(absurdVolume().dump());
  json before = sim.state();
  sim.setFaults(c.rules().dump());
  FinishedRun run(sim, c.args);
  ASSERT_TRUE(run.finalScreen) << run.terminal.screenText();
  EXPECT_EQ(0, run.terminal.exitStatus());
  EXPECT_FALSE(run.terminal.alternateScreen());
  EXPECT_EQ("  STATUS: finished with error, check ./velkor.log for details", run.at(23));
  std::string log = run.terminal.runLog();
  size_t error = log.find("<error>");
  ASSERT_NE(std::string::npos, error) << log;
  EXPECT_EQ(std::string::npos, log.find("<error>", error + 1)) << "exactly one error element";
  std::string element = log.substr(error, log.find('\n', error) - error);
  EXPECT_NE(std::string::npos, element.find(c.error + "</error>")) << element;
  EXPECT_EQ(before, sim.state()) << "the volume is left as it was";
}

INSTANTIATE_TEST_SUITE_P(Replies, AbsurdReplies, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<AbsurdCase>& info) { return std::string(info.param.name); });
