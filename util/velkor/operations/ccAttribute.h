// The Cc ("Cant_Compress_File") attribute: on the wire the empty element
// <noStreamCompress/> in an object's attributes. Reading, clearing, counting.
#pragma once

#include "common_cpp/qXML.h"
#include "velkor/compStats.h"
#include "velkor/velkorTypes.h"

namespace velkor {

// The old and new attributes text of a set request.
struct SetValue {
  char* oldValue;
  char* newValue;
};

// Size of each text of a SetValue.
const int kSetValueSize = 512;

// True when the object's attributes hold the element; then `value` holds the
// attributes text and that text with the element's first occurrence removed.
bool isSetCCBit(char* volumeName, char* zid, SetValue& value);

// The same test on the attributes row of a reply already read.
bool ccAttributeOf(const QXML::TagContent_s& attributesRow, SetValue& value);

// Writes the new attributes, provided they are still the old ones.
void clearCCBit(char* volumeName, char* zid, SetValue& value);

// Per-object routine of the clear operations: remove the Cc attribute.
void checkCCBit(char* volumeName, char* zid, OpArgs_s* args, CompStats* stats);

}  // namespace velkor
