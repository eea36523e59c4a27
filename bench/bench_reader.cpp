// Reader benchmark: reads realistic replies the way the program does (status
// check, then the record reads and number conversions) and does the same
// extraction with pugixml on the same bytes; prints MB/s and the ratio.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <pugixml.hpp>

#include "common_cpp/kvfError.h"
#include "programReads.h"

namespace {

std::string load(const char* name) {
  std::ifstream in(std::string(VELKOR_SOURCE_DIR "/fuzz/corpus/") + name, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  if (text.str().empty()) {
    fprintf(stderr, "bench_reader: cannot read reply %s\n", name);
    exit(1);
  }
  return text.str();
}

// Both readers work on a fresh copy of the reply, as the program's reads write
// into its reply buffer and pugixml parses in place.
struct Work {
  explicit Work(const std::string& reply) : reply(reply), buffer(reply.size() + 1) {}
  char* fresh() {
    memcpy(buffer.data(), reply.data(), reply.size() + 1);
    return buffer.data();
  }
  const std::string& reply;
  std::vector<char> buffer;
};

// ---- The same extraction with pugixml ----

using pugi::xml_node;

xml_node find(xml_node parent, const char* name) {
  return parent.find_node([name](xml_node n) { return strcmp(n.name(), name) == 0; });
}

struct PugiReader {
  uint64_t sum = 0;
  bool ok = true;

  xml_node need(xml_node parent, const char* name) {
    xml_node n = find(parent, name);
    if (!n) ok = false;
    return n;
  }
  void number(xml_node n) { sum += strtoull(n.child_value(), nullptr, 10); }
  void text(xml_node n) { sum += strlen(n.child_value()); }
  void tags(xml_node n) {
    for (xml_node tag : n.children())
      if (tag.type() == pugi::node_element) sum += strlen(tag.name()) + static_cast<unsigned char>(tag.name()[0]);
  }
  // The status of the element `tag`: <result value="0"/> as a direct child.
  xml_node status(pugi::xml_document& doc, const char* tag) {
    xml_node element = find(doc, tag);
    if (!element || element.child("result").attribute("value").as_llong(-1) != 0) ok = false;
    return element;
  }
  void nameType(xml_node parent) { text(need(parent, "nameType")); }
  void time(xml_node t) {
    number(need(t, "utc"));
    text(need(t, "string"));
  }
};

bool pugiBeastInfo(PugiReader& r, pugi::xml_document& doc) {
  xml_node reply = r.status(doc, "getBeastInfo");
  xml_node info = r.need(reply, "beastInfo");
  xml_node root = r.need(info, "rootBeastInfo");
  r.number(r.need(root, "eof"));
  r.number(r.need(root, "classID"));
  r.text(r.need(root, "zid"));
  r.number(find(r.need(root, "storageInfo"), "filePhysSize"));
  if (xml_node comp = find(root, "variableDataComp")) {
    r.text(r.need(comp, "compZid"));
    for (const char* name : {"chunkSize", "ucPrecious", "cPrecious", "purgeableBlks", "algoID", "algoVersion"})
      r.number(r.need(comp, name));
    r.tags(r.need(comp, "status"));
    r.tags(find(comp, "action"));
  }
  xml_node named = find(info, "namedBeastInfo");
  r.tags(find(named, "attributes"));
  r.number(r.need(named, "openCount"));
  r.number(r.need(named, "numParents"));
  r.nameType(r.need(named, "firstParent"));
  for (xml_node entry : find(named, "otherParents").children("parentEntry")) r.nameType(entry);
  if (xml_node file = find(info, "fileBeastInfo")) {
    xml_node persistent = r.need(file, "persistentFile");
    r.time(r.need(persistent, "accessedTime"));
    r.time(r.need(persistent, "createdTime"));
  }
  if (xml_node compression = find(reply, "compressionInfo")) {
    r.sum += strlen(find(find(compression, "compBeastInfo"), "uncompZid").child_value());
    xml_node compRoot = r.need(compression, "rootBeastInfo");
    r.number(r.need(compRoot, "eof"));
    r.need(compRoot, "volumeID");
    r.number(find(r.need(compRoot, "storageInfo"), "filePhysSize"));
    if (xml_node data = find(compRoot, "variableData")) {
      r.sum += find(data, "uncompBeastDeleted") ? 1 : 0;
      xml_node header = r.need(data, "compHeader");
      for (const char* name : {"compressCode", "compressMajorVersion", "compressMinorVersion",
                               "originalFileLength", "compressedFileLength"})
        r.number(r.need(header, name));
    }
  }
  return r.ok;
}

bool pugiBrowse(PugiReader& r, pugi::xml_document& doc) {
  xml_node reply = r.status(doc, "browseBeasts");
  r.need(reply, "lastZidReturned");
  r.number(r.need(reply, "numBeastsReturned"));
  for (xml_node zid : r.need(reply, "beastZids").children("zid")) r.number(zid);
  return r.ok;
}

bool pugiVolumeInfo(PugiReader& r, pugi::xml_document& doc) {
  xml_node reply = r.status(doc, "getVolumeInfo");
  xml_node basic = r.need(reply, "basicInfo");
  r.text(r.need(basic, "volumeState"));
  r.text(r.need(basic, "mountPoint"));
  r.sum += find(r.need(reply, "enabledAttributes"), "compression") ? 1 : 0;
  return r.ok;
}

// ---- Benchmarks ----

struct Kind {
  const char* name;
  const char* file;
  programreads::Kind velkor;
  bool (*pugi)(PugiReader&, pugi::xml_document&);
};

const Kind kKinds[] = {
    {"beastinfo", "beastinfo-full.xml", programreads::kBeastInfo, pugiBeastInfo},
    {"browse20", "browse-20.xml", programreads::kBrowse, pugiBrowse},
    {"volumeinfo", "volumeinfo.xml", programreads::kVolumeInfo, pugiVolumeInfo},
};

void velkorRead(benchmark::State& state, const Kind* kind, const std::string* reply) {
  // One reply buffer of exactly the reply's size, refilled before each read.
  velkor::ReplyBuf buffer;
  buffer.assign(reply->data(), reply->size());
  for (auto _ : state) {
    memcpy(buffer.data, reply->data(), reply->size() + 1);
    try {
      benchmark::DoNotOptimize(programreads::read(kind->velkor, &buffer));
    } catch (const KVFError& e) {
      state.SkipWithError(e.what());
      break;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * reply->size()));
}

void pugiRead(benchmark::State& state, const Kind* kind, const std::string* reply) {
  Work work(*reply);
  pugi::xml_document doc;
  for (auto _ : state) {
    PugiReader r;
    if (!doc.load_buffer_inplace(work.fresh(), reply->size()) || !kind->pugi(r, doc))
      state.SkipWithError("read failed");
    benchmark::DoNotOptimize(r.sum);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * reply->size()));
}

// Prints the usual table, then MB/s of both readers and their ratio per reply.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      auto rate = run.counters.find("bytes_per_second");
      if (run.run_type == Run::RT_Iteration && !run.error_occurred && rate != run.counters.end())
        rates_[run.benchmark_name()] = rate->second.value / 1e6;
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    printf("\n%-12s %14s %14s %10s\n", "reply", "velkor MB/s", "pugixml MB/s", "ratio");
    for (const Kind& kind : kKinds) {
      double own = rates_[std::string("velkor/") + kind.name];
      double pugi = rates_[std::string("pugixml/") + kind.name];
      printf("%-12s %14.1f %14.1f %9.2fx\n", kind.name, own, pugi, pugi > 0 ? own / pugi : 0.0);
    }
  }

 private:
  std::map<std::string, double> rates_;
};

}  // namespace

int main(int argc, char** argv) {
  static std::vector<std::string> replies;
  for (const Kind& kind : kKinds) replies.push_back(load(kind.file));
  for (size_t i = 0; i < std::size(kKinds); ++i) {
    benchmark::RegisterBenchmark((std::string("velkor/") + kKinds[i].name).c_str(), velkorRead, &kKinds[i], &replies[i]);
    benchmark::RegisterBenchmark((std::string("pugixml/") + kKinds[i].name).c_str(), pugiRead, &kKinds[i], &replies[i]);
  }
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
