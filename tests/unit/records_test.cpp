// Reading beast-information replies into the records, and the tag tables.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "e2e.h"
#include "velkor/beastRecords.h"
#include "common_cpp/kvfError.h"

using namespace velkor;

namespace {

std::string fileReply(const std::string& named, const std::string& root = "",
                      const std::string& compression = "") {
  std::string rootInfo = root.empty()
      ? "<rootBeastInfo><zid>1234</zid><classID>3</classID><eof>5000</eof>"
        "<storageInfo><filePhysSize>4096</filePhysSize></storageInfo>"
        "<variableData><variableDataComp><compZid>77</compZid><chunkSize>65536</chunkSize>"
        "<ucPrecious>0</ucPrecious><cPrecious>1</cPrecious><purgeableBlks>2</purgeableBlks>"
        "<algoID>1</algoID><algoVersion>3</algoVersion><status><compressed/><clean/></status>"
        "<action><addCompLog/></action></variableDataComp></variableData></rootBeastInfo>"
      : root;
  return "<kvfReply><beast><getBeastInfo><result value=\"0\"/><beastInfo>" + rootInfo + named +
         "<fileBeastInfo><persistentFile><accessedTime><utc>1700000100</utc><string>2023-11-14 22:15</string>"
         "</accessedTime><createdTime><utc>1700000000</utc><string>2023-11-14 22:13</string></createdTime>"
         "</persistentFile></fileBeastInfo></beastInfo>" + compression + "</getBeastInfo></beast></kvfReply>";
}

const std::string kNamed =
    "<namedBeastInfo><attributes><archive/><dataStreamCompress/></attributes><openCount>0</openCount>"
    "<numParents>1</numParents><firstParent><nameType>File</nameType></firstParent></namedBeastInfo>";

std::string named(const std::string& attributes, const std::string& parents, const std::string& count = "1") {
  return "<namedBeastInfo><attributes>" + attributes + "</attributes><openCount>2</openCount><numParents>" + count +
         "</numParents>" + parents + "</namedBeastInfo>";
}

// The reply's text, writable as the reader needs, and an element of it.
struct Reply {
  explicit Reply(const std::string& s) : text(s.begin(), s.end()) { text.push_back('\0'); }
  QXML::XML_ElementInfo_s* element(const char* name) {
    const char* end = text.data() + text.size() - 2;
    EXPECT_EQ(0, QXML::XML_GetTagElement(name, text.data(), end, &info)) << name;
    return &info;
  }
  std::vector<char> text;
  QXML::XML_ElementInfo_s info;
};

std::string pretty(const std::string& compact) { return std::regex_replace(compact, std::regex("><"), ">\n  <"); }

}  // namespace

// The fields that the program shows, logs or judges by are pinned where it
// does: the file check's sweep (FileCheck), the single-file screen and entry
// (SingleFile) and the candidate check (Candidate).
TEST(BeastRecords, FileWithCompressionRecordCompactAndPrettyAndItsDumps) {
  for (const std::string& text : {fileReply(kNamed), pretty(fileReply(kNamed))}) {
    Reply reply(text);
    UncompBeastInfo file("VOL1", reply.element("beastInfo"));
    EXPECT_EQ(1, file.valid);
    EXPECT_STREQ("VOL1", file.name);
    EXPECT_EQ(1700000000u, file.createdTime);
    ASSERT_NE(nullptr, file.compInfo);
    EXPECT_EQ(65536u, file.compInfo->chunkSize);
    EXPECT_EQ(2u, file.compInfo->purgeableBlks);
    EXPECT_EQ(3u, file.compInfo->algoVersion);
    // The dumps leave the stream in hexadecimal.
    std::ostringstream out;
    out << *file.compInfo;
    EXPECT_NE(std::string::npos, out.str().find("compZid:        77\nchunkSize:      65536\n"));
    std::ostringstream dump;
    dump << file << 255;
    EXPECT_EQ("attributes:        4000020\nopen count:        0\ndeleted:           0\neof:               1388\nff",
              dump.str());
  }
}

