#include "common_cpp/qXML.h"

#include <cstdio>
#include <cstring>
#include <iostream>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "common_cpp/kvfError.h"
#include "common/lbString.h"

namespace QXML {

namespace {

constexpr char kCdataStart[] = "<![CDATA[";
constexpr ptrdiff_t kCdataStartLength = 9;

// Byte classes: white space (the C locale's isspace) and the bytes that end a
// tag name (white space, '/', '>').
constexpr unsigned char kSpace = 1, kEndsName = 2;
struct ByteClasses {
  unsigned char of[256];
  constexpr ByteClasses() : of() {
    for (unsigned char c : {' ', '\t', '\n', '\v', '\f', '\r'}) of[c] = kSpace | kEndsName;
    of[static_cast<unsigned char>('/')] = kEndsName;
    of[static_cast<unsigned char>('>')] = kEndsName;
  }
};
constexpr ByteClasses kClasses;

bool isSpace(char c) { return kClasses.of[static_cast<unsigned char>(c)] & kSpace; }
bool endsName(char c) { return kClasses.of[static_cast<unsigned char>(c)] & kEndsName; }

// Equality of two short byte strings (tag names): a plain loop beats a call.
bool sameBytes(const char* a, const char* b, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (a[i] != b[i]) return false;
  return true;
}

// The scans below look at 16 bytes at once while 16 remain in range, and at
// single bytes for the rest; without SSE2 they go byte by byte.
#if defined(__SSE2__)
const char* firstOf16(const char* p, __m128i matches) {
  int mask = _mm_movemask_epi8(matches);
  return mask ? p + __builtin_ctz(static_cast<unsigned>(mask)) : nullptr;
}
__m128i load16(const char* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
#endif

// The first byte at or after p (up to end) that ends a name; end + 1 when none.
const char* scanName(const char* p, const char* end) {
  // Most names are short: their first bytes are looked at one by one.
  for (int i = 0; i < 8 && p <= end; ++i, ++p)
    if (endsName(*p)) return p;
#if defined(__SSE2__)
  for (; end - p >= 15; p += 16) {
    __m128i v = load16(p);
    __m128i marks = _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('>')), _mm_cmpeq_epi8(v, _mm_set1_epi8('/')));
    __m128i controls = _mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8('\t' - 1)),
                                     _mm_cmplt_epi8(v, _mm_set1_epi8('\r' + 1)));
    marks = _mm_or_si128(marks, _mm_or_si128(controls, _mm_cmpeq_epi8(v, _mm_set1_epi8(' '))));
    if (const char* hit = firstOf16(p, marks)) return hit;
  }
#endif
  while (p <= end && !endsName(*p)) ++p;
  return p;
}

// The first c in [p, end], or null. A null range (the content of a
// self-closing element, or of a row that was not found) holds nothing.
const char* find(const char* p, const char* end, char c) {
  if (!p || p > end) return nullptr;
  if (*p == c) return p;  // tags often follow each other directly
#if defined(__SSE2__)
  for (const __m128i needle = _mm_set1_epi8(c); end - p >= 15; p += 16)
    if (const char* hit = firstOf16(p, _mm_cmpeq_epi8(load16(p), needle))) return hit;
#endif
  for (; p <= end; ++p)
    if (*p == c) return p;
  return nullptr;
}

}  // namespace

// ---- Element scanner ----

const char* XML_atStartCDATA(const char* p, const char* end) {
  if (p > end || end - p < kCdataStartLength) return nullptr;
  for (ptrdiff_t i = 0; i < kCdataStartLength; ++i)
    if (p[i] != kCdataStart[i]) return nullptr;
  return p + kCdataStartLength - 1;
}

const char* XML_atEndCDATA(const char* p, const char* end) {
  if (p > end || end - p < 2) return nullptr;
  return (p[0] == ']' && p[1] == ']' && p[2] == '>') ? p + 2 : nullptr;
}

char* XML_stripCDATA(char* p, const char* end) {
  const char* marker = XML_atStartCDATA(p, end);
  if (!marker) return p;
  char* text = p + kCdataStartLength;
  for (char* s = text; s < end - 1; ++s) {
    if (XML_atEndCDATA(s, end)) {
      *s = '\0';
      break;
    }
  }
  return text;
}

void XML_skipWhiteSpace(const char** p, const char* end) {
  const char* q = *p;
  while (q <= end && isSpace(*q)) ++q;
  *p = q;
}

