// The screen layer's grouped updates: a group of outputs leaves the terminal
// showing exactly what a copy after every output shows (text, attributes,
// colours, cursor), and shows none of them before the group ends.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "process.h"

extern "C" {
#include <vterm.h>
}

namespace {

using Clock = std::chrono::steady_clock;

const int kRows = 25, kCols = 100;
const std::vector<std::string> kCheckpoints = {"first", "round1", "inside", "nested", "round2", "round3", "last"};

// The terminal as text: each row's characters, then a row of attribute
// letters (one letter per distinct bold/reverse/foreground/background
// combination, in order of appearance), then the cursor.
std::string snapshot(VTerm* vt) {
  VTermScreen* screen = vterm_obtain_screen(vt);
  std::vector<std::string> kinds;
  std::string out;
  for (int r = 0; r < kRows; ++r) {
    std::string text, attrs;
    for (int c = 0; c < kCols; ++c) {
      VTermScreenCell cell;
      vterm_screen_get_cell(screen, VTermPos{r, c}, &cell);
      text += cell.chars[0] == 0 ? ' ' : cell.chars[0] < 0x80 ? static_cast<char>(cell.chars[0]) : '?';
      std::string kind = std::to_string(cell.attrs.bold) + std::to_string(cell.attrs.reverse) + "/";
      for (const VTermColor* colour : {&cell.fg, &cell.bg})
        kind += VTERM_COLOR_IS_DEFAULT_FG(colour) || VTERM_COLOR_IS_DEFAULT_BG(colour) ? std::string("d")
                : VTERM_COLOR_IS_INDEXED(colour) ? std::to_string(colour->indexed.idx)
                                                 : std::to_string(colour->rgb.red) + "." +
                                                       std::to_string(colour->rgb.green) + "." +
                                                       std::to_string(colour->rgb.blue);
      size_t k = 0;
      while (k < kinds.size() && kinds[k] != kind) ++k;
      if (k == kinds.size()) kinds.push_back(kind);
      attrs += static_cast<char>('a' + k % 26);
    }
    out += text + "\n" + attrs + "\n";
  }
  VTermPos cursor;
  vterm_state_get_cursorpos(vterm_obtain_state(vt), &cursor);
  return out + "cursor " + std::to_string(cursor.row) + "," + std::to_string(cursor.col) + "\n";
}

bool exists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

// Runs the probe in a pseudo-terminal read by a terminal emulator and returns
// the screen at each checkpoint.
std::map<std::string, std::string> screensAt(const char* mode) {
  std::map<std::string, std::string> screens;
  testsupport::TempDir dir;
  std::string probe = testsupport::binaryPath("tests/unit/screen_probe");
  winsize size = {};
  size.ws_row = kRows;
  size.ws_col = kCols;
  int master = -1;
  pid_t pid = forkpty(&master, nullptr, nullptr, &size);
  if (pid < 0) {
    ADD_FAILURE() << "forkpty failed";
    return screens;
  }
  if (pid == 0) {
    setenv("TERM", "xterm", 1);
    execl(probe.c_str(), probe.c_str(), mode, dir.path().c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  VTerm* vt = vterm_new(kRows, kCols);
  vterm_set_utf8(vt, 1);
  vterm_screen_reset(vterm_obtain_screen(vt), 1);

  // Reads what the terminal received, until nothing has come for `quiet`.
  auto pump = [&](std::chrono::milliseconds quiet) {
    char buf[65536];
    for (;;) {
      pollfd p = {master, POLLIN, 0};
      if (poll(&p, 1, static_cast<int>(quiet.count())) <= 0) return;
      ssize_t n = read(master, buf, sizeof buf);
      if (n <= 0) return;
      vterm_input_write(vt, buf, static_cast<size_t>(n));
    }
  };
  for (const std::string& name : kCheckpoints) {
    auto deadline = Clock::now() + std::chrono::seconds(20);
    while (!exists(dir.file(name)) && Clock::now() < deadline) pump(std::chrono::milliseconds(10));
    if (!exists(dir.file(name))) {
      ADD_FAILURE() << mode << ": the probe did not reach " << name;
      break;
    }
    // Its output was written before the checkpoint was marked.
    pump(std::chrono::milliseconds(150));
    screens[name] = snapshot(vt);
    if (write(master, "x", 1) != 1) ADD_FAILURE() << "cannot type into the terminal";
  }
  pump(std::chrono::milliseconds(100));
  int status = 0;
  auto deadline = Clock::now() + std::chrono::seconds(10);
  while (waitpid(pid, &status, WNOHANG) != pid) {
    if (Clock::now() > deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      ADD_FAILURE() << mode << ": the probe did not end";
      break;
    }
    pump(std::chrono::milliseconds(10));
  }
  close(master);
  vterm_free(vt);
  return screens;
}

class GroupedUpdate : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    each = new std::map<std::string, std::string>(screensAt("each"));
    grouped = new std::map<std::string, std::string>(screensAt("grouped"));
  }
  static void TearDownTestSuite() {
    delete each;
    delete grouped;
  }
  static std::map<std::string, std::string>* each;
  static std::map<std::string, std::string>* grouped;
};

std::map<std::string, std::string>* GroupedUpdate::each = nullptr;
std::map<std::string, std::string>* GroupedUpdate::grouped = nullptr;

TEST_F(GroupedUpdate, ProbeDrewWhatItShould) {
  ASSERT_EQ(kCheckpoints.size(), each->size());
  const std::string& last = each->at("last");
  EXPECT_NE(std::string::npos, last.find("KVF Compression Validate and Fix Screen")) << last;
  EXPECT_NE(std::string::npos, last.find("Corrupted Files:            1000003")) << last;
  EXPECT_NE(std::string::npos, last.find("STATUS: user aborted")) << last;
  EXPECT_NE(std::string::npos, last.find("Time Elapsed: 00:00:03")) << last;
}

TEST_F(GroupedUpdate, EndOfGroupShowsWhatACopyPerOutputShows) {
  ASSERT_EQ(kCheckpoints.size(), grouped->size());
  for (const char* name : {"first", "round1", "round2", "round3", "last"})
    EXPECT_EQ(each->at(name), grouped->at(name)) << "at " << name;
}

TEST_F(GroupedUpdate, NothingOfAnOpenGroupIsShown) {
  ASSERT_EQ(kCheckpoints.size(), grouped->size());
  // Copied per output, the new counters are there at once; grouped, the
  // terminal still shows the end of the previous round.
  EXPECT_NE(each->at("round1"), each->at("inside"));
  EXPECT_EQ(grouped->at("round1"), grouped->at("inside"));
  // The end of a nested group is not the end of the outer one.
  EXPECT_NE(each->at("inside"), each->at("nested"));
  EXPECT_EQ(grouped->at("round1"), grouped->at("nested"));
}

TEST_F(GroupedUpdate, EmptyGroupCopiesNothing) {
  ASSERT_EQ(kCheckpoints.size(), grouped->size());
  // A line cleared just before an empty group is still shown, as it is when
  // nothing is grouped.
  EXPECT_EQ(each->at("round3"), each->at("last"));
  EXPECT_EQ(grouped->at("round3"), grouped->at("last"));
  EXPECT_NE(std::string::npos, grouped->at("last").find("Last File Checked: (type: directory)"));
}

}  // namespace