TEST(BeastRecords, EmptyRootIsNotValidAndNothingElseIsRead) {
  Reply reply(fileReply("", "<rootBeastInfo/>"));
  UncompBeastInfo file("VOL1", reply.element("beastInfo"));
  EXPECT_EQ(0, file.valid);
  EXPECT_EQ(nullptr, file.compInfo);
}

TEST(BeastRecords, ClassIdsAndSubdirectory) {
  struct { const char* classId; const char* attributes; int type; } cases[] = {
      {"1", "", 1}, {"12", "", 2}, {"3", "", 3}, {"7", "", 0}, {"3", "<subdirectory/>", 4}, {"1", "<subdirectory/>", 4},
  };
  for (const auto& c : cases) {
    std::string root = std::string("<rootBeastInfo><zid>5</zid><classID>") + c.classId +
                       "</classID><eof>0</eof><storageInfo/></rootBeastInfo>";
    Reply reply(fileReply(named(c.attributes, "<firstParent><nameType>File</nameType></firstParent>"), root));
    UncompBeastInfo file("V", reply.element("beastInfo"));
    EXPECT_EQ(c.type, file.beastType) << c.classId << c.attributes;
    EXPECT_EQ(nullptr, file.compInfo);
    EXPECT_EQ(0u, file.physSize);
  }
}

TEST(BeastRecords, DeletedNames) {
  struct { std::string parents; std::string count; int deleted; } cases[] = {
      {"<firstParent><nameType>File</nameType></firstParent>", "1", 0},
      {"<firstParent><nameType>file</nameType></firstParent>", "1", 0},
      {"<firstParent><nameType>DeletedFile</nameType></firstParent>", "1", 1},
      {"<firstParent><nameType>File</nameType></firstParent>", "0", 1},
      {"<firstParent><nameType>DeletedFile</nameType></firstParent><otherParents><parentEntry><nameType>File"
       "</nameType></parentEntry></otherParents>", "2", 0},
      {"<firstParent><nameType>DeletedFile</nameType></firstParent><otherParents><parentEntry><nameType>"
       "DeletedFile</nameType></parentEntry><parentEntry><nameType>DataStream</nameType></parentEntry>"
       "</otherParents>", "3", 0},
      {"<firstParent><nameType>DeletedFile</nameType></firstParent><otherParents><parentEntry><nameType>"
       "DeletedFile</nameType></parentEntry></otherParents>", "2", 1},
  };
  for (const auto& c : cases) {
    Reply reply(fileReply(named("", c.parents, c.count)));
    UncompBeastInfo file("V", reply.element("beastInfo"));
    EXPECT_EQ(c.deleted, file.allNamesDeleted) << c.parents;
    EXPECT_EQ(2, file.openCount);
  }
}

// (A zid too long for its field: absurdReplies_test's ObjectZidOf25Digits.)
TEST(BeastRecords, FailuresCarryTheirMessageAndCode) {
  struct { std::string reply; std::string message; int code; } cases[] = {
      {fileReply(named("", "<firstParent><nameType>Hardlink</nameType></firstParent>")),
       "Failed to get parent entry name type", 20499},
      {fileReply(named("", "")), "Failed to get named info", 21702},
      {fileReply(""), "Failed to get named info", 21702},
      {fileReply(kNamed, "<rootBeastInfo><zid>1</zid><classID>3</classID><storageInfo/></rootBeastInfo>"),
       "Failed to get root info", 21702},
      {fileReply(kNamed, "<rootBeastInfo><zid>1</zid><classID>3</classID><eof>1</eof><storageInfo/>"
                         "<variableData><variableDataComp><compZid>1</compZid></variableDataComp></variableData>"
                         "</rootBeastInfo>"),
       "Failed to get compInfo tags", 21702},
  };
  for (const auto& c : cases) {
    Reply reply(c.reply);
    KVFError e = testsupport::expectKvfError([&] { UncompBeastInfo file("V", reply.element("beastInfo")); }, c.reply);
    EXPECT_EQ(c.message, e.what());
    EXPECT_EQ(c.code, e.code);
    EXPECT_EQ(0u, e.location.find("util/velkor/velkorClass[")) << e.location;
  }
}

