// The management channel: the paths of the management command files, the
// request envelope, and (below) the reply buffer and command-file exchange.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <ostream>

#include "common_cpp/qXML.h"

// Management command files and the request envelope. Plain globals, so that
// tests can point the program at a simulator's mount.
extern const char* managecmd;
extern const char* filecmd;
extern const char* cmdHeader;
// The most bytes one reply may hold (64 MiB): far above any reply the file
// system gives (a full browse batch or record is a few KiB), so that a reply
// that keeps coming is an error, not memory taken until the count runs out.
extern int32_t maxReplyBytes;

namespace velkor {

// The reply text of one exchange: a heap block that starts at 4096 zeroed
// bytes, grows by 4096 and is NUL-terminated after an exchange.
class ReplyBuf {
 public:
  ReplyBuf();  // throws KVFError "Out of memory"
  ~ReplyBuf();
  ReplyBuf(const ReplyBuf&) = delete;
  ReplyBuf& operator=(const ReplyBuf&) = delete;

  // Grows the block to used + extra bytes with `free` = extra; throws on failure.
  void grow(int32_t extra);
  // Holds exactly `length` bytes of reply text (and the NUL after them) in a
  // block of that size, as if an exchange had read them; throws on failure.
  void assign(const char* text, size_t length);
  // Empties the buffer for the next exchange: its used bytes become free
  // again (the block is kept).
  void clear() {
    free += used;
    used = 0;
    checkedTag = nullptr;
  }

  char* data;    // owned; released with free()
  int32_t free;  // bytes free after the used part
  int32_t used;  // bytes of reply held
  // The element whose status the last exchange (CmdFile::readWrite) checked,
  // so that the first read of the reply need not look for it again; null
  // when there is none. Dropped when the text changes (clear, assign, grow)
  // and when a read has taken it (reads write into the text).
  const char* checkedTag = nullptr;
  QXML::XML_ElementInfo_s checked = {};
};

// Writes the reply as a C string; a null block sets the stream's bad bit.
std::ostream& operator<<(std::ostream& os, ReplyBuf& reply);

// One open management command file, for one request/reply exchange. The caller
// closes `fd` after the exchange, also when readWrite throws: OpenCmdFile below
// does so when its scope ends.
class CmdFile {
 public:
  explicit CmdFile(const char* path);  // throws "Unable to open the admin file"

  // Writes `request` (envelope included) at offset 0, reads the whole reply from
  // offset 0, appending it to `reply`, and checks the status of element `tag`.
  void readWrite(char* request, const char* tag, ReplyBuf* reply);
  // The same exchange without the status check: the file's I/O alone.
  void transfer(const char* request, ReplyBuf* reply);

  int32_t fd;
};

// An open management command file that is closed when the scope ends, also
// when the exchange throws.
class OpenCmdFile {
 public:
  explicit OpenCmdFile(const char* path) : file(path) {}
  ~OpenCmdFile() { close(file.fd); }
  OpenCmdFile(const OpenCmdFile&) = delete;
  OpenCmdFile& operator=(const OpenCmdFile&) = delete;

  CmdFile file;
};

}  // namespace velkor
