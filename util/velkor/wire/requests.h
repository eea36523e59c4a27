// The text of every request the program sends: one function per request
// form, each writing the envelope and the request into `out`. Text that does
// not fit the request's fixed buffer is refused with a KVFError (buffer too
// small), never cut. Tests, benchmarks and the simulator's fuzz target build
// their requests with these functions too, so that there is one copy of each
// format.
#pragma once

#include "velkor/requestText.h"

namespace velkor {

// getBeastInfo: `infoMask` bits 1 root, 2 named, 4 file, 8 compressed-data,
// 16 and 32 volume information (see BeastInfoType); a null zid asks for the
// volume's own object ("0").
void beastInfoRequest(RequestText& out, const char* volume, const char* zid, unsigned long infoMask, bool getComp);
// getBeastFullName: the beast's Unix full name.
void fullNameRequest(RequestText& out, const char* volume, const char* zid);
// getFileInfo (files.cmd): a path's standard information.
void fileInfoRequest(RequestText& out, const char* path);
// getVolumeInfo: basic information, with the enabled attributes when asked.
void volumeInfoRequest(RequestText& out, const char* volume, bool withAttributes);
// browseBeasts: the next batch after position `scanSequence`; `criteria` 0
// selects all beasts, else bits 1, 2, 4, 8, 16 select by purpose.
void browseRequest(RequestText& out, const char* volume, bool onlineOnly, int criteria, int numRequested,
                   int scanSequence);

// setBeastInfo: the compression record's status tags, and cPrecious 0 -> 1
// when asked.
void statusSetRequest(RequestText& out, const char* volume, const char* zid, const char* oldStatus,
                      const char* newStatus, bool setCPrecious);
// setBeastInfo: attribute tags and action tags in one request; a part whose
// old value is null is left out (both null: an empty info element).
void attributesAndActionSetRequest(RequestText& out, const char* volume, const char* zid, const char* oldAttributes,
                                   const char* newAttributes, const char* oldAction, const char* newAction);
// setBeastInfo: the compressed data's deleted flag, through its owner's zid.
void deletedFlagSetRequest(RequestText& out, const char* volume, const char* zid, bool oldValue, bool newValue);
// setBeastInfo: the attributes text, as the Cc clear sends it.
void attributesSetRequest(RequestText& out, const char* volume, const char* zid, const char* oldAttributes,
                          const char* newAttributes);
// deleteBeast.
void deleteRequest(RequestText& out, const char* volume, const char* zid);
// fixCompStats (its buffer holds 512 bytes).
void fixCompStatsRequest(RequestText& out, const char* volume);
const size_t kFixCompStatsRequestSize = 512;

}  // namespace velkor
