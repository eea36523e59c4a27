// Queries of beasts, files and volumes through the management channel; each
// is one request/reply exchange whose wanted elements are read in place.
#pragma once

#include <cstdint>

#include "velkor/beastRecords.h"
#include "velkor/compStats.h"
#include "common_cpp/qXML.h"
#include "velkor/channel.h"

namespace velkor {

// Reads `requests` from the reply's element `tag`; throws KVFError. The
// element is the one the exchange's status check found, when it was `tag`.
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
// Looks up the beast's Unix full name into stats->fileName (owned by stats),
// and whether it was read whole into stats->fileNameWhole.
void getFileName(char* volume, char* zid, CompStats* stats);

// Fills the volume's state, compression flag and mount point.
void getVolumeInfo(char* volumeName, VolumeInfo_s* info);
unsigned long getVolumeTotalObjects(char* volumeName);

// The volume object's compression statistics as the statistics operation
// shows them: compressed (live), compressed deleted and uncompressible files,
// bytes before and after compression (blocks times the block size).
struct VolumeStatistics {
  uint64_t figure[5];
  int64_t blockSize;
  char state[32];
};
// Reads the volume object's statistics (zid "0"); `blockSize`, when given,
// replaces the one in the reply.
VolumeStatistics getVolumeStatistics(ReplyBuf* reply, char* volumeName, const int64_t* blockSize);

// ---- Reading a reply ----
// What each query reads from its reply, apart from the exchange, so that the
// reader can be driven (fuzzed, measured) on reply text alone. Each throws
// KVFError as its query does; values are read in place from the reply.

// getBeastInfo with the file's and its compressed data's records (see
// getCompUncompInfo).
void readCompUncompInfo(ReplyBuf* reply, char* volume, UncompBeastInfo** file, CompBeastInfo** compData);
// (browseBeasts: readZidBatch, volumeScan.h.)
// getVolumeInfo with attributes: state, mount point, compression flag.
void readVolumeInfo(ReplyBuf* reply, VolumeInfo_s* info);
// getVolumeInfo: the number of objects.
unsigned long readTotalObjects(ReplyBuf* reply);
// getFileInfo: the volume name and zid, refused when they do not fit.
void readFileZid(ReplyBuf* reply, char* volumeOut, char* zidOut, size_t volumeSize, size_t zidSize);
// getBeastFullName: the name, as a heap copy the caller frees. `whole` tells
// whether the name element held the name alone (one CDATA section or plain
// text); a name that is not whole is the element's text as it stands, and is
// not to be acted on.
char* readFullName(ReplyBuf* reply, bool* whole = nullptr);
// getBeastInfo of the volume object: its statistics.
VolumeStatistics readVolumeStatistics(ReplyBuf* reply, const int64_t* blockSize);

}  // namespace velkor