int XML_findEndOfNonWhiteSpace(const char** p, const char* end) {
  const char* q = *p;
  if (q > end) {  // an empty range has no run: nothing to read
    *p = q - 1;
    return 0;
  }
  for (; q < end; ++q) {
    if (isSpace(*q)) {
      *p = q - 1;
      return 1;
    }
  }
  int white = isSpace(*q);
  *p = white ? q - 1 : q;
  return white;
}

int XML_FindEndOfElement(const char* name, size_t nameLength, const char* afterName,
                         const char* end, XML_ElementInfo_s* info) {
  const char* startTagEnd = find(afterName, end, '>');
  if (!startTagEnd) return zERR_XML_IS_INCOMPLETE;
  if (startTagEnd[-1] == '/') {
    info->elementEnd = startTagEnd;
    info->contentStart = nullptr;
    info->contentEnd = nullptr;
    info->contentLength = 0;
    return zOK;
  }
  const char* contentStart = startTagEnd + 1;
  info->contentStart = contentStart;

  // Every position looked at must have one more byte in range after it, so q and
  // q[1] are always readable; a scan that runs out of such positions is
  // incomplete text.
  bool inCdata = false;
  long depth = 0;     // any-name depth: CDATA is recognised only at 0
  long sameName = 0;  // open children of the element's own name
  const char* q = contentStart;
  for (;;) {
    if (q >= end) return zERR_XML_IS_INCOMPLETE;
    if (inCdata) {
      q = find(q, end - 1, ']');
      if (!q) return zERR_XML_IS_INCOMPLETE;
      if (XML_atEndCDATA(q, end)) {
        inCdata = false;
        q += 3;
      } else {
        ++q;
      }
      continue;
    }
    q = find(q, end - 1, '<');
    if (!q) return zERR_XML_IS_INCOMPLETE;
    if (q[1] == '!' && depth == 0 && XML_atStartCDATA(q, end)) {
      inCdata = true;
      q += kCdataStartLength;
      continue;
    }
    if (q[1] == '/') {
      --depth;
      const char* tagName = q + 2;
      const char* afterTagName = tagName + nameLength;
      if (end - tagName >= static_cast<ptrdiff_t>(nameLength) && *afterTagName == '>' &&
          sameBytes(tagName, name, nameLength)) {
        if (sameName == 0) {
          info->contentEnd = q - 1;
          info->elementEnd = afterTagName;
          info->contentLength = static_cast<uint64_t>(q - contentStart);
          return zOK;
        }
        --sameName;
        q = afterTagName;
      } else {
        // Resume at the end of this end tag's own name: skipping the looked-for
        // name's length instead could jump over the element's own end tag.
        q = scanName(tagName, end);
      }
      continue;
    }
    const char* tagName = q + 1;
    const char* afterTagName = scanName(tagName, end);
    if (afterTagName > end) {  // a name cut off by the range is not a tag
      ++q;
      continue;
    }
    if (*afterTagName != '/') ++depth;
    if (static_cast<size_t>(afterTagName - tagName) == nameLength &&
        sameBytes(tagName, name, nameLength)) {
      ++sameName;
      q = afterTagName;
    } else {
      ++q;  // a '<' inside another name (CDATA text in a child) is still markup
    }
  }
}

int XML_GetNextTag(const char* p, const char* end, XML_ElementInfo_s* info,
                   const char** tagName, size_t* tagNameLength) {
  const char* open = find(p, end, '<');
  if (!open || open == end) return zERR_XML_IS_INCOMPLETE;
  const char* name = open + 1;
  *tagName = name;
  if (*name == '/' || *name == '>') {
    *tagNameLength = 0;
    info->nameEnd = name;
    return XML_FindEndOfElement("", 0, name, end, info);
  }
  const char* afterName = scanName(name, end);
  if (afterName > end) return zERR_XML_IS_INCOMPLETE;
  *tagNameLength = static_cast<size_t>(afterName - name);
  info->nameEnd = afterName;
  return XML_FindEndOfElement(name, *tagNameLength, afterName, end, info);
}

int XML_GetTagElementAtCurrentLevel(const char* name, const char* p, const char* end,
                                    XML_ElementInfo_s* info) {
  size_t length = strlen(name);
  for (;;) {
    const char* tagName;
    size_t tagNameLength;
    int result = XML_GetNextTag(p, end, info, &tagName, &tagNameLength);
    if (result != zOK) return result;
    if (tagNameLength == length && sameBytes(tagName, name, length)) return zOK;
    p = info->elementEnd + 1;
  }
}

