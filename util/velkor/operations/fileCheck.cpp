#include "velkor/fileCheck.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "velkor/beastQueries.h"
#include "velkor/logElements.h"
#include "common/lbString.h"
#include "common_cpp/kvfError.h"
#include "velkor/requests.h"
#include "velkor/runLog.h"

namespace {
// Error locations name the documented source of the queries and operations.
constexpr KvfSource kKvfSource = KvfSource::velkorHelper;
}  // namespace

namespace velkor {

namespace {


bool isZeroZid(const char* zid) { return strcmp(zid, "0") == 0; }

// The problem word: setting a problem clears "good".
void setProblem(CompStats* stats, unsigned long code) { stats->problemFlags = (stats->problemFlags & ~1ul) | code; }

// A flag set as tag text, in a buffer of the set requests' size.
struct TagText {
  TagText(unsigned long long bits, unsigned long long mask, const char** tags, int line) {
    unsigned long length;
    if (convertBitsToTags(bits, mask, tags, sizeof text, text, &length) != 0)
      throw KVFError("Tag text does not fit its buffer", zERR_BUFFER_TOO_SMALL, KVF_Location(kKvfSource, line));
  }
  char text[512];
};

// One change request: from its writing on, a lost reply leaves its outcome open.
void sendChange(OpenCmdFile& channel, ReplyBuf& reply, RequestText& request, const char* tag, CompStats* stats) {
  reply.clear();
  stats->changeSent = true;
  channel.file.readWrite(request.text(), tag, &reply);
}

// The set requests go through one open command file, one exchange each.
class Repair {
 public:
  Repair(char* volume, char* zid, CompStats* stats) : volume_(volume), zid_(zid), stats_(stats), channel_(managecmd) {}

  void status(uint32_t oldStatus, uint32_t newStatus, bool setCPrecious) {
    TagText before(oldStatus, compStatusBitsToCheck, compStatusTags, __LINE__);
    TagText after(newStatus, compStatusBitsToCheck, compStatusTags, __LINE__);
    RequestText request;
    statusSetRequest(request, volume_, zid_, before.text, after.text, setCPrecious);
    sendChange(channel_, reply_, request, "setBeastInfo", stats_);
  }

  // Attributes and action in one request; either part only when asked for.
  void combined(bool withAttributes, uint64_t oldAttributes, uint64_t newAttributes, bool withAction,
                uint32_t oldAction, uint32_t newAction) {
    std::optional<TagText> attributesBefore, attributesAfter, actionBefore, actionAfter;
    if (withAttributes) {
      attributesBefore.emplace(oldAttributes, attrBitsToCheck, attrTags, __LINE__);
      attributesAfter.emplace(newAttributes, attrBitsToCheck, attrTags, __LINE__);
    }
    if (withAction) {
      actionBefore.emplace(oldAction, compActionBitsToCheck, compActionTags, __LINE__);
      actionAfter.emplace(newAction, compActionBitsToCheck, compActionTags, __LINE__);
    }
    RequestText request;
    attributesAndActionSetRequest(request, volume_, zid_, withAttributes ? attributesBefore->text : nullptr,
                                  withAttributes ? attributesAfter->text : nullptr,
                                  withAction ? actionBefore->text : nullptr, withAction ? actionAfter->text : nullptr);
    sendChange(channel_, reply_, request, "setBeastInfo", stats_);
  }

  void deletedFlag(bool oldValue, bool newValue) {
    RequestText request;
    deletedFlagSetRequest(request, volume_, zid_, oldValue, newValue);
    sendChange(channel_, reply_, request, "setBeastInfo", stats_);
  }

