#include "model.h"

#include <algorithm>
#include <cerrno>
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

namespace {

// A fixture's object by zid in its ascending vector; null when removed.
template <class List>
auto* inVector(List& list, uint64_t zid) {
  auto it = std::lower_bound(list.begin(), list.end(), zid, [](const auto& o, uint64_t z) { return o.zid < z; });
  return it != list.end() && it->zid == zid && !it->removed ? &*it : nullptr;
}

// The last part of a full name: "file4113.dat" of "/dir4097/file4113.dat".
std::string_view lastPart(std::string_view fullName) { return fullName.substr(fullName.rfind('/') + 1); }

}  // namespace

const Beast* Volume::beast(uint64_t zid, Beast& scratch) const {
  if (!generated) return inVector(beasts, zid);
  if (auto it = changed.find(zid); it != changed.end()) return it->second.removed ? nullptr : &it->second;
  uint64_t index = generated->indexOf(zid);
  if (index >= generated->count() || generated->zidAt(index) != zid) return nullptr;
  generated->make(index, &scratch, nullptr, true);
  return &scratch;
}

const CompBeast* Volume::compBeast(uint64_t zid, CompBeast& scratch) const {
  if (!generated) return inVector(compBeasts, zid);
  if (auto it = changedComp.find(zid); it != changedComp.end()) return it->second.removed ? nullptr : &it->second;
  uint64_t index = generated->indexOf(zid);
  Beast owner;
  if (index >= generated->count() || !generated->make(index, &owner, &scratch, false) || scratch.zid != zid)
    return nullptr;
  return &scratch;
}

Beast* Volume::findBeast(uint64_t zid) {
  if (!generated) return inVector(beasts, zid);
  auto it = changed.find(zid);
  if (it == changed.end()) {
    Beast made;
    if (!beast(zid, made)) return nullptr;
    it = changed.emplace(zid, std::move(made)).first;
  }
  return it->second.removed ? nullptr : &it->second;
}

CompBeast* Volume::findCompBeast(uint64_t zid) {
  if (!generated) return inVector(compBeasts, zid);
  auto it = changedComp.find(zid);
  if (it == changedComp.end()) {
    CompBeast made;
    if (!compBeast(zid, made)) return nullptr;
    it = changedComp.emplace(zid, made).first;
  }
  return it->second.removed ? nullptr : &it->second;
}

const Beast* Volume::beastByName(std::string_view fullName, Beast& scratch) const {
  if (!generated) {
    auto it = names.find(fullName);
    return it == names.end() ? nullptr : &beasts[it->second];
  }
  uint64_t zid = generated->zidOfName(fullName);
  const Beast* b = zid ? beast(zid, scratch) : nullptr;
  return b && b->named() && b->fullName == fullName ? b : nullptr;
}

Beast* Volume::findByName(std::string_view fullName) {
  Beast scratch;
  const Beast* b = beastByName(fullName, scratch);
  return b ? findBeast(b->zid) : nullptr;
}

std::vector<uint64_t> Volume::liveZidsAbove(uint64_t zid, size_t max) const {
  std::vector<uint64_t> zids;
  if (!generated) {
    auto it = std::upper_bound(beasts.begin(), beasts.end(), zid, [](uint64_t z, const Beast& b) { return z < b.zid; });
    for (; it != beasts.end() && zids.size() < max; ++it)
      if (!it->removed) zids.push_back(it->zid);
    return zids;
  }
  const uint64_t count = generated->count();
  uint64_t i = generated->indexOf(zid);
  if (i == count && count > 0 && zid < generated->zidAt(0)) i = 0;
  for (; i < count && zids.size() < max; ++i) {
    uint64_t z = generated->zidAt(i);
    auto it = changed.find(z);
    if (z > zid && (it == changed.end() || !it->second.removed)) zids.push_back(z);
  }
  return zids;
}

