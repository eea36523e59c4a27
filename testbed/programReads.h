// The program's own reads of each kind of reply, driven on reply text alone:
// the reply reader's fuzz target and its benchmark call these, so that they
// exercise exactly the reads the program makes. Each checks the reply's
// status for its element, as an exchange does, then reads what its query
// reads. Throws KVFError as the program's reads do.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "common/lbString.h"
#include "common_cpp/qXML.h"
#include "velkor/beastQueries.h"
#include "velkor/ccAttribute.h"
#include "velkor/volumeScan.h"

namespace programreads {

enum Kind { kBeastInfo, kBrowse, kVolumeInfo, kTotalObjects, kFileInfo, kFullName, kAttributes, kStatistics, kKinds };

// A digest of what was read, so that nothing is optimised away.
inline uint64_t read(Kind kind, velkor::ReplyBuf* reply) {
  using namespace velkor;
  static const char* const tags[kKinds] = {"getBeastInfo",     "browseBeasts", "getVolumeInfo", "getVolumeInfo",
                                           "getFileInfo",      "getBeastFullName", "getBeastInfo", "getBeastInfo"};
  QXML::GetReplyResultValueForTag(reply->data, tags[kind]);
  char volume[] = "VOL1";
  switch (kind) {
    case kBeastInfo: {
      UncompBeastInfo* file = nullptr;
      CompBeastInfo* comp = nullptr;
      readCompUncompInfo(reply, volume, &file, &comp);
      std::unique_ptr<UncompBeastInfo> owned(file);
      std::unique_ptr<CompBeastInfo> ownedComp(comp);
      return file->eof + file->attributes + (file->compInfo ? file->compInfo->status : 0) + (comp ? comp->eof : 0);
    }
    case kBrowse: {
      char zids[kZidSlots * kZidSlotSize] = {};
      int n = readZidBatch(reply, zids);
      return static_cast<uint64_t>(n) + KVF::LB_strtouq(zids, nullptr, 10);
    }
    case kVolumeInfo: {
      VolumeInfo_s info{};
      readVolumeInfo(reply, &info);
      return info.compressionEnabled + strlen(info.mountPoint.get());
    }
    case kTotalObjects: return readTotalObjects(reply);
    case kFileInfo: {
      char volumeName[64], zid[104];
      readFileZid(reply, volumeName, zid, sizeof volumeName, sizeof zid);
      return strlen(volumeName) + strlen(zid);
    }
    case kFullName: {
      char* name = readFullName(reply);
      uint64_t digest = strlen(name);
      free(name);
      return digest;
    }
    case kAttributes: {
      const QXML::TagRequest_s rows[] = {{"attributes", QXML::TAG_OPTIONAL}, {nullptr, 0}};
      QXML::TagContent_s contents[1];
      getTagContentFromReply(reply, "getBeastInfo", rows, contents);
      char before[kSetValueSize], after[kSetValueSize];
      SetValue value = {before, after};
      return ccAttributeOf(contents[0], value) ? strlen(after) : 0;
    }
    case kStatistics: return readVolumeStatistics(reply, nullptr).figure[0];
    default: return 0;
  }
}

}  // namespace programreads
