// Fuzzes the simulator's request handling with arbitrary request text: the
// parse, the fault-rule key, the run against a small model (both management
// files) and the result-only reply the fault rules send. Whatever the request,
// each reply must be a well-formed document with the management file's reply
// root, as the program's reader takes it to be. The model is loaded afresh for
// every input, so an input that changes it (set, delete, recount) cannot make
// the next one behave differently.
#include <cstdint>
#include <cstring>
#include <pugixml.hpp>
#include <string>
#include <string_view>

#include "fixture.h"
#include "model.h"
#include "requests.h"
#include "simtest.h"

namespace {

void checkReply(kvfsim::CmdFile file, const std::string& reply) {
  pugi::xml_document doc;
  if (!doc.load_buffer(reply.data(), reply.size())) __builtin_trap();
  const char* root = file == kvfsim::CmdFile::kManage ? "kvfReply" : "fileReply";
  if (strcmp(doc.document_element().name(), root) != 0) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  kvfsim::Model model;
  kvfsim::loadFixture(simtest::kFixture, model);
  for (bool pretty : {false, true}) {
    kvfsim::RequestHandler handler(model, pretty);
    for (kvfsim::CmdFile file : {kvfsim::CmdFile::kManage, kvfsim::CmdFile::kFiles}) {
      kvfsim::RequestPtr request = handler.parse(file, text);
      handler.key(*request);
      checkReply(file, handler.execute(*request));
      checkReply(file, handler.resultReply(*request, 20019));
    }
  }
  return 0;
}
