// The per-file check against a mounted simulator: problem detection, repair
// and deletion, one metadata field changed at a time.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>

#include "fixtures.h"
#include "velkor/beastQueries.h"
#include "common_cpp/kvfError.h"
#include "velkor/ccAttribute.h"
#include "velkor/compCandidate.h"
#include "velkor/channel.h"
#include "velkor/compStats.h"
#include "velkor/fileCheck.h"

using nlohmann::json;

namespace {

// The bind mounts below live in a mount namespace of this test process's
// own (each test runs in a process of its own), gone when it ends.
const bool kPrivateMounts =
    unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;

// A mounted simulator with the program's management-file globals pointed at
// it, for calling the program's routines in-process against a real mount;
// the volume's tree is bound at the mount point its fixture names, as a
// volume is mounted there.
struct MountedVolume {
  explicit MountedVolume(json fixture, testsupport::Simulator::Options options = {})
      : mountPoint(linkDir.path() + "/VOL1"),
        sim(withMountPoint(std::move(fixture), mountPoint, options)),
        manageFile(sim.adminDir() + "/manage.cmd"),
        filesFile(sim.adminDir() + "/files.cmd"),
        stats(nullptr) {
    if (!kPrivateMounts || mkdir(mountPoint.c_str(), 0755) != 0 ||
        mount(sim.volumeDir("VOL1").c_str(), mountPoint.c_str(), nullptr, MS_BIND, nullptr) != 0)
      throw std::runtime_error("cannot bind the volume's tree at its mount point");
    managecmd = manageFile.c_str();
    filecmd = filesFile.c_str();
    velkor::getVolumeInfo(volume, &stats.volumeInfo);
  }
  ~MountedVolume() {
    managecmd = "/_admin/Manage_KVF/manage.cmd";
    filecmd = "/_admin/Manage_KVF/files.cmd";
    umount2(mountPoint.c_str(), MNT_DETACH);
  }
  static testsupport::Simulator withMountPoint(json fixture, const std::string& mountPoint,
                                               testsupport::Simulator::Options options) {
    fixture["volumes"][0]["mountPoint"] = mountPoint;
    options.fixture = fixture.dump();
    return testsupport::Simulator(options);
  }

  // Runs the per-file check on one zid with fresh counters and problem word;
  // the counters are those of this one file.
  velkor::CompStats& check(uint64_t zid, bool fix, bool del, bool noHeader = false) {
    stats.processed = stats.ccBitCleared = stats.corrupted = stats.fixable = stats.good = stats.openSkipped = 0;
    stats.fixed = stats.deleted = 0;
    stats.resetForNextObject();
    velkor::OpArgs_s args = {noHeader ? 1u : 0u, fix ? 1u : 0u, del ? 1u : 0u};
    std::string text = std::to_string(zid);
    velkor::checkCompressionStatus(volume, text.data(), &args, &stats);
    return stats;
  }

  testsupport::TempDir linkDir;
  std::string mountPoint;
  testsupport::Simulator sim;
  std::string manageFile, filesFile;
  velkor::CompStats stats;
  char volume[8] = "VOL1";
};

enum Base { kCompressed, kUncompressed, kPlain };
enum Action { kNone, kFix, kDelete };
const uint64_t kGone = 0;

// Each case is the base file and its compressed data with one field changed,
// as merge patches of their fixtures.
struct SweepCase {
  const char* what;
  Base base;
  unsigned long bits;          // problem word of a list run
  unsigned long noHeaderBits;  // the same with the header check off
  Action action;               // fix when fixable, delete when corrupted (and counted so by a list run)
  unsigned long after;         // problem word of a list run after the action; kGone: deleted
  const char* file = "{}";     // the patch of the file
  const char* comp = "{}";     // the patch of its compressed data
};

// The good file of each base; its compressed data is e2efixtures::compData.
json baseFile(Base base, uint64_t zid) {
  const std::string name = "/f" + std::to_string(zid);
  if (base == kPlain) return e2efixtures::plainFile(zid, name);
  json file = e2efixtures::compressedFile(zid, name);
  if (base == kUncompressed)
    file.merge_patch(json::parse(R"({"attributes": ["archive"], "eof": 8000, "physSize": 8192, "comp": {"compZid": 0,
                                       "ucPrecious": 1, "cPrecious": 0, "status": ["uncompressed", "clean"]}})"));
  return file;
}

