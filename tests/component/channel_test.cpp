// The command-file channel against the simulator's management file: replies
// that fill the buffer's blocks exactly and past them, and an open that fails
// (empty, refused and unreadable replies: volumeOps_test's FaultsBreakOffAScan).
#include <gtest/gtest.h>

#include <string>

#include "e2e.h"
#include "common_cpp/kvfError.h"
#include "velkor/channel.h"

using testsupport::Simulator;
using velkor::CmdFile;
using velkor::ReplyBuf;

namespace {

const char kFixture[] = R"({"volumes": [{"name": "VOL1"}]})";

// A successful getVolumeInfo reply of exactly `size` bytes.
std::string replyOfSize(size_t size) {
  std::string head = "<kvfReply><volume><getVolumeInfo><result value=\"0\"/><basicInfo><volumeState>";
  std::string tail = "</volumeState></basicInfo></getVolumeInfo></volume></kvfReply>";
  return head + std::string(size - head.size() - tail.size(), 'x') + tail;
}

class Channel : public ::testing::Test {
 protected:
  void fault(const nlohmann::json& rule) const { sim_.setFaults(rule.dump()); }

  // One exchange as the program makes it.
  void exchange(ReplyBuf* reply) const {
    velkor::OpenCmdFile channel((sim_.adminDir() + "/manage.cmd").c_str());
    std::string request = testsupport::requestText(velkor::volumeInfoRequest, "VOL1", true);
    channel.file.readWrite(&request[0], "getVolumeInfo", reply);
  }

  Simulator sim_ = Simulator::withFixture(kFixture);
};

}  // namespace

// A reply that fills the first block exactly (grown to 8192 once, when the
// block was full) and one over two blocks.
TEST_F(Channel, RepliesFillingTheirBlocksExactlyAndPastThem) {
  for (auto [size, capacity] : {std::pair<int, int>{4096, 8192}, {10000, 12288}}) {
    std::string text = replyOfSize(size);
    fault({{"action", "raw"}, {"text", text}});
    ReplyBuf reply;
    exchange(&reply);
    EXPECT_EQ(capacity, reply.used + reply.free);
    EXPECT_EQ(text, std::string(reply.data, reply.used));
    EXPECT_EQ('\0', reply.data[size]);
  }
}

// A reply past the channel's bound is an error once the bound is reached,
// whatever more the file system would send.
// (The test lowers the bound: a reply grows by 4096 bytes at a time, which
// a sanitizer's realloc copies whole each time.)
TEST_F(Channel, ReplyPastTheBoundIsAnError) {
  EXPECT_EQ(64 << 20, maxReplyBytes);
  maxReplyBytes = 2 << 20;
  fault({{"action", "pad"}, {"bytes", (2 << 20) + 1}});
  ReplyBuf reply;
  KVFError e = testsupport::expectKvfError([&] { exchange(&reply); }, "a reply past the bound");
  EXPECT_STREQ("The reply is larger than 2 MiB", e.what());
  EXPECT_EQ(zERR_BUFFER_TOO_SMALL, e.code);
  maxReplyBytes = 64 << 20;
  EXPECT_LE(reply.used, 2 << 20);
}

// A buffer that enters full gets one byte for the NUL, and reads nothing.
TEST_F(Channel, FullBufferGrowsByOneForTheTerminator) {
  ReplyBuf reply;
  reply.used = 4096;
  reply.free = 0;
  EXPECT_THROW(exchange(&reply), KVFError);
  EXPECT_EQ(4096, reply.used);
  EXPECT_EQ(1, reply.free);
  EXPECT_EQ('\0', reply.data[4096]);
}

TEST(CmdFileOpen, MissingAdminVolumeCarriesErrnoAsStatus) {
  KVFError e = testsupport::expectKvfError([] { CmdFile file("/nonexistent-admin/Manage_KVF/manage.cmd"); });
  EXPECT_STREQ("Unable to open the admin file", e.what());
  EXPECT_TRUE(e.isKvfCode);
  EXPECT_EQ(ENOENT, e.code);
  EXPECT_EQ("util/velkor/velkorClass[150]", e.location);
}
