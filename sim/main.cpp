// kvfsim: mounts a simulated KVF admin volume (see sim/README.md).
#include <unistd.h>

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
    "              [--pretty] [--write-fixture FILE.json] [--no-request-log] MOUNTDIR\n"
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

}  // namespace

int main(int argc, char** argv) {
  std::string fixture, expect, writeFixture, mountDir;
  unsigned long long generate = 0, seed = 1;
  bool generating = false, pretty = false, requestLog = true;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    auto value = [&](const char* name) -> const char* {
      if (i + 1 >= argc) return nullptr;
      return argv[++i];
    };
    const char* v = nullptr;
    if (a == "--fixture") {
      if (!(v = value("--fixture"))) return usage("--fixture needs a file");
      fixture = v;
    } else if (a == "--generate") {
      if (!(v = value("--generate")) || !readNumber(v, &generate)) return usage("--generate needs a number");
      // Objects are indexed in 32 bits.
      if (generate > 0xffffffffull) return usage("--generate takes at most 4294967295 objects");
      generating = true;
    } else if (a == "--seed") {
      if (!(v = value("--seed")) || !readNumber(v, &seed)) return usage("--seed needs a number");
    } else if (a == "--expect") {
      if (!(v = value("--expect"))) return usage("--expect needs a file");
      expect = v;
    } else if (a == "--write-fixture") {
      if (!(v = value("--write-fixture"))) return usage("--write-fixture needs a file");
      writeFixture = v;
    } else if (a == "--pretty") {
      pretty = true;
    } else if (a == "--no-request-log") {
      requestLog = false;
    } else if (a == "-h" || a == "--help") {
      std::cout << kUsage;
      return 0;
    } else if (!a.empty() && a[0] == '-') {
      return usage("unknown option " + a);
    } else if (mountDir.empty()) {
      mountDir = a;
    } else {
      return usage("more than one MOUNTDIR");
    }
  }
  if (generating == !fixture.empty()) return usage("give exactly one of --fixture and --generate");
  if (!expect.empty() && !generating) return usage("--expect goes with --generate");
  if (mountDir.empty() && writeFixture.empty() && expect.empty()) return usage("missing MOUNTDIR");

  kvfsim::Model model;
  try {
    if (generating) {
      kvfsim::Expectations expected;
      kvfsim::generate(model, generate, seed, &expected);
      if (!expect.empty() && !writeText(expect, expected.json())) return 1;
    } else {
      std::ifstream in(fixture, std::ios::binary);
      if (!in) {
        std::cerr << "kvfsim: cannot read " << fixture << "\n";
        return 1;
      }
      std::ostringstream text;
      text << in.rdbuf();
      kvfsim::loadFixture(text.str(), model);
    }
  } catch (const std::exception& e) {
    std::cerr << "kvfsim: " << e.what() << "\n";
    return 1;
  }
  if (!writeFixture.empty()) {
    std::ostringstream state;
    kvfsim::writeState(model, state);
    if (!writeText(writeFixture, state.str())) return 1;
  }
  if (mountDir.empty()) return 0;

  // The request log lives in a private directory, removed when the daemon ends.
  char dirTemplate[] = "/tmp/kvfsim-XXXXXX";
  if (requestLog && !mkdtemp(dirTemplate)) {
    std::cerr << "kvfsim: cannot create a directory for the request log\n";
    return 1;
  }
  int status;
  {
    kvfsim::RequestLog log(requestLog ? std::string(dirTemplate) + "/requests.jsonl" : "");
    kvfsim::RequestHandler handler(model, pretty);
    kvfsim::Faults faults;
    kvfsim::SimContext context{model, handler, faults, log};
    status = kvfsim::serve(context, mountDir);
  }
  if (requestLog) rmdir(dirTemplate);
  return status;
}
