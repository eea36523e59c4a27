#include "simtest.h"

namespace simtest {

namespace {
const char* const kMaskTags[] = {"<rootBeastInfo/>", "<namedBeastInfo/>", "<fileBeastInfo/>",
                                 "<compBeastInfo/>", "<volumeBeastInfoSimple/>", "<volumeBeastInfoFull/>"};
const char kSetHead[] =
    "%s<kvfRequest><beast><setBeastInfo><volumeName><![CDATA[%s]]></volumeName><id><![CDATA[%s]]></id><onlineOnly/>"
    "<ignoreOpenFile/><info>";
const char kSetTail[] = "</info></setBeastInfo></beast></kvfRequest>";
}  // namespace

std::string getBeastInfo(const char* volume, const char* zid, unsigned mask, bool comp) {
  std::string r = format(
      "%s<kvfRequest><beast><getBeastInfo getCompBeastInfo=\"%s\"><volumeName><![CDATA[%s]]></volumeName><id><!"
      "[CDATA[%s]]></id><typeOfInfo>",
      kEnvelope, comp ? "true" : "false", volume, zid ? zid : "0");
  for (int i = 0; i < 6; ++i)
    if (mask & (1u << i)) r += kMaskTags[i];
  return r + "</typeOfInfo></getBeastInfo></beast></kvfRequest>";
}

std::string getBeastFullName(const char* volume, const char* zid) {
  return format(
      "%s<kvfRequest><beast><getBeastFullName><volumeName><![CDATA[%s]]></volumeName><id><![CDATA[%s]]></id><onlineOnly/"
      "><nameSpace>%s</nameSpace></getBeastFullName></beast></kvfRequest>",
      kEnvelope, volume, zid, "Unix");
}

std::string getFileInfo(const char* path) {
  return format(
      "%s<fileRequest><fileInfo><getFileInfo><fileName><![CDATA[%s]]></fileName><typeOfInfo><standardInfo/></"
      "typeOfInfo></getFileInfo></fileInfo></fileRequest>",
      kEnvelope, path);
}

std::string getVolumeInfo(const char* volume) {
  return format(
      "%s<kvfRequest><volume><getVolumeInfo><volumeName><![CDATA[%s]]></volumeName><basicInfo/><attributes/></"
      "getVolumeInfo></volume></kvfRequest>",
      kEnvelope, volume);
}

std::string getVolumeTotalObjects(const char* volume) {
  return format(
      "%s<kvfRequest><volume><getVolumeInfo><volumeName><![CDATA[%s]]></volumeName><basicInfo/></getVolumeInfo></"
      "volume></kvfRequest>",
      kEnvelope, volume);
}

std::string browseBeasts(const char* volume, int requested, int sequence) {
  return format("%s<kvfRequest><volume><browseBeasts><volumeName><![CDATA[%s]]></volumeName>", kEnvelope, volume) +
         "<onlineOnly/><selectBeastsCriteria><selectBeastsAll/></selectBeastsCriteria>" +
         format("<numBeastsRequested>%d</numBeastsRequested><scanSequence>%d</scanSequence></browseBeasts></volume></"
                "kvfRequest>",
                requested, sequence);
}

std::string setStatus(const char* volume, const char* zid, const char* oldTags, const char* newTags) {
  return format(
      "%s<kvfRequest><beast><setBeastInfo><volumeName><![CDATA[%s]]></volumeName><id><![CDATA[%s]]></id><onlineOnly/"
      "><ignoreOpenFile/><info><rootBeastInfo><variableData><variableDataComp><status><oldValue>%s</"
      "oldValue><newValue>%s</newValue></status></variableDataComp></variableData></rootBeastInfo></info></"
      "setBeastInfo></beast></kvfRequest>",
      kEnvelope, volume, zid, oldTags, newTags);
}

std::string setPreciousAndStatus(const char* volume, const char* zid, const char* oldTags, const char* newTags) {
  return format(
      "%s<kvfRequest><beast><setBeastInfo><volumeName><![CDATA[%s]]></volumeName><id><![CDATA[%s]]></id><onlineOnly/"
      "><ignoreOpenFile/><info><rootBeastInfo><variableData><variableDataComp><cPrecious><oldValue>0</"
      "oldValue><newValue>1</newValue></cPrecious><status><oldValue>%s</oldValue><newValue>%s</newValue></status></"
      "variableDataComp></variableData></rootBeastInfo></info></setBeastInfo></beast></kvfRequest>",
      kEnvelope, volume, zid, oldTags, newTags);
}

std::string setCombined(const char* volume, const char* zid, const char* oldAttrs, const char* newAttrs,
                        const char* oldAction, const char* newAction) {
  std::string r = format(kSetHead, kEnvelope, volume, zid);
  if (oldAttrs)
    r += format(
        "<namedBeastInfo><persistentNamed><attributes><oldValue>%s</oldValue><newValue>%s</newValue></attributes></"
        "persistentNamed></namedBeastInfo>",
        oldAttrs, newAttrs);
  if (oldAction)
    r += format(
        "<rootBeastInfo><variableData><variableDataComp><action><oldValue>%s</oldValue><newValue>%s</newValue></"
        "action></variableDataComp></variableData></rootBeastInfo>",
        oldAction, newAction);
  return r + kSetTail;
}

std::string setDeletedFlag(const char* volume, const char* zid, const char* oldValue, const char* newValue) {
  return format(
      "%s<kvfRequest><beast><setBeastInfo><volumeName><![CDATA[%s]]></volumeName><id><![CDATA[%s]]></"
      "id><ignoreOpenFile/><info><rootBeastInfo><variableData><variableDataUncomp><uncompBeastDeleted><oldValue>%s</"
      "oldValue><newValue>%s</newValue></uncompBeastDeleted></variableDataUncomp></variableData></rootBeastInfo></"
      "info></setBeastInfo></beast></kvfRequest>",
      kEnvelope, volume, zid, oldValue, newValue);
}

std::string clearCc(const char* volume, const char* zid, const char* oldAttrs, const char* newAttrs) {
  return format(
      "%s<kvfRequest><beast><setBeastInfo><volumeName><![CDATA[%s]]></volumeName><id><![CDATA[%s]]></id><onlineOnly/"
      "><ignoreOpenFile/><info><namedBeastInfo><persistentNamed><attributes><oldValue>%s</oldValue><newValue>%s</"
      "newValue></attributes></persistentNamed></namedBeastInfo></info></setBeastInfo></beast></kvfRequest>",
      kEnvelope, volume, zid, oldAttrs, newAttrs);
}

std::string deleteBeast(const char* volume, const char* zid) {
  return format(
      "%s<kvfRequest><beast><deleteBeast><volumeName><![CDATA[%s]]></volumeName><id><![CDATA[%s]]></id><onlineOnly/"
      "></deleteBeast></beast></kvfRequest>",
      kEnvelope, volume, zid);
}

std::string fixCompStats(const char* volume) {
  return format(
      "%s<kvfRequest><volume><fixCompStats><volumeName><![CDATA[%s]]></volumeName></fixCompStats></volume></"
      "kvfRequest>",
      kEnvelope, volume);
}

std::string first(const std::string& reply, const std::string& name, const std::string& from) {
  size_t start = from.empty() ? 0 : reply.find(from);
  if (start == std::string::npos) return "<missing>";
  for (size_t at = reply.find("<" + name, start); at != std::string::npos; at = reply.find("<" + name, at + 1)) {
    char after = reply[at + 1 + name.size()];
    if (after != '>' && after != '/' && after != ' ') continue;
    if (after == '/') return "";
    size_t begin = at + name.size() + 2, end = reply.find("</" + name + ">", begin);
    if (end == std::string::npos) return "<missing>";
    std::string text = reply.substr(begin, end - begin);
    if (text.rfind("<![CDATA[", 0) == 0 && text.size() >= 12) text = text.substr(9, text.size() - 12);
    return text;
  }
  return "<missing>";
}

long resultOf(const std::string& reply, const std::string& tag) {
  size_t at = reply.find("<" + tag + ">");
  if (at == std::string::npos) return -99999;
  size_t r = reply.find("<result value=\"", at);
  if (r == std::string::npos) return -99999;
  return strtol(reply.c_str() + r + 15, nullptr, 10);
}

const char kFixture[] = R"({"volumes":[
 {"name":"VOL1","mountPoint":"/media/kvf/VOL1","blockSize":4096,
  "stats":{"compressedFiles":9,"compressedDeletedFiles":0,"uncompressibleFiles":0,"preCompressionBlocks":0,"compressedBlocks":0},
  "beasts":[
   {"zid":100,"attributes":["subdirectory"],"name":"/docs"},
   {"zid":101,"attributes":["archive","dataStreamCompress"],"eof":10000,"name":"/docs/a.txt",
    "created":{"utc":1600000000,"text":"2020/09/13 12:26:40"},"accessed":1700000000,
    "comp":{"compZid":102,"chunkSize":65536,"ucPrecious":0,"cPrecious":1,"algoID":1,"algoVersion":1,
            "status":["compressed","clean"],"action":[]}},
   {"zid":103,"attributes":["noStreamCompress","readOnly"],"eof":5000,"physSize":8192,"name":"/docs/b.txt",
    "comp":{"ucPrecious":1,"cPrecious":0,"status":["uncompressed","clean"],"action":["addCompLog"]}},
   {"zid":104,"attributes":["dataStreamCompress"],"eof":3000,"parents":["DeletedFile","DeletedFile"],"name":"/old.txt",
    "comp":{"compZid":105,"ucPrecious":0,"cPrecious":1,"status":["compressed","clean"]}},
   {"zid":106,"classId":1,"eof":100,"physSize":4096,"parents":["DataStream"],"name":"/docs/a.txt:s"},
   {"zid":107,"eof":0,"name":"/top.txt","openCount":2},
   {"zid":3000000000,"eof":1,"physSize":4096,"name":"/far.txt"}],
  "compBeasts":[
   {"zid":102,"owner":101,"eof":4000,"physSize":4096,
    "header":{"compressCode":1,"majorVersion":1,"minorVersion":0,"originalLength":10000,"compressedLength":4000}},
   {"zid":105,"owner":104,"eof":2000,"physSize":4096,"deleted":false,
    "header":{"originalLength":3000,"compressedLength":2000}}]},
 {"name":"VOL2","state":"maintenance","compression":false,"enabledAttributes":["salvage"],
  "beasts":[{"zid":200,"eof":1,"physSize":4096,"name":"/x"}]}]})";

}  // namespace simtest
