#include "velkor/channel.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common_cpp/kvfError.h"
#include "common_cpp/qXML.h"

const char* managecmd = "/_admin/Manage_KVF/manage.cmd";
const char* filecmd = "/_admin/Manage_KVF/files.cmd";
const char* cmdHeader = "<virtualIO><datastream name=\"command\"/></virtualIO>";
int32_t maxReplyBytes = 64 << 20;

namespace velkor {

namespace {

constexpr int32_t kReplyStep = 4096;

const char* const kOutOfMemoryLocation = "util/velkor/velkorClass[133]";

}  // namespace

// ---- ReplyBuf ----

ReplyBuf::ReplyBuf() : data(nullptr), free(0), used(0) {
  grow(kReplyStep);
  memset(data, 0, kReplyStep);
}

ReplyBuf::~ReplyBuf() { std::free(data); }

void ReplyBuf::grow(int32_t extra) {
  void* block = nullptr;
  if (used <= INT32_MAX - extra) block = realloc(data, static_cast<size_t>(used) + extra);
  if (!block) throw KVFError("Out of memory", zERR_NO_MEMORY, kOutOfMemoryLocation);
  data = static_cast<char*>(block);
  free = extra;
  checkedTag = nullptr;
}

void ReplyBuf::assign(const char* text, size_t length) {
  if (length >= static_cast<size_t>(INT32_MAX)) throw KVFError("Out of memory", zERR_NO_MEMORY, kOutOfMemoryLocation);
  char* block = static_cast<char*>(malloc(length + 1));
  if (!block) throw KVFError("Out of memory", zERR_NO_MEMORY, kOutOfMemoryLocation);
  if (length) memcpy(block, text, length);
  block[length] = '\0';
  std::free(data);
  data = block;
  used = static_cast<int32_t>(length);
  free = 0;
  checkedTag = nullptr;
}

std::ostream& operator<<(std::ostream& os, ReplyBuf& reply) {
  if (!reply.data) {
    os.setstate(std::ios::badbit);
    return os;
  }
  return os << reply.data;
}

// ---- CmdFile ----

CmdFile::CmdFile(const char* path) : fd(open(path, O_RDWR)) {
  // The open failure carries errno as a file-system code, unlike the I/O
  // failures below, which carry it as a system error number.
  if (fd < 0) throw KVFError("Unable to open the admin file", errno, "util/velkor/velkorClass[150]");
}

void CmdFile::readWrite(char* request, const char* tag, ReplyBuf* reply) {
  transfer(request, reply);
  QXML::GetReplyResultValueForTag(reply->data, tag, &reply->checked);
  reply->checkedTag = tag;
}

void CmdFile::transfer(const char* request, ReplyBuf* reply) {
  if (lseek(fd, 0, SEEK_SET) < 0) throw KVFError("Failed to seek file", "util/velkor/velkorClass[165]", errno);
  // A short write is not looked at: the file system takes a request whole.
  if (write(fd, request, strlen(request)) < 0)
    throw KVFError("Failed to write to file", "util/velkor/velkorClass[170]", errno);
  if (lseek(fd, 0, SEEK_SET) < 0) throw KVFError("Failed to seek file", "util/velkor/velkorClass[175]", errno);

  // The reply is appended to what the buffer holds; the block grows as soon as
  // it is full, so a reply that ends on a block boundary still has room for
  // the NUL.
  for (;;) {
    ssize_t n = read(fd, reply->data + reply->used, static_cast<size_t>(reply->free));
    if (n == 0) break;
    if (n < 0) throw KVFError("Failed to read file", "util/velkor/velkorClass[185]", errno);
    if (n > maxReplyBytes - reply->used)
      throw KVFError("The reply is larger than " + std::to_string(maxReplyBytes >> 20) + " MiB", zERR_BUFFER_TOO_SMALL,
                     "util/velkor/velkorClass[186]");
    reply->used += static_cast<int32_t>(n);
    reply->free -= static_cast<int32_t>(n);
    if (reply->free == 0) reply->grow(kReplyStep);
  }
  if (reply->free == 0) reply->grow(1);
  reply->data[reply->used] = '\0';
}

}  // namespace velkor
