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

struct Outcome {
  bool thrown = false;
  bool admin = false;
  std::string message;
  int code = 0;
  std::string location;
};

Outcome statusOf(const std::string& text, const char* tag = "getBeastInfo") {
  Outcome out;
  try {
    GetReplyResultValueForTag(text.c_str(), tag);
  } catch (const KVFError& e) {
    out.thrown = true;
    out.admin = dynamic_cast<const AdminError*>(&e) != nullptr;
    out.message = e.what();
    out.code = e.code;
    out.location = e.location;
    EXPECT_TRUE(e.isKvfCode);
  }
  return out;
}

}  // namespace

TEST(ReplyStatus, SuccessReturns) {
  EXPECT_FALSE(statusOf(reply("<result value=\"0\"/>")).thrown);
  EXPECT_FALSE(statusOf(reply("<other>x</other>\n  <result value=\" 0 \"></result>")).thrown);
}

TEST(ReplyStatus, RefusedRequestsCarryTheirNumber) {
  for (auto [value, code] : {std::pair{"20400", 20400}, {"-1", -1}, {"0x10", 16}}) {
    Outcome o = statusOf(reply(std::string("<result value=\"") + value + "\"/>"));
    EXPECT_TRUE(o.thrown);
    EXPECT_FALSE(o.admin);
    EXPECT_EQ("Reply results", o.message);
    EXPECT_EQ(code, o.code);
    EXPECT_EQ("util/common_cpp/qXML[1254]", o.location);
  }
  Outcome o = statusOf(reply("<result value=\"4294967296\"/>"));
  EXPECT_EQ("Value overflow", o.message);
  EXPECT_EQ(20006, o.code);
  EXPECT_EQ("util/common_cpp/qXML[1250]", o.location);
}

TEST(ReplyStatus, UnreadableStatusIsAdminError) {
  for (const char* result : {"<result/>", "<result value=\"\"/>", "<result val=\"0\"/>"}) {
    Outcome o = statusOf(reply(result));
    EXPECT_TRUE(o.admin) << result;
    EXPECT_EQ(21703, o.code);
    EXPECT_EQ("Unable to parse XML tag getBeastInfo", o.message);
    EXPECT_EQ("util/common_cpp/qXML[1244]", o.location);
  }
  Outcome o = statusOf(reply("<result value=\"" + std::string(80, '1') + "\"/>"));
  EXPECT_TRUE(o.admin);
  EXPECT_EQ(20004, o.code);
}

TEST(ReplyStatus, MissingElements) {
  Outcome o = statusOf(reply("<x><result value=\"0\"/></x>"));
  EXPECT_EQ("Can't find result tag", o.message);
  EXPECT_EQ(21702, o.code);
  EXPECT_EQ("util/common_cpp/qXML[1225]", o.location);
  EXPECT_EQ("Can't find result tag", statusOf("<kvfReply><getBeastInfo/></kvfReply>").message);
  EXPECT_EQ("Can't find result tag", statusOf("<kvfReply><getBeastInfo></getBeastInfo></kvfReply>").message);

  for (const char* text : {"<kvfReply><getVolumeInfo><result value=\"0\"/></getVolumeInfo></kvfReply>", "",
                           "<kvfReply><getBeastInfo><result value=\"0\"/>"}) {
    o = statusOf(text);
    EXPECT_EQ("Can't find content for tag getBeastInfo", o.message) << text;
    EXPECT_EQ(21702, o.code);
    EXPECT_EQ("util/common_cpp/qXML[1218]", o.location);
  }
  o = statusOf("", std::string(300, 't').c_str());
  EXPECT_EQ(20004, o.code);
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
