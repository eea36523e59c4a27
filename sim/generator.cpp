#include "generator.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "kinds.h"

namespace kvfsim {

namespace {

// splitmix64 (kinds.h's mix over a Weyl sequence).
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t next() { return mix(state_ += 0x9e3779b97f4a7c15ull); }
  uint64_t below(uint64_t n) { return n ? next() % n : 0; }
  bool chance(unsigned percent) { return below(100) < percent; }

 private:
  uint64_t state_;
};

// A generated volume's objects. An object's kind and records are a function
// of the seed and its index; what runs in sequence is the list of
// directories files go into, kept as the directories' indices, and the
// objects of each directory, kept for listing it.
class GeneratedObjects final : public ObjectSource {
 public:
  GeneratedObjects(uint64_t objects, uint64_t seed);

  uint64_t count() const override { return count_; }
  uint64_t indexOf(uint64_t zid) const override {
    return zid < kFirstZid || indexOfZid(zid) >= count_ ? count_ : indexOfZid(zid);
  }
  uint64_t zidAt(uint64_t index) const override { return kFirstZid + 4 * index + stream(index).below(2); }
  bool make(uint64_t index, Beast* b, CompBeast* c, bool withName) const override;
  uint64_t zidOfName(std::string_view fullName) const override;
  std::vector<uint64_t> childIndices(uint64_t dir) const override;

  uint64_t seed() const { return seed_; }
  // The numbers of object `index`: its zid is the first draw, the directory
  // it goes into the second.
  Random stream(uint64_t index) const { return Random(seed_ ^ (index * 0xd1b54a32d192ed03ull)); }
  // The directory object `index` goes into: 0 the root, k the k-th directory made.
  uint64_t slotOf(uint64_t index) const;
  std::string directoryName(uint64_t slot) const;

 private:
  uint64_t count_, seed_;
  std::vector<uint32_t> dirs_;        // the directories' indices, ascending
  std::vector<uint32_t> childStart_;  // per slot: its first index in children_; one more at the end
  std::vector<uint32_t> children_;    // object indices by slot, ascending in each
};

// Builds object `index` of its kind. What the kind leaves open (sizes, times,
// the archive attribute, names) comes from the object's own numbers.
class Builder {
 public:
  Builder(const GeneratedObjects& objects, uint64_t index, bool withName, Beast* b, CompBeast* c);
  bool hasCompBeast() const { return hasComp_; }

 private:
  uint64_t size() { return 1 + (rnd_.below(4096) << rnd_.below(12)); }
  static uint64_t roundUp(uint64_t n) { return (n + 4095) / 4096 * 4096; }
  // Gives the file a compressed copy; returns the compressed-data beast.
  CompBeast& compress(Beast& b);
  void uncompressedRecord(Beast& b, bool clean);
  void build(Kind kind, Beast& b);

