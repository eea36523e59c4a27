// The simulator's answers to the program's requests that the end-to-end
// tests do not pin: path resolution, the old-value rule, deletion and
// malformed requests. (The records' layouts are pinned by the per-file
// check's sweep, which reads them through the program.)
#include <fcntl.h>
#include <sys/stat.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "simtest.h"

using namespace simtest;
using testsupport::Simulator;

namespace {

class Requests : public FixtureTest {
 protected:
  // The result of a setBeastInfo request.
  long set(const std::string& request) const { return resultOf(sim.manage(request), "setBeastInfo"); }
};

TEST_F(Requests, NamesAndPaths) {
  std::string r = sim.manage(getBeastFullName("VOL1", "101"));
  EXPECT_EQ(resultOf(r, "getBeastFullName"), 0);
  EXPECT_NE(r.find("<name><![CDATA[/docs/a.txt]]></name>"), std::string::npos) << r;

  std::string reply;
  ASSERT_TRUE(sim.exchange("files.cmd", getFileInfo("/media/kvf/VOL1/docs/b.txt"), &reply));
  EXPECT_EQ(reply.rfind("<fileReply><fileInfo><getFileInfo><result value=\"0\"/>", 0), 0u) << reply;
  EXPECT_EQ(first(reply, "id", "<standardInfo>"), "103");
  EXPECT_EQ(first(reply, "volumeName", "<standardInfo>"), "VOL1");
  // The program joins a relative name to the working directory as it is.
  ASSERT_TRUE(sim.exchange("files.cmd", getFileInfo("/media/kvf/VOL1/docs/./..//docs/b.txt"), &reply));
  EXPECT_EQ(first(reply, "id", "<standardInfo>"), "103");
  for (const char* path : {"/media/kvf/VOL1/docs/none", "/media/kvf/VOL1/old.txt", "/elsewhere/x", "/media/kvf/VOL"}) {
    ASSERT_TRUE(sim.exchange("files.cmd", getFileInfo(path), &reply));
    EXPECT_NE(resultOf(reply, "getFileInfo"), 0) << path;
  }
  // The mount point itself is the volume's root directory.
  ASSERT_TRUE(sim.exchange("files.cmd", getFileInfo("/media/kvf/VOL1"), &reply));
  EXPECT_EQ(first(reply, "id", "<standardInfo>"), "2") << reply;
  // A file request sent to the other management file is refused.
  ASSERT_TRUE(sim.exchange("manage.cmd", getFileInfo("/media/kvf/VOL1/docs/b.txt"), &reply));
  EXPECT_EQ(resultOf(reply, "getFileInfo"), 21702);
}

TEST_F(Requests, RepairRequestsApplyWhenOldValuesMatch) {
  // Status only, precious and status, attributes and action, deleted flag.
  EXPECT_EQ(set(setStatus("VOL1", "101", "<clean/><compressed/>", "<compressed/>")), 0);
  EXPECT_EQ(sim.beast(101)["comp"]["status"], nlohmann::json({"compressed"}));
  EXPECT_EQ(set(setStatus("VOL1", "103", "<uncompressed/><clean/>", "<uncompressed/>", true)), 0);
  EXPECT_EQ(sim.beast(103)["comp"]["cPrecious"], 1);
  EXPECT_EQ(sim.beast(103)["comp"]["status"], nlohmann::json({"uncompressed"}));

  EXPECT_EQ(set(setCombined("VOL1", "103", "<readOnly/><noStreamCompress/>", "<readOnly/>", "<addCompLog/>", "")), 0);
  EXPECT_EQ(sim.beast(103)["attributes"], nlohmann::json({"readOnly"}));
  EXPECT_EQ(sim.beast(103)["comp"]["action"], nlohmann::json::array());
  // The combined request with an empty info element changes nothing and succeeds.
  EXPECT_EQ(set(setCombined("VOL1", "103", nullptr, nullptr, nullptr, nullptr)), 0);

  // The deleted flag, sent with the user file's zid, lands on its compressed data.
  EXPECT_EQ(set(requestText(velkor::deletedFlagSetRequest, "VOL1", "104", false, true)), 0);
  EXPECT_EQ(sim.compBeast(105)["deleted"], true);
  EXPECT_NE(sim.manage(getBeastInfo("VOL1", "104", 15, true)).find("<variableData><uncompBeastDeleted/><compHeader>"),
            std::string::npos);
}

TEST_F(Requests, StaleOldValueRefusesTheWholeRequest) {
  nlohmann::json before = sim.state();
  // The attributes match (in another order) but the action does not.
  EXPECT_EQ(set(setCombined("VOL1", "103", "<noStreamCompress/><readOnly/>", "<readOnly/>", "", "<addCompLog/>")),
            20019);
  EXPECT_EQ(set(setStatus("VOL1", "101", "<compressed/>", "")), 20019);
  EXPECT_EQ(set(setStatus("VOL1", "101", "<compressed/><clean/>", "", true)), 20019);  // cPrecious is already 1
  EXPECT_EQ(set(requestText(velkor::deletedFlagSetRequest, "VOL1", "104", true, false)), 20019);
  EXPECT_EQ(set(clearCc("VOL1", "103", "<noStreamCompress/>", "")), 20019);
  EXPECT_EQ(sim.state(), before);
  // The Cc clear as the program sends it: the whole text before, the text without the element after.
  EXPECT_EQ(set(clearCc("VOL1", "103", "<readOnly/><noStreamCompress/>", "<readOnly/>")), 0);
  EXPECT_EQ(sim.beast(103)["attributes"], nlohmann::json({"readOnly"}));
  // Values the model cannot hold, and beasts that do not exist.
  EXPECT_EQ(set(setCombined("VOL1", "103", "<readOnly/>", "<bogus/>", nullptr, nullptr)), 20008);
  EXPECT_NE(set(setStatus("VOL1", "999", "", "")), 0);
  EXPECT_NE(set(setStatus("VOL1", "106", "", "")), 0);  // no compression record
}

TEST_F(Requests, DeleteByRequestAndByUnlink) {
  // A delete request on a file with a live name takes it out of the tree
  // (the kernel may show a cached name for a second).
  std::string b = sim.volumeDir("VOL1") + "/docs/b.txt";
  EXPECT_EQ(access(b.c_str(), F_OK), 0);
  EXPECT_EQ(resultOf(sim.manage(deleteBeast("VOL1", "103")), "deleteBeast"), 0);
  EXPECT_EQ(unlink(b.c_str()), -1);
  for (int i = 0; i < 30 && access(b.c_str(), F_OK) == 0; ++i) usleep(100000);
  EXPECT_NE(access(b.c_str(), F_OK), 0);

  EXPECT_EQ(resultOf(sim.manage(deleteBeast("VOL1", "104")), "deleteBeast"), 0);
  EXPECT_TRUE(sim.beast(104).is_null());
  EXPECT_TRUE(sim.compBeast(105).is_null());
  EXPECT_NE(resultOf(sim.manage(deleteBeast("VOL1", "104")), "deleteBeast"), 0);

  std::string path = sim.volumeDir("VOL1") + "/docs/a.txt";
  EXPECT_EQ(unlink(path.c_str()), 0);
  EXPECT_TRUE(sim.beast(101).is_null());
  EXPECT_TRUE(sim.compBeast(102).is_null());
  EXPECT_NE(access(path.c_str(), F_OK), 0);
  EXPECT_EQ(unlink(path.c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(sim.requests().back()["request"], "unlink /docs/a.txt");
  EXPECT_EQ(unlink((sim.volumeDir("VOL1") + "/docs").c_str()), -1);  // directories stay
  EXPECT_EQ(first(sim.manage(requestText(velkor::volumeInfoRequest, "VOL1", false)), "totalObjects"), "4");
}

TEST_F(Requests, MalformedRequestsGetAnErrorResult) {
  std::string withoutEnvelope = getBeastInfo("VOL1", "101", 15, true).substr(strlen(cmdHeader));
  EXPECT_EQ(resultOf(sim.manage(withoutEnvelope), "getBeastInfo"), 21702);
  std::string cut = getBeastInfo("VOL1", "101", 15, true);
  cut.resize(cut.size() - 20);
  EXPECT_EQ(resultOf(sim.manage(cut), "getBeastInfo"), 21702);
  EXPECT_EQ(sim.manage(""), "");  // nothing written, nothing to read
  for (std::string text : {std::string("\0\xff\xfe<<>>", 7), std::string(cmdHeader) + "<kvfRequest/>",
                           std::string(cmdHeader) + "<kvfRequest><beast><noSuch/></beast></kvfRequest>",
                           std::string(100000, '<')}) {
    std::string r = sim.manage(text);
    EXPECT_NE(r.find("<result value=\"21702\"/>"), std::string::npos) << r;
  }
  // Still answering.
  EXPECT_EQ(resultOf(sim.manage(getVolumeInfo("VOL1")), "getVolumeInfo"), 0);
}

}  // namespace

// The name tree: inode numbers are zids unless switched off, and names move
// by rename and exchange as a user moves their files, which the requests see.
TEST_F(Requests, NameTreeRenamesAndNumbersItsInodesByZid) {
  const std::string tree = sim.volumeDir("VOL1");
  struct stat st;
  ASSERT_EQ(0, stat((tree + "/docs/a.txt").c_str(), &st));
  EXPECT_EQ(101u, st.st_ino);
  ASSERT_EQ(0, stat(tree.c_str(), &st));
  EXPECT_EQ(2u, st.st_ino);

  ASSERT_EQ(0, rename((tree + "/docs").c_str(), (tree + "/papers").c_str()));
  EXPECT_EQ(first(sim.manage(getBeastFullName("VOL1", "101")), "name"), "/papers/a.txt");
  ASSERT_EQ(0, renameat2(AT_FDCWD, (tree + "/papers").c_str(), AT_FDCWD, (tree + "/top.txt").c_str(), RENAME_EXCHANGE));
  EXPECT_EQ(first(sim.manage(getBeastFullName("VOL1", "101")), "name"), "/top.txt/a.txt");
  EXPECT_EQ(first(sim.manage(getBeastFullName("VOL1", "107")), "name"), "/papers");
  std::string reply;
  ASSERT_TRUE(sim.exchange("files.cmd", getFileInfo("/media/kvf/VOL1/top.txt/b.txt"), &reply));
  EXPECT_EQ(first(reply, "id", "<standardInfo>"), "103");
  // No replacing, no moving into itself, none across volumes.
  EXPECT_NE(0, rename((tree + "/papers").c_str(), (tree + "/far.txt").c_str()));
  EXPECT_EQ(EEXIST, errno);
  EXPECT_NE(0, rename((tree + "/top.txt").c_str(), (tree + "/top.txt/sub").c_str()));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_NE(0, rename((tree + "/far.txt").c_str(), (sim.volumeDir("VOL2") + "/far.txt").c_str()));
  EXPECT_EQ(EXDEV, errno);

  testsupport::Simulator::Options options;
  options.fixture = kFixture;
  options.zidInodes = false;
  testsupport::Simulator numbered(options);
  ASSERT_EQ(0, stat((numbered.volumeDir("VOL1") + "/docs/a.txt").c_str(), &st));
  EXPECT_NE(101u, st.st_ino);
}
