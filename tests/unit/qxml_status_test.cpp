// Reply status: every outcome of reading <result value="..."> under a request's element.
#include <gtest/gtest.h>

#include <string>

#include "common_cpp/kvfError.h"
#include "common_cpp/qXML.h"

using QXML::GetReplyResultValueForTag;

namespace {

std::string reply(const std::string& inside) {
  return "<kvfReply><getBeastInfo>" + inside + "<beastInfo/></getBeastInfo></kvfReply>";
}

std::string qXML(int line) { return "util/common_cpp/qXML[" + std::to_string(line) + "]"; }

struct Outcome {
  std::string text;
  std::string message;  // "" for success
  int code;
  std::string location;
  bool admin;  // raised as AdminError
  std::string tag = "getBeastInfo";
};

}  // namespace

TEST(ReplyStatus, EveryOutcome) {
  const std::string unparsed = "Unable to parse XML tag getBeastInfo", noResult = "Can't find result tag",
                    noContent = "Can't find content for tag getBeastInfo";
  const Outcome outcomes[] = {
      {reply("<result value=\"0\"/>"), "", 0, "", false},
      {reply("<other>x</other>\n  <result value=\" 0 \"></result>"), "", 0, "", false},
      // A refused request carries its number.
      {reply("<result value=\"20400\"/>"), "Reply results", 20400, qXML(1254), false},
      {reply("<result value=\"-1\"/>"), "Reply results", -1, qXML(1254), false},
      {reply("<result value=\"0x10\"/>"), "Reply results", 16, qXML(1254), false},
      {reply("<result value=\"4294967296\"/>"), "Value overflow", 20006, qXML(1250), false},
      // An unreadable status is the administrator's error.
      {reply("<result value=\"\"/>"), unparsed, 21703, qXML(1244), true},
      {reply("<result val=\"0\"/>"), unparsed, 21703, qXML(1244), true},
      {reply("<result value=\"" + std::string(80, '1') + "\"/>"), unparsed, 20004, qXML(1244), true},
      // Missing elements.
      {reply("<x><result value=\"0\"/></x>"), noResult, 21702, qXML(1225), false},
      {"<kvfReply><getBeastInfo/></kvfReply>", noResult, 21702, qXML(1225), false},
      {"<kvfReply><getBeastInfo></getBeastInfo></kvfReply>", noResult, 21702, qXML(1225), false},
      {"<kvfReply><getVolumeInfo><result value=\"0\"/></getVolumeInfo></kvfReply>", noContent, 21702, qXML(1218),
       false},
      {"", noContent, 21702, qXML(1218), false},
      {"<kvfReply><getBeastInfo><result value=\"0\"/>", noContent, 21702, qXML(1218), false},
      {"", "Buffer too small", 20004, qXML(1218), false, std::string(300, 't')},
  };
  for (const Outcome& o : outcomes) {
    SCOPED_TRACE(o.text);
    try {
      GetReplyResultValueForTag(o.text.c_str(), o.tag.c_str());
      EXPECT_EQ("", o.message) << "no error";
    } catch (const KVFError& e) {
      EXPECT_EQ(o.message, e.what());
      EXPECT_EQ(o.code, e.code);
      EXPECT_EQ(o.location, e.location);
      EXPECT_EQ(o.admin, dynamic_cast<const AdminError*>(&e) != nullptr);
      EXPECT_TRUE(e.isKvfCode);
    }
  }
}

TEST(ReplyStatus, KvfReplyRootCompanions) {
  std::string refused = "<kvfReply><result value=\"21209\"/></kvfReply>";
  int32_t value = 0;
  EXPECT_EQ(zOK, QXML::GetKVFReplyResultValue(refused.c_str(), &value));
  EXPECT_EQ(21209, value);
  EXPECT_THROW(QXML::GetKVFReplyResultValueT(refused.c_str()), KVFError);
  std::string big = "<kvfReply><result value=\"-4294967296\"/></kvfReply>";
  EXPECT_EQ(zERR_QUAD_TOO_BIG_FOR_LONG, QXML::GetKVFReplyResultValue(big.c_str(), &value));
  EXPECT_EQ(zERR_XML_IS_INCOMPLETE, QXML::GetKVFReplyResultValue("<kvfReply/>", &value));
}