  Random rnd_;
  uint64_t compZid_;
  CompBeast& c_;
  bool hasComp_ = false;
};

Builder::Builder(const GeneratedObjects& objects, uint64_t index, bool withName, Beast* b, CompBeast* c)
    : rnd_(objects.stream(index)), compZid_(kFirstZid + 4 * index + 2), c_(*c) {
  *b = Beast();
  b->zid = kFirstZid + 4 * index + rnd_.below(2);
  // The draw of the directory, as slotOf makes it.
  rnd_.next();
  const std::string dir = withName ? objects.directoryName(objects.slotOf(index)) : std::string();
  Kind kind = kindOf(objects.seed(), index);
  if (kind == Kind::kDirectory) {
    b->attributes = kSubdirectory;
    if (withName) b->fullName = dir + "/dir" + std::to_string(b->zid);
    b->createdUtc = 1600000000 + int64_t(rnd_.below(100000000));
    b->accessedUtc = b->createdUtc + int64_t(rnd_.below(10000000));
    return;
  }
  if (withName) b->fullName = dir + "/file" + std::to_string(b->zid) + ".dat";
  b->eof = size();
  b->physSize = roundUp(b->eof);
  b->attributes = rnd_.chance(30) ? 1u << 5 : 0;  // archive
  b->createdUtc = 1600000000 + int64_t(rnd_.below(100000000));
  b->accessedUtc = b->createdUtc + int64_t(rnd_.below(10000000));
  build(kind, *b);
}

CompBeast& Builder::compress(Beast& b) {
  CompBeast& c = c_;
  c = CompBeast();
  c.zid = compZid_;
  c.owner = b.zid;
  c.eof = b.eof / 2 + 1;
  c.physSize = roundUp(c.eof);
  c.deleted = b.allNamesDeleted();
  c.compressCode = uint32_t(rnd_.below(3));
  c.originalLength = b.eof;
  c.compressedLength = c.eof;
  b.hasComp = true;
  b.attributes |= kDataStreamCompress;
  b.physSize = 0;
  b.comp = {c.zid, 65536, 0, 1, uint32_t(rnd_.below(8)), 1, 1, kCompressed | kClean, 0};
  hasComp_ = true;
  return c;
}

void Builder::uncompressedRecord(Beast& b, bool clean) {
  b.hasComp = true;
  b.comp = {0, 65536, 1, 0, 0, 1, 1, kUncompressed | (clean ? kClean : 0u), clean ? 0u : kAddCompLog};
}

void Builder::build(Kind kind, Beast& b) {
  switch (kind) {
    case Kind::kDirectory:
    case Kind::kCount:
    case Kind::kPlain: break;
    case Kind::kPlainCc: b.attributes |= kNoStreamCompress; break;
    case Kind::kUncompressedClean: uncompressedRecord(b, true); break;
    case Kind::kUncompressedQueued: uncompressedRecord(b, false); break;
    case Kind::kCompressed: compress(b); break;
    case Kind::kCompressedQueued:
      compress(b);
      b.comp.action = kAddCompLog;
      break;
    case Kind::kDeletedCompressed:
      b.parents = std::string(1 + rnd_.below(2), kDeletedFile);
      compress(b);
      break;
    case Kind::kHardLinked:
      b.parents = rnd_.chance(50) ? std::string{kFile, kFile} : std::string{kDeletedFile, kFile};
      compress(b);
      break;
    case Kind::kStream:
    case Kind::kStreamNoPhys:
      b.classId = 1;
      b.parents = std::string(1, kDataStream);
      b.fullName += ":stream";
      if (kind == Kind::kStreamNoPhys) b.physSize = 0;
      break;
    case Kind::kExtAttr:
      b.classId = 12;
      b.parents = std::string(1, kExtendedAttribute);
      b.fullName += ":attr";
      break;
    case Kind::kEmpty: b.eof = b.physSize = 0; break;
    case Kind::kOpen: b.openCount = 1 + int32_t(rnd_.below(3)); break;
    case Kind::kOpenCompressed:
      b.openCount = 1 + int32_t(rnd_.below(3));
      compress(b).eof = rnd_.chance(20) ? 0 : 1;  // open files are skipped whatever they hold
      break;
    case Kind::kNoRecordButDsc: b.attributes |= kDataStreamCompress; break;
    case Kind::kUncompressedCleanAddLog:
      uncompressedRecord(b, true);
      b.comp.action = kAddCompLog;
      break;
    case Kind::kUncompressedCleanDsc:
      uncompressedRecord(b, true);
      b.attributes |= kDataStreamCompress;
      break;
    case Kind::kUncompressedNotCleanNoLog:
      uncompressedRecord(b, false);
      b.comp.action = 0;
      break;
    case Kind::kBothPrecious:
      compress(b);
      b.comp.ucPrecious = 1;
      break;
    case Kind::kMarkedCompressed:
      compress(b);
      b.comp.ucPrecious = 1;
      b.comp.cPrecious = 0;
      b.attributes &= ~uint32_t(kDataStreamCompress);
      b.physSize = roundUp(b.eof);
      break;
    case Kind::kCompressedNoDsc:
      compress(b);
      b.attributes = (b.attributes & ~uint32_t(kDataStreamCompress)) | kNoStreamCompress;
      break;
    case Kind::kCompressedNotClean:
      compress(b);
      b.comp.status = kCompressed;
      break;
    case Kind::kNoPrecious:
      uncompressedRecord(b, true);
      b.comp.ucPrecious = 0;
      break;
    case Kind::kDeletedFlagSetLive: compress(b).deleted = true; break;
    case Kind::kDeletedFlagClearDead:
      b.parents = std::string(1, kDeletedFile);
      compress(b).deleted = false;
      break;
    case Kind::kNoRecordDscNoPhys:
      b.attributes |= kDataStreamCompress;
      b.physSize = 0;
      break;
    case Kind::kNoPhysicalData: b.physSize = 0; break;
    case Kind::kBothPreciousNoZid:
      uncompressedRecord(b, true);
      b.comp.cPrecious = 1;
      break;
    case Kind::kCompressedNoZid:
      compress(b);
      hasComp_ = false;
      b.comp.compZid = 0;
      break;
    case Kind::kCompMissing:
    case Kind::kDeletedCompMissing:
      if (kind == Kind::kDeletedCompMissing) b.parents = std::string(1, kDeletedFile);
      compress(b);
      hasComp_ = false;
      break;
    case Kind::kCompEofZero: compress(b).eof = 0; break;
    case Kind::kHeaderCode: compress(b).compressCode = 3; break;
    case Kind::kHeaderVersion: compress(b).majorVersion = 2; break;
    case Kind::kHeaderLength: compress(b).originalLength = b.eof + 1; break;
    case Kind::kOwnerMismatch: compress(b).owner = b.zid + 1; break;
    case Kind::kSeveral: {
      CompBeast& c = compress(b);
      c.deleted = true;
      c.owner = 1;
      c.minorVersion = 1;
      break;
    }
  }
}

GeneratedObjects::GeneratedObjects(uint64_t objects, uint64_t seed) : count_(objects), seed_(seed) {
  for (uint64_t i = 0; i < objects; ++i)
    if (kindOf(seed, i) == Kind::kDirectory) dirs_.push_back(uint32_t(i));
  // The objects by directory: counted, then placed.
  std::vector<uint32_t> slots(objects);
  childStart_.assign(dirs_.size() + 2, 0);
  for (uint64_t i = 0; i < objects; ++i) ++childStart_[(slots[i] = uint32_t(slotOf(i))) + 1];
  for (size_t k = 1; k < childStart_.size(); ++k) childStart_[k] += childStart_[k - 1];
  children_.resize(objects);
  std::vector<uint32_t> next(childStart_.begin(), childStart_.end() - 1);
  for (uint64_t i = 0; i < objects; ++i) children_[next[slots[i]]++] = uint32_t(i);
}

uint64_t GeneratedObjects::slotOf(uint64_t index) const {
  Random rnd = stream(index);
  rnd.next();
  uint64_t dirsBefore = std::lower_bound(dirs_.begin(), dirs_.end(), index) - dirs_.begin();
  return rnd.below(1 + dirsBefore);
}

std::string GeneratedObjects::directoryName(uint64_t slot) const {
  std::vector<uint64_t> path;  // the directories' zids, innermost first
  for (; slot != 0; slot = slotOf(dirs_[slot - 1])) path.push_back(zidAt(dirs_[slot - 1]));
  std::string name;
  for (auto it = path.rbegin(); it != path.rend(); ++it) name += "/dir" + std::to_string(*it);
  return name;
}

bool GeneratedObjects::make(uint64_t index, Beast* b, CompBeast* c, bool withName) const {
  CompBeast unused;
  return Builder(*this, index, withName, b, c ? c : &unused).hasCompBeast();
}

uint64_t GeneratedObjects::zidOfName(std::string_view fullName) const {
  // "/.../dirZID" or "/.../fileZID.dat"
  std::string_view last = fullName.substr(fullName.rfind('/') + 1);
  if (last.substr(0, 3) == "dir") last.remove_prefix(3);
  else if (last.substr(0, 4) == "file" && last.size() > 4 && last.substr(last.size() - 4) == ".dat")
    last = last.substr(4, last.size() - 8);
  else return 0;
  uint64_t zid = 0;
  if (last.empty() || last.size() > 19) return 0;
  for (char ch : last) {
    if (ch < '0' || ch > '9') return 0;
    zid = zid * 10 + uint64_t(ch - '0');
  }
  return zid;
}

std::vector<uint64_t> GeneratedObjects::childIndices(uint64_t dir) const {
  uint64_t slot = 0;
  if (dir != 0) {
    uint64_t index = indexOf(dir);
    auto it = std::lower_bound(dirs_.begin(), dirs_.end(), index);
    if (index == count_ || it == dirs_.end() || *it != index || zidAt(index) != dir) return {};
    slot = uint64_t(it - dirs_.begin()) + 1;
  }
  return std::vector<uint64_t>(children_.begin() + childStart_[slot], children_.begin() + childStart_[slot + 1]);
}

}  // namespace