const SweepCase kSweep[] = {
    {"good compressed file", kCompressed, 1, 1, kNone, 1},
    {"good uncompressed file", kUncompressed, 1, 1, kNone, 1},
    {"file without compression record", kPlain, 1, 1, kNone, 1},
    // Compressed file: status, action and attributes.
    {"compressed, not clean", kCompressed, 8, 8, kFix, 8, R"({"comp": {"status": ["compressed"]}})"},
    {"compressed, also uncompressed", kCompressed, 8, 8, kFix, 8,
     R"({"comp": {"status": ["uncompressed", "compressed", "clean"]}})"},
    {"compressed, failure noted", kCompressed, 1, 1, kNone, 1,
     R"({"comp": {"status": ["compressed", "failure", "clean"]}})"},
    {"compressed, compression logged", kCompressed, 1, 1, kNone, 1, R"({"comp": {"action": ["addCompLog"]}})"},
    {"compressed, stream not marked", kCompressed, 8, 8, kFix, 1, R"({"attributes": ["archive"]})"},
    {"compressed, Cc instead of stream mark", kCompressed, 8, 8, kFix, 1,
     R"({"attributes": ["archive", "noStreamCompress"]})"},
    {"compressed, stream not marked and logged", kCompressed, 8, 8, kFix, 1,
     R"({"attributes": ["archive"], "comp": {"action": ["addCompLog"]}})"},
    {"compressed, both precious", kCompressed, 8, 8, kFix, 8, R"({"comp": {"ucPrecious": 1}})"},
    {"compressed, neither precious", kCompressed, 8, 8, kFix, 8, R"({"comp": {"cPrecious": 0}})"},
    // Compressed file: the compressed-data beast.
    {"compressed zid 0", kCompressed, 32, 32, kDelete, kGone, R"({"comp": {"compZid": 0}})"},
    {"compressed data missing", kCompressed, 64, 64, kDelete, kGone, R"({"comp": {"compZid": 999999}})"},
    {"compressed data empty", kCompressed, 128, 128, kDelete, kGone, "{}", R"({"eof": 0})"},
    {"compressed data owned by another", kCompressed, 512, 512, kDelete, kGone, "{}", R"({"owner": 42})"},
    {"compressed data marked deleted", kCompressed, 16, 16, kFix, 1, "{}", R"({"deleted": true})"},
    {"file deleted, data not", kCompressed, 16, 16, kFix, 1, R"({"parents": ["DeletedFile"]})"},
    {"file deleted under one name only", kCompressed, 16, 16, kFix, 1, R"({"parents": ["DeletedFile", "File"]})",
     R"({"deleted": true})"},
    {"header compress code 3", kCompressed, 256, 1, kDelete, kGone, "{}", R"({"header": {"compressCode": 3}})"},
    {"header compress code 2", kCompressed, 1, 1, kNone, 1, "{}", R"({"header": {"compressCode": 2}})"},
    {"header major version 2", kCompressed, 256, 1, kDelete, kGone, "{}", R"({"header": {"majorVersion": 2}})"},
    {"header minor version 1", kCompressed, 256, 1, kDelete, kGone, "{}", R"({"header": {"minorVersion": 1}})"},
    {"header original length", kCompressed, 256, 1, kDelete, kGone, "{}", R"({"header": {"originalLength": 1}})"},
    {"header compressed length 0", kCompressed, 256, 1, kDelete, kGone, "{}", R"({"header": {"compressedLength": 0}})"},
    {"file grew", kCompressed, 256, 1, kDelete, kGone, R"({"eof": 9000})"},
    {"no header at all", kCompressed, 256, 1, kDelete, kGone, "{}", R"({"variableData": false})"},
    {"open file", kCompressed, 2, 2, kNone, 2, R"({"openCount": 2})", R"({"eof": 0})"},
    {"directory", kCompressed, 1, 1, kNone, 1,
     R"({"attributes": ["archive", "dataStreamCompress", "subdirectory"], "comp": {"compZid": 0}})"},
    {"compressed data stream, zid 0", kCompressed, 32, 32, kDelete, kGone, R"({"classId": 1, "comp": {"compZid": 0}})"},
    {"deleted compressed file, zid 0", kCompressed, 32, 32, kDelete, kGone,
     R"({"parents": ["DeletedFile"], "comp": {"compZid": 0}})"},
    // Uncompressed file.
    {"uncompressed, not clean, not logged", kUncompressed, 8, 8, kFix, 8, R"({"comp": {"status": ["uncompressed"]}})"},
    {"uncompressed, clean and logged", kUncompressed, 8, 8, kFix, 1, R"({"comp": {"action": ["addCompLog"]}})"},
    {"uncompressed, stream marked", kUncompressed, 8, 8, kFix, 1,
     R"({"attributes": ["archive", "dataStreamCompress"]})"},
    {"uncompressed, pending compression", kUncompressed, 1, 1, kNone, 1,
     R"({"comp": {"status": ["uncompressed"], "action": ["addCompLog"]}})"},
    {"uncompressed, marked compressed", kUncompressed, 8, 8, kFix, 8,
     R"({"comp": {"status": ["compressed", "clean"]}})"},
    {"uncompressed, no status", kUncompressed, 8, 8, kFix, 8, R"({"comp": {"status": []}})"},
    {"uncompressed, both precious", kUncompressed, 40, 40, kDelete, kGone, R"({"comp": {"cPrecious": 1}})"},
    {"held uncompressed, marked compressed", kCompressed, 8, 8, kFix, 8,
     R"({"comp": {"ucPrecious": 1, "cPrecious": 0}})"},
    // No compression record.
    {"stream marked, no record", kPlain, 4, 4, kFix, 4, R"({"attributes": ["dataStreamCompress"]})"},
    {"no physical data", kPlain, 1024, 1024, kDelete, kGone, R"({"physSize": 0})"},
    {"stream marked, no physical data", kPlain, 1028, 1028, kDelete, kGone,
     R"({"attributes": ["dataStreamCompress"], "physSize": 0})"},
};

