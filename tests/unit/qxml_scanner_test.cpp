// The element scanner: element bounds, nesting, CDATA, attributes, and reads
// that stay within the given range however the text is cut.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "common_cpp/kvfError.h"
#include "common_cpp/qXML.h"
#include "velkor/channel.h"
#include "velkor/volumeScan.h"

using namespace QXML;

namespace {

const char* last(const std::string& s) { return s.data() + s.size() - 1; }

// The content of the element found by name, or "<error N>".
std::string contentOf(const std::string& text, const char* name) {
  XML_ElementInfo_s info{};
  int result = XML_GetTagElement(name, text.data(), last(text), &info);
  if (result != zOK) return "<error " + std::to_string(result) + ">";
  return std::string(info.contentStart, info.contentLength);
}

// The zids of a browse reply, as the volume scan reads them.
std::vector<std::string> zidsOf(const std::string& reply) {
  velkor::ReplyBuf buffer;
  buffer.assign(reply.data(), reply.size());
  char zids[velkor::kZidSlots * velkor::kZidSlotSize];
  int n = velkor::readZidBatch(&buffer, zids);
  std::vector<std::string> out;
  for (int i = 0; i < n; ++i) out.emplace_back(zids + i * velkor::kZidSlotSize);
  return out;
}

}  // namespace

TEST(ElementScanner, SelfClosingAndEmptyElements) {
  std::string selfClosing = "<r><a/></r>";
  XML_ElementInfo_s info{};
  ASSERT_EQ(zOK, XML_GetTagElement("a", selfClosing.data(), last(selfClosing), &info));
  EXPECT_EQ(nullptr, info.contentStart);
  EXPECT_EQ(nullptr, info.contentEnd);
  EXPECT_EQ(0u, info.contentLength);
  EXPECT_EQ(selfClosing.data() + 6, info.elementEnd);

  std::string empty = "<r><a></a></r>";
  ASSERT_EQ(zOK, XML_GetTagElement("a", empty.data(), last(empty), &info));
  EXPECT_EQ(empty.data() + 6, info.contentStart);
  EXPECT_EQ(info.contentStart - 1, info.contentEnd);
  EXPECT_EQ(0u, info.contentLength);
  EXPECT_EQ(empty.data() + 9, info.elementEnd);
}

TEST(ElementScanner, NestingOfSameAndOtherNames) {
  EXPECT_EQ("<a>x</a>", contentOf("<a><a>x</a></a>.", "a"));
  EXPECT_EQ("<b>x</b>", contentOf("<a><b>x</b></a>.", "a"));
  EXPECT_EQ("</ab>y", contentOf("<a></ab>y</a>.", "a"));
  EXPECT_EQ("2", contentOf("<idx>1</idx><id>2</id>.", "id"));
  EXPECT_EQ("<error -1>", contentOf("<idx>1</idx><ids/>", "id"));
  // An end tag inside an attribute value or other text is not special.
  EXPECT_EQ("<b v=\"</b>\">", contentOf("<a><b v=\"</b>\"></a>.", "a"));
}

TEST(ElementScanner, CdataOnlyAtTheElementsOwnLevel) {
  EXPECT_EQ("<![CDATA[</a>]]>", contentOf("<a><![CDATA[</a>]]></a>.", "a"));
  // Inside a child a '<' of CDATA text is markup, so the inner end tag closes.
  EXPECT_EQ("<b><![CDATA[x", contentOf("<a><b><![CDATA[x</a>]]></b></a>.", "a"));
  // A child with attributes raises the depth for good: CDATA is not seen after it.
  EXPECT_EQ("<c k=\"1\"/><![CDATA[", contentOf("<a><c k=\"1\"/><![CDATA[</a>]]></a>.", "a"));
}

TEST(ElementScanner, TruncatedTextIsIncomplete) {
  XML_ElementInfo_s info{};
  for (std::string text : {"<a><b>x</b>", "<a ", "<a x=\"1\"", "<a>", "<a>x</a", "<a><![CDATA[</a>"}) {
    EXPECT_EQ(zERR_XML_IS_INCOMPLETE, XML_GetTagElement("a", text.data(), last(text), &info)) << text;
  }
  // The range bounds the scan, not the NUL: the end tag past `end` is not seen.
  std::string text = "<a>xy</a>";
  EXPECT_EQ(zERR_XML_IS_INCOMPLETE, XML_GetTagElement("a", text.data(), text.data() + 6, &info));
  EXPECT_EQ(zOK, XML_GetTagElement("a", text.data(), last(text), &info));
}

TEST(ElementScanner, SiblingSearchSkipsDescendants) {
  std::string text = "<x><result value=\"1\"/></x><result value=\"2\"/>";
  XML_ElementInfo_s info{};
  ASSERT_EQ(zOK, XML_GetTagElementAtCurrentLevel("result", text.data(), last(text), &info));
  ASSERT_EQ(zOK, XML_GetTagAttribute("value", &info));
  EXPECT_EQ('2', *info.attrValueStart);
  EXPECT_EQ(zERR_XML_IS_INCOMPLETE,
            XML_GetTagElementAtCurrentLevel("missing", text.data(), last(text), &info));
}