 private:
  char* volume_;
  char* zid_;
  CompStats* stats_;
  ReplyBuf reply_;
  OpenCmdFile channel_;
};

}  // namespace

void hasProblem(char* volume, char* zid, UncompBeastInfo** file, CompBeastInfo** compData,
                unsigned long skipHeaderCheck, CompStats* stats) {
  getCompUncompInfo(volume, zid, file, compData);
  const UncompBeastInfo* f = *file;
  const CompBeastInfo* c = *compData;

  if (!f->valid || (f->attributes & attrSubdirectory)) return;
  if (f->openCount != 0) {
    setProblem(stats, skippedChecking);
    return;
  }
  const bool streamCompressed = f->attributes & attrDataStreamCompress;
  const CompInfo* info = f->compInfo.get();
  if (!info) {
    if (streamCompressed) setProblem(stats, invalidAttribute);
    if (f->eof != 0 && f->physSize == 0) setProblem(stats, noPhysicalData);
    return;
  }
  const bool zeroZid = isZeroZid(info->compZid);
  if (!zeroZid && !c) {
    setProblem(stats, compBeastNotFound);
    return;
  }

  if (info->ucPrecious == 1 && info->cPrecious == 0) {
    if ((info->status & kStatusHeldMask) != statusUncompressed) {
      setProblem(stats, invalidState);
    } else if (info->status & statusClean) {
      if ((info->action & actionAddCompLog) || streamCompressed) setProblem(stats, invalidState);
    } else {
      if (!(info->action & actionAddCompLog) || streamCompressed) setProblem(stats, invalidState);
    }
  } else if (info->ucPrecious == 1 && info->cPrecious == 1) {
    setProblem(stats, invalidState);
    if (zeroZid) {
      setProblem(stats, invalidZid);
      return;
    }
  } else if (info->ucPrecious == 0 && info->cPrecious == 1) {
    if ((info->status & kStatusCleanMask) != (statusCompressed | statusClean) || !streamCompressed) setProblem(stats, invalidState);
    if (zeroZid) {
      setProblem(stats, invalidZid);
      return;
    }
  } else {
    setProblem(stats, invalidState);
  }

  if (zeroZid) return;
  if (!c) {
    setProblem(stats, compBeastNotFound);
    return;
  }
  if (c->hasVariableData && (c->uncompBeastDeleted != 0) != (f->allNamesDeleted != 0))
    setProblem(stats, mismatchedDeletedFlag);
  if (info->cPrecious == 0) return;
  if (c->eof == 0) {
    setProblem(stats, compBeastEOFZero);
    return;
  }
  if (c->found && strcmp(c->uncompZid, f->zid) != 0) setProblem(stats, mismatchedZid);
  if (!skipHeaderCheck) {
    bool headerGood = c->compressCode <= 2 && c->compressMajorVersion == 1 && c->compressMinorVersion == 0 &&
                      c->originalFileLength == f->eof && c->compressedFileLength != 0;
    if (!headerGood) setProblem(stats, badCompHeader);
  }
}

int fixProblem(char* volume, char* zid, UncompBeastInfo* file, CompBeastInfo* compData, CompStats* stats) {
  if ((file->attributes & attrSubdirectory) || (stats->problemFlags & skippedChecking) || !file->compInfo) return 0;
  const CompInfo* info = file->compInfo.get();
  const uint64_t attributes = file->attributes;
  const bool streamCompressed = attributes & attrDataStreamCompress;
  const bool addCompLog = info->action & actionAddCompLog;
  Repair repair(volume, zid, stats);

  if (info->ucPrecious == 1 && info->cPrecious == 1) {
    repair.status(info->status, info->status & ~statusClean, false);
  } else if (info->ucPrecious == 1 && info->cPrecious == 0 && (info->status & kStatusHeldMask) == statusUncompressed) {
    if (!((info->status & statusClean) && !streamCompressed && !addCompLog)) {
      // Sent even when neither part is needed (an empty info element).
      repair.combined(streamCompressed, attributes, attributes & ~attrDataStreamCompress, addCompLog, info->action,
                      info->action & ~actionAddCompLog);
    }
  } else if (info->ucPrecious == 1 && info->cPrecious == 0 && (info->status & kStatusCleanMask) == (statusCompressed | statusClean) &&
             !isZeroZid(info->compZid)) {
    if (!compData) return 1;
    if (compData->physSize != 0)
      repair.status(info->status, (info->status & ~statusClean) | statusUncompressed, true);
  } else if (info->ucPrecious == 0 && info->cPrecious == 1 && (info->status & kStatusCleanMask) == (statusCompressed | statusClean)) {
    if (!(streamCompressed && !addCompLog)) {
      repair.combined(!streamCompressed, attributes, (attributes | attrDataStreamCompress) & ~attrNoStreamCompress,
                      addCompLog, info->action, info->action & ~actionAddCompLog);
    }
  }

  if (compData && compData->hasVariableData && (compData->uncompBeastDeleted != 0) != (file->allNamesDeleted != 0))
    repair.deletedFlag(compData->uncompBeastDeleted == 1, file->allNamesDeleted == 1);
  return 1;
}

void deleteCorruptedFile(char* volume, char* zid, UncompBeastInfo* file, CompBeastInfo*, CompStats* stats) {
  ReplyBuf reply;
  OpenCmdFile channel(managecmd);
  if (file->beastType == beastFile && file->allNamesDeleted == 0) {
    stats->actionRefused = unlinkCorruptedFile(volume, file, stats);
    return;
  }
  RequestText request;
  deleteRequest(request, volume, zid);
  sendChange(channel, reply, request, "deleteBeast", stats);
}

namespace {

// A descriptor closed when the scope ends.
struct Descriptor {
  explicit Descriptor(int fd) : fd(fd) {}
  ~Descriptor() {
    if (fd >= 0) close(fd);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int fd;
};

// A system call of the removal failed (errno says why): in a volume scan the
// file is left with the reason, in a single file's deletion it is the run's
// error.
std::string failedCall(const CompStats* stats, const char* what, int line) {
  const int error = errno;
  if (!stats->scanning) throw KVFError(strerror(error), error, KVF_Location(kKvfSource, line));
  return std::string("not deleted: ") + what + ": " + strerror(error);
}

// The directory that holds `relative` beneath the volume's mount point, the
// whole way resolved inside the mount and through no symbolic link: a user
// who replaced a directory on the volume with a link to /etc cannot lead a
// deletion out of the volume. -1 with errno set when it cannot be had.
int openParentBeneath(int mountFd, const std::string& directory) {
  struct open_how how = {};
  how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS | RESOLVE_NO_XDEV;
  return static_cast<int>(syscall(SYS_openat2, mountFd, directory.empty() ? "." : directory.c_str(), &how, sizeof how));
}

bool sameObject(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

// Whether a descriptor's object is the root of a mount; false with errno
// set when the kernel cannot tell.
bool isMountRoot(int fd, bool* root) {
  struct statx sx;
  if (statx(fd, "", AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW, 0, &sx) != 0) return false;
  if (!(sx.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT)) {
    errno = ENOSYS;
    return false;
  }
  *root = sx.stx_attributes & STATX_ATTR_MOUNT_ROOT;
  return true;
}

// Whether the volume numbers its inodes by zid: the file system's zid for
// the mount point itself against the mount point's inode number. Said once
// in the run log. A mount point the file system does not know is guarded by
// the path check.
CompStats::DeletionGuard findDeletionGuard(const char* volume, const std::string& mountPoint, int mountFd) {
  struct stat root;
  char foundVolume[64], foundZid[104];
  bool inodeIsZid = false;
  try {
    std::string path = mountPoint;
    getFileZidByPath(&path[0], foundVolume, foundZid, sizeof foundVolume, sizeof foundZid);
    inodeIsZid = fstat(mountFd, &root) == 0 && strcmp(foundVolume, volume) == 0 &&
                 KVF::LB_fitsDecimal(foundZid, UINT64_MAX) && KVF::LB_strtouq(foundZid, nullptr, 10) == root.st_ino;
  } catch (const KVFError&) {
  }
  LogMessage(inodeIsZid ? "deletion by path: this volume numbers its inodes by zid; a file is unlinked only "
                          "when its inode is the zid judged"
                        : "deletion by path: this volume's inode numbers are not its zids; a file is unlinked "
                          "only when the file system confirms its path and the path still leads to the same file");
  return inodeIsZid ? CompStats::DeletionGuard::kInodeIsZid : CompStats::DeletionGuard::kPathRechecked;
}

}  // namespace

std::string unlinkCorruptedFile(char* volume, UncompBeastInfo* file, CompStats* stats) {
  if (!stats->fileNameWhole || !stats->fileName)
    return "not deleted: the file system's reply did not hold its name whole";
  const std::string mountPoint = stats->volumeInfo.mountPoint ? stats->volumeInfo.mountPoint.get() : "";
  const std::string name = stats->fileName.get();
  const size_t slash = name.rfind('/');
  const std::string base = slash == std::string::npos ? name : name.substr(slash + 1);
  if (name.empty() || name[0] != '/' || base.empty() || base == "." || base == "..")
    return "not deleted: its name is not the path of a file";
  if (name.size() + mountPoint.size() >= PATH_MAX) {
    errno = ENAMETOOLONG;
    return failedCall(stats, "its path", __LINE__);
  }
  const std::string directory = name.substr(1, slash == 0 ? 0 : slash - 1);

  // The volume's mount: the mount point must be the root of one, and the
  // file's directory is reached inside it (RESOLVE_NO_XDEV).
  Descriptor mount(open(mountPoint.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (mount.fd < 0) return failedCall(stats, "its volume's mount point", __LINE__);
  bool mountRoot = false;
  if (!isMountRoot(mount.fd, &mountRoot)) return failedCall(stats, "its volume's mount point", __LINE__);
  if (!mountRoot) return "not deleted: the volume's mount point " + mountPoint + " is not the root of a mounted file system";
  if (stats->deletionGuard == CompStats::DeletionGuard::kUnknown)
    stats->deletionGuard = findDeletionGuard(volume, mountPoint, mount.fd);

  Descriptor parent(openParentBeneath(mount.fd, directory));
  if (parent.fd < 0) {
    if (errno == ELOOP) return "not deleted: a directory on its path is a symbolic link";
    if (errno == EXDEV) return "not deleted: its path leads out of the volume";
    return failedCall(stats, "its directory", __LINE__);
  }
  struct stat before;
  if (fstatat(parent.fd, base.c_str(), &before, AT_SYMLINK_NOFOLLOW) != 0) return failedCall(stats, "its name", __LINE__);
  if (!S_ISREG(before.st_mode)) return "not deleted: its name is not a regular file";

  if (stats->deletionGuard == CompStats::DeletionGuard::kInodeIsZid) {
    if (std::to_string(before.st_ino) != file->zid)
      return "not deleted: its name now leads to zid " + std::to_string(before.st_ino);
  } else {
    // The name must still lead to the object judged, and a fresh resolution
    // after the question to the same directory and file.
    char foundVolume[64], foundZid[104];
    try {
      std::string path = mountPoint + name;
      getFileZidByPath(&path[0], foundVolume, foundZid, sizeof foundVolume, sizeof foundZid);
    } catch (const KVFError& e) {
      return std::string("not deleted: its path could not be confirmed: ") + e.what();
    }
    if (strcmp(foundZid, file->zid) != 0 || strcmp(foundVolume, volume) != 0)
      return std::string("not deleted: its path now leads to zid ") + foundZid + " of volume " + foundVolume;
    Descriptor again(openParentBeneath(mount.fd, directory));
    struct stat held, found, after;
    if (again.fd < 0 || fstat(parent.fd, &held) != 0 || fstat(again.fd, &found) != 0 || !sameObject(held, found))
      return "not deleted: its directory changed while it was checked";
    if (fstatat(again.fd, base.c_str(), &after, AT_SYMLINK_NOFOLLOW) != 0 || !sameObject(before, after))
      return "not deleted: its name changed while it was checked";
  }
  if (unlinkat(parent.fd, base.c_str(), 0) != 0) return failedCall(stats, "unlink", __LINE__);
  return "";
}

namespace {

// A change's exchange that ended the run without the file system's answer
// (its reply lost, cut or unreadable) may have made the change: the object's
// entry is written all the same, before the run's error, saying so.
void recordUnknownOutcome(const KVFError& e, UncompBeastInfo* file, CompBeastInfo* compData, unsigned long flags,
                          CompStats* stats) {
  if (!stats->changeSent || QXML::IsRefusal(e)) return;
  stats->actionRefused = std::string(kOutcomeUnknown) + e.what();
  stats->msgReady(file, compData, flags, 0, 0);
}

}  // namespace

void checkCompressionStatus(char* volume, char* zid, OpArgs_s* args, CompStats* stats) {
  for (int attempt = 0;; ++attempt) {
    try {
      // hasProblem hands back both records, or throws before making any.
      UncompBeastInfo* fileRecord = nullptr;
      CompBeastInfo* compRecord = nullptr;
      hasProblem(volume, zid, &fileRecord, &compRecord, args->flags, stats);
      std::unique_ptr<UncompBeastInfo> file(fileRecord);
      std::unique_ptr<CompBeastInfo> compData(compRecord);
      if (!file->valid) return;
      if (!stats->fileName && stats->needsName()) getFileName(volume, file->zid, stats);

      unsigned long fixed = 0, deleted = 0;
      const unsigned long problems = stats->problemFlags;
      if (problems & kCorruptedProblems) {
        ++stats->corrupted;
        if (args->delete_ && stats->view->mayDelete(zid)) {
          LogRequireRoom(stats->fileName ? strlen(stats->fileName.get()) : 0);
          try {
            deleteCorruptedFile(volume, zid, file.get(), compData.get(), stats);
          } catch (const KVFError& e) {
            recordUnknownOutcome(e, file.get(), compData.get(), args->flags, stats);
            throw;
          }
          if (stats->actionRefused.empty()) {
            ++stats->deleted;
            deleted = 1;
          }
        }
      } else if (problems & kFixableProblems) {
        if (args->fix) {
          LogRequireRoom(stats->fileName ? strlen(stats->fileName.get()) : 0);
          int repaired;
          try {
            repaired = fixProblem(volume, zid, file.get(), compData.get(), stats);
          } catch (const KVFError& e) {
            recordUnknownOutcome(e, file.get(), compData.get(), args->flags, stats);
            throw;
          }
          if (repaired) {
            ++stats->fixable;
            ++stats->fixed;
            fixed = 1;
          }
        } else {
          ++stats->fixable;
        }
      } else if (problems & skippedChecking) {
        ++stats->openSkipped;
      } else if (problems & good) {
        ++stats->good;
      }
      ++stats->processed;
      stats->msgReady(file.get(), compData.get(), args->flags, fixed, deleted);
      return;
    } catch (const KVFError& e) {
      if (!(e.isKvfCode && e.code == zERR_VALUE_CHANGED) || attempt >= kValueChangedRetries) throw KVFError(e);
      // The file changed between the read and the set: check it afresh.
      stats->problemFlags = good;
      stats->changeSent = false;
    }
  }
}

}  // namespace velkor
