// One run at a time per volume: two runs that repair one volume at once
// would both change the same objects. The run holds an exclusive lock on a
// file named after its volume, in a directory only the administrator can
// write, for the rest of its life (the process's end lets it go).
#pragma once

#include <string>

namespace velkor {

// The directory of the volumes' lock files.
extern const char* const kVolumeLockDir;

// Takes the lock of `volume` for the rest of the run. False, with `why` set
// to a sentence for the operator, when another run holds it (naming that
// run's process id) or the lock cannot be had. Taking the lock of the volume
// the run already holds succeeds.
bool lockVolume(const char* volume, std::string* why);

// Whether the run was refused a volume's lock (it then ends with exit status 1).
bool volumeLockRefused();

// The lock file's name for a volume: letters, digits, '-', '_' and '.' as
// they are (not a leading '.'), every other byte as %XX, so that no volume
// name leads out of the directory.
std::string volumeLockName(const std::string& volume);

}  // namespace velkor
