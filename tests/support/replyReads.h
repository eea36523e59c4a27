// The reads that the program makes of each kind of reply, with its queries'
// request tables: shared by the reply reader's fuzz target and its benchmark.
//
// Each read checks the reply's status (which throws KVFError), then reads the
// records the way the queries do, folding every value into Reader::sum. A
// reader failure ends the read and returns false, as the queries would throw.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/lbString.h"
#include "common_cpp/qXML.h"

namespace replyreads {

using QXML::TagContent_s;
using QXML::TagRequest_s;
using QXML::XML_ElementInfo_s;
constexpr unsigned kRequired = QXML::TAG_CONTENT_REQUIRED;
constexpr unsigned kOptional = QXML::TAG_OPTIONAL;

// Request tables, as the queries and records spell them.
inline const TagRequest_s kBeastInfoRows[] = {{"beastInfo", kRequired}, {"compressionInfo", kOptional}, {}};
inline const TagRequest_s kUncompRows[] = {
    {"rootBeastInfo", kRequired}, {"namedBeastInfo", kOptional}, {"fileBeastInfo", kOptional}, {}};
inline const TagRequest_s kRootRows[] = {{"eof", kRequired},     {"variableDataComp", kOptional},
                                         {"storageInfo", kRequired}, {"classID", kRequired},
                                         {"zid", kRequired},     {}};
inline const TagRequest_s kCompInfoRows[] = {
    {"compZid", kRequired}, {"chunkSize", kRequired},   {"ucPrecious", kRequired},
    {"cPrecious", kRequired}, {"purgeableBlks", kRequired}, {"algoID", kRequired},
    {"algoVersion", kRequired}, {"status", kRequired},  {"action", kOptional}, {}};
inline const TagRequest_s kNamedRows[] = {{"attributes", kOptional}, {"openCount", kRequired},
                                          {"numParents", kRequired}, {"firstParent", kRequired},
                                          {"otherParents", kOptional}, {}};
inline const TagRequest_s kNameTypeRows[] = {{"nameType", kRequired}, {}};
inline const TagRequest_s kFileRows[] = {{"persistentFile", kRequired}, {}};
inline const TagRequest_s kTimesRows[] = {{"accessedTime", kRequired}, {"createdTime", kRequired}, {}};
inline const TagRequest_s kTimeRows[] = {{"utc", kRequired}, {"string", kRequired}, {}};
inline const TagRequest_s kPhysSizeRows[] = {{"filePhysSize", kOptional}, {}};
inline const TagRequest_s kCompBeastRows[] = {{"rootBeastInfo", kRequired}, {"compBeastInfo", kOptional}, {}};
inline const TagRequest_s kCompRootRows[] = {{"eof", kRequired},         {"volumeID", kRequired},
                                             {"storageInfo", kRequired}, {"variableData", kOptional}, {}};
inline const TagRequest_s kVariableDataRows[] = {{"uncompBeastDeleted", kOptional}, {"compHeader", kRequired}, {}};
inline const TagRequest_s kCompHeaderRows[] = {
    {"compressCode", kRequired},       {"compressMajorVersion", kRequired},
    {"compressMinorVersion", kRequired}, {"originalFileLength", kRequired},
    {"compressedFileLength", kRequired}, {}};
inline const TagRequest_s kBrowseRows[] = {
    {"lastZidReturned", kRequired}, {"numBeastsReturned", kRequired}, {"beastZids", kRequired}, {}};
inline const TagRequest_s kVolumeRows[] = {{"basicInfo", kRequired}, {"enabledAttributes", kRequired}, {}};
inline const TagRequest_s kBasicRows[] = {{"volumeState", kRequired}, {"mountPoint", kRequired}, {}};
inline const TagRequest_s kCompressionRows[] = {{"compression", kOptional}, {}};
inline const TagRequest_s kTotalObjectsRows[] = {{"totalObjects", kRequired}, {}};
inline const TagRequest_s kFileInfoRows[] = {{"id", 0}, {"volumeName", 0}, {}};
inline const TagRequest_s kFullNameRows[] = {{"name", 0}, {}};
inline const TagRequest_s kAttributesRows[] = {{"attributes", kOptional}, {}};
inline const TagRequest_s kVolumeStatsRows[] = {
    {"compressedFiles", kRequired},  {"compressedDeletedFiles", kRequired}, {"uncompressibleFiles", kRequired},
    {"preCompressionBlocks", kRequired}, {"compressedBlocks", kRequired},   {"blockSize", kRequired},
    {"volumeState", kRequired},      {}};

struct Reader {
  uint64_t sum = 0;

