// The request log: one JSON object per exchange, appended to a private file
// and served read-only as control/requests.jsonl.
#pragma once

#include <string>
#include <sys/types.h>

#include "common/threadSafety.h"

namespace kvfsim {

class RequestLog {
 public:
  // Creates the log file at path (removed again by the destructor); an empty
  // path keeps no log.
  explicit RequestLog(const std::string& path);
  ~RequestLog();
  RequestLog(const RequestLog&) = delete;
  RequestLog& operator=(const RequestLog&) = delete;

  void append(const std::string& file, const std::string& request, const std::string& reply,
              const std::string& fault);
  off_t size() const;
  ssize_t read(char* buf, size_t size, off_t offset) const;

 private:
  std::string path_;
  int fd_ = -1;
  KVF::Mutex mutex_;  // one appended line at a time
};

}  // namespace kvfsim
