#include "simtest.h"

#include "common_cpp/qXML.h"

namespace simtest {

std::string first(const std::string& reply, const std::string& name, const std::string& from) {
  const size_t start = from.empty() ? 0 : reply.find(from);
  QXML::XML_ElementInfo_s info{};
  if (start >= reply.size() ||
      QXML::XML_GetTagElement(name.c_str(), reply.data() + start, reply.data() + reply.size() - 1, &info) != zOK)
    return "<missing>";
  std::string text(info.contentLength ? info.contentStart : "", info.contentLength);
  return text.rfind("<![CDATA[", 0) == 0 && text.size() >= 12 ? text.substr(9, text.size() - 12) : text;
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
