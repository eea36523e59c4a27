#include "requests.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <pugixml.hpp>
#include <set>

#include "xmlout.h"

namespace kvfsim {

const char kEnvelope[] = "<virtualIO><datastream name=\"command\"/></virtualIO>";

const char* cmdFileName(CmdFile file) { return file == CmdFile::kManage ? "manage.cmd" : "files.cmd"; }

namespace {

struct KindInfo {
  const char* kind;
  const char* group;
  CmdFile file;
};
const KindInfo kKinds[] = {
    {"getBeastInfo", "beast", CmdFile::kManage},   {"getBeastFullName", "beast", CmdFile::kManage},
    {"setBeastInfo", "beast", CmdFile::kManage},   {"deleteBeast", "beast", CmdFile::kManage},
    {"getVolumeInfo", "volume", CmdFile::kManage}, {"browseBeasts", "volume", CmdFile::kManage},
    {"fixCompStats", "volume", CmdFile::kManage},  {"getFileInfo", "fileInfo", CmdFile::kFiles},
};

const KindInfo* findKind(std::string_view kind) {
  for (const KindInfo& k : kKinds)
    if (kind == k.kind) return &k;
  return nullptr;
}

// The earliest known request name written as a start tag in the text.
std::string guessKind(std::string_view text) {
  size_t best = std::string_view::npos;
  std::string kind;
  for (const KindInfo& k : kKinds) {
    size_t at = text.find("<" + std::string(k.kind));
    if (at < best) {
      best = at;
      kind = k.kind;
    }
  }
  return kind;
}

std::string trimmed(const char* text) {
  std::string_view s(text);
  const char* white = " \t\r\n\v\f";
  size_t b = s.find_first_not_of(white);
  if (b == std::string_view::npos) return "";
  return std::string(s.substr(b, s.find_last_not_of(white) - b + 1));
}

bool parseNumber(const std::string& text, uint64_t* value) {
  if (text.empty() || text.size() > 20 || !std::all_of(text.begin(), text.end(), ::isdigit)) return false;
  errno = 0;
  *value = strtoull(text.c_str(), nullptr, 10);
  return errno == 0;
}

bool parseInt(const std::string& text, int64_t* value) {
  char* end = nullptr;
  errno = 0;
  *value = strtoll(text.c_str(), &end, 10);
  return !text.empty() && *end == 0 && errno == 0;
}

bool parseBool(const std::string& text, bool* value) {
  if (text == "true" || text == "1") *value = true;
  else if (text == "false" || text == "0") *value = false;
  else return false;
  return true;
}

pugi::xml_node descendant(pugi::xml_node parent, const char* name) {
  return parent.find_node([name](pugi::xml_node n) { return n.type() == pugi::node_element && !strcmp(n.name(), name); });
}

// The names of the child elements of a tag-set value; false on other content.
bool tagNames(pugi::xml_node value, std::vector<std::string>* names) {
  for (pugi::xml_node c : value.children()) {
    if (c.type() == pugi::node_element && !c.first_child()) names->push_back(c.name());
    else if (c.type() != pugi::node_pcdata || !trimmed(c.value()).empty()) return false;
  }
  return true;
}

}  // namespace

struct ParsedRequest {
  CmdFile file;
  RequestKey key;
  int64_t error = kOk;  // set when the request cannot be run
  pugi::xml_document doc;
  pugi::xml_node node;  // the request element
};

void ParsedRequestDeleter::operator()(ParsedRequest* p) const { delete p; }

RequestPtr RequestHandler::parse(CmdFile file, std::string_view text) const {
  RequestPtr r(new ParsedRequest);
  r->file = file;
  size_t envelope = strlen(kEnvelope);
  bool hasEnvelope = text.substr(0, envelope) == kEnvelope;
  std::string_view body = hasEnvelope ? text.substr(envelope) : text;
  pugi::xml_parse_result parsed = r->doc.load_buffer(body.data(), body.size(), pugi::parse_default, pugi::encoding_utf8);
  pugi::xml_node root = r->doc.document_element();
  const char* rootName = file == CmdFile::kManage ? "kvfRequest" : "fileRequest";
  pugi::xml_node group = root.first_child();
  pugi::xml_node node = group.first_child();
  r->key.kind = parsed && node.type() == pugi::node_element ? node.name() : guessKind(text);
  const KindInfo* kind = findKind(r->key.kind);
  if (!hasEnvelope || !parsed || strcmp(root.name(), rootName) || !kind || kind->file != file ||
      strcmp(group.name(), kind->group) || node.next_sibling() || group.next_sibling()) {
    r->error = kXmlIsBad;
    return r;
  }
  r->node = node;
  r->key.volume = trimmed(node.child("volumeName").child_value());
  r->key.zid = trimmed(node.child("id").child_value());
  if (kind->file == CmdFile::kFiles) {
    std::string path = node.child("fileName").child_value();
    std::shared_lock lock(model_.mutex);
    for (const auto& v : model_.volumes)
      if (path.compare(0, v->mountPoint.size() + 1, v->mountPoint + "/") == 0) r->key.volume = v->name;
  }
  return r;
}

const RequestKey& RequestHandler::key(const ParsedRequest& request) const { return request.key; }

namespace {

// The reply document around one request's element.
class Reply {
 public:
  Reply(const ParsedRequest& r, bool pretty) : x(pretty) {
    const KindInfo* kind = findKind(r.key.kind);
    x.open(r.file == CmdFile::kManage ? "kvfReply" : "fileReply");
    if (!r.key.kind.empty()) {
      x.open(kind ? kind->group : "beast");
      x.open(r.key.kind);
    }
  }
  XmlOut x;
};

void writeRoot(XmlOut& x, const Beast& b) {
  x.open("rootBeastInfo").number("zid", b.zid).number("classID", b.classId).number("eof", b.eof);
  x.open("storageInfo").number("filePhysSize", b.physSize).close();
  if (b.hasComp) {
    const CompRecord& c = b.comp;
    x.open("variableData").open("variableDataComp");
    x.number("compZid", c.compZid).number("chunkSize", c.chunkSize).number("ucPrecious", c.ucPrecious);
    x.number("cPrecious", c.cPrecious).number("purgeableBlks", c.purgeableBlks);
    x.number("algoID", c.algoID).number("algoVersion", c.algoVersion);
    x.tags("status", bitsToTags(c.status, kStatusTags, 4)).tags("action", bitsToTags(c.action, kActionTags, 2));
    x.close().close();
  }
  x.close();
}

void writeNamed(XmlOut& x, const Beast& b) {
  x.open("namedBeastInfo").tags("attributes", bitsToTags(b.attributes, kAttrTags, 32));
  x.signedNumber("openCount", b.openCount).number("numParents", b.parents.size());
  // A beast without parents still carries a first-parent element.
  x.open("firstParent").text("nameType", nameTypeText(b.parents.empty() ? char(kDeletedFile) : b.parents[0])).close();
  if (b.parents.size() > 1) {
    x.open("otherParents");
    for (size_t i = 1; i < b.parents.size(); ++i) x.open("parentEntry").text("nameType", nameTypeText(b.parents[i])).close();
    x.close();
  }
  x.close();
}

void writeTime(XmlOut& x, const char* name, int64_t utc, const std::string& text) {
  x.open(name).signedNumber("utc", utc).text("string", text.empty() ? timeText(utc) : text).close();
}

void writeFile(XmlOut& x, const Beast& b) {
  x.open("fileBeastInfo").open("persistentFile");
  writeTime(x, "accessedTime", b.accessedUtc, b.accessedText);
  writeTime(x, "createdTime", b.createdUtc, b.createdText);
  x.close().close();
}

void writeVolumeStats(XmlOut& x, const Volume& v, const char* name) {
  const VolumeStats& s = v.stats;
  x.open(name).number("compressedFiles", s.compressedFiles).number("compressedDeletedFiles", s.compressedDeletedFiles);
  x.number("uncompressibleFiles", s.uncompressibleFiles).number("preCompressionBlocks", s.preCompressionBlocks);
  x.number("compressedBlocks", s.compressedBlocks).number("blockSize", v.blockSize).text("volumeState", v.state);
  x.close();
}

void writeCompression(XmlOut& x, const Volume& v, const CompBeast& c) {
  x.open("compressionInfo").open("rootBeastInfo").number("zid", c.zid).number("eof", c.eof).text("volumeID", v.id);
  x.open("storageInfo").number("filePhysSize", c.physSize).close();
  if (c.variableData) {
    x.open("variableData");
    if (c.deleted) x.empty("uncompBeastDeleted");
    x.open("compHeader").number("compressCode", c.compressCode).number("compressMajorVersion", c.majorVersion);
    x.number("compressMinorVersion", c.minorVersion).number("originalFileLength", c.originalLength);
    x.number("compressedFileLength", c.compressedLength).close().close();
  }
  x.close().open("compBeastInfo").number("uncompZid", c.owner).close().close();
}

enum InfoBit : unsigned { kRoot = 1, kNamed = 2, kFileInfo = 4, kCompInfo = 8, kVolumeSimple = 16, kVolumeFull = 32 };

unsigned infoMask(pugi::xml_node typeOfInfo) {
  static const char* const names[] = {"rootBeastInfo", "namedBeastInfo", "fileBeastInfo",
                                      "compBeastInfo", "volumeBeastInfoSimple", "volumeBeastInfoFull"};
  unsigned mask = 0;
  for (pugi::xml_node c : typeOfInfo.children())
    for (unsigned i = 0; i < 6; ++i)
      if (!strcmp(c.name(), names[i])) mask |= 1u << i;
  return mask;
}

int64_t getBeastInfo(pugi::xml_node req, const Volume& v, const std::string& zidText, XmlOut& x) {
  unsigned mask = infoMask(req.child("typeOfInfo"));
  bool getComp = trimmed(req.attribute("getCompBeastInfo").value()) == "true";
  uint64_t zid;
  if (!parseNumber(zidText, &zid)) return kNotFound;
  Beast scratch;
  const Beast* b = zid ? v.beast(zid, scratch) : nullptr;
  if (!b && !(zid == 0 && (mask & (kVolumeSimple | kVolumeFull)))) return kNotFound;
  x.result(kOk).open("beastInfo");
  if (b) {
    if (mask & kRoot) writeRoot(x, *b);
    if (mask & kNamed) writeNamed(x, *b);
    if ((mask & kFileInfo) && b->classId == 3) writeFile(x, *b);
  }
  if (mask & kVolumeSimple) writeVolumeStats(x, v, "volumeBeastInfoSimple");
  if (mask & kVolumeFull) writeVolumeStats(x, v, "volumeBeastInfoFull");
  x.close();
  if (b && getComp && b->hasComp && b->comp.compZid)
    if (CompBeast comp; const CompBeast* c = v.compBeast(b->comp.compZid, comp)) writeCompression(x, v, *c);
  return kOk;
}

int64_t getBeastFullName(const Volume& v, const std::string& zidText, XmlOut& x) {
  uint64_t zid;
  Beast scratch;
  const Beast* b = parseNumber(zidText, &zid) ? v.beast(zid, scratch) : nullptr;
  if (!b) return kNotFound;
  x.result(kOk).cdata("name", b->fullName);
  return kOk;
}

int64_t getVolumeInfo(pugi::xml_node req, Volume& v, XmlOut& x) {
  x.result(kOk);
  if (req.child("basicInfo")) {
    x.open("basicInfo").text("volumeState", v.state).text("mountPoint", v.mountPoint);
    x.number("totalObjects", v.liveBeasts).number("blockSize", v.blockSize).close();
  }
  if (req.child("attributes")) {
    std::vector<std::string> attrs = v.enabledAttributes;
    if (v.compression && std::find(attrs.begin(), attrs.end(), "compression") == attrs.end())
      attrs.push_back("compression");
    x.tags("enabledAttributes", attrs);
  }
  return kOk;
}

int64_t browseBeasts(pugi::xml_node req, const Volume& v, XmlOut& x) {
  int64_t requested, sequence;
  if (!parseInt(trimmed(req.child("numBeastsRequested").child_value()), &requested) ||
      !parseInt(trimmed(req.child("scanSequence").child_value()), &sequence))
    return kBadParameter;
  // The program sends the last zid it saw narrowed to 32 bits.
  uint64_t position = uint32_t(sequence);
  std::vector<uint64_t> zids = v.liveZidsAbove(position, size_t(std::max<int64_t>(requested, 0)));
  x.result(kOk).number("lastZidReturned", zids.empty() ? position : zids.back()).number("numBeastsReturned", zids.size());
  if (zids.empty()) {
    // An empty batch still has content: the program requires it in all three rows.
    x.text("beastZids", " ");
  } else {
    x.open("beastZids");
    for (uint64_t z : zids) x.number("zid", z);
    x.close();
  }
  return kOk;
}

// One field of a set request: its old and new value nodes.
struct Field {
  const char* name;
  pugi::xml_node node;
};

int64_t setBeastInfo(pugi::xml_node req, Volume& v, const std::string& zidText) {
  uint64_t zid;
  Beast* b = parseNumber(zidText, &zid) ? v.findBeast(zid) : nullptr;
  if (!b) return kNotFound;
  pugi::xml_node info = req.child("info");
  if (!info) return kXmlIsBad;
  Field fields[] = {{"attributes", {}}, {"action", {}}, {"status", {}},
                    {"cPrecious", {}},  {"ucPrecious", {}}, {"uncompBeastDeleted", {}}};
  for (Field& f : fields) {
    f.node = descendant(info, f.name);
    if (f.node && (!f.node.child("oldValue") || !f.node.child("newValue"))) return kXmlIsBad;
  }
  CompBeast* comp = nullptr;
  if (fields[5].node) {
    comp = b->hasComp && b->comp.compZid ? v.findCompBeast(b->comp.compZid) : nullptr;
    if (!comp) return kNotFound;
  }
  for (int i = 1; i <= 4; ++i)
    if (fields[i].node && !b->hasComp) return kBadParameter;

  // Check every field, then apply them all.
  bool changed = false;
  uint32_t newBits[3];
  uint32_t* current[3] = {&b->attributes, &b->comp.action, &b->comp.status};
  const char* const* tables[3] = {kAttrTags, kActionTags, kStatusTags};
  const int sizes[3] = {32, 2, 4};
  for (int i = 0; i < 3; ++i) {
    if (!fields[i].node) continue;
    std::vector<std::string> oldNames, newNames;
    if (!tagNames(fields[i].node.child("oldValue"), &oldNames) || !tagNames(fields[i].node.child("newValue"), &newNames) ||
        !tagsToBits(newNames, tables[i], sizes[i], &newBits[i]))
      return kBadParameter;
    std::vector<std::string> now = bitsToTags(*current[i], tables[i], sizes[i]);
    if (std::set<std::string>(oldNames.begin(), oldNames.end()) != std::set<std::string>(now.begin(), now.end()))
      changed = true;
  }
  uint64_t newPrecious[2];
  uint32_t* precious[2] = {&b->comp.cPrecious, &b->comp.ucPrecious};
  for (int i = 0; i < 2; ++i) {
    if (!fields[3 + i].node) continue;
    uint64_t oldValue;
    if (!parseNumber(trimmed(fields[3 + i].node.child("oldValue").child_value()), &oldValue) ||
        !parseNumber(trimmed(fields[3 + i].node.child("newValue").child_value()), &newPrecious[i]))
      return kBadParameter;
    if (oldValue != *precious[i]) changed = true;
  }
  bool newDeleted = false;
  if (comp) {
    bool oldDeleted;
    if (!parseBool(trimmed(fields[5].node.child("oldValue").child_value()), &oldDeleted) ||
        !parseBool(trimmed(fields[5].node.child("newValue").child_value()), &newDeleted))
      return kBadParameter;
    if (oldDeleted != comp->deleted) changed = true;
  }
  if (changed) return kValueChanged;
  for (int i = 0; i < 3; ++i)
    if (fields[i].node) *current[i] = newBits[i];
  for (int i = 0; i < 2; ++i)
    if (fields[3 + i].node) *precious[i] = uint32_t(newPrecious[i]);
  if (comp) comp->deleted = newDeleted;
  return kOk;
}

int64_t deleteBeast(Volume& v, const std::string& zidText) {
  uint64_t zid;
  Beast* b = parseNumber(zidText, &zid) ? v.findBeast(zid) : nullptr;
  if (!b) return kNotFound;
  v.removeBeast(*b);
  return kOk;
}

// An absolute path with "." and ".." resolved and repeated slashes removed.
std::string normalPath(const std::string& path) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = std::min(path.find('/', start), path.size());
    std::string part = path.substr(start, end - start);
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    start = end + 1;
  }
  std::string out;
  for (const std::string& p : parts) out += "/" + p;
  return out.empty() ? "/" : out;
}