void generate(Model& model, uint64_t objects, uint64_t seed, Expectations* expected) {
  auto v = std::make_unique<Volume>();
  v->name = "VOL1";
  v->mountPoint = "/media/kvf/VOL1";
  v->id = "8f0e2a31-5c1d-4b7e-9a6f-0d3c2b1a4e57";
  v->generated = std::make_unique<GeneratedObjects>(objects, seed);
  v->liveBeasts = objects;
  Expectations e;
  for (uint64_t i = 0; i < objects; ++i) e.add(kindRow(kindOf(seed, i)));
  // Statistics as a volume keeps them: a little behind its objects.
  VolumeStats recount = v->recount();
  v->stats = recount;
  v->stats.compressedFiles += objects / 100 + 3;
  v->stats.compressedBlocks += objects / 10 + 7;
  if (v->stats.uncompressibleFiles) --v->stats.uncompressibleFiles;
  if (expected) {
    e.volume = v->name;
    e.stats = v->stats;
    // The block sums are the objects' sizes, not a rule: taken from them.
    e.statsRecount.preCompressionBlocks = recount.preCompressionBlocks;
    e.statsRecount.compressedBlocks = recount.compressedBlocks;
    *expected = e;
  }
  model.volumes.push_back(std::move(v));
}

}  // namespace kvfsim
