#include "generator.h"

#include <string>
#include <vector>

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

// The kinds of object the generator makes, with their share per thousand.
enum Kind {
  kDirectory, kPlain, kPlainCc, kUncompressedClean, kUncompressedQueued, kCompressedFile, kDeletedCompressed,
  kStream, kExtAttr, kOpen, kEmpty, kHardLinked,
  // fixable
  kNoCompButDsc, kUncleanAddLog, kUncleanDsc, kUncompNotCleanNoLog, kBothPrecious, kMarkedCompressed,
  kCompressedNoDsc, kCompressedAddLog, kCompressedNotClean, kNoPrecious, kDeletedFlagSetLive, kDeletedFlagClearDead,
  // corrupted
  kNoCompDscNoPhys, kNoPhysicalData, kStreamNoPhys, kBothPreciousNoZid, kCompressedNoZid, kCompMissing,
  kCompEofZero, kHeaderCode, kHeaderVersion, kHeaderLength, kOwnerMismatch, kDeletedCompMissing, kSeveral,
  kKinds
};
const unsigned kShare[kKinds] = {
    30, 280, 30, 80, 40, 270, 20, 30, 15, 30, 15, 10,  // good, open
    5, 5, 5, 4, 4, 4, 5, 4, 4, 3, 5, 5,                // fixable
    4, 4, 3, 3, 4, 4, 4, 3, 3, 3, 4, 3, 3};            // corrupted

class Builder {
 public:
  Builder(Volume& v, uint64_t seed) : v_(v), rnd_(seed) {}

  void add(Kind kind);
  void addDirectory();

 private:
  uint64_t newZid() { return zid_ += 1 + rnd_.below(3); }
  uint64_t size() { return 1 + (rnd_.below(4096) << rnd_.below(12)); }
  uint64_t roundUp(uint64_t n) { return (n + 4095) / 4096 * 4096; }
  Beast& newFile();
  // Gives the file a compressed copy; returns the compressed-data beast.
  CompBeast& compress(Beast& b);
  void uncompressedRecord(Beast& b, bool clean);

  Volume& v_;
  Random rnd_;
  uint64_t zid_ = 0x1000;
  std::vector<std::string> dirs_{""};
};

void Builder::addDirectory() {
  Beast d;
  d.zid = newZid();
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
  b.zid = newZid();
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
  c.zid = newZid();
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

void Builder::add(Kind kind) {
  if (kind == kDirectory) return addDirectory();
  Beast& b = newFile();
  switch (kind) {
    case kPlain: break;
    case kPlainCc: b.attributes |= kNoStreamCompress; break;
    case kUncompressedClean: uncompressedRecord(b, true); break;
    case kUncompressedQueued: uncompressedRecord(b, false); break;
    case kCompressedFile: compress(b); break;
    case kDeletedCompressed:
      b.parents = std::string(1 + rnd_.below(2), kDeletedFile);
      compress(b);
      break;
    case kStream:
    case kStreamNoPhys:
      b.classId = 1;
      b.parents = std::string(1, kDataStream);
      b.fullName += ":stream";
      if (kind == kStreamNoPhys) b.physSize = 0;
      break;
    case kExtAttr:
      b.classId = 12;
      b.parents = std::string(1, kExtendedAttribute);
      b.fullName += ":attr";
      break;
    case kOpen:
      b.openCount = 1 + int32_t(rnd_.below(3));
      if (rnd_.chance(50)) compress(b).eof = rnd_.chance(20) ? 0 : 1;  // open files are skipped whatever they hold
      break;
    case kEmpty: b.eof = b.physSize = 0; break;
    case kHardLinked:
      b.parents = rnd_.chance(50) ? std::string{kFile, kFile} : std::string{kDeletedFile, kFile};
      compress(b);
      break;
    case kNoCompButDsc: b.attributes |= kDataStreamCompress; break;
    case kUncleanAddLog:
      uncompressedRecord(b, true);
      b.comp.action = kAddCompLog;
      break;
    case kUncleanDsc:
      uncompressedRecord(b, true);
      b.attributes |= kDataStreamCompress;
      break;
    case kUncompNotCleanNoLog:
      uncompressedRecord(b, false);
      b.comp.action = 0;
      break;
    case kBothPrecious:
      compress(b);
      b.comp.ucPrecious = 1;
      break;
    case kMarkedCompressed: {
      compress(b);
      b.comp.ucPrecious = 1;
      b.comp.cPrecious = 0;
      b.attributes &= ~uint32_t(kDataStreamCompress);
      b.physSize = roundUp(b.eof);
      break;
    }
    case kCompressedNoDsc:
      compress(b);
      b.attributes = (b.attributes & ~uint32_t(kDataStreamCompress)) | kNoStreamCompress;
      break;
    case kCompressedAddLog:
      compress(b);
      b.comp.action = kAddCompLog;
      break;
    case kCompressedNotClean:
      compress(b);
      b.comp.status = kCompressed;
      break;
    case kNoPrecious:
      uncompressedRecord(b, true);
      b.comp.ucPrecious = 0;
      break;
    case kDeletedFlagSetLive: compress(b).deleted = true; break;
    case kDeletedFlagClearDead:
      b.parents = std::string(1, kDeletedFile);
      compress(b).deleted = false;
      break;
    case kNoCompDscNoPhys:
      b.attributes |= kDataStreamCompress;
      b.physSize = 0;
      break;
    case kNoPhysicalData: b.physSize = 0; break;
    case kBothPreciousNoZid:
      uncompressedRecord(b, true);
      b.comp.cPrecious = 1;
      break;
    case kCompressedNoZid:
      compress(b);
      v_.compBeasts.pop_back();
      b.comp.compZid = 0;
      break;
    case kCompMissing:
    case kDeletedCompMissing:
      if (kind == kDeletedCompMissing) b.parents = std::string(1, kDeletedFile);
      compress(b);
      v_.compBeasts.pop_back();
      break;
    case kCompEofZero: compress(b).eof = 0; break;
    case kHeaderCode: compress(b).compressCode = 3; break;
    case kHeaderVersion: compress(b).majorVersion = 2; break;
    case kHeaderLength: compress(b).originalLength = b.eof + 1; break;
    case kOwnerMismatch: compress(b).owner = b.zid + 1; break;
    case kSeveral: {
      CompBeast& c = compress(b);
      c.deleted = true;
      c.owner = 1;
      c.minorVersion = 1;
      break;
    }
    default: break;
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
  Random pick(seed ^ 0x5eed);
  unsigned total = 0;
  for (unsigned s : kShare) total += s;
  for (uint64_t i = 0; i < objects; ++i) {
    // A few directories first, then one object of every kind, then the mix.
    Kind kind;
    if (i < 3) kind = kDirectory;
    else if (i < 3 + kKinds) kind = Kind(i - 3);
    else {
      uint64_t r = pick.below(total);
      int k = 0;
      while (r >= kShare[k]) r -= kShare[k++];
      kind = Kind(k);
    }
    builder.add(kind);
  }
  v->index();
  // Statistics as a volume keeps them: a little behind its objects.
  v->stats = v->recount();
  v->stats.compressedFiles += objects / 100 + 3;
  v->stats.compressedBlocks += objects / 10 + 7;
  if (v->stats.uncompressibleFiles) --v->stats.uncompressibleFiles;
  if (expected) *expected = expect(*v);
  model.volumes.push_back(std::move(v));
}

}  // namespace kvfsim
