#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "velkor/velkor.h"

TEST(ObjectPath, VolumeNamesAndAbsolutePathsAreKeptRelativePathsJoined) {
  char* cwd = getcwd(nullptr, 0);
  struct { unsigned int operation; const char* argument; std::string expected; } cases[] = {
      {0x8, "../f", "../f"},
      {0x10, "VOL1", "VOL1"},
      {0x800, "/abs/f", "/abs/f"},
      {0x800, "../f", std::string(cwd) + "/../f"},
      {0x1000, "d/f", std::string(cwd) + "/d/f"},
      {128, "x", "x"},
      {129, "x", std::string(cwd) + "/x"},
  };
  for (const auto& c : cases) {
    char* path = formObjectPath(c.operation, c.argument);
    ASSERT_NE(nullptr, path);
    EXPECT_EQ(c.expected, path) << c.operation << " " << c.argument;
    free(path);
  }
  free(cwd);
}