int64_t getFileInfo(pugi::xml_node req, Model& model, XmlOut& x) {
  std::string path = normalPath(req.child("fileName").child_value());
  for (auto& v : model.volumes) {
    const std::string& mp = v->mountPoint;
    if (path == mp) {
      x.result(kOk).open("standardInfo").cdata("id", std::to_string(v->rootZid)).cdata("volumeName", v->name);
      x.cdata("name", "").number("dataStreamSize", 0).close();
      return kOk;
    }
    if (path.compare(0, mp.size() + 1, mp + "/") != 0) continue;
    Beast scratch;
    const Beast* b = v->beastByName(std::string_view(path).substr(mp.size()), scratch);
    if (!b) return kNotFound;
    x.result(kOk).open("standardInfo").cdata("id", std::to_string(b->zid)).cdata("volumeName", v->name);
    x.cdata("name", b->fullName.substr(b->fullName.rfind('/') + 1)).number("dataStreamSize", b->eof).close();
    return kOk;
  }
  return kNotFound;
}

}  // namespace

std::string RequestHandler::resultReply(const ParsedRequest& request, int64_t value) const {
  Reply reply(request, pretty_);
  reply.x.result(value);
  return reply.x.finish();
}

std::string RequestHandler::execute(const ParsedRequest& r) {
  if (r.error) return resultReply(r, r.error);
  Reply reply(r, pretty_);
  XmlOut& x = reply.x;
  const std::string& kind = r.key.kind;
  bool writes = kind == "setBeastInfo" || kind == "deleteBeast" || kind == "fixCompStats";
  std::shared_lock readLock(model_.mutex, std::defer_lock);
  std::unique_lock writeLock(model_.mutex, std::defer_lock);
  if (writes) writeLock.lock();
  else readLock.lock();

  int64_t result;
  if (kind == "getFileInfo") {
    result = getFileInfo(r.node, model_, x);
  } else if (Volume* v = model_.findVolume(r.key.volume); !v) {
    result = kNotFound;
  } else if (kind == "getBeastInfo") {
    result = getBeastInfo(r.node, *v, r.key.zid, x);
  } else if (kind == "getBeastFullName") {
    result = getBeastFullName(*v, r.key.zid, x);
  } else if (kind == "getVolumeInfo") {
    result = getVolumeInfo(r.node, *v, x);
  } else if (kind == "browseBeasts") {
    result = browseBeasts(r.node, *v, x);
  } else if (kind == "setBeastInfo") {
    result = setBeastInfo(r.node, *v, r.key.zid);
  } else if (kind == "deleteBeast") {
    result = deleteBeast(*v, r.key.zid);
  } else {  // fixCompStats
    result = v->compression ? kOk : kCompressionNotEnabled;
    if (result == kOk) v->stats = v->recount();
  }
  if (result != kOk) return resultReply(r, result);
  if (writes) x.result(kOk);
  return x.finish();
}

}  // namespace kvfsim
