#include <gtest/gtest.h>

#include <cstring>

#include "common_cpp/errorTable.h"
#include "common_cpp/kvfError.h"

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

TEST(KVFError, CopiesEveryMemberAndAdminErrorIsAKVFError) {
  try {
    throw AdminError("Unable to parse XML tag getBeastInfo", 21703, "util/common_cpp/qXML[1244]");
  } catch (const KVFError& e) {
    KVFError copy(e);
    EXPECT_STREQ("Unable to parse XML tag getBeastInfo", copy.what());
    EXPECT_EQ(21703, copy.code);
    EXPECT_EQ("util/common_cpp/qXML[1244]", copy.location);
    EXPECT_TRUE(copy.isKvfCode);
    EXPECT_NE(nullptr, dynamic_cast<const AdminError*>(&e));
  }
}

// A location names the raising file from the tree's util/ folder, without
// its extension, and the line.
TEST(KVFError, LocationNamesFileAndLine) {
  EXPECT_EQ("util/velkor/volumeScan[97]", KVF_SourceLocation("/src/util/x/util/velkor/volumeScan.cpp", 97));
  EXPECT_EQ("util/common_cpp/qXML[3]", KVF_SourceLocation("util/common_cpp/qXML.cpp", 3));
  EXPECT_EQ("errors_test[" + std::to_string(__LINE__) + "]", KVF_HERE);
}