int XML_GetTagElement(const char* name, const char* p, const char* end, XML_ElementInfo_s* info) {
  const ptrdiff_t length = static_cast<ptrdiff_t>(strlen(name));
  // A candidate '<' at p needs the name and one byte after it in range.
  for (;;) {
    if (p > end || end - p < length + 1) return -1;
    p = find(p, end - length - 1, '<');
    if (!p) return -1;
    ++p;
    if (sameBytes(p, name, static_cast<size_t>(length))) {
      const char* afterName = p + length;
      if (endsName(*afterName)) {
        info->nameEnd = afterName;
        return XML_FindEndOfElement(name, static_cast<size_t>(length), afterName, end, info);
      }
      p = afterName;
    }
  }
}

int XML_GetTagAttribute(const char* name, XML_ElementInfo_s* info) {
  if (!info->nameEnd || !info->elementEnd) return zERR_XML_IS_INCOMPLETE;  // locates no element
  // The start tag's last byte before '>' (or before "/>" when self-closing).
  const char* bound = info->contentStart ? info->contentStart - 1 : info->elementEnd - 1;
  const char* pos = info->nameEnd;
  if (bound < pos) return zERR_XML_IS_INCOMPLETE;
  size_t length = strlen(name);
  for (;;) {
    XML_skipWhiteSpace(&pos, bound);
    if (pos > bound) return zERR_XML_IS_INCOMPLETE;
    if (static_cast<size_t>(bound - pos) + 1 < length) return zERR_XML_IS_INCOMPLETE;
    if (sameBytes(pos, name, length)) {
      pos += length;
      XML_skipWhiteSpace(&pos, bound);
      if (pos > bound) return zERR_XML_IS_INCOMPLETE;
      if (*pos == '=') {
        ++pos;
        XML_skipWhiteSpace(&pos, bound);
        if (pos > bound || *pos != '"') return zERR_XML_IS_INCOMPLETE;
        const char* value = pos + 1;
        const char* closing = find(value, bound, '"');
        if (!closing) return zERR_XML_IS_INCOMPLETE;
        info->attrValueStart = value;
        info->attrValueEnd = closing - 1;
        info->attrValueLength = static_cast<uint64_t>(closing - value);
        return zOK;
      }
    }
    if (++pos > bound) return zERR_XML_IS_INCOMPLETE;
  }
}

// ---- Templates ----

int MKVF_GetNextTagString(const char* path, const char** rest, size_t size, char* out) {
  if (size == 0 || path == nullptr) return zERR_BAD_PARAMETER_VALUE;
  const char* open = strchr(path, '<');
  if (!open) return zERR_RETURN_PARA_NULL;
  const char* name = open + 1;
  size_t length = strcspn(name, ">");
  if (length > size - 1) return zERR_BUFFER_TOO_SMALL;
  memcpy(out, name, length);
  out[length] = '\0';
  *rest = name + length;
  return zOK;
}

namespace {

// Descends the names of path through direct children, starting from the range
// [text, end] whose length for the empty-element test is `length`.
int descend(const char* path, const char* text, const char* end, uint64_t length,
            XML_ElementInfo_s* info) {
  info->contentStart = text;
  info->contentEnd = end;
  info->contentLength = length;
  char name[128];
  for (;;) {
    int result = MKVF_GetNextTagString(path, &path, sizeof name, name);
    if (result == zERR_RETURN_PARA_NULL) return zOK;
    if (result != zOK) return result;
    if (info->contentLength == 0) return zERR_XML_IS_INCOMPLETE;
    result = XML_GetTagElementAtCurrentLevel(name, info->contentStart, info->contentEnd, info);
    if (result != zOK) return result;
  }
}

// Descends path inside the element that info describes.
int descendInto(const char* path, XML_ElementInfo_s* info) {
  const char* start = info->contentStart;
  const char* end = info->contentEnd;
  return descend(path, start, end, static_cast<uint64_t>(end - start), info);
}

}  // namespace

int MKVF_GetSpecificTemplate(const char* path, size_t length, const char* text,
                             XML_ElementInfo_s* info) {
  // The range ends on the byte after the text (its NUL), which the inclusive
  // end makes harmless.
  return descend(path, text, text + length, length, info);
}

int MKVF_GetTemplate(const char* path1, const char* path2, size_t length, const char* text,
                     XML_ElementInfo_s* info) {
  int result = MKVF_GetSpecificTemplate(path1, length, text, info);
  return result != zOK ? result : descendInto(path2, info);
}

