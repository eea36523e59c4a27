#include "common_cpp/kvfError.h"

#include <cstring>

#include "common_cpp/errorTable.h"

KVFError::KVFError(const std::string& message, int code, const std::string& location)
    : std::runtime_error(message), code(code), location(location), isKvfCode(true), sysErrno(0) {}

KVFError::KVFError(const std::string& message, const std::string& location, int sysErrno)
    : std::runtime_error(message), code(0), location(location), isKvfCode(false), sysErrno(sysErrno) {}

KVFError::~KVFError() = default;

std::string KVFError::numberName() const {
  return isKvfCode ? KVF::GetErrorFromNumber(code) : strerror(sysErrno);
}

AdminError::~AdminError() = default;

const char* KVF_SourceName(KvfSource source) {
  switch (source) {
    case KvfSource::velkor: return "util/velkor/velkor";
    case KvfSource::velkorClass: return "util/velkor/velkorClass";
    case KvfSource::velkorHelper: return "util/velkor/velkorHelper";
    case KvfSource::velkorUI: return "util/velkor/velkorUI";
    case KvfSource::qXML: return "util/common_cpp/qXML";
  }
  return "util/velkor/velkor";
}

std::string KVF_Location(KvfSource source, int line) {
  return std::string(KVF_SourceName(source)) + "[" + std::to_string(line) + "]";
}
