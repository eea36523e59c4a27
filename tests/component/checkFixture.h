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
  // The beast in the simulator's live state, or null json when it is gone.
  json beast(uint64_t zid) const;
  json compBeast(uint64_t zid) const;
  // The object of that zid in one of the state's lists, or null json.
  json object(const char* list, uint64_t zid) const;

  testsupport::TempDir linkDir;
  std::string mountPoint;
  testsupport::Simulator sim;
  std::string manageFile, filesFile;
  velkor::CompStats stats;
  char volume[8] = "VOL1";
};

// The fixture of one volume "VOL1" holding `beasts` and `compBeasts`, mounted
// at `mountPoint`.
json volumeFixture(const std::string& mountPoint, const json& beasts, const json& compBeasts);

}  // namespace componenttest
