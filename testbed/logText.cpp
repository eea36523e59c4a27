#include "logText.h"

#include <iostream>
#include <memory>
#include <stdexcept>

#include "common_cpp/qXML.h"
#include "velkor/beastRecords.h"
#include "velkor/runLog.h"
#include "velkor/velkorTypes.h"

namespace testsupport {

namespace {

// Sends std::cerr, where velkor writes its log, to `out` while it lives.
class ErrorStreamTo {
 public:
  explicit ErrorStreamTo(std::ostream& out) : saved_(std::cerr.rdbuf(out.rdbuf())) {}
  ~ErrorStreamTo() { std::cerr.rdbuf(saved_); }

 private:
  std::streambuf* saved_;
};

// A reply's writable text and one of its elements, as the records read them.
struct Reply {
  explicit Reply(const std::string& s) : text(s.begin(), s.end()) { text.push_back('\0'); }
  QXML::XML_ElementInfo_s* element(const char* name) {
    if (QXML::XML_GetTagElement(name, text.data(), text.data() + text.size() - 2, &info) != 0)
      throw std::runtime_error(std::string("no element ") + name);
    return &info;
  }
  std::vector<char> text;
  QXML::XML_ElementInfo_s info{};
};

std::string beastReply(const LoggedFile& f) {
  std::string zid = std::to_string(f.zid), compZid = std::to_string(f.zid + 1);
  std::string comp = f.compressed
      ? "<variableData><variableDataComp><compZid>" + compZid + "</compZid><chunkSize>65536</chunkSize>"
        "<ucPrecious>0</ucPrecious><cPrecious>1</cPrecious><purgeableBlks>0</purgeableBlks><algoID>1</algoID>"
        "<algoVersion>1</algoVersion><status><compressed/><clean/></status><action></action></variableDataComp>"
        "</variableData>"
      : "";
  return "<beastInfo><rootBeastInfo><zid>" + zid + "</zid><classID>" + std::to_string(f.classId) +
         "</classID><eof>8569</eof><storageInfo><filePhysSize>0</filePhysSize></storageInfo>" + comp +
         "</rootBeastInfo><namedBeastInfo><attributes><archive/><dataStreamCompress/></attributes>"
         "<openCount>0</openCount><numParents>1</numParents><firstParent><nameType>" +
         (f.deleted ? "DeletedFile" : "File") +
         "</nameType></firstParent></namedBeastInfo><fileBeastInfo><persistentFile><accessedTime><utc>1683322990"
         "</utc><string>2023/05/05 21:43:10</string></accessedTime><createdTime><utc>1680068218</utc><string>"
         "2023/03/29 05:36:58</string></createdTime></persistentFile></fileBeastInfo></beastInfo>";
}

std::string compReply(const LoggedFile& f) {
  return "<compressionInfo><rootBeastInfo><zid>" + std::to_string(f.zid + 1) +
         "</zid><eof>4285</eof><volumeID>1</volumeID><storageInfo><filePhysSize>8192</filePhysSize></storageInfo>"
         "<variableData><compHeader><compressCode>1</compressCode><compressMajorVersion>1</compressMajorVersion>"
         "<compressMinorVersion>0</compressMinorVersion><originalFileLength>8569</originalFileLength>"
         "<compressedFileLength>4285</compressedFileLength></compHeader></variableData></rootBeastInfo>"
         "<compBeastInfo><uncompZid>" + std::to_string(f.zid) + "</uncompZid></compBeastInfo></compressionInfo>";
}

}  // namespace

LogText::LogText(std::ostream& out) : out_(out) {
  // The flags velkor gives its log stream before the first line.
  out_.setf(std::ios::dec | std::ios::oct | std::ios::hex | std::ios::showbase);
}

LogText& LogText::start(const std::vector<std::string>& argv) {
  std::vector<std::string> copy = argv;
  std::vector<char*> args;
  for (std::string& a : copy) args.push_back(a.data());
  args.push_back(nullptr);
  ErrorStreamTo log(out_);
  LogDocumentStart(static_cast<int>(copy.size()), args.data());
  return *this;
}

LogText& LogText::entry(const LoggedFile& file, unsigned int operation) {
  Reply beast(beastReply(file));
  velkor::UncompBeastInfo info(file.volume.c_str(), beast.element("beastInfo"));
  std::unique_ptr<velkor::CompBeastInfo> comp;
  if (file.compressed) {
    Reply data(compReply(file));
    comp = std::make_unique<velkor::CompBeastInfo>(data.element("compressionInfo"));
  }
  WriteFileEntry(out_, info, comp.get(), file.name.c_str(), file.problems, false, file.fixed, file.removed,
                 velkor::isVolumeOperation(operation));
  return *this;
}

LogText& LogText::end() {
  ErrorStreamTo log(out_);
  LogDocumentEnd();
  return *this;
}

}  // namespace testsupport
