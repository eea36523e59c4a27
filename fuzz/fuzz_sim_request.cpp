// Fuzzes the simulator's request handling with arbitrary request text: the
// parse, the fault-rule key, the run against a small model (both management
// files) and the result-only reply the fault rules send. Whatever the request,
// each reply must be a well-formed document with the management file's reply
// root, as the program's reader takes it to be. Every input starts from the
// fixture as loaded: after a request that may change the model (set, delete,
// recount) it is loaded afresh, so no input can make the next one behave
// differently.
#include <cstdint>
#include <cstring>
#include <memory>
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
  static std::unique_ptr<kvfsim::Model> model;
  if (!model) {
    model = std::make_unique<kvfsim::Model>();
    kvfsim::loadFixture(simtest::kFixture, *model);
  }
  std::string_view text(reinterpret_cast<const char*>(data), size);
  bool changes = false;
  for (bool pretty : {false, true}) {
    kvfsim::RequestHandler handler(*model, pretty);
    for (kvfsim::CmdFile file : {kvfsim::CmdFile::kManage, kvfsim::CmdFile::kFiles}) {
      kvfsim::RequestPtr request = handler.parse(file, text);
      const std::string& kind = handler.key(*request).kind;
      changes |= kind == "setBeastInfo" || kind == "deleteBeast" || kind == "fixCompStats";
      checkReply(file, handler.execute(*request));
      checkReply(file, handler.resultReply(*request, 20019));
    }
  }
  if (changes) model.reset();
  return 0;
}
