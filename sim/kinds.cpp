#include "kinds.h"

#include "model.h"

namespace kvfsim {

namespace {

// What the fix requests change.
constexpr Repair kNone;
constexpr Repair kDropAddCompLog = {0, 0, kAddCompLog};
constexpr Repair kDropStreamCompress = {0, kDataStreamCompress};
constexpr Repair kDropClean = {0, 0, 0, 0, kClean};
// cPrecious set, status with "uncompressed" and without "clean".
constexpr Repair kKeepBothCopies = {0, 0, 0, kUncompressed, kClean, true};
// "dataStreamCompress" set, the Cc mark cleared.
constexpr Repair kMarkStreamCompressed = {kDataStreamCompress, kNoStreamCompress};
constexpr Repair kDeletedFlag = {0, 0, 0, 0, 0, false, true};

constexpr bool T = true, F = false;
constexpr uint32_t kState = kInvalidState, kDeleted = kMismatchedDeletedFlag;

// clang-format off
constexpr KindRow kRows[kKindCount] = {
  // kind, what it is, share,
  //   list word, with -H, fixed, repair, after -F, after -D,  Cc, compressed, names deleted
  {Kind::kDirectory, "directory (its word stays good)", 30,
     kGood, kGood, F, kNone, kGood, kGood,                   F, F, F},
  {Kind::kPlain, "file without compression record", 280,
     kGood, kGood, F, kNone, kGood, kGood,                   F, F, F},
  {Kind::kPlainCc, "file without record, Cc marked", 30,
     kGood, kGood, F, kNone, kGood, kGood,                   T, F, F},
  {Kind::kUncompressedClean, "held uncompressed, clean", 80,
     kGood, kGood, F, kNone, kGood, kGood,                   F, F, F},
  {Kind::kUncompressedQueued, "held uncompressed, not clean, addCompLog", 40,
     kGood, kGood, F, kNone, kGood, kGood,                   F, F, F},
  {Kind::kCompressed, "held compressed", 270,
     kGood, kGood, F, kNone, kGood, kGood,                   F, T, F},
  {Kind::kCompressedQueued, "held compressed with addCompLog (not looked at)", 4,
     kGood, kGood, F, kNone, kGood, kGood,                   F, T, F},
  {Kind::kDeletedCompressed, "held compressed, every name deleted, flag set", 20,
     kGood, kGood, F, kNone, kGood, kGood,                   F, T, T},
  {Kind::kHardLinked, "held compressed, two names, one live", 10,
     kGood, kGood, F, kNone, kGood, kGood,                   F, T, F},
  {Kind::kStream, "data stream", 30,
     kGood, kGood, F, kNone, kGood, kGood,                   F, F, F},
  {Kind::kExtAttr, "extended attribute", 15,
     kGood, kGood, F, kNone, kGood, kGood,                   F, F, F},
  {Kind::kEmpty, "empty file without data", 15,
     kGood, kGood, F, kNone, kGood, kGood,                   F, F, F},

  {Kind::kOpen, "open file", 15,
     kSkippedChecking, kSkippedChecking, F, kNone, kSkippedChecking, kSkippedChecking, F, F, F},
  {Kind::kOpenCompressed, "open file held compressed, its data's eof 0 or 1", 15,
     kSkippedChecking, kSkippedChecking, F, kNone, kSkippedChecking, kSkippedChecking, F, T, F},

  {Kind::kNoRecordButDsc, "no record but dataStreamCompress (repair has no record to mend)", 5,
     kInvalidAttribute, kInvalidAttribute, F, kNone, kInvalidAttribute, kInvalidAttribute, F, F, F},
  {Kind::kUncompressedCleanAddLog, "held uncompressed, clean, addCompLog", 5,
     kState, kState, T, kDropAddCompLog, kGood, kState,      F, F, F},
  {Kind::kUncompressedCleanDsc, "held uncompressed, clean, dataStreamCompress", 5,
     kState, kState, T, kDropStreamCompress, kGood, kState,  F, F, F},
  {Kind::kUncompressedNotCleanNoLog, "held uncompressed, not clean, no addCompLog (empty request)", 4,
     kState, kState, T, kNone, kState, kState,               F, F, F},
  {Kind::kBothPrecious, "both precious flags (clean dropped, both stay)", 4,
     kState, kState, T, kDropClean, kState, kState,          F, T, F},
  {Kind::kMarkedCompressed, "uncompressed precious, status compressed and clean", 4,
     kState, kState, T, kKeepBothCopies, kState, kState,     F, F, F},
  {Kind::kCompressedNoDsc, "held compressed without dataStreamCompress, Cc marked", 5,
     kState, kState, T, kMarkStreamCompressed, kGood, kState, T, T, F},
  {Kind::kCompressedNotClean, "held compressed, not clean (nothing to send)", 4,
     kState, kState, T, kNone, kState, kState,               F, T, F},
  {Kind::kNoPrecious, "neither precious flag", 3,
     kState, kState, T, kNone, kState, kState,               F, F, F},
  {Kind::kDeletedFlagSetLive, "deleted flag set, a name live", 5,
     kDeleted, kDeleted, T, kDeletedFlag, kGood, kDeleted,   F, T, F},
  {Kind::kDeletedFlagClearDead, "deleted flag clear, every name deleted", 5,
     kDeleted, kDeleted, T, kDeletedFlag, kGood, kDeleted,   F, T, T},

  {Kind::kNoRecordDscNoPhys, "no record, dataStreamCompress, no physical data", 4,
     kInvalidAttribute | kNoPhysicalData, kInvalidAttribute | kNoPhysicalData, F, kNone,
     kInvalidAttribute | kNoPhysicalData, kGone,             F, F, F},
  {Kind::kNoPhysicalData, "no record, no physical data", 4,
     kNoPhysicalData, kNoPhysicalData, F, kNone, kNoPhysicalData, kGone, F, F, F},
  {Kind::kStreamNoPhys, "data stream without physical data", 3,
     kNoPhysicalData, kNoPhysicalData, F, kNone, kNoPhysicalData, kGone, F, F, F},
  {Kind::kBothPreciousNoZid, "both precious flags, no compressed zid", 3,
     kState | kInvalidZid, kState | kInvalidZid, F, kNone, kState | kInvalidZid, kGone, F, T, F},
  {Kind::kCompressedNoZid, "held compressed, no compressed zid", 4,
     kInvalidZid, kInvalidZid, F, kNone, kInvalidZid, kGone, F, T, F},
  {Kind::kCompMissing, "held compressed, its data missing", 4,
     kCompBeastNotFound, kCompBeastNotFound, F, kNone, kCompBeastNotFound, kGone, F, T, F},
  {Kind::kDeletedCompMissing, "held compressed, names deleted, data missing", 3,
     kCompBeastNotFound, kCompBeastNotFound, F, kNone, kCompBeastNotFound, kGone, F, T, T},
  {Kind::kCompEofZero, "held compressed, its data's eof 0", 4,
     kCompBeastEOFZero, kCompBeastEOFZero, F, kNone, kCompBeastEOFZero, kGone, F, T, F},
  {Kind::kHeaderCode, "compress code 3", 3,
     kBadCompHeader, kGood, F, kNone, kBadCompHeader, kGone, F, T, F},
  {Kind::kHeaderVersion, "header version 2.0", 3,
     kBadCompHeader, kGood, F, kNone, kBadCompHeader, kGone, F, T, F},
  {Kind::kHeaderLength, "header length one more than eof", 3,
     kBadCompHeader, kGood, F, kNone, kBadCompHeader, kGone, F, T, F},
  {Kind::kOwnerMismatch, "data names another owner", 4,
     kMismatchedZid, kMismatchedZid, F, kNone, kMismatchedZid, kGone, F, T, F},
  {Kind::kSeveral, "deleted flag set while live, another owner, version 1.1", 3,
     kDeleted | kMismatchedZid | kBadCompHeader, kDeleted | kMismatchedZid, F, kNone,
     kDeleted | kMismatchedZid | kBadCompHeader, kGone,      F, T, F},
};
// clang-format on

constexpr bool rowsInKindOrder() {
  for (unsigned i = 0; i < kKindCount; ++i)
    if (kRows[i].kind != Kind(i)) return false;
  return true;
}
static_assert(rowsInKindOrder(), "one row per kind, in the order of the kinds");

constexpr uint64_t shareTotal() {
  uint64_t total = 0;
  for (const KindRow& row : kRows) total += row.share;
  return total;
}

}  // namespace

uint64_t mix(uint64_t z) {
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
  return z ^ (z >> 31);
}

const KindRow& kindRow(Kind kind) { return kRows[unsigned(kind)]; }

Kind kindOf(uint64_t seed, uint64_t index) {
  if (index < 3) return Kind::kDirectory;
  if (index < 3 + kKindCount) return Kind(index - 3);
  uint64_t r = mix(mix(seed ^ 0x5eed) + index * 0x9e3779b97f4a7c15ull) % shareTotal();
  unsigned k = 0;
  while (r >= kRows[k].share) r -= kRows[k++].share;
  return Kind(k);
}

}  // namespace kvfsim
