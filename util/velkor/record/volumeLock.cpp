#include "velkor/volumeLock.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace velkor {

const char* runLockDir = "/run/lock/velkor";

std::string ownerOf(uid_t uid) {
  struct passwd* user = getpwuid(uid);
  std::string number = "uid " + std::to_string(uid);
  return user ? std::string(user->pw_name) + " (" + number + ")" : number;
}

namespace {

int heldFd = -1;            // the lock file of the volume the run holds
std::string heldVolume;

std::string systemReason(const std::string& what) { return what + ": " + strerror(errno); }

// The directory's parent (/run/lock) is made only as every system has it:
// open to all with the sticky bit, whatever the umask.
void makeParent() {
  std::string parent(runLockDir);
  parent.erase(parent.find_last_of('/'));
  if (!parent.empty() && mkdir(parent.c_str(), 01777) == 0) chmod(parent.c_str(), 01777);
}

// Why the directory `dirName`, as `st` describes it, is not the effective
// user's own alone (another user could `risk`: "hold or replace the locks in
// it"); empty when it is.
std::string notOwnDirectory(const std::string& dirName, const std::string& risk, const struct stat& st) {
  const std::string remedy = ": another user could " + risk + "; remove it (rm -r " + dirName + ") and run again";
  if (!S_ISDIR(st.st_mode))
    return dirName + " is not a directory but " + (S_ISLNK(st.st_mode) ? "a symbolic link" : "another kind of file") +
           " of " + ownerOf(st.st_uid) + remedy;
  if (st.st_uid == 0 && geteuid() != 0) return dirName + " is root's: run this as root";
  const std::string why = notOwnAlone(dirName, st);
  return why.empty() ? why : why + remedy;
}

}  // namespace

std::string notOwnAlone(const std::string& name, const struct stat& st) {
  if (st.st_uid != geteuid())
    return name + " is owned by " + ownerOf(st.st_uid) + ", not by " + ownerOf(geteuid()) + " who runs this";
  if (st.st_mode & (S_IWGRP | S_IWOTH)) {
    char mode[8];
    snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(st.st_mode & 07777));
    return name + " may be written by other users (mode " + mode + ")";
  }
  return "";
}

int openOwnDirectory(const char* dirName, const std::string& risk, std::string* why) {
  if (mkdir(dirName, 0700) != 0 && errno != EEXIST) {
    *why = systemReason(dirName);
    return -1;
  }
  struct stat st;
  int dir = open(dirName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (dir < 0) {
    // Another user's directory or link may not even open: it is named as
    // what it is all the same.
    const int error = errno;
    if (lstat(dirName, &st) != 0 || (*why = notOwnDirectory(dirName, risk, st)).empty()) {
      errno = error;
      *why = systemReason(dirName);
    }
    return -1;
  }
  if (fstat(dir, &st) != 0)
    *why = systemReason(dirName);
  else if ((*why = notOwnDirectory(dirName, risk, st)).empty())
    return dir;
  close(dir);
  return -1;
}

int takeRunLock(const std::string& name, const std::string& what, std::string* why) {
  makeParent();
  int dir = openOwnDirectory(runLockDir, "hold or replace the locks in it", why);
  if (dir < 0) return -1;
  int fd = openat(dir, name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
  close(dir);
  if (fd < 0) {
    *why = systemReason(std::string(runLockDir) + "/" + name);
    return -1;
  }
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  if (fcntl(fd, F_SETLK, &lock) == 0) return fd;
  const int error = errno;
  struct flock holder = lock;
  long pid = fcntl(fd, F_GETLK, &holder) == 0 && holder.l_type != F_UNLCK ? static_cast<long>(holder.l_pid) : 0;
  close(fd);
  errno = error;
  *why = error == EACCES || error == EAGAIN
             ? what + " is in use by another run (pid " + std::to_string(pid) + "); try again when it has ended"
             : systemReason(std::string(runLockDir) + "/" + name);
  return -1;
}

void releaseRunLock(int fd) {
  if (fd >= 0) close(fd);
}

std::string safeFileName(const std::string& volume) {
  std::string name;
  for (size_t i = 0; i < volume.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(volume[i]);
    const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
                       c == '_' || (c == '.' && i > 0);
    if (plain) {
      name += static_cast<char>(c);
    } else {
      char hex[4];
      snprintf(hex, sizeof hex, "%%%02X", c);
      name += hex;
    }
  }
  return name;
}

std::string volumeLockName(const std::string& volume) { return safeFileName(volume) + ".lock"; }

std::string logLockName(const struct stat& log) {
  return "log@" + std::to_string(major(log.st_dev)) + ":" + std::to_string(minor(log.st_dev)) + "-" +
         std::to_string(log.st_ino);
}

bool lockVolume(const char* volume, std::string* why) {
  if (heldFd >= 0 && heldVolume == volume) return true;
  int fd = takeRunLock(volumeLockName(volume), std::string("volume ") + volume, why);
  if (fd < 0) return false;
  heldFd = fd;  // kept open: closing it would let the lock go
  heldVolume = volume;
  return true;
}

}  // namespace velkor
