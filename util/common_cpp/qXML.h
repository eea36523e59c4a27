// The reader of the file system's XML replies: locates elements, attributes and
// CDATA in place in the reply text, between a start and an inclusive end pointer.
//
// It is not a general XML parser: no tree, no allocation, no copies, one forward
// pass. Every function returns a status number (0 for success) and never throws,
// except GetReplyResultValueForTag and its companions at the bottom, which turn a
// reply's status into an exception. Every read stays within [start, end].
#pragma once

#include "common_cpp/kvfError.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace QXML {

// Where one element lies in the reply text. End pointers are inclusive.
struct XML_ElementInfo_s {
  const char* nameEnd;       // byte after the tag name in the start tag
  const char* elementEnd;    // the '>' that closes the element
  const char* contentStart;  // byte after the start tag's '>'; null when self-closing
  const char* contentEnd;    // last content byte; null when self-closing
  uint64_t contentLength;    // 0 when self-closing or empty
  const char* attrValueStart;  // set by XML_GetTagAttribute only
  const char* attrValueEnd;    // last value byte; the opening quote when empty
  uint64_t attrValueLength;
};

// ---- Element scanner ----

// The last '[' of a "<![CDATA[" that begins at p (with at least one byte after
// it in range), else null.
const char* XML_atStartCDATA(const char* p, const char* end);
// The '>' of a "]]>" that begins at p, else null.
const char* XML_atEndCDATA(const char* p, const char* end);
// Unwraps a CDATA section beginning at p in place: writes a NUL over its first
// ']' (when the "]]>" lies within end) and returns the first byte of its text.
// Text that is not CDATA is returned unchanged.
char* XML_stripCDATA(char* p, const char* end);

// Advances *p over white space; *p may end one past end.
void XML_skipWhiteSpace(const char** p, const char* end);
// Moves *p to the last byte of the run of non-white bytes starting at *p.
int XML_findEndOfNonWhiteSpace(const char** p, const char* end);

// Completes info for an element whose start-tag name (name, nameLength) has
// just been read, afterName being the byte after it. Same-name nesting and
// CDATA at the element's own level are honoured. 0 or zERR_XML_IS_INCOMPLETE.
int XML_FindEndOfElement(const char* name, size_t nameLength, const char* afterName,
                         const char* end, XML_ElementInfo_s* info);
// The next element at or after p; an end tag reports an empty name.
int XML_GetNextTag(const char* p, const char* end, XML_ElementInfo_s* info,
                   const char** tagName, size_t* tagNameLength);
// The first sibling from p named `name`, skipping whole elements; running out
// of siblings is zERR_XML_IS_INCOMPLETE.
int XML_GetTagElementAtCurrentLevel(const char* name, const char* p, const char* end,
                                    XML_ElementInfo_s* info);
// The first start tag named `name` at any depth at or after p; -1 when there is
// none in range.
int XML_GetTagElement(const char* name, const char* p, const char* end, XML_ElementInfo_s* info);
// The value of attribute `name` in the start tag that info describes (fields 6-8).
// The name is matched as bytes wherever it starts in the tag.
int XML_GetTagAttribute(const char* name, XML_ElementInfo_s* info);

// ---- Templates ----
// A template path is a string of names each written "<name>", e.g. "<kvfReply><result>".

// The next name of a path into out (size bytes); *rest is left at the '>' that
// ended it. zERR_RETURN_PARA_NULL marks the end of the path.
int MKVF_GetNextTagString(const char* path, const char** rest, size_t size, char* out);
// Descends path through direct children from the whole text (length bytes; the
// byte at text[length] must be readable, as the reply's NUL is).
int MKVF_GetSpecificTemplate(const char* path, size_t length, const char* text,
                             XML_ElementInfo_s* info);
// Descends path, then "<result>" inside the element reached.
int MKVF_GetResultTemplate(const char* path, size_t length, const char* text,
                           XML_ElementInfo_s* info);