const size_t kCases = sizeof kSweep / sizeof kSweep[0];
uint64_t zidOf(size_t i) { return 1000 + 10 * i; }

// The zid of the case named `what`, as text.
std::string zidOf(const char* what) {
  for (size_t i = 0; i < kCases; ++i)
    if (std::string(kSweep[i].what) == what) return std::to_string(zidOf(i));
  ADD_FAILURE() << "no case " << what;
  return "";
}

// Case i's file and compressed data.
std::pair<json, json> objectsOf(size_t i) {
  json file = baseFile(kSweep[i].base, zidOf(i)), comp = e2efixtures::compData(zidOf(i));
  file.merge_patch(json::parse(kSweep[i].file));
  comp.merge_patch(json::parse(kSweep[i].comp));
  return {file, comp};
}

json sweepFixture() {
  json beasts = json::array(), comps = json::array();
  for (size_t i = 0; i < kCases; ++i) {
    auto [file, comp] = objectsOf(i);
    beasts.push_back(file);
    if (kSweep[i].base == kCompressed) comps.push_back(comp);
  }
  return e2efixtures::volume(beasts, comps);
}

}  // namespace

// Files with a live name are unlinked by path; deleted files and data streams
// go through the delete request.
void expectDeletionWays(MountedVolume* volume) {
  std::string log;
  for (const json& r : volume->sim.requests()) log += r.dump() + "\n";
  for (const char* what : {"compressed zid 0", "no physical data"})
    EXPECT_NE(std::string::npos, log.find("unlink /f" + zidOf(what))) << what;
  std::vector<json> deletes = volume->sim.requestsOf("deleteBeast");
  ASSERT_EQ(2u, deletes.size());
  EXPECT_EQ(testsupport::requestText(velkor::deleteRequest, "VOL1", zidOf("compressed data stream, zid 0").c_str()),
            deletes[0]["request"]);
}

void expectExactRepairRequests(MountedVolume* volume) {
  std::vector<json> sets = volume->sim.requestsOf("setBeastInfo");
  auto has = [&](const std::string& text) {
    return std::any_of(sets.begin(), sets.end(), [&](const json& r) { return r["request"] == text; });
  };
  using testsupport::requestText;
  EXPECT_TRUE(has(requestText(velkor::attributesAndActionSetRequest, "VOL1",
                              zidOf("compressed, Cc instead of stream mark").c_str(), "<archive/><noStreamCompress/>",
                              "<archive/><dataStreamCompress/>", nullptr, nullptr)));
  EXPECT_TRUE(has(requestText(velkor::statusSetRequest, "VOL1", zidOf("compressed, both precious").c_str(),
                              "<compressed/><clean/>", "<compressed/>", false)));
  EXPECT_TRUE(has(requestText(velkor::statusSetRequest, "VOL1", zidOf("held uncompressed, marked compressed").c_str(),
                              "<compressed/><clean/>", "<uncompressed/><compressed/>", true)));
  EXPECT_TRUE(has(requestText(velkor::attributesAndActionSetRequest, "VOL1",
                              zidOf("uncompressed, not clean, not logged").c_str(), nullptr, nullptr, nullptr, nullptr)))
      << "an uncompressed file that is neither clean nor logged gets an empty set request";
  EXPECT_TRUE(has(requestText(velkor::deletedFlagSetRequest, "VOL1", zidOf("compressed data marked deleted").c_str(),
                              true, false)));
}

