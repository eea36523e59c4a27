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

std::string KVF_SourceLocation(const char* file, int line) {
  std::string path(file);
  size_t tree = path.rfind("/util/");
  if (tree != std::string::npos) path.erase(0, tree + 1);
  else if (path.rfind("util/", 0) != 0) path.erase(0, path.rfind('/') + 1);
  size_t dot = path.rfind('.');
  if (dot != std::string::npos && path.find('/', dot) == std::string::npos) path.erase(dot);
  return path + "[" + std::to_string(line) + "]";
}
