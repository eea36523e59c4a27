// KVFError: the one exception type of the program. It carries a message, the
// raising source location and either a file-system status or a system errno.
#pragma once

#include <stdexcept>
#include <string>

enum KVFStatus : int {
  zOK = 0,
  zFAILURE = -1,
#define KVF_ERROR(number, name) name = number,
#include "common_cpp/kvfErrors.def"
#undef KVF_ERROR
};

class KVFError : public std::runtime_error {
 public:
  // A file-system status number.
  KVFError(const std::string& message, int code, const std::string& location);
  // A system errno.
  KVFError(const std::string& message, const std::string& location, int sysErrno);
  KVFError(const KVFError&) = default;
  KVFError& operator=(const KVFError&) = default;
  ~KVFError() override;

  // The number shown for this error and its name: the status and its table
  // name, or the errno and strerror's text.
  int number() const { return isKvfCode ? code : sysErrno; }
  std::string numberName() const;

  int code;
  std::string location;
  bool isKvfCode;
  int sysErrno;
};

// Raised only when a reply's status cannot be read.
class AdminError : public KVFError {
 public:
  using KVFError::KVFError;
  AdminError(const AdminError&) = default;
  ~AdminError() override;
};

// The location text of an error raised at `line` of the source file `file`
// (a compiler's __FILE__): the file's path from the tree's util/ folder
// without its extension, then the line in square brackets, e.g.
// "util/velkor/volumeScan[97]". KVF_HERE is the line it stands on.
std::string KVF_SourceLocation(const char* file, int line);
#define KVF_HERE KVF_SourceLocation(__FILE__, __LINE__)
