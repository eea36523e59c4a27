// The start-up configuration file's settings: lines up to 255 characters are
// read; a longer line, a missing file or one that is not a regular file is an
// error, never a cut line.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "common_cpp/kvfError.h"
#include "e2e.h"
#include "process.h"
#include "velkor/compCandidate.h"

namespace {

class StartConfig : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = dir_.file("kvfstart.cfg");
    saved_ = velkor::kvfStartConfigPath;
    velkor::kvfStartConfigPath = path_.c_str();
  }
  void TearDown() override { velkor::kvfStartConfigPath = saved_; }
  void write(const std::string& text) { testsupport::writeFile(path_, text); }
  // The error that reading a setting from kvfStartConfigPath ends with.
  static KVFError failure() {
    return testsupport::expectKvfError([] { velkor::getSetParameterValue("DaysUntouchedBeforeCompression"); },
                                       velkor::kvfStartConfigPath);
  }

  testsupport::TempDir dir_;
  std::string path_;
  const char* saved_ = nullptr;
};

TEST_F(StartConfig, SettingsAfterLinesOfUpTo255Characters) {
  write("# " + std::string(253, 'x') + "\n/DaysUntouchedBeforeCompression=14\n/DeletedFilesCompressionOption=2");
  EXPECT_EQ(14u, velkor::getSetParameterValue("DaysUntouchedBeforeCompression"));
  EXPECT_EQ(2u, velkor::getSetParameterValue("DeletedFilesCompressionOption"));
  EXPECT_EQ(4294967295u, velkor::getSetParameterValue("NoSuchKey"));
}

TEST_F(StartConfig, LongLineMissingFileAndOtherKindsOfFileAreErrors) {
  write("# " + std::string(254, 'x') + "\n/DaysUntouchedBeforeCompression=14\n");
  KVFError longLine = failure();
  EXPECT_EQ(zERR_BUFFER_TOO_SMALL, longLine.code);
  EXPECT_EQ("A line longer than 255 characters in " + path_, longLine.what());
  // A directory or a FIFO in its place is named as what it is; the FIFO is
  // not opened (that would wait for a writer).
  testsupport::TempDir other;
  std::string fifo = other.file("fifo");
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  for (const auto& [path, what] : {std::pair<std::string, std::string>{other.path(), "a directory"},
                                  {fifo, "not a regular file"}}) {
    velkor::kvfStartConfigPath = path.c_str();
    EXPECT_EQ("The start-up configuration file " + path + " is " + what, failure().what());
  }
  velkor::kvfStartConfigPath = "/nonexistent/kvfstart.cfg";
  KVFError missing = failure();
  EXPECT_FALSE(missing.isKvfCode);
  EXPECT_EQ(ENOENT, missing.sysErrno);
}

}  // namespace
