// Small records shared by the operations: the per-operation arguments, the
// volume's information, the problem codes of a file and the operation codes.
#pragma once

#include <cstdint>
#include <string>

#include "common/kvfUtil.h"

namespace velkor {

// Arguments of one list, fix or delete operation.
struct OpArgs_s {
  uint64_t flags;   // the run's no-header switch: not 0 skips the header check
  uint64_t fix;     // not 0: repair fixable files
  uint64_t delete_; // not 0: delete corrupted files
};

struct VolumeInfo_s {
  char volumeState[32];
  uint64_t compressionEnabled;
  KVF::MallocedText mountPoint;
};

// Problem codes: one bit each; a file is corrupted when any corrupted bit is
// set, else fixable when any fixable bit is set.
enum ProblemCode : unsigned long {
  good = 1,
  skippedChecking = 2,
  invalidAttribute = 4,
  invalidState = 8,
  mismatchedDeletedFlag = 16,
  invalidZid = 32,
  compBeastNotFound = 64,
  compBeastEOFZero = 128,
  badCompHeader = 256,
  mismatchedZid = 512,
  noPhysicalData = 1024,
};
const unsigned long kCorruptedProblems = 0x7E0;
const unsigned long kFixableProblems = 0x1C;

// The type of a beast as its records tell it.
enum BeastType : int {
  beastUnknown = 0,
  beastDataStream = 1,
  beastExtendedAttribute = 2,
  beastFile = 3,
  beastDirectory = 4,
};

// A beast's type as the screen names it ("deleted data stream") or as the
// run log's elements ("<deleted/><dataStream/>"); other codes are unknown.
inline std::string beastTypeText(bool deleted, int type, bool asElements) {
  static const char* const texts[] = {"unknown", "data stream", "extended attribute", "file", "directory"};
  static const char* const elements[] = {"<unknown/>", "<dataStream/>", "<extendedAttribute/>", "<file/>",
                                         "<directory/>"};
  int index = type >= beastDataStream && type <= beastDirectory ? type : beastUnknown;
  std::string text = deleted ? (asElements ? "<deleted/>" : "deleted ") : "";
  return text + (asElements ? elements[index] : texts[index]);
}

// Operation codes: volume-level codes are below 128, file-level codes above.
enum OperationCode : unsigned int {
  opClearAll = 0x1,
  opDeleteAll = 0x2,
  opFixAll = 0x4,
  opListAll = 0x8,
  opFixStats = 0x10,
  opClear = 0x100,
  opDelete = 0x200,
  opFix = 0x400,
  opList = 0x800,
  opBackground = 0x1000,
};

// A set request refused because the object changed meanwhile (20019) makes
// the per-object routine start again with fresh records, this many times at
// most before the error is passed on.
const int kValueChangedRetries = 1000;

// Volume-level operations take a volume name; the others a file name.
inline bool isVolumeOperation(unsigned long long operation) { return operation <= 128; }

}  // namespace velkor
