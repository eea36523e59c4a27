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
};

// Mounts at mountDir and serves until unmounted or SIGINT/SIGTERM; returns
// the process exit status.
int serve(SimContext& context, const std::string& mountDir);

}  // namespace kvfsim
