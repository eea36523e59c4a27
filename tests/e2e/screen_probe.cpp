// Draws a fixed sequence on the screen layer for screenUpdate_test: either
// copying the pad to the terminal after each output ("each") or inside
// grouped updates ("grouped"). At each checkpoint it creates DIR/NAME and
// waits for a key, so the test can read the terminal there. At the end it
// reads the keys typed ahead (once DIR/sent exists) and asks a yes/no question.
//
//   screen_probe each|grouped DIR
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "screen/screenInterface.h"

namespace {

std::string dir;
bool grouped = false;

void mark(const char* name) {
  int fd = open((dir + "/" + name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd >= 0) close(fd);
}

void checkpoint(ScreenInterface& screen, const char* name) {
  mark(name);
  screen.GetAKey();
}

void begin(ScreenInterface& screen) {
  if (grouped) screen.BeginUpdate();
}

void end(ScreenInterface& screen) {
  if (grouped) screen.EndUpdate();
}

const char* const kLabels[4] = {"Processed Files:    ", "Good Files:         ", "Fixable Files:      ",
                                "Corrupted Files:    "};

// One repaint of a counter block like the progress screen's: values in
// colour when non-zero, plain when zero, the same cells written again.
void counters(ScreenInterface& screen, unsigned round) {
  const unsigned values[4] = {round * 7, round * 5, round % 2, round > 1 ? 1000000u + round : 0};
  const int colours[4] = {7, 1, 5, 12};
  for (int i = 0; i < 4; ++i) {
    screen.PositionOutputCursor(8 + i, 24);
    screen.OutputToScreenWithAttribute(values[i] ? colours[i] : 7, "%15u", values[i]);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: screen_probe each|grouped DIR\n");
    return 2;
  }
  grouped = strcmp(argv[1], "grouped") == 0;
  dir = argv[2];
  ScreenInterface screen;

  screen.PositionOutputCursor(0, 20);
  screen.OutputToScreenWithAttribute(2, "KVF Compression Validate and Fix Screen\n");
  begin(screen);
  for (int i = 0; i < 4; ++i) {
    screen.PositionOutputCursor(8 + i, 4);
    screen.OutputToScreenWithAttribute(2, "%s", kLabels[i]);
  }
  counters(screen, 0);
  end(screen);
  checkpoint(screen, "first");

  for (unsigned round = 1; round <= 3; ++round) {
    begin(screen);
    counters(screen, round);
    if (round == 2) checkpoint(screen, "inside");  // grouped: nothing of this round is shown yet
    // A nested group, a cleared line redrawn, and an output ending in a newline.
    begin(screen);
    screen.PositionOutputCursor(13, 2);
    screen.OutputToScreenWithAttribute(13, "Last File Checked: (type: %s)", round == 2 ? "file" : "directory");
    end(screen);
    if (round == 2) checkpoint(screen, "nested");  // grouped: the inner group's end showed nothing either
    screen.PositionOutputCursor(23, 0);
    screen.ClearLine();
    screen.PositionOutputCursor(23, 2);
    screen.OutputToScreenWithAttribute(round == 3 ? 14 : 2, "STATUS: %s", round == 3 ? "user aborted" : "running");
    screen.PositionOutputCursor(4, 2);
    screen.OutputToScreenWithAttribute(2, "Time Elapsed: 00:00:0%u\n", round);
    end(screen);
    checkpoint(screen, ("round" + std::to_string(round)).c_str());
  }
  // A cleared line is not copied by itself, and a group without output copies
  // nothing: the terminal still shows the line.
  screen.PositionOutputCursor(13, 0);
  screen.ClearLine();
  begin(screen);
  end(screen);
  checkpoint(screen, "last");

  mark("keys");
  while (access((dir + "/sent").c_str(), F_OK) != 0) usleep(10000);
  const bool escape = screen.EatAllTypeAhead();
  screen.PositionOutputCursor(15, 2);
  screen.OutputToScreenWithAttribute(7, "escape typed ahead: %s", escape ? "yes" : "no");
  screen.PositionOutputCursor(16, 2);
  const bool yes = screen.PromptForYesOrNo(false, "Go on? ", false);
  screen.PositionOutputCursor(17, 2);
  screen.OutputToScreenWithAttribute(7, "answer: %s", yes ? "yes" : "no");
  checkpoint(screen, "answered");
  return 0;
}
