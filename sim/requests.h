// Answers the requests written into the management command files: parses a
// request, runs it against the model and writes the reply document.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "model.h"

namespace kvfsim {

// Reply result values the simulator sends.
enum ResultValue : int64_t {
  kOk = 0,
  kBadParameter = 20008,
  kValueChanged = 20019,
  kCompressionNotEnabled = 21209,
  kXmlIsBad = 21702,
  kNotFound = 24999,  // no such volume, beast or path
};

enum class CmdFile { kManage, kFiles };
const char* cmdFileName(CmdFile file);

// The request envelope that precedes every request document.
extern const char kEnvelope[];

struct ParsedRequest;
struct ParsedRequestDeleter {
  void operator()(ParsedRequest* p) const;
};
using RequestPtr = std::unique_ptr<ParsedRequest, ParsedRequestDeleter>;

// What identifies a request for the fault rules.
struct RequestKey {
  std::string kind;    // e.g. "getBeastInfo"; a guess (or "") when the text is not well-formed
  std::string volume;  // volumeName, or the volume owning a getFileInfo path
  std::string zid;     // id text of beast requests
};

class RequestHandler {
 public:
  RequestHandler(Model& model, bool pretty) : model_(model), pretty_(pretty) {}

  RequestPtr parse(CmdFile file, std::string_view text) const;
  const RequestKey& key(const ParsedRequest& request) const;
  // Runs the request and returns the reply text.
  std::string execute(const ParsedRequest& request);
  // A reply of the request's shape carrying only the given result value.
  std::string resultReply(const ParsedRequest& request, int64_t value) const;

 private:
  Model& model_;
  bool pretty_;
};

}  // namespace kvfsim
