// A file entry for the report's tests: a name, its problem word and a zid.
#pragma once

#include <cstdint>
#include <string>

#include "logText.h"

namespace reporttests {

inline testsupport::LoggedFile file(const std::string& name, unsigned long problems, uint64_t zid = 1000) {
  testsupport::LoggedFile f;
  f.name = name;
  f.problems = problems;
  f.zid = zid;
  return f;
}

}  // namespace reporttests
