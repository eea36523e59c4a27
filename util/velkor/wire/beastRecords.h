// The records of a beast's information as read from a reply: the file as the
// user sees it, its compression sub-record and its compressed-data beast.
#pragma once

#include <cstdint>
#include <memory>
#include <ostream>

#include "common_cpp/qXML.h"

namespace velkor {

// Tag-name tables: entry i is bit i; "" holds an unused bit; a null ends them.
extern const char* compStatusTags[];
extern const char* compActionTags[];
extern const char* attrTags[];
const unsigned long long compStatusBitsToCheck = 0xF;
const unsigned long long compActionBitsToCheck = 0x3;
const unsigned long long attrBitsToCheck = 0xEEFF3FBF;
// The status bits that tell how a file is held (uncompressed, compressed),
// and those with the clean mark (failure excluded).
const unsigned long long kStatusHeldMask = 0x3;
const unsigned long long kStatusCleanMask = 0xB;

// Bits of the tables' names, as the program uses them.
enum : unsigned long long {
  statusUncompressed = 1ull << 0,
  statusCompressed = 1ull << 1,
  statusFailure = 1ull << 2,
  statusClean = 1ull << 3,
  actionAddCompLog = 1ull << 0,
  actionEnableIOWrite = 1ull << 1,
  attrSubdirectory = 1ull << 4,
  attrLink = 1ull << 21,
  attrCompressImmediate = 1ull << 25,
  attrDataStreamCompress = 1ull << 26,
  attrDoNotCompress = 1ull << 27,
  attrNoStreamCompress = 1ull << 29,
};

// The union of the bits of every table entry that a tag of `text` (length
// bytes) names, a tag's name matching every entry that it is a prefix of.
// The mask is accepted and not applied.
unsigned long long convertTagsToBits(unsigned long long mask, const char** tags, const char* text,
                                     unsigned long length);

// Writes "<name/>" for every set bit of bits & mask that has a name; 0, or
// all ones when the text did not fit bufferSize (it is then cut short).
unsigned long long convertBitsToTags(unsigned long long bits, unsigned long long mask, const char** tags,
                                     unsigned long bufferSize, char* out, unsigned long* outLength);

// A file's compression sub-record ("variableDataComp").
class CompInfo {
 public:
  explicit CompInfo(QXML::XML_ElementInfo_s* element);

  char compZid[21];
  uint32_t chunkSize;
  uint32_t ucPrecious;
  uint32_t cPrecious;
  uint32_t purgeableBlks;
  uint32_t algoID;
  uint32_t algoVersion;
  uint32_t status;
  uint32_t action;
};

// A beast as the user sees it: root, named and file information, and its
// compression sub-record when it has one (owned).
class UncompBeastInfo {
 public:
  UncompBeastInfo(const char* name, QXML::XML_ElementInfo_s* element);
  ~UncompBeastInfo();
  UncompBeastInfo(const UncompBeastInfo&) = delete;
  UncompBeastInfo& operator=(const UncompBeastInfo&) = delete;

  void fillInRootInfo(QXML::XML_ElementInfo_s* root);
  void setNamedInfo(QXML::XML_ElementInfo_s* named);
  void setFileInfo(QXML::XML_ElementInfo_s* file);
  // 0 File, 1 DataStream, 2 ExtendedAttribute, 3 DeletedFile.
  int getParentNameType(QXML::XML_ElementInfo_s* parent);

  std::unique_ptr<CompInfo> compInfo;  // null when the file has no compression record
  uint64_t eof;
  char zid[21];
  char name[256];
  uint64_t physSize;
  int valid;
  int beastType;  // 0 unknown, 1 data stream, 2 extended attribute, 3 file, 4 directory
  uint64_t attributes;
  int openCount;
  int allNamesDeleted;
  char createdTimeText[20];
  uint32_t createdTime;
  char accessedTimeText[20];
  uint32_t accessedTime;
};

// The beast that holds a file's compressed data.
class CompBeastInfo {
 public:
  explicit CompBeastInfo(QXML::XML_ElementInfo_s* element);

  int found;
  int hasVariableData;
  int uncompBeastDeleted;
  uint64_t eof;
  uint64_t physSize;
  int32_t compressCode;
  int32_t compressMajorVersion;
  int32_t compressMinorVersion;
  uint64_t originalFileLength;
  uint64_t compressedFileLength;
  char volumeID[64];
  char uncompZid[21];
};

// The physical size in a storage-information element ("filePhysSize"; 0 when
// absent).
uint64_t getPhysSize(QXML::XML_ElementInfo_s* storageInfo);

std::ostream& operator<<(std::ostream& out, CompInfo& info);
// Leaves the stream in hexadecimal, as it prints the numbers.
std::ostream& operator<<(std::ostream& out, UncompBeastInfo& info);

}  // namespace velkor