int MKVF_GetTagTemplate(const char* path1, const char* path2, size_t length, const char* text,
                        XML_ElementInfo_s* info) {
  return MKVF_GetTemplate(path1, path2, length, text, info);
}

int MKVF_GetResultTemplate(const char* path, size_t length, const char* text,
                           XML_ElementInfo_s* info) {
  return MKVF_GetTemplate(path, "<result>", length, text, info);
}

int MKVF_GetAttribute(const char* path1, const char* path2, const char* name, size_t length,
                      const char* text, int64_t* number) {
  XML_ElementInfo_s info{};
  int result = MKVF_GetTemplate(path1, path2, length, text, &info);
  if (result != zOK) return result;
  int64_t value;
  if (XML_GetTagAttribute(name, &info) == zOK && info.attrValueLength != 0 &&
      XML_UTF8ToSQUAD(info.attrValueStart, info.attrValueEnd, &value, nullptr) == zOK)
    *number = value;
  return zOK;
}

int MKVF_GetAttribute(const char* path1, const char* path2, const char* name, size_t length,
                      const char* text, std::string* value) {
  XML_ElementInfo_s info{};
  int result = MKVF_GetTemplate(path1, path2, length, text, &info);
  if (result != zOK) return result;
  if (XML_GetTagAttribute(name, &info) == zOK && info.attrValueLength != 0) {
    std::cerr << "util/common_cpp/qXML[950] " << *value << std::endl;
    value->assign(info.attrValueStart, info.attrValueLength);
    std::cerr << "util/common_cpp/qXML[955] " << *value << std::endl;
  }
  return zOK;
}

int MKVF_GetResultValueAttribute(const char* path, size_t length, const char* text,
                                 int64_t* number) {
  return MKVF_GetAttribute(path, "<result>", "value", length, text, number);
}

// ---- Tag contents ----

namespace {

// Reads one child element row; returns false when it is not there.
bool readElementRow(const XML_ElementInfo_s& parent, const TagRequest_s& request,
                    TagContent_s* content, int* error) {
  XML_ElementInfo_s found{};
  if (XML_GetTagElement(request.name, parent.contentStart, parent.contentEnd, &found) != zOK)
    return false;
  content->status = TAG_FOUND;
  content->element = found;
  // The reply buffer is the caller's writable text; the locator only reads it.
  content->value = const_cast<char*>(found.contentStart);
  if (found.contentLength == 0) {
    if (request.flags & TAG_CONTENT_REQUIRED) {
      *error = zERR_XML_IS_BAD;
      return true;
    }
    content->value = nullptr;
  } else {
    content->status = TAG_FOUND | TAG_HAS_CONTENT;
  }
  if (found.contentEnd) const_cast<char*>(found.contentEnd)[1] = '\0';
  if (content->status & TAG_HAS_CONTENT)
    content->value = XML_stripCDATA(content->value, found.contentEnd + 1);
  return true;
}

// Reads one attribute row of the parent's start tag.
bool readAttributeRow(XML_ElementInfo_s* parent, const TagRequest_s& request,
                      TagContent_s* content) {
  if (XML_GetTagAttribute(request.name, parent) != zOK) return false;
  content->status = TAG_FOUND;
  char* value = const_cast<char*>(parent->attrValueStart);
  char* closingQuote = value + parent->attrValueLength;
  *closingQuote = '\0';
  content->value = XML_stripCDATA(value, closingQuote);
  return true;
}

}  // namespace

int MKVF_GetTagContents(XML_ElementInfo_s* parent, const TagRequest_s* requests,
                        TagContent_s* contents) {
  for (; requests->name != nullptr; ++requests, ++contents) {
    // A row that is not found locates nothing: its element is all null, so a
    // caller that reads under it without checking finds no element there.
    *contents = TagContent_s{};
    int error = zOK;
    bool found = (requests->flags & TAG_IS_ATTRIBUTE)
                     ? readAttributeRow(parent, *requests, contents)
                     : readElementRow(*parent, *requests, contents, &error);
    if (error != zOK) return error;
    if (!found && !(requests->flags & TAG_OPTIONAL)) return zERR_XML_IS_BAD;
  }
  return zOK;
}

// ---- Numbers ----

int XML_UTF8ToQUAD(const char* start, const char* end, uint64_t* number, const char** next) {
  if (start > end) return zERR_BAD_TRANSFORMATION;
  const char* p = start;
  XML_skipWhiteSpace(&p, end);
  if (p > end) return zERR_BAD_TRANSFORMATION;
  const char* last = p;
  XML_findEndOfNonWhiteSpace(&last, end);
  size_t length = static_cast<size_t>(last - p) + 1;
  char digits[80];
  if (length > sizeof digits - 1) return zERR_BUFFER_TOO_SMALL;
  memcpy(digits, p, length);
  digits[length] = '\0';
  *number = KVF::LB_strtouq(digits, nullptr, 0);
  if (next) *next = last + 1;
  return zOK;
}

