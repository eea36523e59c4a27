#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <regex>
#include <set>
#include <string>

#include "common_cpp/errorTable.h"
#include "common_cpp/kvfError.h"
#include "process.h"

TEST(GetErrorFromNumber, FixedNamesAndFallBacks) {
  EXPECT_STREQ("zOK", KVF::GetErrorFromNumber(0));
  EXPECT_STREQ("zFAILURE", KVF::GetErrorFromNumber(-1));
  EXPECT_STREQ("MM_UNKNOWN_ERROR", KVF::GetErrorFromNumber(2));
  EXPECT_STREQ("MM_UNKNOWN_ERROR", KVF::GetErrorFromNumber(-5));
  EXPECT_STREQ("MM_UNKNOWN_ERROR", KVF::GetErrorFromNumber(19999));
  EXPECT_STREQ("zERR_UNKNOWN_ERROR", KVF::GetErrorFromNumber(24998));
  EXPECT_STREQ("zERR_UNKNOWN_ERROR", KVF::GetErrorFromNumber(20002));
  EXPECT_STREQ("zERR_UNKNOWN_ERROR", KVF::GetErrorFromNumber(1 << 30));
}

TEST(ErrorTable, AscendingZErrRowsInRangeEndedByTerminator) {
  int previous = 19999;
  const ErrorRow_s* row = ErrorTable;
  for (; row->number != 0; ++row) {
    EXPECT_GT(row->number, previous);
    EXPECT_LE(row->number, 24999);
    EXPECT_EQ(0, strncmp(row->name, "zERR_", 5)) << row->name;
    previous = row->number;
  }
  EXPECT_STREQ("End of table", row->name);
}

TEST(KVFError, StatusAndErrnoAreShownDifferently) {
  KVFError status("m", 13, "util/x[1]");
  KVFError sys("m", "util/x[2]", 13);
  EXPECT_TRUE(status.isKvfCode);
  EXPECT_EQ(13, status.number());
  EXPECT_EQ("MM_UNKNOWN_ERROR", status.numberName());
  EXPECT_FALSE(sys.isKvfCode);
  EXPECT_EQ(0, sys.code);
  EXPECT_EQ(13, sys.number());
  EXPECT_EQ(strerror(13), sys.numberName());
  EXPECT_EQ(0, status.sysErrno);
}

// Every location the program can raise names one of its documented sources
// (operators and scripts read them in the run log), whatever file the code
// lives in: the sources' own hand-written locations, and each file's
// constant that KVF_HERE reads.
TEST(KVFError, EveryLocationNamesADocumentedSource) {
  const std::set<std::string> documented = {"util/velkor/velkor", "util/velkor/velkorClass",
                                            "util/velkor/velkorHelper", "util/velkor/velkorUI",
                                            "util/common_cpp/qXML"};
  for (KvfSource s : {KvfSource::velkor, KvfSource::velkorClass, KvfSource::velkorHelper, KvfSource::velkorUI,
                      KvfSource::qXML})
    EXPECT_EQ(1u, documented.count(KVF_SourceName(s))) << KVF_SourceName(s);
  EXPECT_EQ("util/velkor/velkorHelper[97]", KVF_Location(KvfSource::velkorHelper, 97));

  const std::regex literal(R"re("(util/[A-Za-z_/]+)\[[0-9]+\])re");
  int seen = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(testsupport::sourcePath("util"))) {
    if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h") continue;
    const std::string text = testsupport::readFile(entry.path().string());
    for (std::sregex_iterator m(text.begin(), text.end(), literal), end; m != end; ++m, ++seen)
      EXPECT_EQ(1u, documented.count((*m)[1].str())) << entry.path() << ": " << (*m)[0];
    EXPECT_EQ(std::string::npos, text.find("__FILE__")) << entry.path() << " locates an error by its own file name";
  }
  EXPECT_GT(seen, 10);
}
