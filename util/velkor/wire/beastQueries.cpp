#include "velkor/beastQueries.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "common_cpp/kvfError.h"
#include "common/lbString.h"
#include "velkor/requests.h"

namespace {
// Error locations name the documented source of the queries and operations.
constexpr KvfSource kKvfSource = KvfSource::velkorHelper;
}  // namespace

namespace velkor {

using QXML::TagContent_s;
using QXML::TagRequest_s;
using QXML::XML_ElementInfo_s;

namespace {

// Copies a value into the caller's buffer of `size` bytes, or refuses it.
void copyOut(char* out, size_t size, const char* value, int line) {
  size_t length = value ? strlen(value) : 0;
  if (length >= size) throw KVFError("Value does not fit its buffer", zERR_BUFFER_TOO_SMALL, KVF_Location(kKvfSource, line));
  memcpy(out, value ? value : "", length + 1);
}

}  // namespace

int getTagContentFromReply(ReplyBuf* reply, const char* tag, const TagRequest_s* requests, TagContent_s* contents) {
  XML_ElementInfo_s element;
  int result = 0;
  if (reply->checkedTag && strcmp(reply->checkedTag, tag) == 0) {
    // The status check found it in the same text, searching the same way.
    element = reply->checked;
  } else {
    const char* end = reply->data + (reply->used > 0 ? reply->used - 1 : 0);
    result = QXML::XML_GetTagElement(tag, reply->data, end, &element);
    if (result != 0) throw KVFError(tag, result, KVF_HERE);
  }
  reply->checkedTag = nullptr;
  result = QXML::MKVF_GetTagContents(&element, requests, contents);
  if (result != 0) throw KVFError("Error getting tag content", result, KVF_HERE);
  return 0;
}

namespace {

// One exchange on manage.cmd whose reply status is checked for `tag`.
void exchange(const char* commandFile, RequestText& request, const char* tag, ReplyBuf* reply) {
  OpenCmdFile channel(commandFile);
  channel.file.readWrite(request.text(), tag, reply);
}

void sendBeastInfo(ReplyBuf* reply, char* volume, char* zid, unsigned long infoMask, unsigned long getComp) {
  RequestText request;
  beastInfoRequest(request, volume, zid, infoMask, getComp == 1);
  exchange(managecmd, request, "getBeastInfo", reply);
}

}  // namespace

void getBeastInfo(ReplyBuf* reply, char* volume, char* zid, unsigned long infoMask, unsigned long getComp,
                  const char* tag, const TagRequest_s* requests, TagContent_s* contents) {
  sendBeastInfo(reply, volume, zid, infoMask, getComp);
  getTagContentFromReply(reply, tag, requests, contents);
}

void getCompUncompInfo(char* volume, char* zid, UncompBeastInfo** file, CompBeastInfo** compData) {
  ReplyBuf reply;
  sendBeastInfo(&reply, volume, zid, infoRoot | infoNamed | infoFile | infoCompBeast, 1);
  readCompUncompInfo(&reply, volume, file, compData);
}

void readCompUncompInfo(ReplyBuf* reply, char* volume, UncompBeastInfo** file, CompBeastInfo** compData) {
  const TagRequest_s rows[] = {{"beastInfo", 0}, {"compressionInfo", QXML::TAG_OPTIONAL}, {nullptr, 0}};
  TagContent_s contents[2];
  getTagContentFromReply(reply, "getBeastInfo", rows, contents);
  std::unique_ptr<UncompBeastInfo> record(new UncompBeastInfo(volume, &contents[0].element));
  if (contents[1].status & QXML::TAG_HAS_CONTENT) *compData = new CompBeastInfo(&contents[1].element);
  *file = record.release();
}

void getFileStdInfoByPath(ReplyBuf* reply, char* path, const TagRequest_s* requests, TagContent_s* contents) {
  RequestText request;
  fileInfoRequest(request, path);
  exchange(filecmd, request, "getFileInfo", reply);
  getTagContentFromReply(reply, "standardInfo", requests, contents);
}

void getFileZidByPath(char* path, char* volumeOut, char* zidOut, size_t volumeSize, size_t zidSize) {
  ReplyBuf reply;
  RequestText request;
  fileInfoRequest(request, path);
  exchange(filecmd, request, "getFileInfo", &reply);
  readFileZid(&reply, volumeOut, zidOut, volumeSize, zidSize);
}

void readFileZid(ReplyBuf* reply, char* volumeOut, char* zidOut, size_t volumeSize, size_t zidSize) {
  const TagRequest_s rows[] = {{"id", 0}, {"volumeName", 0}, {nullptr, 0}};
  TagContent_s contents[2];
  getTagContentFromReply(reply, "standardInfo", rows, contents);
  copyOut(volumeOut, volumeSize, contents[1].value, __LINE__);
  copyOut(zidOut, zidSize, contents[0].value, __LINE__);
}

void getFileName(char* volume, char* zid, CompStats* stats) {
  ReplyBuf reply;
  RequestText request;
  fullNameRequest(request, volume, zid);
  exchange(managecmd, request, "getBeastFullName", &reply);
  bool whole = false;
  char* copy = readFullName(&reply, &whole);
  stats->fileName.reset(copy);
  stats->fileNameWhole = whole;
}

char* readFullName(ReplyBuf* reply, bool* whole) {
  const TagRequest_s rows[] = {{"name", 0}, {nullptr, 0}};
  TagContent_s contents[1];
  getTagContentFromReply(reply, "getBeastFullName", rows, contents);
  const char* name = contents[0].value ? contents[0].value : "";
  std::string text = name;
  // The name is whole when its element holds nothing but it: one CDATA
  // section, or plain text. A name element that goes on after its CDATA
  // section ends (a name holding "]]>", written raw) is not the name of the
  // object: its text is kept as the element holds it, and it is marked so
  // that nothing is done through it.
  const XML_ElementInfo_s& element = contents[0].element;
  const bool inCdata = contents[0].value && contents[0].value != element.contentStart;
  const uint64_t wrapper = inCdata ? strlen("<![CDATA[") + strlen("]]>") : 0;
  const bool isWhole = !contents[0].value || text.size() + wrapper == element.contentLength;
  if (!isWhole) {
    text.assign(element.contentStart, element.contentLength);
    // The reader ended the value at the first "]]>" with a NUL byte.
    if (inCdata) text[strlen("<![CDATA[") + strlen(name)] = ']';
    if (inCdata && text.size() >= wrapper && text.compare(text.size() - 3, 3, "]]>") == 0)
      text = text.substr(strlen("<![CDATA["), text.size() - wrapper);
  }
  if (whole) *whole = isWhole;
  char* copy = static_cast<char*>(calloc(text.size() + 1, 1));
  if (!copy) throw KVFError("Can't allocate memory", zERR_NO_MEMORY, KVF_HERE);
  memcpy(copy, text.data(), text.size());
  return copy;
}

void getVolumeInfo(char* volumeName, VolumeInfo_s* info) {
  ReplyBuf reply;
  RequestText request;
  volumeInfoRequest(request, volumeName, true);
  exchange(managecmd, request, "getVolumeInfo", &reply);
  readVolumeInfo(&reply, info);
}

void readVolumeInfo(ReplyBuf* reply, VolumeInfo_s* info) {
  const TagRequest_s parts[] = {{"basicInfo", QXML::TAG_CONTENT_REQUIRED},
                                {"enabledAttributes", QXML::TAG_CONTENT_REQUIRED},
                                {nullptr, 0}};
  TagContent_s part[2];
  getTagContentFromReply(reply, "getVolumeInfo", parts, part);
  const TagRequest_s basicRows[] = {{"volumeState", QXML::TAG_CONTENT_REQUIRED},
                                    {"mountPoint", QXML::TAG_CONTENT_REQUIRED},
                                    {nullptr, 0}};
  TagContent_s basic[2];
  int result = QXML::MKVF_GetTagContents(&part[0].element, basicRows, basic);
  if (result != 0) throw KVFError("Error getting basic tag content", result, "util/velkor/velkorHelper[1360]");

  // The state fills at most its 32 bytes (a 32-byte state has no terminator).
  size_t stateLength = strlen(basic[0].value);
  if (stateLength > sizeof info->volumeState)
    throw KVFError("Volume state does not fit its field", zERR_BUFFER_TOO_SMALL, KVF_HERE);
  memset(info->volumeState, 0, sizeof info->volumeState);
  memcpy(info->volumeState, basic[0].value, stateLength);

  size_t mountLength = strlen(basic[1].value);
  char* mountPoint = static_cast<char*>(calloc(mountLength + 1, 1));
  if (!mountPoint) throw KVFError("Can't allocate memory", zERR_NO_MEMORY, "util/velkor/velkorHelper[1370]");
  memcpy(mountPoint, basic[1].value, mountLength);
  // A record filled again takes the new mount point; the old one is released.
  info->mountPoint.reset(mountPoint);

  const TagRequest_s attributeRows[] = {{"compression", QXML::TAG_OPTIONAL}, {nullptr, 0}};
  TagContent_s attribute[1];
  result = QXML::MKVF_GetTagContents(&part[1].element, attributeRows, attribute);
  if (result != 0) throw KVFError("Error getting attributes tag content", result, "util/velkor/velkorHelper[1378]");
  if (attribute[0].status & QXML::TAG_FOUND) info->compressionEnabled = 1;
}

unsigned long getVolumeTotalObjects(char* volumeName) {
  ReplyBuf reply;
  RequestText request;
  volumeInfoRequest(request, volumeName, false);
  exchange(managecmd, request, "getVolumeInfo", &reply);
  return readTotalObjects(&reply);
}

unsigned long readTotalObjects(ReplyBuf* reply) {
  const TagRequest_s rows[] = {{"totalObjects", QXML::TAG_CONTENT_REQUIRED}, {nullptr, 0}};
  TagContent_s contents[1];
  getTagContentFromReply(reply, "getVolumeInfo", rows, contents);
  return KVF::LB_strtouq(contents[0].value, nullptr, 10);
}

VolumeStatistics getVolumeStatistics(ReplyBuf* reply, char* volumeName, const int64_t* blockSize) {
  reply->clear();
  sendBeastInfo(reply, volumeName, nullptr, infoVolumeSimple, 0);
  return readVolumeStatistics(reply, blockSize);
}

VolumeStatistics readVolumeStatistics(ReplyBuf* reply, const int64_t* blockSize) {
  const TagRequest_s rows[] = {
      {"compressedFiles", QXML::TAG_CONTENT_REQUIRED},    {"compressedDeletedFiles", QXML::TAG_CONTENT_REQUIRED},
      {"uncompressibleFiles", QXML::TAG_CONTENT_REQUIRED}, {"preCompressionBlocks", QXML::TAG_CONTENT_REQUIRED},
      {"compressedBlocks", QXML::TAG_CONTENT_REQUIRED},   {"blockSize", QXML::TAG_CONTENT_REQUIRED},
      {"volumeState", QXML::TAG_CONTENT_REQUIRED},        {nullptr, 0}};
  TagContent_s c[7];
  getTagContentFromReply(reply, "getBeastInfo", rows, c);
  auto number = [&](int i) { return KVF::LB_strtouq(c[i].value, nullptr, 10); };
  VolumeStatistics s;
  s.blockSize = blockSize ? *blockSize : KVF::LB_strtoq(c[5].value, nullptr, 10);
  uint64_t bytesPerBlock = static_cast<uint64_t>(s.blockSize);
  s.figure[0] = number(0) - number(1);
  s.figure[1] = number(1);
  s.figure[2] = number(2);
  s.figure[3] = number(3) * bytesPerBlock;
  s.figure[4] = number(4) * bytesPerBlock;
  memset(s.state, 0, sizeof s.state);
  strncpy(s.state, c[6].value, sizeof s.state - 1);
  return s;
}

}  // namespace velkor
