#include "velkor/volumeLock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace velkor {

const char* const kVolumeLockDir = "/run/lock/velkor";

namespace {

int heldFd = -1;            // the lock file of the volume the run holds
std::string heldVolume;
bool refused = false;

std::string systemReason(const char* what) { return std::string(what) + ": " + strerror(errno); }

// The lock directory, made when missing; refused unless the effective user
// owns it and nobody else may write it (another user could otherwise hold
// or replace the lock files).
int openLockDir(std::string* why) {
  mkdir("/run/lock", 01777);
  if (mkdir(kVolumeLockDir, 0700) != 0 && errno != EEXIST) {
    *why = systemReason(kVolumeLockDir);
    return -1;
  }
  int dir = open(kVolumeLockDir, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (dir < 0) {
    *why = systemReason(kVolumeLockDir);
    return -1;
  }
  struct stat st;
  if (fstat(dir, &st) != 0 || st.st_uid != geteuid() || (st.st_mode & (S_IWGRP | S_IWOTH))) {
    close(dir);
    *why = std::string(kVolumeLockDir) + " is not the administrator's own directory; no volume lock is taken there";
    return -1;
  }
  return dir;
}

}  // namespace

std::string volumeLockName(const std::string& volume) {
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
  return name + ".lock";
}

bool lockVolume(const char* volume, std::string* why) {
  if (heldFd >= 0 && heldVolume == volume) return true;
  int dir = openLockDir(why);
  if (dir < 0) {
    refused = true;
    return false;
  }
  const std::string name = volumeLockName(volume);
  int fd = openat(dir, name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
  close(dir);
  if (fd < 0) {
    *why = systemReason((std::string(kVolumeLockDir) + "/" + name).c_str());
    refused = true;
    return false;
  }
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  if (fcntl(fd, F_SETLK, &lock) != 0) {
    struct flock holder = lock;
    long pid = fcntl(fd, F_GETLK, &holder) == 0 && holder.l_type != F_UNLCK ? static_cast<long>(holder.l_pid) : 0;
    close(fd);
    *why = std::string("volume ") + volume + " is in use by another run (pid " + std::to_string(pid) +
           "); try again when it has ended";
    refused = true;
    return false;
  }
  heldFd = fd;  // kept open: closing it would let the lock go
  heldVolume = volume;
  return true;
}

bool volumeLockRefused() { return refused; }

}  // namespace velkor
