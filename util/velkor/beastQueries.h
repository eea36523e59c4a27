// Queries of beasts, files and volumes through the management channel; each
// is one request/reply exchange whose wanted elements are read in place.
#pragma once

#include <cstdint>

#include "velkor/beastRecords.h"
#include "velkor/compStats.h"
#include "common_cpp/qXML.h"
#include "velkor/velkorClass.h"

namespace velkor {

// Reads `requests` from the reply's element `tag`; throws KVFError.
int getTagContentFromReply(ReplyBuf* reply, const char* tag, const QXML::TagRequest_s* requests,
                           QXML::TagContent_s* contents);

// Information-type bits of getBeastInfo.
enum BeastInfoType : unsigned long {
  infoRoot = 1,
  infoNamed = 2,
  infoFile = 4,
  infoCompBeast = 8,
  infoVolumeSimple = 16,
  infoVolumeFull = 32,
};

// Asks for a beast's information (zid null: "0", the volume's own object) and
// reads `requests` from the reply's element `tag`.
void getBeastInfo(ReplyBuf* reply, char* volume, char* zid, unsigned long infoMask, unsigned long getComp,
                  const char* tag, const QXML::TagRequest_s* requests, QXML::TagContent_s* contents);

// The file's record and, when it names one, its compressed-data record; the
// caller owns and deletes both.
void getCompUncompInfo(char* volume, char* zid, UncompBeastInfo** file, CompBeastInfo** compData);

void getFileStdInfoByPath(ReplyBuf* reply, char* path, const QXML::TagRequest_s* requests,
                          QXML::TagContent_s* contents);
// The volume name (volumeSize bytes) and zid (zidSize bytes) of a path's file.
void getFileZidByPath(char* path, char* volumeOut, char* zidOut, size_t volumeSize = 64, size_t zidSize = 104);
// Looks up the beast's Unix full name into stats->fileName (owned by stats).
void getFileName(char* volume, char* zid, CompStats* stats);

// Fills the volume's state, compression flag and mount point.
void getVolumeInfo(char* volumeName, VolumeInfo_s* info);
unsigned long getVolumeTotalObjects(char* volumeName);

}  // namespace velkor
