#include "common_cpp/kvfError.h"

#include <cstring>

#include "common/kvfUtil.h"

KVFError::KVFError(const std::string& message, int code, const std::string& location)
    : std::runtime_error(message), code(code), location(location), isKvfCode(true), sysErrno(0) {}

KVFError::KVFError(const std::string& message, const std::string& location, int sysErrno)
    : std::runtime_error(message), code(0), location(location), isKvfCode(false), sysErrno(sysErrno) {}

KVFError::~KVFError() = default;

std::string KVFError::numberName() const {
  return isKvfCode ? KVF::GetErrorFromNumber(code) : strerror(sysErrno);
}

AdminError::~AdminError() = default;

std::string KVF_Location(const char* source, int line) {
  return std::string(source) + "[" + std::to_string(line) + "]";
}
