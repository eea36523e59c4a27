#include "velkor/ccAttribute.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "velkor/beastQueries.h"
#include "common_cpp/kvfError.h"
#include "velkor/requests.h"
#include "velkor/runLog.h"
#include "velkor/velkorTypes.h"

namespace {
// Error locations name the documented source of the queries and operations.
constexpr KvfSource kKvfSource = KvfSource::velkorHelper;
}  // namespace

namespace velkor {

bool isSetCCBit(char* volumeName, char* zid, SetValue& value) {
  ReplyBuf reply;
  const QXML::TagRequest_s rows[] = {{"attributes", QXML::TAG_OPTIONAL}, {nullptr, 0}};
  QXML::TagContent_s contents[1];
  getBeastInfo(&reply, volumeName, zid, infoNamed, 0, "getBeastInfo", rows, contents);
  return ccAttributeOf(contents[0], value);
}

bool ccAttributeOf(const QXML::TagContent_s& attributesRow, SetValue& value) {
  const QXML::TagContent_s* contents = &attributesRow;
  if (!(contents[0].status & QXML::TAG_HAS_CONTENT)) return false;

  char element[64];
  snprintf(element, sizeof element, "<%s/>", "noStreamCompress");
  const char* attributes = contents[0].value;
  const char* found = strstr(attributes, element);
  if (!found) return false;

  size_t length = strlen(attributes);
  if (length >= static_cast<size_t>(kSetValueSize))
    throw KVFError("Attributes text does not fit its buffer", zERR_BUFFER_TOO_SMALL, KVF_HERE);
  memcpy(value.oldValue, attributes, length + 1);
  size_t before = static_cast<size_t>(found - attributes);
  memcpy(value.newValue, attributes, before);
  strcpy(value.newValue + before, found + strlen(element));
  return true;
}

void clearCCBit(char* volumeName, char* zid, SetValue& value) {
  ReplyBuf reply;
  OpenCmdFile channel(managecmd);
  RequestText request;
  attributesSetRequest(request, volumeName, zid, value.oldValue, value.newValue);
  channel.file.readWrite(request.text(), "setBeastInfo", &reply);
}

void checkCCBit(char* volumeName, char* zid, OpArgs_s*, CompStats* stats) {
  std::unique_ptr<char, decltype(&free)> oldValue(static_cast<char*>(malloc(kSetValueSize)), free);
  if (!oldValue) throw KVFError("Out of memory", zERR_NO_MEMORY, "util/velkor/velkorClass[170]");
  std::unique_ptr<char, decltype(&free)> newValue(static_cast<char*>(malloc(kSetValueSize)), free);
  if (!newValue) throw KVFError("Out of memory", zERR_NO_MEMORY, "util/velkor/velkorClass[177]");
  oldValue.get()[0] = '\0';
  newValue.get()[0] = '\0';
  SetValue value = {oldValue.get(), newValue.get()};

  for (int attempt = 0;; ++attempt) {
    try {
      if (isSetCCBit(volumeName, zid, value)) {
        LogRequireWritable();  // no change once the run's record is lost
        clearCCBit(volumeName, zid, value);
        ++stats->ccBitCleared;
      }
      break;
    } catch (const KVFError& e) {
      // The attributes changed between the read and the set: read them again.
      if (!(e.isKvfCode && e.code == zERR_VALUE_CHANGED) || attempt >= kValueChangedRetries) throw KVFError(e);
    }
  }
  ++stats->processed;
  stats->view->countersChanged();
}

}  // namespace velkor
