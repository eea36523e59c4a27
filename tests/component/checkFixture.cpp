#include "checkFixture.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "velkor/channel.h"
#include "velkor/beastQueries.h"
#include "velkor/fileCheck.h"

namespace componenttest {

namespace {

std::string linkPath(const testsupport::TempDir& dir) { return dir.path() + "/VOL1"; }

json withMountPoint(json fixture, const std::string& mountPoint) {
  fixture["volumes"][0]["mountPoint"] = mountPoint;
  return fixture;
}

}  // namespace

MountedVolume::MountedVolume(json fixture)
    : mountPoint(linkPath(linkDir)),
      sim(testsupport::Simulator::withFixture(withMountPoint(std::move(fixture), linkPath(linkDir)).dump())),
      manageFile(sim.adminDir() + "/manage.cmd"),
      filesFile(sim.adminDir() + "/files.cmd"),
      stats(nullptr) {
  if (symlink(sim.volumeDir("VOL1").c_str(), mountPoint.c_str()) != 0) throw std::runtime_error("symlink failed");
  managecmd = manageFile.c_str();
  filecmd = filesFile.c_str();
  velkor::getVolumeInfo(volume, &stats.volumeInfo);
}

MountedVolume::~MountedVolume() {
  managecmd = "/_admin/Manage_KVF/manage.cmd";
  filecmd = "/_admin/Manage_KVF/files.cmd";
}

velkor::CompStats& MountedVolume::check(uint64_t zid, bool fix, bool del, bool noHeader) {
  stats.processed = stats.ccBitCleared = stats.corrupted = stats.fixable = stats.good = stats.openSkipped = 0;
  stats.fixed = stats.deleted = 0;
  stats.resetForNextObject();
  velkor::OpArgs_s args = {noHeader ? 1u : 0u, fix ? 1u : 0u, del ? 1u : 0u};
  std::string text = std::to_string(zid);
  std::vector<char> zidText(text.begin(), text.end());
  zidText.push_back('\0');
  velkor::checkCompressionStatus(volume, zidText.data(), &args, &stats);
  return stats;
}

}  // namespace componenttest