// Each case mounts the sweep's volume afresh: the fix and delete runs change it.
class FileCheck : public ::testing::Test {
 protected:
  std::unique_ptr<MountedVolume> volume = std::make_unique<MountedVolume>(sweepFixture());
};

// A list run finds each case's problems and counts it in its class; with the
// header check off the header problems are not reported.
TEST_F(FileCheck, ListFindsEveryProblemClass) {
  for (size_t i = 0; i < kCases; ++i) {
    const SweepCase& c = kSweep[i];
    velkor::CompStats& s = volume->check(zidOf(i), false, false);
    EXPECT_EQ(c.bits, s.problemFlags) << c.what;
    EXPECT_EQ(1u, s.processed) << c.what;
    EXPECT_EQ(c.action == kDelete ? 1u : 0u, s.corrupted) << c.what;
    EXPECT_EQ(c.action == kFix ? 1u : 0u, s.fixable) << c.what;
    EXPECT_EQ(c.bits == 2 ? 1u : 0u, s.openSkipped) << c.what;
    EXPECT_EQ(c.bits == 1 ? 1u : 0u, s.good) << c.what;
    EXPECT_EQ(0u, s.fixed + s.deleted) << c.what;
    EXPECT_STREQ(("/f" + std::to_string(zidOf(i))).c_str(), s.fileName.get()) << c.what;
    EXPECT_EQ(c.noHeaderBits, volume->check(zidOf(i), false, false, true).problemFlags) << c.what;
  }
}

// A fix run repairs what is fixable (and never deletes); a delete run removes
// what is corrupted (and never repairs). A second list shows the outcome.
TEST_F(FileCheck, FixAndDeleteThenListAgain) {
  for (size_t i = 0; i < kCases; ++i) {
    const SweepCase& c = kSweep[i];
    const uint64_t zid = zidOf(i);
    if (c.action == kFix) {
      velkor::CompStats& deleteRun = volume->check(zid, false, true);
      EXPECT_EQ(0u, deleteRun.deleted + deleteRun.fixed) << c.what << ": a delete run does not repair";
      velkor::CompStats& s = volume->check(zid, true, false);
      // Without a compression record there is nothing to repair: not counted.
      unsigned expected = c.base == kPlain ? 0u : 1u;
      EXPECT_EQ(expected, s.fixed) << c.what;
      EXPECT_EQ(expected, s.fixable) << c.what;
    } else if (c.action == kDelete) {
      velkor::CompStats& fixRun = volume->check(zid, true, false);
      EXPECT_EQ(0u, fixRun.fixed) << c.what << ": a fix run leaves corrupted files alone";
      ASSERT_FALSE(volume->sim.beast(zid).is_null()) << c.what;
      velkor::CompStats& s = volume->check(zid, false, true);
      EXPECT_EQ(1u, s.deleted) << c.what;
      EXPECT_EQ(1u, s.corrupted) << c.what;
    }
    if (c.after == kGone) {
      EXPECT_TRUE(volume->sim.beast(zid).is_null()) << c.what;
      // The compressed data that the file names goes with it; an orphan stays.
      if (c.base == kCompressed) {
        EXPECT_EQ(objectsOf(i).first["comp"]["compZid"] == zid + 1, volume->sim.compBeast(zid + 1).is_null()) << c.what;
      }
    } else {
      EXPECT_EQ(c.after, volume->check(zid, false, false).problemFlags) << c.what;
    }
  }
  expectDeletionWays(volume.get());
  expectExactRepairRequests(volume.get());
}

