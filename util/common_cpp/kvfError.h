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

// The sources an error location names. Operators and scripts read these
// locations in the run log, and they name the program's documented sources,
// not the file a routine happens to live in: each source file says which
// documented source it speaks for in a constant `kKvfSource` of its own,
// which KVF_HERE reads (a file without one does not compile).
enum class KvfSource { velkor, velkorClass, velkorHelper, velkorUI, qXML };

// "util/velkor/velkorHelper", "util/common_cpp/qXML", ...
const char* KVF_SourceName(KvfSource source);
// The location text of an error raised at `line` of `source`, e.g.
// "util/velkor/velkorHelper[97]".
std::string KVF_Location(KvfSource source, int line);
#define KVF_HERE KVF_Location(kKvfSource, __LINE__)
