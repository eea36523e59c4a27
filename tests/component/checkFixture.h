// A mounted simulator with the program's management-file globals pointed at
// it, for calling the program's routines in-process against a real mount.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "velkor/compStats.h"
#include "e2e.h"

namespace componenttest {

using nlohmann::json;

// The volume's mount point in fixtures: a link to the mounted volume tree.
struct MountedVolume {
  explicit MountedVolume(json fixture);
  ~MountedVolume();

  // Runs the per-file check on one zid with fresh counters and problem word;
  // the counters are those of this one file.
  velkor::CompStats& check(uint64_t zid, bool fix, bool del, bool noHeader = false);

  testsupport::TempDir linkDir;
  std::string mountPoint;
  testsupport::Simulator sim;
  std::string manageFile, filesFile;
  velkor::CompStats stats;
  char volume[8] = "VOL1";
};

}  // namespace componenttest