bool Volume::listDirectory(std::string_view dir, std::set<std::string>* entries) const {
  const size_t before = entries->size();
  if (!generated) {
    std::string prefix = std::string(dir) + "/";
    bool any = false;
    for (auto it = names.lower_bound(prefix); it != names.end() && it->first.substr(0, prefix.size()) == prefix; ++it) {
      std::string_view rest = it->first.substr(prefix.size());
      entries->emplace(rest.substr(0, rest.find('/')));
      any = true;
    }
    return any;
  }
  Beast scratch;
  const Beast* d = dir.empty() ? nullptr : beastByName(dir, scratch);
  if (!dir.empty() && (!d || !d->isDirectory())) return false;
  for (uint64_t index : generated->childIndices(d ? d->zid : 0)) {
    Beast child;
    const Beast* b = beast(generated->zidAt(index), child);
    if (b && b->named()) entries->emplace(lastPart(b->fullName));
  }
  return entries->size() > before;
}

bool Volume::isImplicitDirectory(std::string_view dir) const {
  std::string prefix(dir);
  if (prefix.empty() || prefix.back() != '/') prefix += '/';
  auto it = names.lower_bound(prefix);
  return it != names.end() && it->first.substr(0, prefix.size()) == prefix;
}

void Volume::forEachBeast(const std::function<void(const Beast&)>& f, bool withNames) const {
  if (!generated) {
    for (const Beast& b : beasts)
      if (!b.removed) f(b);
    return;
  }
  Beast made;
  for (uint64_t i = 0; i < generated->count(); ++i) {
    if (auto it = changed.find(generated->zidAt(i)); it != changed.end()) {
      if (!it->second.removed) f(it->second);
      continue;
    }
    generated->make(i, &made, nullptr, withNames);
    f(made);
  }
}

void Volume::forEachCompBeast(const std::function<void(const CompBeast&)>& f) const {
  if (!generated) {
    for (const CompBeast& c : compBeasts)
      if (!c.removed) f(c);
    return;
  }
  Beast owner;
  CompBeast made;
  for (uint64_t i = 0; i < generated->count(); ++i) {
    if (!generated->make(i, &owner, &made, false)) continue;
    auto it = changedComp.find(made.zid);
    const CompBeast& c = it == changedComp.end() ? made : it->second;
    if (!c.removed) f(c);
  }
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

int Volume::rename(std::string_view from, std::string_view to, bool exchange) {
  if (generated) return -EOPNOTSUPP;
  auto exists = [&](std::string_view name) { return names.count(name) || isImplicitDirectory(name); };
  auto below = [](std::string_view name, std::string_view dir) {
    return name.size() > dir.size() && name.substr(0, dir.size()) == dir && name[dir.size()] == '/';
  };
  if (!exists(from) || (exchange && !exists(to))) return -ENOENT;
  if (from == to) return 0;
  if (below(to, from) || below(from, to)) return -EINVAL;
  if (!exchange && exists(to)) return -EEXIST;
  // The names that move: each keyed by its index, with its new name.
  std::vector<std::pair<size_t, std::string>> moves;
  auto collect = [&](std::string_view oldPrefix, std::string_view newPrefix) {
    for (auto it = names.lower_bound(oldPrefix); it != names.end() && it->first.substr(0, oldPrefix.size()) == oldPrefix; ++it)
      if (it->first.size() == oldPrefix.size() || it->first[oldPrefix.size()] == '/')
        moves.emplace_back(it->second, std::string(newPrefix) + std::string(it->first.substr(oldPrefix.size())));
  };
  collect(from, to);
  if (exchange) collect(to, from);
  // The index's keys are views of the names: out first, renamed, back in.
  for (const auto& move : moves) names.erase(beasts[move.first].fullName);
  for (auto& move : moves) {
    beasts[move.first].fullName = std::move(move.second);
    names.emplace(beasts[move.first].fullName, move.first);
  }
  return 0;
}

VolumeStats Volume::recount() const {
  VolumeStats s;
  auto blocks = [this](uint64_t bytes) { return blockSize ? (bytes + blockSize - 1) / blockSize : 0; };
  CompBeast scratch;
  forEachBeast(
      [&](const Beast& b) {
        if (b.attributes & kNoStreamCompress) ++s.uncompressibleFiles;
        if (!b.hasComp || b.comp.cPrecious != 1) return;
        ++s.compressedFiles;
        if (b.allNamesDeleted()) ++s.compressedDeletedFiles;
        s.preCompressionBlocks += blocks(b.eof);
        if (const CompBeast* c = compBeast(b.comp.compZid, scratch)) s.compressedBlocks += blocks(c->physSize);
      },
      false);
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
