// The kinds of object the generator makes and, for each, what velkor's runs
// should find and do with it, written by hand from the documented check,
// repair and deletion rules (one row per kind in kinds.cpp). The generator
// builds an object's records from its kind; the expectations are sums over
// the kinds. Nothing here looks at an object's records.
#pragma once

#include <cstdint>

namespace kvfsim {

// The problem word's bits.
enum Problem : uint32_t {
  kGood = 1, kSkippedChecking = 2, kInvalidAttribute = 4, kInvalidState = 8, kMismatchedDeletedFlag = 16,
  kInvalidZid = 32, kCompBeastNotFound = 64, kCompBeastEOFZero = 128, kBadCompHeader = 256,
  kMismatchedZid = 512, kNoPhysicalData = 1024,
};
constexpr uint32_t kFixableProblems = kInvalidAttribute | kInvalidState | kMismatchedDeletedFlag;
constexpr uint32_t kCorruptedProblems =
    kInvalidZid | kCompBeastNotFound | kCompBeastEOFZero | kBadCompHeader | kMismatchedZid | kNoPhysicalData;
// The word of an object a delete run removed: a list run no longer sees it.
constexpr uint32_t kGone = 0;

enum class Kind : uint8_t {
  // good
  kDirectory, kPlain, kPlainCc, kUncompressedClean, kUncompressedQueued, kCompressed, kCompressedQueued,
  kDeletedCompressed, kHardLinked, kStream, kExtAttr, kEmpty,
  // open: skipped
  kOpen, kOpenCompressed,
  // fixable
  kNoRecordButDsc, kUncompressedCleanAddLog, kUncompressedCleanDsc, kUncompressedNotCleanNoLog, kBothPrecious,
  kMarkedCompressed, kCompressedNoDsc, kCompressedNotClean, kNoPrecious, kDeletedFlagSetLive,
  kDeletedFlagClearDead,
  // corrupted
  kNoRecordDscNoPhys, kNoPhysicalData, kStreamNoPhys, kBothPreciousNoZid, kCompressedNoZid, kCompMissing,
  kDeletedCompMissing, kCompEofZero, kHeaderCode, kHeaderVersion, kHeaderLength, kOwnerMismatch, kSeveral,
  kCount
};
constexpr unsigned kKindCount = unsigned(Kind::kCount);

// What a fix run's requests change on an object: fields set and cleared.
struct Repair {
  uint32_t attributesOn = 0, attributesOff = 0, actionOff = 0, statusOn = 0, statusOff = 0;
  bool cPreciousOn = false;
  bool deletedFlagFromNames = false;  // the compressed data's deleted flag made that of the names
};

struct KindRow {
  Kind kind;
  const char* name;
  unsigned share;         // per thousand objects of the mix
  uint32_t list;          // the word a list run finds
  uint32_t listNoHeader;  // ... with -H
  bool fixed;             // a fix run reports it fixed
  Repair repair;          // what the fix run changes
  uint32_t afterFix;      // the word a list run finds after the fix run
  uint32_t afterDelete;   // the word a list run finds after a delete run; kGone: deleted
  bool cc;                // carries the Cc mark (a clear run clears it; uncompressible)
  bool compressed;        // the compressed copy is the one kept (cPrecious 1)
  bool namesDeleted;      // all its names are deleted
};

const KindRow& kindRow(Kind kind);

// The kind of object `index` of a volume generated from `seed`: three
// directories, one object of every kind, then the mix by the rows' shares.
Kind kindOf(uint64_t seed, uint64_t index);

// Object `index` has zid 4097 + 4 index or the one after; its compressed
// data, when it has some, 4099 + 4 index.
constexpr uint64_t kFirstZid = 4097;
constexpr uint64_t indexOfZid(uint64_t zid) { return (zid - kFirstZid) / 4; }

// The splitmix64 finaliser: the same numbers for a seed on every platform.
uint64_t mix(uint64_t z);

}  // namespace kvfsim