int XML_UTF8ToSQUAD(const char* start, const char* end, int64_t* number, const char** next) {
  uint64_t value;
  int result = XML_UTF8ToQUAD(start, end, &value, next);
  if (result == zOK) *number = static_cast<int64_t>(value);
  return result;
}

// ---- Reply status ----

namespace {

// "format" filled with one text, as it fits in the 256-byte message buffer.
std::string message256(const char* format, const char* text, const char* location) {
  char buffer[256];
  int n = snprintf(buffer, sizeof buffer, format, text);
  if (n < 0 || n >= static_cast<int>(sizeof buffer))
    throw KVFError("Buffer too small", zERR_BUFFER_TOO_SMALL, location);
  return buffer;
}

bool fitsIn32Bits(int64_t value) { return static_cast<int64_t>(static_cast<int32_t>(value)) == value; }

const char* const kRefusedLocations[] = {"util/common_cpp/qXML[1254]", "util/common_cpp/qXML[1169]"};

// A status read from a reply: returns when it is 0, else throws it.
void throwUnlessZero(int64_t value, const char* overflowLocation, const char* refusedLocation) {
  if (!fitsIn32Bits(value)) throw KVFError("Value overflow", zERR_QUAD_TOO_BIG_FOR_LONG, overflowLocation);
  if (value != 0) throw KVFError("Reply results", static_cast<int>(value), refusedLocation);
}

}  // namespace

void GetReplyResultValueForTag(const char* reply, const char* tag) {
  XML_ElementInfo_s element{};
  GetReplyResultValueForTag(reply, tag, &element);
}

void GetReplyResultValueForTag(const char* reply, const char* tag, XML_ElementInfo_s* found) {
  XML_ElementInfo_s& element = *found;
  element = XML_ElementInfo_s{};
  size_t length = strlen(reply);
  if (length == 0 || XML_GetTagElement(tag, reply, reply + length - 1, &element) != zOK)
    throw KVFError(message256("Can't find content for tag %s", tag, "util/common_cpp/qXML[1218]"),
                   zERR_XML_IS_BAD, "util/common_cpp/qXML[1218]");

  XML_ElementInfo_s result = element;
  if (descendInto("<result>", &result) != zOK)
    throw KVFError("Can't find result tag", zERR_XML_IS_BAD, "util/common_cpp/qXML[1225]");

  int64_t value = 0;
  int code = zERR_XML_IS_INCOMPLETE;
  if (XML_GetTagAttribute("value", &result) == zOK && result.attrValueLength != 0)
    code = XML_UTF8ToSQUAD(result.attrValueStart, result.attrValueEnd, &value, nullptr);
  if (code != zOK)
    throw AdminError(message256("Unable to parse XML tag %s", tag, "util/common_cpp/qXML[1244]"),
                     code, "util/common_cpp/qXML[1244]");

  throwUnlessZero(value, "util/common_cpp/qXML[1250]", kRefusedLocations[0]);
}

void GetReplyResultValueT(const char* reply, const char* rootPath) {
  int64_t value = 0;
  int result = MKVF_GetResultValueAttribute(rootPath, strlen(reply), reply, &value);
  if (result != zOK)
    throw KVFError(message256("Unable to parse XML tag %s", rootPath, "util/common_cpp/qXML[1159]"),
                   result, "util/common_cpp/qXML[1159]");
  throwUnlessZero(value, "util/common_cpp/qXML[1165]", kRefusedLocations[1]);
}

bool IsRefusal(const KVFError& error) {
  for (const char* location : kRefusedLocations)
    if (error.location == location) return true;
  return false;
}

void GetKVFReplyResultValueT(const char* reply) { GetReplyResultValueT(reply, "<kvfReply>"); }

int GetKVFReplyResultValue(const char* reply, int32_t* value) {
  int64_t number = 0;
  int result = MKVF_GetResultValueAttribute("<kvfReply>", strlen(reply), reply, &number);
  if (result != zOK) return result;
  *value = static_cast<int32_t>(number);
  return fitsIn32Bits(number) ? zOK : zERR_QUAD_TOO_BIG_FOR_LONG;
}

}  // namespace QXML
