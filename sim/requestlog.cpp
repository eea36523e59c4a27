#include "requestlog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace kvfsim {

RequestLog::RequestLog(const std::string& path) : path_(path) {
  if (path.empty()) return;
  fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
  if (fd_ < 0) throw std::runtime_error("cannot create the request log " + path);
}

RequestLog::~RequestLog() {
  if (fd_ < 0) return;
  close(fd_);
  unlink(path_.c_str());
}

void RequestLog::append(const std::string& file, const std::string& request, const std::string& reply,
                        const std::string& fault) {
  if (fd_ < 0) return;
  double now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  nlohmann::json entry = {{"file", file}, {"request", request}, {"reply", reply}, {"time", now}};
  if (!fault.empty()) entry["fault"] = fault;
  std::string line = entry.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
  KVF::MutexLock lock(mutex_);
  for (size_t done = 0; done < line.size();) {
    ssize_t n = write(fd_, line.data() + done, line.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;  // a full disk loses log lines, never requests
    done += size_t(n);
  }
}

off_t RequestLog::size() const {
  struct stat st;
  return fd_ >= 0 && fstat(fd_, &st) == 0 ? st.st_size : 0;
}

ssize_t RequestLog::read(char* buf, size_t size, off_t offset) const {
  if (fd_ < 0) return 0;
  ssize_t n = pread(fd_, buf, size, offset);
  return n < 0 ? -errno : n;
}

}  // namespace kvfsim
