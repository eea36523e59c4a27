#include "velkor/beastRecords.h"

#include <strings.h>

#include <cstdio>
#include <cstring>
#include <iomanip>

#include "common_cpp/kvfError.h"
#include "common/lbString.h"
#include "velkor/velkorTypes.h"

namespace {
// Error locations name the documented source of the object records.
constexpr KvfSource kKvfSource = KvfSource::velkorClass;
}  // namespace

namespace velkor {

using QXML::TagContent_s;
using QXML::TagRequest_s;
using QXML::XML_ElementInfo_s;

const char* compStatusTags[] = {"uncompressed", "compressed", "failure", "clean", nullptr};
const char* compActionTags[] = {"addCompLog", "enableIOWrite", nullptr};
const char* attrTags[] = {
    "readOnly",      "hidden",         "system",           "execute",           "subdirectory",
    "archive",       "",               "shareable",        "",                  "",
    "",              "noSuballoc",     "transaction",      "notVirtual",        "",
    "",              "immediatePurge", "renameInhibit",    "deleteInhibit",     "copyInhibit",
    "adminLink",     "link",           "remoteDataAccess", "remoteDataInhibit", "",
    "compressImmediate", "dataStreamCompress", "doNotCompress", "", "noStreamCompress",
    "attrArchive",   "volatile",       nullptr,
};

namespace {

const unsigned kRequired = 0;
const unsigned kOptional = QXML::TAG_OPTIONAL;

// Reads `rows` from the content of `parent`. An element without content has
// none of the rows: that is an error unless every row is optional.
void readRows(XML_ElementInfo_s* parent, const TagRequest_s* rows, TagContent_s* contents, const char* message,
              int line) {
  if (!parent->contentStart || parent->contentLength == 0) {
    for (int i = 0; rows[i].name; ++i) {
      if (!(rows[i].flags & QXML::TAG_OPTIONAL)) throw KVFError(message, zERR_XML_IS_BAD, KVF_Location(kKvfSource, line));
      contents[i].value = nullptr;
      contents[i].status = 0;
    }
    return;
  }
  int result = QXML::MKVF_GetTagContents(parent, rows, contents);
  if (result != 0) throw KVFError(message, result, KVF_Location(kKvfSource, line));
}

bool hasContent(const TagContent_s& row) { return row.status & QXML::TAG_HAS_CONTENT; }

// A row's decimal value. A number beyond its field's range (`max`) is
// refused: converted, it would stand for another number, and a file judged on
// it could be repaired or deleted for nothing.
uint64_t decimal(const TagContent_s& row, uint64_t max = UINT64_MAX, int line = __builtin_LINE()) {
  if (!row.value) return 0;
  if (!KVF::LB_fitsDecimal(row.value, max))
    throw KVFError("Number does not fit its field", zERR_BUFFER_TOO_SMALL, KVF_Location(kKvfSource, line));
  return KVF::LB_strtouq(row.value, nullptr, 10);
}

// Copies a value into a fixed field; a value that would not fit with its
// terminator is refused.
void copyField(char* field, size_t size, const TagContent_s& row, int line) {
  memset(field, 0, size);
  if (!row.value) return;
  size_t length = strlen(row.value);
  if (length >= size) throw KVFError("Value too long for its field", zERR_BUFFER_TOO_SMALL, KVF_Location(kKvfSource, line));
  memcpy(field, row.value, length);
}

unsigned long long tagBits(const TagContent_s& row, const char** tags, unsigned long long mask) {
  return hasContent(row) ? convertTagsToBits(mask, tags, row.value, strlen(row.value)) : 0;
}

}  // namespace

unsigned long long convertTagsToBits(unsigned long long, const char** tags, const char* text, unsigned long length) {
  unsigned long long bits = 0;
  if (!text || length == 0) return 0;
  const char* end = text + length - 1;
  const char* p = text;
  XML_ElementInfo_s info;
  const char* name;
  size_t nameLength;
  while (p <= end && QXML::XML_GetNextTag(p, end, &info, &name, &nameLength) == 0) {
    // An end tag has no name and names nothing.
    for (int i = 0; nameLength > 0 && tags[i]; ++i) {
      if (strncmp(name, tags[i], nameLength) == 0) bits |= 1ull << i;
    }
    p = info.elementEnd + 1;
  }
  return bits;
}

unsigned long long convertBitsToTags(unsigned long long bits, unsigned long long mask, const char** tags,
                                     unsigned long bufferSize, char* out, unsigned long* outLength) {
  *outLength = 0;
  if (bufferSize > 0) out[0] = '\0';
  if ((bits & mask) == 0) return 0;
  for (int i = 0; tags[i]; ++i) {
    if (!((bits & mask) >> i & 1) || tags[i][0] == '\0') continue;
    // snprintf cuts the text at the buffer's end; the length says it was cut.
    if (*outLength < bufferSize) snprintf(out + *outLength, bufferSize - *outLength, "<%s/>", tags[i]);
    *outLength += strlen(tags[i]) + 3;
    if (*outLength > bufferSize - 1) return ~0ull;
  }
  return 0;
}

uint64_t getPhysSize(XML_ElementInfo_s* storageInfo) {
  const TagRequest_s rows[] = {{"filePhysSize", kOptional}, {nullptr, 0}};
  TagContent_s contents[1];
  if (!storageInfo->contentStart || storageInfo->contentLength == 0) return 0;
  int result = QXML::MKVF_GetTagContents(storageInfo, rows, contents);
  if (result != 0) throw KVFError("Failed to get storage info", result, KVF_HERE);
  return decimal(contents[0]);
}

CompInfo::CompInfo(XML_ElementInfo_s* element) {
  const TagRequest_s rows[] = {
      {"compZid", kRequired},   {"chunkSize", kRequired}, {"ucPrecious", kRequired},
      {"cPrecious", kRequired}, {"purgeableBlks", kRequired}, {"algoID", kRequired},
      {"algoVersion", kRequired}, {"status", kRequired}, {"action", kOptional},
      {nullptr, 0},
  };
  TagContent_s c[9];
  readRows(element, rows, c, "Failed to get compInfo tags", __LINE__);
  copyField(compZid, sizeof compZid, c[0], __LINE__);
  chunkSize = static_cast<uint32_t>(decimal(c[1], UINT32_MAX));
  ucPrecious = static_cast<uint32_t>(decimal(c[2], UINT32_MAX));
  cPrecious = static_cast<uint32_t>(decimal(c[3], UINT32_MAX));
  purgeableBlks = static_cast<uint32_t>(decimal(c[4], UINT32_MAX));
  algoID = static_cast<uint32_t>(decimal(c[5], UINT32_MAX));
  algoVersion = static_cast<uint32_t>(decimal(c[6], UINT32_MAX));
  status = static_cast<uint32_t>(tagBits(c[7], compStatusTags, compStatusBitsToCheck));
  action = static_cast<uint32_t>(tagBits(c[8], compActionTags, compActionBitsToCheck));
}

UncompBeastInfo::UncompBeastInfo(const char* volumeName, XML_ElementInfo_s* element)
    : compInfo(nullptr), eof(0), zid(), name(), physSize(0), valid(0), beastType(0), attributes(0), openCount(0),
      allNamesDeleted(0), createdTimeText(), createdTime(0), accessedTimeText(), accessedTime(0) {
  strncpy(name, volumeName, sizeof name - 1);
  const TagRequest_s rows[] = {
      {"rootBeastInfo", kRequired}, {"namedBeastInfo", kOptional}, {"fileBeastInfo", kOptional}, {nullptr, 0}};
  TagContent_s c[3];
  readRows(element, rows, c, "Failed to get beast info", __LINE__);
  if (!hasContent(c[0])) {
    valid = 0;
    return;
  }
  valid = 1;
  fillInRootInfo(&c[0].element);
  // The named information is needed as much as the root information.
  if (!(c[1].status & QXML::TAG_FOUND)) throw KVFError("Failed to get named info", zERR_XML_IS_BAD, KVF_HERE);
  setNamedInfo(&c[1].element);
  if (c[2].status & QXML::TAG_FOUND) setFileInfo(&c[2].element);
}

UncompBeastInfo::~UncompBeastInfo() = default;

void UncompBeastInfo::fillInRootInfo(XML_ElementInfo_s* root) {
  const TagRequest_s rows[] = {{"eof", kRequired},     {"variableDataComp", kOptional}, {"storageInfo", kRequired},
                               {"classID", kRequired}, {"zid", kRequired},              {nullptr, 0}};
  TagContent_s c[5];
  readRows(root, rows, c, "Failed to get root info", __LINE__);
  copyField(zid, sizeof zid, c[4], __LINE__);
  eof = decimal(c[0]);
  switch (decimal(c[3])) {
    case 1: beastType = beastDataStream; break;
    case 12: beastType = beastExtendedAttribute; break;
    case 3: beastType = beastFile; break;
    default: beastType = beastUnknown; break;
  }
  physSize = getPhysSize(&c[2].element);
  compInfo.reset(hasContent(c[1]) ? new CompInfo(&c[1].element) : nullptr);
}

void UncompBeastInfo::setNamedInfo(XML_ElementInfo_s* named) {
  const TagRequest_s rows[] = {{"attributes", kOptional},  {"openCount", kRequired},    {"numParents", kRequired},
                               {"firstParent", kRequired}, {"otherParents", kOptional}, {nullptr, 0}};
  TagContent_s c[5];
  readRows(named, rows, c, "Failed to get named info", __LINE__);
  attributes = tagBits(c[0], attrTags, attrBitsToCheck);
  if (attributes & attrSubdirectory) beastType = beastDirectory;
  openCount = static_cast<int>(c[1].value ? KVF::LB_strtoq(c[1].value, nullptr, 10) : 0);
  allNamesDeleted = 0;

  if (decimal(c[2]) != 0) {
    if (getParentNameType(&c[3].element) != 3) return;
    if (hasContent(c[4])) {
      XML_ElementInfo_s& others = c[4].element;
      const char* p = others.contentStart;
      const char* end = others.contentEnd;
      XML_ElementInfo_s entry;
      const char* entryName;
      size_t entryNameLength;
      while (p <= end && QXML::XML_GetNextTag(p, end, &entry, &entryName, &entryNameLength) == 0) {
        if (entryNameLength == 11 && memcmp(entryName, "parentEntry", 11) == 0 && getParentNameType(&entry) != 3) {
          return;
        }
        p = entry.elementEnd + 1;
      }
    }
  }
  allNamesDeleted = 1;
}

int UncompBeastInfo::getParentNameType(XML_ElementInfo_s* parent) {
  static const char* const types[] = {"File", "DataStream", "ExtendedAttribute", "DeletedFile"};
  const TagRequest_s rows[] = {{"nameType", kRequired}, {nullptr, 0}};
  TagContent_s c[1];
  readRows(parent, rows, c, "Failed to get parent entry name type", __LINE__);
  for (int type = 0; c[0].value && type < 4; ++type) {
    if (strncasecmp(c[0].value, types[type], strlen(types[type])) == 0) return type;
  }
  throw KVFError("Failed to get parent entry name type", zERR_INVALID_NAME_TYPE, KVF_HERE);
}

void UncompBeastInfo::setFileInfo(XML_ElementInfo_s* file) {
  const TagRequest_s persistentRows[] = {{"persistentFile", kRequired}, {nullptr, 0}};
  TagContent_s persistent[1];
  readRows(file, persistentRows, persistent, "Failed to get persistent info", __LINE__);

  const TagRequest_s timeRows[] = {{"accessedTime", kRequired}, {"createdTime", kRequired}, {nullptr, 0}};
  TagContent_s times[2];
  readRows(&persistent[0].element, timeRows, times, "Failed to get time info", __LINE__);

  const TagRequest_s valueRows[] = {{"utc", kRequired}, {"string", kRequired}, {nullptr, 0}};
  TagContent_s accessed[2];
  readRows(&times[0].element, valueRows, accessed, "Failed to get accessed time info", __LINE__);
  copyField(accessedTimeText, sizeof accessedTimeText, accessed[1], __LINE__);
  accessedTime = static_cast<uint32_t>(decimal(accessed[0], UINT32_MAX));

  TagContent_s created[2];
  readRows(&times[1].element, valueRows, created, "Failed to get created time info", __LINE__);
  copyField(createdTimeText, sizeof createdTimeText, created[1], __LINE__);
  createdTime = static_cast<uint32_t>(decimal(created[0], UINT32_MAX));
}

CompBeastInfo::CompBeastInfo(XML_ElementInfo_s* element) {
  const TagRequest_s rows[] = {{"rootBeastInfo", kRequired}, {"compBeastInfo", kOptional}, {nullptr, 0}};
  TagContent_s c[2];
  readRows(element, rows, c, "Failed to get root info", __LINE__);

  memset(uncompZid, 0, sizeof uncompZid);
  found = 0;
  if (hasContent(c[1])) {
    const TagRequest_s zidRows[] = {{"uncompZid", kRequired}, {nullptr, 0}};
    TagContent_s zid[1];
    if (QXML::MKVF_GetTagContents(&c[1].element, zidRows, zid) != 0)
      throw KVFError("Failed to get uncompZid", -1, KVF_HERE);
    copyField(uncompZid, sizeof uncompZid, zid[0], __LINE__);
    found = 1;
  }

  const TagRequest_s rootRows[] = {{"eof", kRequired},         {"volumeID", kRequired},    {"storageInfo", kRequired},
                                   {"variableData", kOptional}, {nullptr, 0}};
  TagContent_s root[4];
  readRows(&c[0].element, rootRows, root, "Failed to get root info", __LINE__);
  eof = decimal(root[0]);
  memset(volumeID, 0, sizeof volumeID);
  if (root[1].value) strncpy(volumeID, root[1].value, sizeof volumeID - 1);
  physSize = getPhysSize(&root[2].element);

  hasVariableData = 0;
  uncompBeastDeleted = 0;
  compressCode = compressMajorVersion = compressMinorVersion = 0;
  originalFileLength = compressedFileLength = 0;
  if (hasContent(root[3])) {
    const TagRequest_s variableRows[] = {{"uncompBeastDeleted", kOptional}, {"compHeader", kRequired}, {nullptr, 0}};
    TagContent_s variable[2];
    readRows(&root[3].element, variableRows, variable, "Failed to get variable data info", __LINE__);
    hasVariableData = 1;
    uncompBeastDeleted = (variable[0].status & QXML::TAG_FOUND) ? 1 : 0;

    const TagRequest_s headerRows[] = {{"compressCode", kRequired},         {"compressMajorVersion", kRequired},
                                       {"compressMinorVersion", kRequired}, {"originalFileLength", kRequired},
                                       {"compressedFileLength", kRequired}, {nullptr, 0}};
    TagContent_s header[5];
    readRows(&variable[1].element, headerRows, header, "Failed to get compress header info", __LINE__);
    compressCode = static_cast<int32_t>(decimal(header[0], INT32_MAX));
    compressMajorVersion = static_cast<int32_t>(decimal(header[1], INT32_MAX));
    compressMinorVersion = static_cast<int32_t>(decimal(header[2], INT32_MAX));
    originalFileLength = decimal(header[3]);
    compressedFileLength = decimal(header[4]);
  }
}

std::ostream& operator<<(std::ostream& out, CompInfo& info) {
  out << "compZid:        " << info.compZid << std::endl
      << "chunkSize:      " << info.chunkSize << std::endl
      << "UCprecious:     " << info.ucPrecious << std::endl
      << "Cprecious:      " << info.cPrecious << std::endl
      << "purgeableBlks:  " << info.purgeableBlks << std::endl
      << "algoID:         " << info.algoID << std::endl
      << "algoVersion:    " << info.algoVersion << std::endl
      << "status:         " << info.status << std::endl
      << "action:         " << info.action << std::endl;
  return out;
}

std::ostream& operator<<(std::ostream& out, UncompBeastInfo& info) {
  out << std::hex << std::noshowbase;
  out << "attributes:        " << info.attributes << std::endl
      << "open count:        " << info.openCount << std::endl
      << "deleted:           " << info.allNamesDeleted << std::endl
      << "eof:               " << info.eof << std::endl;
  return out;
}

}  // namespace velkor