  // The rows of a table from `parent`, one result row per request row.
  bool rows(XML_ElementInfo_s* parent, const TagRequest_s* requests, TagContent_s* out) {
    return QXML::MKVF_GetTagContents(parent, requests, out) == 0;
  }
  // The rows under the first element `tag` of the whole reply.
  bool fromReply(const char* reply, size_t length, const char* tag, const TagRequest_s* requests,
                 TagContent_s* out) {
    XML_ElementInfo_s element{};
    if (length == 0 || QXML::XML_GetTagElement(tag, reply, reply + length - 1, &element) != 0) return false;
    return rows(&element, requests, out);
  }
  void number(const TagContent_s& row) { sum += row.value ? KVF::LB_strtouq(row.value, nullptr, 10) : 0; }
  void text(const TagContent_s& row) { sum += row.value ? strlen(row.value) : 0; }
  // Flag tags such as "<compressed/><clean/>": every tag name counted.
  void tags(const TagContent_s& row) {
    if (!(row.status & QXML::TAG_HAS_CONTENT)) return;
    XML_ElementInfo_s tag{};
    const char* name;
    size_t length;
    for (const char* p = row.element.contentStart;
         QXML::XML_GetNextTag(p, row.element.contentEnd, &tag, &name, &length) == 0; p = tag.elementEnd + 1)
      sum += length + static_cast<unsigned char>(length ? name[0] : 0);
  }
  bool physSize(TagContent_s& storageInfo) {
    TagContent_s size[1];
    if (!rows(&storageInfo.element, kPhysSizeRows, size)) return false;
    number(size[0]);
    return true;
  }
  bool nameType(TagContent_s& parent) {
    TagContent_s type[1];
    if (!rows(&parent.element, kNameTypeRows, type)) return false;
    text(type[0]);
    return true;
  }
  bool time(TagContent_s& element) {
    TagContent_s t[2];
    if (!rows(&element.element, kTimeRows, t)) return false;
    number(t[0]);
    text(t[1]);
    return true;
  }
};

// ---- One read per kind of reply ----

inline bool readRoot(Reader& r, TagContent_s& root) {
  TagContent_s row[5];
  if (!r.rows(&root.element, kRootRows, row)) return false;
  r.text(row[4]);
  r.number(row[0]);
  r.number(row[3]);
  if (!r.physSize(row[2])) return false;
  if (row[1].status & QXML::TAG_HAS_CONTENT) {
    TagContent_s comp[9];
    if (!r.rows(&row[1].element, kCompInfoRows, comp)) return false;
    r.text(comp[0]);
    for (int i = 1; i < 7; ++i) r.number(comp[i]);
    r.tags(comp[7]);
    r.tags(comp[8]);
  }
  return true;
}

inline bool readNamed(Reader& r, TagContent_s& named) {
  TagContent_s row[5];
  if (!r.rows(&named.element, kNamedRows, row)) return false;
  r.tags(row[0]);
  r.number(row[1]);
  r.number(row[2]);
  if (!r.nameType(row[3])) return false;
  if (row[4].status & QXML::TAG_HAS_CONTENT) {
    XML_ElementInfo_s entry{};
    const char* p = row[4].element.contentStart;
    while (QXML::XML_GetTagElement("parentEntry", p, row[4].element.contentEnd, &entry) == 0) {
      TagContent_s asRow{nullptr, entry, QXML::TAG_FOUND};
      if (!r.nameType(asRow)) return false;
      p = entry.elementEnd + 1;
    }
  }
  return true;
}

inline bool readFile(Reader& r, TagContent_s& file) {
  TagContent_s persistent[1], times[2];
  if (!r.rows(&file.element, kFileRows, persistent)) return false;
  if (!r.rows(&persistent[0].element, kTimesRows, times)) return false;
  return r.time(times[0]) && r.time(times[1]);
}

inline bool readCompBeast(Reader& r, TagContent_s& compression) {
  TagContent_s row[2], root[4];
  if (!r.rows(&compression.element, kCompBeastRows, row)) return false;
  if (row[1].status & QXML::TAG_HAS_CONTENT) {
    XML_ElementInfo_s uncomp{};
    if (QXML::XML_GetTagElement("uncompZid", row[1].element.contentStart, row[1].element.contentEnd, &uncomp) != 0)
      return false;
    r.sum += uncomp.contentLength;
  }
  if (!r.rows(&row[0].element, kCompRootRows, root)) return false;
  r.number(root[0]);
  if (!r.physSize(root[2])) return false;
  if (root[3].status & QXML::TAG_HAS_CONTENT) {
    TagContent_s data[2], header[5];
    if (!r.rows(&root[3].element, kVariableDataRows, data)) return false;
    r.sum += data[0].status;
    if (!r.rows(&data[1].element, kCompHeaderRows, header)) return false;
    for (TagContent_s& h : header) r.number(h);
  }
  return true;
}

// A getBeastInfo reply with the file's and its compressed data's records.
inline bool readBeastInfo(Reader& r, char* reply, size_t length) {
  QXML::GetReplyResultValueForTag(reply, "getBeastInfo");
  TagContent_s info[2], parts[3];
  if (!r.fromReply(reply, length, "getBeastInfo", kBeastInfoRows, info)) return false;
  if (!r.rows(&info[0].element, kUncompRows, parts)) return false;
  if (parts[0].status & QXML::TAG_HAS_CONTENT) {
    if (!readRoot(r, parts[0]) || !readNamed(r, parts[1])) return false;
    if ((parts[2].status & QXML::TAG_FOUND) && !readFile(r, parts[2])) return false;
  }
  return !(info[1].status & QXML::TAG_HAS_CONTENT) || readCompBeast(r, info[1]);
}

// A browseBeasts reply: the batch's zids, copied into their 21-byte slots.
inline bool readBrowse(Reader& r, char* reply, size_t length) {
  QXML::GetReplyResultValueForTag(reply, "browseBeasts");
  TagContent_s row[3];
  if (!r.fromReply(reply, length, "browseBeasts", kBrowseRows, row)) return false;
  char slots[20][21];
  int slot = 0;
  XML_ElementInfo_s child{};
  const char* name;
  size_t nameLength;
  for (const char* p = row[2].element.contentStart;
       slot < 20 && QXML::XML_GetNextTag(p, row[2].element.contentEnd, &child, &name, &nameLength) == 0;
       p = child.elementEnd + 1) {
    if (memcmp(name, "zid", nameLength < 3 ? nameLength : 3) != 0 || nameLength > 3) continue;
    size_t n = child.contentLength < 20 ? child.contentLength : 20;
    if (n != 0) memcpy(slots[slot], child.contentStart, n);  // a self-closing <zid/> has no content
    slots[slot][n] = '\0';
    r.sum += KVF::LB_strtouq(slots[slot++], nullptr, 10);
  }
  r.sum += static_cast<uint64_t>(KVF::LB_strtoq(row[1].value, nullptr, 10));
  return true;
}

// A getVolumeInfo reply: state, mount point and the compression attribute.
inline bool readVolumeInfo(Reader& r, char* reply, size_t length) {
  QXML::GetReplyResultValueForTag(reply, "getVolumeInfo");
  TagContent_s row[2], basic[2], compression[1];
  if (!r.fromReply(reply, length, "getVolumeInfo", kVolumeRows, row)) return false;
  if (!r.rows(&row[0].element, kBasicRows, basic)) return false;
  r.text(basic[0]);
  r.text(basic[1]);
  if (!r.rows(&row[1].element, kCompressionRows, compression)) return false;
  r.sum += compression[0].status;
  return true;
}

// The smaller reads: object count, path lookup, full name, attributes and
// volume statistics (`which` 0 to 4).
inline bool readOthers(Reader& r, char* reply, size_t length, int which) {
  TagContent_s out[7];
  switch (which) {
    case 0:
      if (!r.fromReply(reply, length, "getVolumeInfo", kTotalObjectsRows, out))
        return false;
      r.number(out[0]);
      return true;
    case 1:
      if (!r.fromReply(reply, length, "standardInfo", kFileInfoRows, out))
        return false;
      r.text(out[0]);
      r.text(out[1]);
      return true;
    case 2:
      if (!r.fromReply(reply, length, "getBeastFullName", kFullNameRows, out))
        return false;
      r.text(out[0]);
      return true;
    case 3:
      if (!r.fromReply(reply, length, "getBeastInfo", kAttributesRows, out))
        return false;
      r.tags(out[0]);
      return true;
    default:
      if (!r.fromReply(reply, length, "getBeastInfo", kVolumeStatsRows, out)) return false;
      for (TagContent_s& row : out) r.number(row);
      return true;
  }
}

}  // namespace replyreads