// Descends path1, then path2 inside the element reached (two names, one operation).
int MKVF_GetTagTemplate(const char* path1, const char* path2, size_t length, const char* text,
                        XML_ElementInfo_s* info);
int MKVF_GetTemplate(const char* path1, const char* path2, size_t length, const char* text,
                     XML_ElementInfo_s* info);

// Attribute getters of the same layer: they return the descent's result only; a
// missing or empty attribute, or one that does not convert, leaves *out as it was.
int MKVF_GetAttribute(const char* path1, const char* path2, const char* name, size_t length,
                      const char* text, int64_t* number);
int MKVF_GetAttribute(const char* path1, const char* path2, const char* name, size_t length,
                      const char* text, std::string* value);
int MKVF_GetResultValueAttribute(const char* path, size_t length, const char* text,
                                 int64_t* number);

// ---- Tag contents ----

constexpr unsigned TAG_OPTIONAL = 1;          // absence is not an error
constexpr unsigned TAG_IS_ATTRIBUTE = 2;      // an attribute of the parent, not a child
constexpr unsigned TAG_CONTENT_REQUIRED = 4;  // an empty or self-closing element is an error

// One row of a request table; a table ends with a row whose name is null.
struct TagRequest_s {
  const char* name;
  unsigned flags;
};

constexpr uint64_t TAG_FOUND = 1;
constexpr uint64_t TAG_HAS_CONTENT = 2;

// One result row per request row.
struct TagContent_s {
  char* value;                // NUL-terminated text in the reply, CDATA removed; null if absent or empty
  XML_ElementInfo_s element;  // the child's locator (element rows only)
  uint64_t status;            // TAG_FOUND | TAG_HAS_CONTENT bits
};

// Fills one result row per request row from the parent element's content (child
// elements at any depth) or its start tag (attributes). Writes a NUL after each
// value into the reply text, so the reply must be writable and the row order
// matters. A row that is not found has status 0, a null value and an all-null
// element, under which every scanner function finds nothing. 0, or
// zERR_XML_IS_BAD at the first row that fails (later rows are not written).
int MKVF_GetTagContents(XML_ElementInfo_s* parent, const TagRequest_s* requests,
                        TagContent_s* contents);

// ---- Numbers ----

// Converts the number written in [start, end] (surrounding white space allowed,
// C-style base prefixes, trailing non-digits ignored); *next, when given, is set
// after the number's run. zERR_BAD_TRANSFORMATION when there is no text,
// zERR_BUFFER_TOO_SMALL when the run is longer than 79 bytes. The signed form
// reads the same unsigned value and keeps its bits.
int XML_UTF8ToQUAD(const char* start, const char* end, uint64_t* number, const char** next);
int XML_UTF8ToSQUAD(const char* start, const char* end, int64_t* number, const char** next);

// ---- Reply status ----

// Returns only when the element `tag` of the reply holds a direct child
// <result value="0">. Otherwise throws KVFError, or AdminError when the status
// cannot be read. The reply is not changed.
void GetReplyResultValueForTag(const char* reply, const char* tag);
// The same, handing back the element `tag` that it found (when it returns).
void GetReplyResultValueForTag(const char* reply, const char* tag, XML_ElementInfo_s* element);
// Whether `error`, thrown by one of the status checks here, is the file
// system's own answer that it did not do the request: its status read whole
// and not 0. Any other failure of an exchange (its reply lost, cut or
// unreadable) leaves open whether the request was carried out.
bool IsRefusal(const KVFError& error);
// The same for the result under a template path (KVFError only).
void GetReplyResultValueT(const char* reply, const char* rootPath);
void GetKVFReplyResultValueT(const char* reply);
// Non-throwing: the reader's result, or zERR_QUAD_TOO_BIG_FOR_LONG when the
// status does not fit in 32 bits.
int GetKVFReplyResultValue(const char* reply, int32_t* value);

}  // namespace QXML
