#include "generator.h"

#include <string>
#include <vector>

#include "kinds.h"

namespace kvfsim {

namespace {

// splitmix64: the same numbers for a seed on every platform.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t next() {
    uint64_t z = (state_ += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
  uint64_t below(uint64_t n) { return n ? next() % n : 0; }
  bool chance(unsigned percent) { return below(100) < percent; }

 private:
  uint64_t state_;
};

// Builds object `index` of its kind. What the kind leaves open (sizes, times,
// the archive attribute, names) comes from a generator seeded by the index.
class Builder {
 public:
  Builder(Volume& v, uint64_t seed) : v_(v), seed_(seed) {}

  void add(Kind kind, uint64_t index);

 private:
  uint64_t size() { return 1 + (rnd_.below(4096) << rnd_.below(12)); }
  static uint64_t roundUp(uint64_t n) { return (n + 4095) / 4096 * 4096; }
  void addDirectory();
  Beast& newFile();
  // Gives the file a compressed copy; returns the compressed-data beast.
  CompBeast& compress(Beast& b);
  void uncompressedRecord(Beast& b, bool clean);
  void build(Kind kind, Beast& b);

  Volume& v_;
  uint64_t seed_;
  Random rnd_{0};
  uint64_t zid_ = 0, compZid_ = 0;
  std::vector<std::string> dirs_{""};
};

void Builder::add(Kind kind, uint64_t index) {
  rnd_ = Random(seed_ ^ (index * 0xd1b54a32d192ed03ull));
  zid_ = kFirstZid + 4 * index + rnd_.below(2);
  compZid_ = kFirstZid + 4 * index + 2;
  if (kind == Kind::kDirectory) return addDirectory();
  build(kind, newFile());
}

void Builder::addDirectory() {
  Beast d;
  d.zid = zid_;
  d.attributes = kSubdirectory;
  const std::string& parent = dirs_[rnd_.below(dirs_.size())];
  d.fullName = parent + "/dir" + std::to_string(d.zid);
  d.createdUtc = 1600000000 + int64_t(rnd_.below(100000000));
  d.accessedUtc = d.createdUtc + int64_t(rnd_.below(10000000));
  dirs_.push_back(d.fullName);
  v_.beasts.push_back(std::move(d));
}

Beast& Builder::newFile() {
  Beast b;
  b.zid = zid_;
  b.fullName = dirs_[rnd_.below(dirs_.size())] + "/file" + std::to_string(b.zid) + ".dat";
  b.eof = size();
  b.physSize = roundUp(b.eof);
  b.attributes = rnd_.chance(30) ? 1u << 5 : 0;  // archive
  b.createdUtc = 1600000000 + int64_t(rnd_.below(100000000));
  b.accessedUtc = b.createdUtc + int64_t(rnd_.below(10000000));
  v_.beasts.push_back(std::move(b));
  return v_.beasts.back();
}

CompBeast& Builder::compress(Beast& b) {
  CompBeast c;
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
  v_.compBeasts.push_back(c);
  return v_.compBeasts.back();
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
      v_.compBeasts.pop_back();
      b.comp.compZid = 0;
      break;
    case Kind::kCompMissing:
    case Kind::kDeletedCompMissing:
      if (kind == Kind::kDeletedCompMissing) b.parents = std::string(1, kDeletedFile);
      compress(b);
      v_.compBeasts.pop_back();
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

}  // namespace

void generate(Model& model, uint64_t objects, uint64_t seed, Expectations* expected) {
  auto v = std::make_unique<Volume>();
  v->name = "VOL1";
  v->mountPoint = "/media/kvf/VOL1";
  v->id = "8f0e2a31-5c1d-4b7e-9a6f-0d3c2b1a4e57";
  v->beasts.reserve(objects);
  v->compBeasts.reserve(objects);
  Builder builder(*v, seed);
  Expectations e;
  for (uint64_t i = 0; i < objects; ++i) {
    Kind kind = kindOf(seed, i);
    builder.add(kind, i);
    e.add(kindRow(kind));
  }
  v->index();
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
