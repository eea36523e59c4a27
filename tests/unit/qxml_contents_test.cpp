// Template paths and multi-row tag contents over reply text.
#include <gtest/gtest.h>

#include <string>

#include "common_cpp/kvfError.h"
#include "common_cpp/qXML.h"

using namespace QXML;

namespace {

// A reply element found by name, ready to be read with MKVF_GetTagContents.
XML_ElementInfo_s elementOf(std::string& reply, const char* name) {
  XML_ElementInfo_s info{};
  EXPECT_EQ(zOK, XML_GetTagElement(name, reply.data(), reply.data() + reply.size() - 1, &info));
  return info;
}

}  // namespace

TEST(TemplatePath, NamesOneAtATime) {
  char out[128];
  const char* rest = nullptr;
  EXPECT_EQ(zERR_BAD_PARAMETER_VALUE, MKVF_GetNextTagString(nullptr, &rest, sizeof out, out));
  EXPECT_EQ(zERR_BAD_PARAMETER_VALUE, MKVF_GetNextTagString("<a>", &rest, 0, out));
  EXPECT_EQ(zERR_RETURN_PARA_NULL, MKVF_GetNextTagString("", &rest, sizeof out, out));

  const char* path = "<kvfReply><result>";
  ASSERT_EQ(zOK, MKVF_GetNextTagString(path, &rest, sizeof out, out));
  EXPECT_STREQ("kvfReply", out);
  EXPECT_EQ(path + 9, rest);
  ASSERT_EQ(zOK, MKVF_GetNextTagString(rest, &rest, sizeof out, out));
  EXPECT_STREQ("result", out);
  EXPECT_EQ(zERR_RETURN_PARA_NULL, MKVF_GetNextTagString(rest, &rest, sizeof out, out));

  EXPECT_EQ(zOK, MKVF_GetNextTagString("<abc>", &rest, 4, out));
  EXPECT_EQ(zERR_BUFFER_TOO_SMALL, MKVF_GetNextTagString("<abcd>", &rest, 4, out));
}

TEST(TemplatePath, DescendsDirectChildrenOnly) {
  std::string reply = "<kvfReply><x><a>1</a></x><b><result value=\"3\"/></b></kvfReply>";
  XML_ElementInfo_s info{};
  EXPECT_EQ(zERR_XML_IS_INCOMPLETE, MKVF_GetSpecificTemplate("<kvfReply><a>", reply.size(), reply.data(), &info));
  ASSERT_EQ(zOK, MKVF_GetResultTemplate("<kvfReply><b>", reply.size(), reply.data(), &info));
  EXPECT_EQ(0u, info.contentLength);

  ASSERT_EQ(zOK, MKVF_GetSpecificTemplate("", reply.size(), reply.data(), &info));
  EXPECT_EQ(reply.data(), info.contentStart);

  // An empty or self-closing element on the way ends the descent.
  std::string empty = "<kvfReply><b/></kvfReply>";
  EXPECT_EQ(zERR_XML_IS_INCOMPLETE, MKVF_GetResultTemplate("<kvfReply><b>", empty.size(), empty.data(), &info));
  std::string open = "<kvfReply><b></b></kvfReply>";
  EXPECT_EQ(zERR_XML_IS_INCOMPLETE, MKVF_GetResultTemplate("<kvfReply><b>", open.size(), open.data(), &info));

  int64_t number = 99;
  EXPECT_EQ(zOK, MKVF_GetAttribute("<kvfReply><b>", "<result>", "value", reply.size(), reply.data(), &number));
  EXPECT_EQ(3, number);
  EXPECT_EQ(zOK, MKVF_GetAttribute("<kvfReply><b>", "<result>", "none", reply.size(), reply.data(), &number));
  EXPECT_EQ(3, number);
}

TEST(TagContents, ElementsAttributesAndCdata) {
  std::string reply =
      "<kvfReply><getFileInfo id=\"7\" kind=\"\"><standardInfo><id><![CDATA[0x1f]]></id>"
      "<volumeName><![CDATA[V1]]></volumeName><deep><name>n</name></deep><compression/>"
      "</standardInfo></getFileInfo></kvfReply>";
  XML_ElementInfo_s parent = elementOf(reply, "getFileInfo");
  const TagRequest_s rows[] = {
      {"id", TAG_CONTENT_REQUIRED}, {"volumeName", 0},  {"name", 0},    {"compression", 0},
      {"missing", TAG_OPTIONAL},    {"id", TAG_IS_ATTRIBUTE}, {"kind", TAG_IS_ATTRIBUTE}, {nullptr, 0}};
  TagContent_s out[7];
  ASSERT_EQ(zOK, MKVF_GetTagContents(&parent, rows, out));
  EXPECT_STREQ("0x1f", out[0].value);
  EXPECT_EQ(3u, out[0].status);
  EXPECT_STREQ("V1", out[1].value);
  EXPECT_STREQ("n", out[2].value);  // at any depth
  EXPECT_EQ(nullptr, out[3].value);
  EXPECT_EQ(1u, out[3].status);
  EXPECT_EQ(nullptr, out[4].value);
  EXPECT_EQ(0u, out[4].status);
  EXPECT_STREQ("7", out[5].value);
  EXPECT_EQ(1u, out[5].status);
  EXPECT_STREQ("", out[6].value);
  // The element's text is cut at its end tag in the reply itself.
  EXPECT_EQ(0, reply.compare(reply.find("/volumeName>") - 1, 2, std::string("\0/", 2)));
}

