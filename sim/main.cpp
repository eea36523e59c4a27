// kvfsim: mounts a simulated KVF admin volume (see sim/README.md).
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "fixture.h"
#include "fs.h"
#include "generator.h"

namespace {

const char kUsage[] =
    "usage: kvfsim [--fixture FILE.json | --generate N [--seed S] [--expect FILE.json]]\n"
    "              [--pretty] [--write-fixture FILE.json] [--no-request-log] [--no-zid-inodes] MOUNTDIR\n"
    "  MOUNTDIR may be left out when only files are to be written.\n";

int usage(const std::string& complaint) {
  if (!complaint.empty()) std::cerr << "kvfsim: " << complaint << "\n";
  std::cerr << kUsage;
  return 2;
}

bool readNumber(const char* text, unsigned long long* value) {
  char* end = nullptr;
  errno = 0;
  *value = strtoull(text, &end, 10);
  return *text && *end == 0 && errno == 0;
}

bool writeText(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (!out) std::cerr << "kvfsim: cannot write " << path << "\n";
  return bool(out);
}

struct Options {
  std::string fixture, expect, writeFixture, mountDir;
  unsigned long long generate = 0, seed = 1;
  bool generating = false, pretty = false, requestLog = true, zidInodes = true;
};

// Reads the command line into `o`. Returns -1 to go on, or the exit status
// (the usage printed).
int parseArgs(int argc, char** argv, Options& o) {
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    const char* v = i + 1 < argc ? argv[i + 1] : nullptr;
    auto take = [&] { return argv[++i]; };
    if (a == "--fixture") {
      if (!v) return usage("--fixture needs a file");
      o.fixture = take();
    } else if (a == "--generate") {
      if (!v || !readNumber(take(), &o.generate)) return usage("--generate needs a number");
      // Objects are indexed in 32 bits.
      if (o.generate > 0xffffffffull) return usage("--generate takes at most 4294967295 objects");
      o.generating = true;
    } else if (a == "--seed") {
      if (!v || !readNumber(take(), &o.seed)) return usage("--seed needs a number");
    } else if (a == "--expect") {
      if (!v) return usage("--expect needs a file");
      o.expect = take();
    } else if (a == "--write-fixture") {
      if (!v) return usage("--write-fixture needs a file");
      o.writeFixture = take();
    } else if (a == "--pretty") {
      o.pretty = true;
    } else if (a == "--no-request-log") {
      o.requestLog = false;
    } else if (a == "--no-zid-inodes") {
      o.zidInodes = false;
    } else if (a == "-h" || a == "--help") {
      std::cout << kUsage;
      return 0;
    } else if (!a.empty() && a[0] == '-') {
      return usage("unknown option " + a);
    } else if (o.mountDir.empty()) {
      o.mountDir = a;
    } else {
      return usage("more than one MOUNTDIR");
    }
  }
  if (o.generating == !o.fixture.empty()) return usage("give exactly one of --fixture and --generate");
  if (!o.expect.empty() && !o.generating) return usage("--expect goes with --generate");
  if (o.mountDir.empty() && o.writeFixture.empty() && o.expect.empty()) return usage("missing MOUNTDIR");
  return -1;
}

// Fills the model from the fixture or the generator, writing the
// expectations file when asked. False after printing why not.
bool loadModel(const Options& o, kvfsim::Model& model) {
  try {
    if (o.generating) {
      kvfsim::Expectations expected;
      kvfsim::generate(model, o.generate, o.seed, &expected);
      return o.expect.empty() || writeText(o.expect, expected.json());
    }
    std::ifstream in(o.fixture, std::ios::binary);
    if (!in) {
      std::cerr << "kvfsim: cannot read " << o.fixture << "\n";
      return false;
    }
    std::ostringstream text;
    text << in.rdbuf();
    kvfsim::loadFixture(text.str(), model);
    return true;
  } catch (const std::exception& e) {
    std::cerr << "kvfsim: " << e.what() << "\n";
    return false;
  }
}

// Serves the model at o.mountDir until unmounted. The request log lives in
// a private directory, removed when the daemon ends.
int serveVolume(const Options& o, kvfsim::Model& model) {
  char dirTemplate[] = "/tmp/kvfsim-XXXXXX";
  if (o.requestLog && !mkdtemp(dirTemplate)) {
    std::cerr << "kvfsim: cannot create a directory for the request log\n";
    return 1;
  }
  int status;
  {
    kvfsim::RequestLog log(o.requestLog ? std::string(dirTemplate) + "/requests.jsonl" : "");
    kvfsim::RequestHandler handler(model, o.pretty);
    kvfsim::Faults faults;
    kvfsim::SimContext context{model, handler, faults, log, o.zidInodes, o.mountDir};
    status = kvfsim::serve(context, o.mountDir);
  }
  if (o.requestLog) rmdir(dirTemplate);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  if (int status = parseArgs(argc, argv, o); status >= 0) return status;
  kvfsim::Model model;
  if (!loadModel(o, model)) return 1;
  if (!o.writeFixture.empty()) {
    std::ostringstream state;
    kvfsim::writeState(model, state);
    if (!writeText(o.writeFixture, state.str())) return 1;
  }
  if (o.mountDir.empty()) return 0;
  return serveVolume(o, model);
}