// The walk must find the element's own end tag right after a child's end tag,
// whether or not white space separates them.
TEST(ElementScanner, BrowseReplyCompactAndPrettyPrinted) {
  std::string compact =
      "<kvfReply><browseBeasts><result value=\"0\"/><lastZidReturned>9000000000</lastZidReturned>"
      "<numBeastsReturned>2</numBeastsReturned><beastZids><zid>17</zid><other>x</other>"
      "<zid>9000000000</zid></beastZids></browseBeasts></kvfReply>";
  std::string pretty =
      "<kvfReply>\n  <browseBeasts>\n    <result value=\"0\"/>\n    <lastZidReturned>9000000000</lastZidReturned>\n"
      "    <numBeastsReturned>2</numBeastsReturned>\n    <beastZids>\n"
      "      <zid>17</zid>\n      <other>x</other>\n      <zid>9000000000</zid>\n"
      "    </beastZids>\n  </browseBeasts>\n</kvfReply>\n";
  std::vector<std::string> expected{"17", "9000000000"};
  EXPECT_EQ(expected, zidsOf(compact));
  EXPECT_EQ(expected, zidsOf(pretty));
  EXPECT_EQ("<zid>1</zid>", contentOf("<beastZids><zid>1</zid></beastZids></browseBeasts>", "beastZids"));
}

TEST(ElementScanner, AttributeValues) {
  struct Case {
    const char* text;
    int result;
    const char* value;
  } cases[] = {
      {"<result value = \"17\">x</result>", zOK, "17"},
      {"<result value='17'>x</result>", zERR_XML_IS_INCOMPLETE, nullptr},
      {"<result value=\"\"/>", zOK, ""},
      {"<result/>", zERR_XML_IS_INCOMPLETE, nullptr},
      {"<result oldvalue=\"5\" value=\"6\"/>", zOK, "5"},  // matched as bytes anywhere
      {"<result valuex value=\"6\"/>", zOK, "6"},
      {"<result value=\"6/>", zERR_XML_IS_INCOMPLETE, nullptr},
      {"<result value=\"a>b\"/></result>", zERR_XML_IS_INCOMPLETE, nullptr},  // '>' ends the start tag
  };
  for (const Case& c : cases) {
    std::string text = c.text;
    XML_ElementInfo_s info{};
    ASSERT_EQ(zOK, XML_GetTagElement("result", text.data(), last(text), &info)) << c.text;
    ASSERT_EQ(c.result, XML_GetTagAttribute("value", &info)) << c.text;
    if (c.value) {
      EXPECT_EQ(c.value, std::string(info.attrValueStart, info.attrValueLength)) << c.text;
      EXPECT_EQ(info.attrValueStart + info.attrValueLength - 1, info.attrValueEnd);
    }
  }
}

TEST(ElementScanner, StripCdataInPlace) {
  std::string text = "<![CDATA[vol1]]>";
  char* value = XML_stripCDATA(&text[0], last(text));
  EXPECT_STREQ("vol1", value);
  std::string plain = "plain";
  EXPECT_EQ(&plain[0], XML_stripCDATA(&plain[0], last(plain)));
  std::string open = "<![CDATA[ab";  // no terminator: nothing is written
  EXPECT_EQ(&open[9], XML_stripCDATA(&open[0], last(open)));
  EXPECT_EQ("<![CDATA[ab", open);
}

// Every prefix of a reply, in a buffer of exactly its size, is scanned without
// reading outside it (the sanitizer build checks the reads).
TEST(ElementScanner, EveryPrefixStaysInRange) {
  const std::string reply =
      "<kvfReply><getVolumeInfo><result value=\"0\"/><basicInfo><volumeState>active"
      "</volumeState><mountPoint><![CDATA[/media/kvf/V1]]></mountPoint></basicInfo>"
      "</getVolumeInfo></kvfReply>";
  for (size_t n = 1; n <= reply.size(); ++n) {
    std::unique_ptr<char[]> buffer(new char[n]);
    memcpy(buffer.get(), reply.data(), n);
    const char* end = buffer.get() + n - 1;
    XML_ElementInfo_s info{};
    int result = XML_GetTagElement("mountPoint", buffer.get(), end, &info);
    if (result == zOK) {
      EXPECT_LE(info.elementEnd, end);
    }
    const char* name;
    size_t length;
    for (const char* p = buffer.get(); XML_GetNextTag(p, end, &info, &name, &length) == zOK;)
      p = info.elementEnd + 1;
    if (XML_GetTagElement("result", buffer.get(), end, &info) == zOK)
      XML_GetTagAttribute("value", &info);
  }
}