// A set request refused because the object changed is retried with fresh
// records until it goes through; a change that never stops (20019 on every
// set) ends the per-file check and the Cc clear with that error after the
// retry bound, not in an endless loop.
TEST(FileCheckFaults, ValueChangedIsRetriedUpToTheBound) {
  json beasts = json::array({baseFile(kCompressed, 500), baseFile(kPlain, 510), baseFile(kCompressed, 520)});
  beasts[0]["attributes"] = beasts[2]["attributes"] = {"archive"};
  beasts[1]["attributes"] = {"noStreamCompress"};
  MountedVolume v(e2efixtures::volume(beasts, json::array({e2efixtures::compData(500), e2efixtures::compData(520)})));
  v.sim.setFaults(R"({"request":"setBeastInfo","action":"result","value":20019,"count":3})");
  velkor::CompStats& s = v.check(520, true, false);
  EXPECT_EQ(1u, s.fixed);
  EXPECT_EQ(1u, s.processed);
  EXPECT_EQ(4u, v.sim.requestsOf("setBeastInfo").size());
  EXPECT_EQ(1u, v.check(520, false, false).problemFlags);
  v.sim.setFaults(R"([{"request":"setBeastInfo","action":"result","value":20019,"count":0}])");
  auto expectBoundedFailure = [&](const char* what, const std::function<void()>& run) {
    size_t before = v.sim.requestsOf("setBeastInfo").size();
    EXPECT_EQ(zERR_VALUE_CHANGED, testsupport::expectKvfError(run, what).code) << what;
    EXPECT_EQ(size_t(velkor::kValueChangedRetries + 1), v.sim.requestsOf("setBeastInfo").size() - before) << what;
  };
  expectBoundedFailure("per-file check", [&] { v.check(500, true, false); });
  expectBoundedFailure("Cc clear", [&] {
    char zid[] = "510";
    velkor::checkCCBit(v.volume, zid, nullptr, &v.stats);
  });
  EXPECT_EQ(json({"noStreamCompress"}), v.sim.beast(510)["attributes"]);
}

// (A refused request is an error too: volumeOps_test's FaultsBreakOffAScan.)
TEST_F(FileCheck, FailedUnlinkIsAnError) {
  const uint64_t zid = std::stoull(zidOf("no physical data"));
  // The name lookup gives a name that the volume's tree does not hold.
  volume->sim.setFaults(R"({"request":"getBeastFullName","action":"raw","text":)"
                        R"("<kvfReply><beast><getBeastFullName><result value=\"0\"/><name><![CDATA[/nowhere]]></name>)"
                        R"(</getBeastFullName></beast></kvfReply>"})");
  KVFError e = testsupport::expectKvfError([&] { volume->check(zid, false, true); }, "unlink of a missing path");
  EXPECT_EQ(ENOENT, e.code);
  EXPECT_STREQ(strerror(ENOENT), e.what());
  EXPECT_EQ(0u, e.location.find("util/velkor/velkorHelper["));
  EXPECT_EQ(0u, volume->stats.deleted);
  EXPECT_FALSE(volume->sim.beast(zid).is_null());
}

// Texts that would not fit their fixed buffers are refused, not cut or overrun.
TEST(FileCheckFaults, OversizedTextsAreRefused) {
  MountedVolume v(e2efixtures::volume(json::array({baseFile(kPlain, 700)}), json::array()));
  auto expectTooSmall = [](const std::function<void()>& call, const char* what) {
    KVFError e = testsupport::expectKvfError(call, what);
    EXPECT_EQ(20004, e.code) << what;
    EXPECT_TRUE(e.isKvfCode) << what;
  };
  std::string longPath = v.mountPoint + "/" + std::string(1100, 'p');
  char volume[64], zid[104];
  expectTooSmall([&] { velkor::getFileZidByPath(&longPath[0], volume, zid); }, "a path of 1100 characters");
  std::string longVolume(1100, 'V');
  expectTooSmall([&] { velkor::getVolumeInfo(&longVolume[0], &v.stats.volumeInfo); }, "a volume name of 1100 characters");

  // An attributes text of 600 bytes does not fit the set request's buffers.
  std::string attributes = "<noStreamCompress/>";
  while (attributes.size() < 600) attributes += "<readOnly/>";
  v.sim.setFaults(R"({"request":"getBeastInfo","action":"raw","text":"<kvfReply><beast><getBeastInfo><result )"
                  R"(value=\"0\"/><beastInfo><namedBeastInfo><attributes>)" + attributes +
                  R"(</attributes></namedBeastInfo></beastInfo></getBeastInfo></beast></kvfReply>"})");
  char zidText[] = "700";
  expectTooSmall([&] { velkor::checkCCBit(v.volume, zidText, nullptr, &v.stats); }, "600 bytes of attributes");
  EXPECT_EQ(0u, v.stats.processed);
  EXPECT_TRUE(json(v.sim.beast(700)).contains("zid"));
}

