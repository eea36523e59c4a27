// Shared helpers of the simulator tests: the program's requests, a
// small fixture, and readers that find reply elements the way the program does.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "e2e.h"

namespace simtest {

// The requests, built by the program's own request builders.
using testsupport::requestText;
inline std::string getBeastInfo(const char* volume, const char* zid, unsigned long mask, bool comp) {
  return requestText(velkor::beastInfoRequest, volume, zid, mask, comp);
}
inline std::string getBeastFullName(const char* volume, const char* zid) {
  return requestText(velkor::fullNameRequest, volume, zid);
}
inline std::string getFileInfo(const char* path) { return requestText(velkor::fileInfoRequest, path); }
inline std::string getVolumeInfo(const char* volume) { return requestText(velkor::volumeInfoRequest, volume, true); }
// The status, and with `precious` cPrecious from 0 to 1 too.
inline std::string setStatus(const char* volume, const char* zid, const char* oldTags, const char* newTags,
                             bool precious = false) {
  return requestText(velkor::statusSetRequest, volume, zid, oldTags, newTags, precious);
}
// Attributes and action parts are sent only when their old value is given.
inline std::string setCombined(const char* volume, const char* zid, const char* oldAttrs, const char* newAttrs,
                               const char* oldAction, const char* newAction) {
  return requestText(velkor::attributesAndActionSetRequest, volume, zid, oldAttrs, newAttrs, oldAction, newAction);
}
inline std::string clearCc(const char* volume, const char* zid, const char* oldAttrs, const char* newAttrs) {
  return requestText(velkor::attributesSetRequest, volume, zid, oldAttrs, newAttrs);
}
inline std::string deleteBeast(const char* volume, const char* zid) {
  return requestText(velkor::deleteRequest, volume, zid);
}

// The content of the first element `name` at any depth after `from`
// (CDATA unwrapped); "<missing>" when there is none.
std::string first(const std::string& reply, const std::string& name, const std::string& from = "");
// The result value of the element `tag`; -99999 when unreadable.
long resultOf(const std::string& reply, const std::string& tag);

// Two volumes: VOL1 (compression on) with a directory, files in every
// compression state, a deleted file and a data stream; VOL2 (compression off).
extern const char kFixture[];

// A test on kFixture whose daemon must end cleanly (sanitizer builds report
// their findings in its exit status).
class FixtureTest : public ::testing::Test {
 protected:
  testsupport::Simulator sim = testsupport::Simulator::withFixture(kFixture);
  void TearDown() override { EXPECT_EQ(sim.stop(), 0) << sim.daemonOutput(); }
};

}  // namespace simtest