// (The header, the deleted flag and the owner as read: the file check's sweep.)
TEST(CompBeastRecord, WithoutVariableDataOrOwner) {
  Reply bare("<compressionInfo><rootBeastInfo><eof>0</eof><volumeID>9</volumeID><storageInfo/></rootBeastInfo>"
             "</compressionInfo>");
  CompBeastInfo plain(bare.element("compressionInfo"));
  EXPECT_EQ(0, plain.found);
  EXPECT_EQ(0, plain.hasVariableData);
  EXPECT_EQ(0, plain.uncompBeastDeleted);

  Reply noOwner("<compressionInfo><rootBeastInfo><eof>0</eof><volumeID>9</volumeID><storageInfo/></rootBeastInfo>"
                "<compBeastInfo><other/></compBeastInfo></compressionInfo>");
  KVFError e = testsupport::expectKvfError([&] { CompBeastInfo missing(noOwner.element("compressionInfo")); });
  EXPECT_STREQ("Failed to get uncompZid", e.what());
  EXPECT_EQ(-1, e.code);
}

TEST(TagTables, TagsToBitsMatchesPrefixesAndEveryEntry) {
  std::string text = "<read/><subdirectory/><unknown/><compressImmediate></compressImmediate>";
  EXPECT_EQ(1ull | attrSubdirectory | attrCompressImmediate,
            convertTagsToBits(attrBitsToCheck, attrTags, text.c_str(), text.size()));
  // A prefix of several names sets each of their bits; the mask is not applied.
  std::string un = "<un/>";
  EXPECT_EQ(statusUncompressed, convertTagsToBits(0, compStatusTags, un.c_str(), un.size()));
  std::string c = "<c/>";
  EXPECT_EQ(statusCompressed | statusClean, convertTagsToBits(0, compStatusTags, c.c_str(), c.size()));
  EXPECT_EQ(0u, convertTagsToBits(attrBitsToCheck, attrTags, "", 0));
}

TEST(TagTables, BitsToTagsLengthsMaskAndOverflow) {
  char out[512];
  unsigned long length = 99;
  EXPECT_EQ(0u, convertBitsToTags(0x11, attrBitsToCheck, attrTags, sizeof out, out, &length));
  EXPECT_STREQ("<readOnly/><subdirectory/>", out);
  EXPECT_EQ(26u, length);

  EXPECT_EQ(0u, convertBitsToTags(1ull << 6, attrBitsToCheck, attrTags, sizeof out, out, &length));
  EXPECT_STREQ("", out);
  EXPECT_EQ(0u, length);
  EXPECT_EQ(0u, convertBitsToTags(statusClean | statusFailure, compStatusBitsToCheck, compStatusTags, sizeof out,
                                  out, &length));
  EXPECT_STREQ("<failure/><clean/>", out);

  // Every named attribute fits 512 bytes; a small buffer is cut, not overrun.
  EXPECT_EQ(0u, convertBitsToTags(~0ull, ~0ull, attrTags, sizeof out, out, &length));
  char small[16];
  memset(small, 'x', sizeof small);
  EXPECT_EQ(~0ull, convertBitsToTags(0x11, attrBitsToCheck, attrTags, 12, small, &length));
  EXPECT_STREQ("<readOnly/>", small);
  EXPECT_EQ('x', small[12]);
  EXPECT_EQ(~0ull, convertBitsToTags(0x11, attrBitsToCheck, attrTags, 11, small, &length));
  EXPECT_EQ(10u, strlen(small));
}