TEST(TagContents, FailuresStopAtTheFailingRow) {
  std::string reply = "<r><a>1</a><compression/><c>3</c></r>";
  XML_ElementInfo_s parent = elementOf(reply, "r");
  TagContent_s out[3];
  out[2].value = const_cast<char*>("untouched");
  const TagRequest_s required[] = {{"a", 0}, {"compression", TAG_CONTENT_REQUIRED}, {"c", 0}, {nullptr, 0}};
  EXPECT_EQ(zERR_XML_IS_BAD, MKVF_GetTagContents(&parent, required, out));
  EXPECT_STREQ("1", out[0].value);
  EXPECT_EQ(1u, out[1].status);
  EXPECT_STREQ("untouched", out[2].value);

  const TagRequest_s missing[] = {{"b", 0}, {nullptr, 0}};
  EXPECT_EQ(zERR_XML_IS_BAD, MKVF_GetTagContents(&parent, missing, out));
  EXPECT_EQ(0u, out[0].status);

  const TagRequest_s none[] = {{nullptr, 0}};
  out[0].status = 42;
  EXPECT_EQ(zOK, MKVF_GetTagContents(&parent, none, out));
  EXPECT_EQ(42u, out[0].status);
}

// A row inside an earlier row's element is still found: the search range is
// the parent's, and the scanner is bounded by pointers, not by the NULs.
TEST(TagContents, LaterRowsReachAcrossEarlierValues) {
  std::string reply = "<r><storageInfo><filePhysSize>4096</filePhysSize></storageInfo><eof>9</eof></r>";
  XML_ElementInfo_s parent = elementOf(reply, "r");
  const TagRequest_s rows[] = {{"storageInfo", TAG_CONTENT_REQUIRED}, {"filePhysSize", 0}, {"eof", 0}, {nullptr, 0}};
  TagContent_s out[3];
  ASSERT_EQ(zOK, MKVF_GetTagContents(&parent, rows, out));
  EXPECT_STREQ("4096", out[1].value);
  EXPECT_STREQ("9", out[2].value);
  EXPECT_EQ(out[0].element.contentStart, out[0].value);
}

// An optional row that is not found must not keep what its slot held before:
// a caller reading under it (as under a record's optional part) finds nothing
// instead of following a pointer into an earlier, freed reply.
TEST(TagContents, RowNotFoundLocatesNothing) {
  std::string stale = "<namedBeastInfo><openCount>1</openCount></namedBeastInfo>";
  std::string reply = "<beastInfo><rootBeastInfo><eof>1</eof></rootBeastInfo></beastInfo>";
  XML_ElementInfo_s parent = elementOf(reply, "beastInfo");
  TagContent_s out[2];
  out[1].element = elementOf(stale, "namedBeastInfo");
  out[1].status = TAG_FOUND | TAG_HAS_CONTENT;
  const TagRequest_s rows[] = {{"rootBeastInfo", 0}, {"namedBeastInfo", TAG_OPTIONAL}, {nullptr, 0}};
  ASSERT_EQ(zOK, MKVF_GetTagContents(&parent, rows, out));
  EXPECT_EQ(0u, out[1].status);
  EXPECT_EQ(nullptr, out[1].element.contentStart);
  EXPECT_EQ(nullptr, out[1].element.nameEnd);

  XML_ElementInfo_s info{};
  const char* name;
  size_t length;
  EXPECT_NE(zOK, XML_GetTagElement("openCount", out[1].element.contentStart, out[1].element.contentEnd, &info));
  EXPECT_NE(zOK, XML_GetNextTag(out[1].element.contentStart, out[1].element.contentEnd, &info, &name, &length));
  EXPECT_NE(zOK, XML_GetTagElementAtCurrentLevel("openCount", out[1].element.contentStart,
                                                 out[1].element.contentEnd, &info));
  const TagRequest_s under[] = {{"openCount", TAG_OPTIONAL}, {"kind", TAG_IS_ATTRIBUTE | TAG_OPTIONAL}, {nullptr, 0}};
  TagContent_s row[2];
  EXPECT_EQ(zOK, MKVF_GetTagContents(&out[1].element, under, row));
  EXPECT_EQ(0u, row[0].status | row[1].status);
}
