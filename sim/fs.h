// The mounted file system: management command files, the volumes' name
// trees and the control files, served over FUSE from one Model.
#pragma once

#include <string>

#include "faults.h"
#include "model.h"
#include "requestlog.h"
#include "requests.h"

namespace kvfsim {

struct SimContext {
  Model& model;
  RequestHandler& handler;
  Faults& faults;
  RequestLog& log;
  // The name tree's inode numbers are the beasts' zids (the volume root's:
  // its rootZid), as on a file system that numbers its inodes by zid; when
  // false, FUSE numbers them itself.
  bool zidInodes = true;
  std::string mountDir;  // set by serve()
};

// Mounts at mountDir and serves until unmounted or SIGINT/SIGTERM; returns
// the process exit status.
int serve(SimContext& context, const std::string& mountDir);

}  // namespace kvfsim