// Every rule of the background check: attributes, type, deleted state and
// last access against the two settings of the start-up configuration file.
TEST(Candidate, EveryRuleOfTheBackgroundCheck) {
  const char* days7 = "#DaysUntouchedBeforeCompression comment\n/DaysUntouchedBeforeCompression=7\n"
                      " DeletedFilesCompressionOption:1\n";
  const char* days0 = "/DaysUntouchedBeforeCompression=0\n";
  const char* option0 = "/DeletedFilesCompressionOption=0\n";
  const char* option2 = "/DeletedFilesCompressionOption=2\n";
  const char *yes = "candidate", *no = "not a candidate";
  const int64_t week = 7 * 86400;
  const struct {
    const char* what;
    json attributes;
    int classId;
    bool deleted;
    int64_t accessedAgo;   // seconds before now
    const char* config;    // null: no configuration file
    const char* expected;  // the verdict, or the error's message
  } cases[] = {
      {"untouched for exactly the days", {"archive"}, 3, false, week, days7, yes},
      {"touched within the days", {"archive"}, 3, false, week - 100, days7, no},
      {"days 0", {"archive"}, 3, false, 0, days0, yes},
      {"compress immediately", {"compressImmediate"}, 3, false, 0, nullptr, yes},
      {"compress immediately, already compressed", {"compressImmediate", "dataStreamCompress"}, 3, false, week * 9,
       days0, no},
      {"do not compress", {"doNotCompress"}, 3, false, week * 9, days0, no},
      {"Cc attribute", {"noStreamCompress", "compressImmediate"}, 3, false, week * 9, days0, no},
      {"link", {"link"}, 3, false, week * 9, days0, no},
      {"data stream needs no setting", json::array(), 1, false, 0, nullptr, yes},
      {"deleted, option 0", json::array(), 3, true, week * 9, option0, no},
      {"deleted a day and more ago, option 1", json::array(), 3, true, 86400 + 100, days7, yes},
      {"deleted less than a day ago, option 1", json::array(), 3, true, 86400 - 100, days7, no},
      {"deleted data stream, option 1", json::array(), 1, true, 0, days7, yes},
      {"deleted, option 2", json::array(), 3, true, 0, option2, yes},
      {"days setting missing", {"archive"}, 3, false, 0, option2, "Error getting set parameter value"},
      {"deleted option missing", json::array(), 3, true, 0, days0, "Error getting set parameter value"},
      {"no configuration file", {"archive"}, 3, false, 0, nullptr, "Unable to read the start-up configuration file"},
  };
  const int64_t now = time(nullptr);
  json beasts = json::array();
  for (size_t i = 0; i < std::size(cases); ++i) {
    beasts.push_back(e2efixtures::plainFile(200 + i, "/c" + std::to_string(200 + i)));
    beasts.back()["attributes"] = cases[i].attributes;
    beasts.back()["classId"] = cases[i].classId;
    if (cases[i].deleted) beasts.back()["parents"] = {"DeletedFile"};
    beasts.back()["accessed"] = {{"utc", now - cases[i].accessedAgo}};
  }
  MountedVolume v(e2efixtures::volume(beasts, json::array()));
  testsupport::TempDir dir;
  const std::string config = dir.file("kvfstart.cfg");
  const char* saved = velkor::kvfStartConfigPath;
  velkor::kvfStartConfigPath = config.c_str();
  for (size_t i = 0; i < std::size(cases); ++i) {
    const auto& c = cases[i];
    unlink(config.c_str());
    if (c.config) testsupport::writeFile(config, c.config);
    std::string zid = std::to_string(200 + i), verdict;
    try {
      verdict = velkor::checkCompCandidate(v.volume, zid.data()) ? yes : no;
    } catch (const KVFError& e) {
      verdict = e.what();
    }
    EXPECT_EQ(0u, verdict.rfind(c.expected, 0)) << c.what << ": " << verdict;
  }
  velkor::kvfStartConfigPath = saved;
}
