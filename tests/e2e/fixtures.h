// Builders of simulator fixtures for the end-to-end tests: a good compressed
// file and its compressed data, and a volume holding them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "e2e.h"

namespace e2efixtures {

using nlohmann::json;

// A consistent compressed file named `name` whose compressed data is zid + 1.
json compressedFile(uint64_t zid, const std::string& name);
// A compressed file whose compressed data is gone (compZid 0 while
// cPrecious is 1): corrupted, so a delete run removes it.
json corruptedFile(uint64_t zid, const std::string& name);
// The compressed data of the file `owner`, consistent with compressedFile.
json compData(uint64_t owner);
// A consistent file without a compression record.
json plainFile(uint64_t zid, const std::string& name);

// `n` compressed files with zids first, first + 10, ... whose stream mark is
// missing (fixable), and their compressed data.
json fixableVolume(uint64_t first, int n);
// `n` consistent files without a compression record, zids first, first + 1,
// ... each named /f<zid>.
json plainFiles(int n, uint64_t first = 1000);

// A path lookup's reply (getFileInfo) on `volume` whose id element holds
// `id` as it is (CDATA, or whatever a test spoils it with).
std::string fileInfoReply(const std::string& id, const std::string& volume = "VOL1");
// A fault rule answering `count` path lookups (getFileInfo; 0: every one)
// with zid `zid` of VOL1, for objects the simulator's lookup does not find.
std::string fileInfoFault(const std::string& zid, int count = 1);

// One volume "VOL1" mounted at /media/kvf/VOL1.
json volume(const json& beasts, const json& compBeasts, bool compression = true,
            const std::string& state = "active");

// The screen row, or "" past the last one.
std::string row(const std::vector<std::string>& screen, size_t i);

// The zid each request names in its <id> element, in order (requests
// without one are left out).
std::vector<std::string> requestIds(const std::vector<json>& requests);

// The scan positions browse requests carried, in order.
std::vector<std::string> scanPositions(const std::vector<json>& browses);

// The run log's entry elements, in order.
std::vector<std::string> entries(const std::string& log);

extern const std::string kVol;

// velkor run to its final prompt, which is then answered; the screen as it
// stood at the prompt. A yes/no question on the way gets `answer`.
struct FinishedRun {
  FinishedRun(const testsupport::Simulator& sim, std::vector<std::string> args,
              const testsupport::VelkorTerminal::Options& options = {}, const std::string& answer = "");
  std::string at(size_t i) const { return row(screen, i); }
  std::vector<std::string> entries() const { return e2efixtures::entries(terminal.runLog()); }

  testsupport::VelkorTerminal terminal;
  bool finalScreen;
  std::vector<std::string> screen;
  bool statusBold;  // the final status text is drawn bold (attribute 14)
};

}  // namespace e2efixtures
