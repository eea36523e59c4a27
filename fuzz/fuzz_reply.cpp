// Fuzzes the reply reader with arbitrary reply text: the status check, every
// read the program makes of a reply, and the scanner's walks. The bytes sit in
// a heap block of exactly their size (plus the NUL a reply buffer ends with),
// so AddressSanitizer reports any read outside the reply.
#include <cstdint>
#include <cstring>
#include <memory>

#include "common_cpp/kvfError.h"
#include "common_cpp/qXML.h"
#include "programReads.h"

namespace {

using QXML::XML_ElementInfo_s;

// A private copy of the input: `size` bytes, followed by a NUL when asked.
std::unique_ptr<char[]> copyOf(const uint8_t* data, size_t size, bool withNul) {
  std::unique_ptr<char[]> text(new char[size + (withNul ? 1 : 0)]);
  memcpy(text.get(), data, size);
  if (withNul) text[size] = '\0';
  return text;
}

// Walks every element of [p, end] and its descendants, looking up an
// attribute of each, as the reads of flag lists and zid batches do.
void walk(const char* p, const char* end, int depth) {
  XML_ElementInfo_s info{};
  const char* name;
  size_t length;
  while (QXML::XML_GetNextTag(p, end, &info, &name, &length) == 0) {
    if (info.elementEnd < p || info.elementEnd > end) __builtin_trap();
    XML_ElementInfo_s attribute = info;
    QXML::XML_GetTagAttribute("value", &attribute);
    if (info.contentLength != 0 && depth < 16) walk(info.contentStart, info.contentEnd, depth + 1);
    p = info.elementEnd + 1;
  }
}

// The scanner alone, over a block with no NUL after the text.
void scan(const uint8_t* data, size_t size) {
  std::unique_ptr<char[]> text = copyOf(data, size, false);
  const char* end = text.get() + size - 1;
  walk(text.get(), end, 0);
  XML_ElementInfo_s info{};
  for (const char* name : {"result", "zid", "beastZids", "", "a"}) {
    if (QXML::XML_GetTagElement(name, text.get(), end, &info) == 0) QXML::XML_GetTagAttribute(name, &info);
    QXML::XML_GetTagElementAtCurrentLevel(name, text.get(), end, &info);
  }
  char* cdata = text.get();
  QXML::XML_stripCDATA(cdata, end);
}

// The program's reads, each on a fresh reply buffer holding exactly the
// input (the reads write NULs into it).
void read(const uint8_t* data, size_t size) {
  for (int kind = 0; kind < programreads::kKinds; ++kind) {
    velkor::ReplyBuf reply;
    reply.assign(reinterpret_cast<const char*>(data), size);
    try {
      programreads::read(static_cast<programreads::Kind>(kind), &reply);
    } catch (const KVFError&) {
    }
  }
  std::unique_ptr<char[]> reply = copyOf(data, size, true);
  int32_t status;
  QXML::GetKVFReplyResultValue(reply.get(), &status);
  XML_ElementInfo_s info{};
  QXML::MKVF_GetResultTemplate("<kvfReply><volume><getVolumeInfo>", size, reply.get(), &info);
  QXML::MKVF_GetTemplate("<kvfReply>", "<beast><getBeastInfo><beastInfo>", size, reply.get(), &info);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  scan(data, size);
  read(data, size);
  return 0;
}
