#include "fixture.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

namespace kvfsim {

using nlohmann::json;

namespace {

std::vector<std::string> names(const json& j, const char* key) {
  std::vector<std::string> out;
  if (j.contains(key))
    for (const json& n : j.at(key)) out.push_back(n.get<std::string>());
  return out;
}

uint32_t tagBits(const json& j, const char* key, const char* const* table, int size, uint64_t zid) {
  uint32_t bits = 0, bit;
  for (const std::string& name : names(j, key)) {
    if (!tagsToBits({name}, table, size, &bit))
      throw std::runtime_error("object " + std::to_string(zid) + ": unknown name \"" + name + "\" in " + key);
    bits |= bit;
  }
  return bits;
}

void readTime(const json& j, const char* key, int64_t* utc, std::string* text) {
  if (!j.contains(key)) return;
  const json& t = j.at(key);
  if (t.is_number()) {
    *utc = t.get<int64_t>();
    return;
  }
  *utc = t.value("utc", int64_t(0));
  *text = t.value("text", std::string());
}

Beast readBeast(const json& j) {
  Beast b;
  b.zid = j.at("zid").get<uint64_t>();
  b.classId = j.value("classId", 3u);
  b.attributes = tagBits(j, "attributes", kAttrTags, 32, b.zid);
  b.eof = j.value("eof", uint64_t(0));
  b.physSize = j.value("physSize", uint64_t(0));
  b.openCount = j.value("openCount", 0);
  if (j.contains("parents")) {
    b.parents.clear();
    for (const std::string& p : names(j, "parents")) {
      char type;
      if (!nameTypeFromText(p, &type))
        throw std::runtime_error("object " + std::to_string(b.zid) + ": unknown parent name type " + p);
      b.parents += type;
    }
  }
  b.fullName = j.value("name", std::string());
  readTime(j, "created", &b.createdUtc, &b.createdText);
  readTime(j, "accessed", &b.accessedUtc, &b.accessedText);
  if (j.contains("comp")) {
    const json& c = j.at("comp");
    b.hasComp = true;
    b.comp.compZid = c.value("compZid", uint64_t(0));
    b.comp.chunkSize = c.value("chunkSize", 0u);
    b.comp.ucPrecious = c.value("ucPrecious", 0u);
    b.comp.cPrecious = c.value("cPrecious", 0u);
    b.comp.purgeableBlks = c.value("purgeableBlks", 0u);
    b.comp.algoID = c.value("algoID", 0u);
    b.comp.algoVersion = c.value("algoVersion", 0u);
    b.comp.status = tagBits(c, "status", kStatusTags, 4, b.zid);
    b.comp.action = tagBits(c, "action", kActionTags, 2, b.zid);
  }
  return b;
}

CompBeast readCompBeast(const json& j) {
  CompBeast c;
  c.zid = j.at("zid").get<uint64_t>();
  c.owner = j.value("owner", uint64_t(0));
  c.eof = j.value("eof", uint64_t(0));
  c.physSize = j.value("physSize", uint64_t(0));
  c.deleted = j.value("deleted", false);
  c.variableData = j.value("variableData", true);
  const json h = j.value("header", json::object());
  c.compressCode = h.value("compressCode", 0u);
  c.majorVersion = h.value("majorVersion", 1u);
  c.minorVersion = h.value("minorVersion", 0u);
  c.originalLength = h.value("originalLength", uint64_t(0));
  c.compressedLength = h.value("compressedLength", uint64_t(0));
  return c;
}

json statsJson(const VolumeStats& s) {
  return {{"compressedFiles", s.compressedFiles},
          {"compressedDeletedFiles", s.compressedDeletedFiles},
          {"uncompressibleFiles", s.uncompressibleFiles},
          {"preCompressionBlocks", s.preCompressionBlocks},
          {"compressedBlocks", s.compressedBlocks}};
}

json beastJson(const Beast& b) {
  json parents = json::array();
  for (char p : b.parents) parents.push_back(nameTypeText(p));
  json j = {{"zid", b.zid},
            {"classId", b.classId},
            {"attributes", bitsToTags(b.attributes, kAttrTags, 32)},
            {"eof", b.eof},
            {"physSize", b.physSize},
            {"openCount", b.openCount},
            {"parents", parents},
            {"name", b.fullName},
            {"created", {{"utc", b.createdUtc}, {"text", b.createdText.empty() ? timeText(b.createdUtc) : b.createdText}}},
            {"accessed", {{"utc", b.accessedUtc}, {"text", b.accessedText.empty() ? timeText(b.accessedUtc) : b.accessedText}}}};
  if (b.hasComp)
    j["comp"] = {{"compZid", b.comp.compZid},
                 {"chunkSize", b.comp.chunkSize},
                 {"ucPrecious", b.comp.ucPrecious},
                 {"cPrecious", b.comp.cPrecious},
                 {"purgeableBlks", b.comp.purgeableBlks},
                 {"algoID", b.comp.algoID},
                 {"algoVersion", b.comp.algoVersion},
                 {"status", bitsToTags(b.comp.status, kStatusTags, 4)},
                 {"action", bitsToTags(b.comp.action, kActionTags, 2)}};
  return j;
}

json compBeastJson(const CompBeast& c) {
  return {{"zid", c.zid},
          {"owner", c.owner},
          {"eof", c.eof},
          {"physSize", c.physSize},
          {"deleted", c.deleted},
          {"variableData", c.variableData},
          {"header",
           {{"compressCode", c.compressCode},
            {"majorVersion", c.majorVersion},
            {"minorVersion", c.minorVersion},
            {"originalLength", c.originalLength},
            {"compressedLength", c.compressedLength}}}};
}

std::string dump(const json& j) { return j.dump(-1, ' ', false, json::error_handler_t::replace); }

}  // namespace

void loadFixture(const std::string& text, Model& model) {
  json doc;
  try {
    doc = json::parse(text);
    for (const json& v : doc.at("volumes")) {
      auto vol = std::make_unique<Volume>();
      vol->name = v.at("name").get<std::string>();
      vol->state = v.value("state", vol->state);
      vol->compression = v.value("compression", true);
      vol->mountPoint = v.value("mountPoint", "/media/kvf/" + vol->name);
      vol->id = v.value("id", vol->id);
      vol->rootZid = v.value("rootZid", vol->rootZid);
      vol->blockSize = v.value("blockSize", vol->blockSize);
      if (v.contains("enabledAttributes")) vol->enabledAttributes = names(v, "enabledAttributes");
      if (v.contains("beasts"))
        for (const json& b : v.at("beasts")) vol->beasts.push_back(readBeast(b));
      if (v.contains("compBeasts"))
        for (const json& c : v.at("compBeasts")) vol->compBeasts.push_back(readCompBeast(c));
      vol->index();
      if (v.contains("stats")) {
        const json& s = v.at("stats");
        vol->stats.compressedFiles = s.value("compressedFiles", uint64_t(0));
        vol->stats.compressedDeletedFiles = s.value("compressedDeletedFiles", uint64_t(0));
        vol->stats.uncompressibleFiles = s.value("uncompressibleFiles", uint64_t(0));
        vol->stats.preCompressionBlocks = s.value("preCompressionBlocks", uint64_t(0));
        vol->stats.compressedBlocks = s.value("compressedBlocks", uint64_t(0));
      } else {
        vol->stats = vol->recount();
      }
      model.volumes.push_back(std::move(vol));
    }
  } catch (const json::exception& e) {
    throw std::runtime_error(std::string("bad fixture: ") + e.what());
  }
}

void writeState(const Model& model, std::ostream& out, bool withObjects) {
  out << "{\"volumes\":[";
  bool firstVolume = true;
  for (const auto& v : model.volumes) {
    json head = {{"name", v->name},
                 {"state", v->state},
                 {"compression", v->compression},
                 {"mountPoint", v->mountPoint},
                 {"id", v->id},
                 {"blockSize", v->blockSize},
                 {"enabledAttributes", v->enabledAttributes},
                 {"stats", statsJson(v->stats)},
                 {"liveBeasts", v->liveBeasts}};
    if (v->rootZid != Volume().rootZid) head["rootZid"] = v->rootZid;
    std::string text = dump(head);
    out << (firstVolume ? "\n" : ",\n");
    firstVolume = false;
    if (!withObjects) {
      out << text;
      continue;
    }
    text.pop_back();  // the closing brace: the object lists follow
    out << text << ",\"beasts\":[";
    bool first = true;
    v->forEachBeast(
        [&](const Beast& b) {
          out << (first ? "\n" : ",\n") << dump(beastJson(b));
          first = false;
        },
        true);
    out << "],\"compBeasts\":[";
    first = true;
    v->forEachCompBeast([&](const CompBeast& c) {
      out << (first ? "\n" : ",\n") << dump(compBeastJson(c));
      first = false;
    });
    out << "]}";
  }
  out << "]}\n";
}

}  // namespace kvfsim
