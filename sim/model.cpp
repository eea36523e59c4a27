#include "model.h"

#include <algorithm>
#include <ctime>

namespace kvfsim {

const char* const kAttrTags[32] = {
    "readOnly", "hidden", "system", "execute", "subdirectory", "archive", "", "shareable",
    "", "", "", "noSuballoc", "transaction", "notVirtual", "", "",
    "immediatePurge", "renameInhibit", "deleteInhibit", "copyInhibit", "adminLink", "link",
    "remoteDataAccess", "remoteDataInhibit", "", "compressImmediate", "dataStreamCompress",
    "doNotCompress", "", "noStreamCompress", "attrArchive", "volatile"};
const char* const kStatusTags[4] = {"uncompressed", "compressed", "failure", "clean"};
const char* const kActionTags[2] = {"addCompLog", "enableIOWrite"};

bool tagsToBits(const std::vector<std::string>& names, const char* const* table, int size, uint32_t* bits) {
  *bits = 0;
  for (const std::string& name : names) {
    int i = 0;
    while (i < size && (name.empty() || name != table[i])) ++i;
    if (i == size) return false;
    *bits |= 1u << i;
  }
  return true;
}

std::vector<std::string> bitsToTags(uint32_t bits, const char* const* table, int size) {
  std::vector<std::string> names;
  for (int i = 0; i < size; ++i)
    if ((bits & (1u << i)) && table[i][0]) names.push_back(table[i]);
  return names;
}

namespace {
const char* const kNameTypes[4] = {"File", "DataStream", "ExtendedAttribute", "DeletedFile"};
}

const char* nameTypeText(char type) { return type >= 0 && type < 4 ? kNameTypes[int(type)] : "File"; }

bool nameTypeFromText(const std::string& text, char* type) {
  for (int i = 0; i < 4; ++i)
    if (text == kNameTypes[i]) {
      *type = char(i);
      return true;
    }
  return false;
}

bool Beast::allNamesDeleted() const {
  for (char type : parents)
    if (type != kDeletedFile) return false;
  return true;
}

Beast* Volume::findBeast(uint64_t zid) {
  auto it = std::lower_bound(beasts.begin(), beasts.end(), zid,
                             [](const Beast& b, uint64_t z) { return b.zid < z; });
  return it != beasts.end() && it->zid == zid && !it->removed ? &*it : nullptr;
}

CompBeast* Volume::findCompBeast(uint64_t zid) {
  auto it = std::lower_bound(compBeasts.begin(), compBeasts.end(), zid,
                             [](const CompBeast& b, uint64_t z) { return b.zid < z; });
  return it != compBeasts.end() && it->zid == zid && !it->removed ? &*it : nullptr;
}

size_t Volume::firstLiveAbove(uint64_t zid) const {
  auto it = std::upper_bound(beasts.begin(), beasts.end(), zid,
                             [](uint64_t z, const Beast& b) { return z < b.zid; });
  while (it != beasts.end() && it->removed) ++it;
  return it - beasts.begin();
}

Beast* Volume::findByName(std::string_view fullName) {
  auto it = names.find(fullName);
  return it == names.end() ? nullptr : &beasts[it->second];
}

bool Volume::isImplicitDirectory(std::string_view dir) const {
  std::string prefix(dir);
  if (prefix.empty() || prefix.back() != '/') prefix += '/';
  auto it = names.lower_bound(prefix);
  return it != names.end() && it->first.substr(0, prefix.size()) == prefix;
}

void Volume::removeBeast(Beast& beast) {
  if (beast.removed) return;
  auto name = names.find(beast.fullName);
  if (name != names.end() && &beasts[name->second] == &beast) names.erase(name);
  if (beast.hasComp && beast.comp.compZid != 0)
    if (CompBeast* comp = findCompBeast(beast.comp.compZid)) comp->removed = true;
  beast.removed = true;
  --liveBeasts;
}

void Volume::index() {
  auto byZid = [](const auto& a, const auto& b) { return a.zid < b.zid; };
  if (!std::is_sorted(beasts.begin(), beasts.end(), byZid)) std::stable_sort(beasts.begin(), beasts.end(), byZid);
  if (!std::is_sorted(compBeasts.begin(), compBeasts.end(), byZid))
    std::stable_sort(compBeasts.begin(), compBeasts.end(), byZid);
  names.clear();
  liveBeasts = 0;
  for (size_t i = 0; i < beasts.size(); ++i) {
    if (beasts[i].removed) continue;
    ++liveBeasts;
    if (beasts[i].named()) names.emplace(beasts[i].fullName, i);  // the first of a name wins
  }
}

VolumeStats Volume::recount() const {
  VolumeStats s;
  auto blocks = [this](uint64_t bytes) { return blockSize ? (bytes + blockSize - 1) / blockSize : 0; };
  for (const Beast& b : beasts) {
    if (b.removed) continue;
    if (b.attributes & kNoStreamCompress) ++s.uncompressibleFiles;
    if (!b.hasComp || b.comp.cPrecious != 1) continue;
    ++s.compressedFiles;
    if (b.allNamesDeleted()) ++s.compressedDeletedFiles;
    s.preCompressionBlocks += blocks(b.eof);
    auto it = std::lower_bound(compBeasts.begin(), compBeasts.end(), b.comp.compZid,
                               [](const CompBeast& c, uint64_t z) { return c.zid < z; });
    if (it != compBeasts.end() && it->zid == b.comp.compZid && !it->removed) s.compressedBlocks += blocks(it->physSize);
  }
  return s;
}

Volume* Model::findVolume(std::string_view name) {
  for (auto& v : volumes)
    if (v->name == name) return v.get();
  return nullptr;
}

std::string timeText(int64_t utc) {
  time_t t = time_t(utc);
  struct tm tm;
  gmtime_r(&t, &tm);
  char text[32];
  strftime(text, sizeof text, "%Y/%m/%d %H:%M:%S", &tm);
  return text;
}

}  // namespace kvfsim
