#include "screen/screenInterface.h"

#include <signal.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <clocale>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace {

const char kAnswerLetters[] = "ynYN";

// Set when the terminal signals a new size (SIGWINCH); the next copy to the
// screen takes it. The layer takes the size itself, where it can check it:
// curses, left to do so, takes whatever size the terminal reports the moment
// it next updates or looks for a key, and it leaves a SIGWINCH that already
// has a handler alone.
std::atomic<bool> sizeSignalled{false};
struct sigaction previousSizeAction;

void noteSize(int) { sizeSignalled = true; }

// The largest terminal curses is asked to hold, in cells. Curses keeps
// several copies of every cell, and nothing is drawn past the pad anyway; a
// larger size is one no terminal has (anyone who may use the terminal can
// set any size on it) and is refused.
const long kMaxCells = 1L << 20;

// Makes curses hold a screen of rows x cols. A size it cannot hold, or
// cannot have, leaves it with the size it has. True when the size changed.
bool takeSize(int rows, int cols) {
  if (rows == LINES && cols == COLS) return false;
  if (rows < 1 || cols < 1 || rows > SHRT_MAX || cols > SHRT_MAX || long(rows) * cols > kMaxCells) return false;
  const int oldRows = LINES, oldCols = COLS;
  if (resizeterm(rows, cols) == OK) return true;
  resizeterm(oldRows, oldCols);  // whatever it had changed goes back
  return false;
}

// Copies the pad's top-left corner to the terminal, after taking the
// terminal's new size when one was signalled: as much of the pad as curses's
// screen holds, never more (curses refuses a copy past its screen). False
// when curses refused it all the same. The copy starts at the pad's first row,
// or lower when the terminal is too short to show row `lowestRow` else.
bool copyToScreen(WINDOW* w, int lowestRow) {
  if (sizeSignalled.exchange(false)) {
    int rows = 0, cols = 0;
    if (GetTermSize(&rows, &cols) == 0) takeSize(rows, cols);
    // What the terminal showed may be cut, moved or gone, also when its size
    // is back to the one curses holds (it may have been through others since
    // the last copy): all is sent again.
    clearok(curscr, TRUE);
    touchwin(w);
  }
  const int top = lowestRow > LINES - 1 ? lowestRow - (LINES - 1) : 0;
  return prefresh(w, top, 0, 0, 0, LINES - 1, COLS - 1) == OK;
}

std::atomic<pthread_mutex_t*> screenGuard{nullptr};

}  // namespace

void SetScreenGuard(pthread_mutex_t* guard) { screenGuard = guard; }

void RestoreTerminal() {
  // Called from a signal handler too: it waits for the guard with trylock and
  // nanosleep (no blocking lock), at most about 250 ms, and leaves curses
  // mode all the same when another thread keeps it longer.
  pthread_mutex_t* guard = screenGuard;
  bool held = false;
  for (int i = 0; guard && i < 250 && !(held = pthread_mutex_trylock(guard) == 0); ++i) {
    struct timespec millisecond = {0, 1000000};
    nanosleep(&millisecond, nullptr);
  }
  endwin();
  if (held) pthread_mutex_unlock(guard);
}

int GetTermSize(int* rows, int* cols) {
  struct winsize size;
  *rows = 0;
  *cols = 0;
  if (ioctl(0, TIOCGWINSZ, &size) != 0) return -1;
  *rows = size.ws_row;
  *cols = size.ws_col;
  return 0;
}

ScreenInterface::ScreenInterface() : pad(nullptr), screen_(nullptr), hasColours_(false) {
  // Names are read as characters of the operator's character set; only the
  // character handling follows the environment (messages, numbers and times
  // stay as the program writes them).
  setlocale(LC_CTYPE, "");
  // A new terminal size is noted here and taken at the next copy (see
  // copyToScreen); installed before curses starts, which then leaves it.
  struct sigaction action = {};
  action.sa_handler = noteSize;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  sigaction(SIGWINCH, &action, &previousSizeAction);
  // newterm, unlike initscr, reports a missing terminal instead of exiting.
  screen_ = newterm(nullptr, stdout, stdin);
  if (!screen_) {
    sigaction(SIGWINCH, &previousSizeAction, nullptr);
    throw std::runtime_error("no terminal");
  }
  // Until a screen has once been suspended and resumed, curses flushes its
  // output at every cursor movement, so one update of a few counters reaches
  // the terminal in several writes. Doing that once here, before anything is
  // drawn, makes every later update a single write.
  endwin();
  doupdate();
  // Keys are read by the program itself; curses need not look for waiting
  // ones before every update (it would not hold an update back for them).
  typeahead(-1);
  pad = newpad(kPadRows, kPadColumns);
  if (!pad) {
    RestoreTerminal();
    delscreen(screen_);
    sigaction(SIGWINCH, &previousSizeAction, nullptr);
    throw std::runtime_error("no pad");
  }
  if (has_colors()) {
    hasColours_ = true;
    start_color();
    for (short pair = 0; pair < 8; ++pair) init_pair(pair, COLOR_WHITE, COLOR_BLUE);
  }
  curs_set(0);
  noecho();
  // Keys arrive one at a time, so "any key" and Escape need no Enter.
  cbreak();
  keypad(pad, TRUE);
  set_escdelay(100);
  Redraw();
}

ScreenInterface::~ScreenInterface() {
  RestoreTerminal();
  if (pad) delwin(pad);
  delscreen(screen_);
  sigaction(SIGWINCH, &previousSizeAction, nullptr);
}

attr_t ScreenInterface::AttributesFor(int attribute) const {
  if (!hasColours_) return A_NORMAL;
  switch (attribute) {
    case kAttrHidden: return A_INVIS;
    case kAttrEmphasis: return COLOR_PAIR(4) | A_BOLD;
    case kAttrText: return COLOR_PAIR(2);
    case 4: case kAttrWarning: return COLOR_PAIR(1);
    case kAttrAccent: return COLOR_PAIR(5) | A_BOLD;
    case kAttrFigure: return COLOR_PAIR(3);
    case kAttrPlain: return A_NORMAL;
    case kAttrBold: return COLOR_PAIR(2) | A_BOLD;
    case kAttrHeading: return COLOR_PAIR(5);
    case kAttrAlert: return COLOR_PAIR(3) | A_BOLD;
    default: return COLOR_PAIR(4);
  }
}

void ScreenInterface::PositionOutputCursor(int row, int col) { wmove(pad, row, col); }

void ScreenInterface::GetOutputCursor(int& row, int& col) {
  if (!pad) {
    row = col = -1;
    return;
  }
  getyx(pad, row, col);
}

void ScreenInterface::OutputToScreenWithAttribute(int attribute, const char* format, ...) {
  va_list args;
  va_start(args, format);
  OutputToScreenWithAttributeV(attribute, format, args);
  va_end(args);
}

void ScreenInterface::OutputToScreenWithAttributeV(int attribute, const char* format, va_list args) {
  attr_t attrs = AttributesFor(attribute);
  if (attrs != A_NORMAL) wattron(pad, attrs);
  vw_printw(pad, format, args);
  if (attrs != A_NORMAL) wattroff(pad, attrs);
  Output();
}

void ScreenInterface::OutputTextWithAttribute(int attribute, const std::wstring& text) {
  attr_t attrs = AttributesFor(attribute);
  if (attrs != A_NORMAL) wattron(pad, attrs);
  waddnwstr(pad, text.c_str(), static_cast<int>(text.size()));
  if (attrs != A_NORMAL) wattroff(pad, attrs);
  Output();
}

void ScreenInterface::Output() {
  int row, col;
  getyx(pad, row, col);
  (void)col;
  if (row > lowestRow_) lowestRow_ = row;
  if (updateDepth_ > 0) {
    copyPending_ = true;
    return;
  }
  CopyPadToScreen();
}

void ScreenInterface::SetDeferredDrawing(std::function<void()> draw) { deferred_ = std::move(draw); }

void ScreenInterface::DrawDeferred() {
  if (!deferredDue_) return;
  deferredDue_ = false;
  if (!deferred_) return;
  int row, col;
  getyx(pad, row, col);
  ++updateDepth_;
  deferred_();
  --updateDepth_;
  wmove(pad, row, col);
}

bool ScreenInterface::PaceElapsed() const {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (now.tv_sec - lastCopy_.tv_sec) * 1000LL + (now.tv_nsec - lastCopy_.tv_nsec) / 1000000 >= kPaceMs;
}

void ScreenInterface::CopyPadToScreen() {
  DrawDeferred();
  clock_gettime(CLOCK_MONOTONIC, &lastCopy_);
  // A refused copy leaves the whole pad to be sent at the next one.
  copyPending_ = !copyToScreen(pad, lowestRow_);
  if (copyPending_) touchwin(pad);
}

void ScreenInterface::BeginUpdate() { ++updateDepth_; }

void ScreenInterface::EndUpdate(bool paced) {
  if (updateDepth_ == 0 || --updateDepth_ > 0 || !copyPending_) return;
  if (paced && !PaceElapsed()) return;  // stays pending
  CopyPadToScreen();
}

void ScreenInterface::Flush() {
  if (updateDepth_ > 0) return;
  DrawDeferred();
  if (copyPending_) CopyPadToScreen();
}

void ScreenInterface::ClearLine() {
  int row, col;
  getyx(pad, row, col);
  (void)col;
  wmove(pad, row, 0);
  wclrtoeol(pad);
}

void ScreenInterface::ClearScreen() {
  werase(pad);
  lowestRow_ = 0;
}

void ScreenInterface::Redraw() {
  int rows = 0, cols = 0;
  sizeSignalled = false;
  if (GetTermSize(&rows, &cols) == 0) takeSize(rows, cols);
  // Discard a pending key (the resize itself) without waiting for one.
  nodelay(pad, TRUE);
  wgetch(pad);
  nodelay(pad, FALSE);
  clear();
  refresh();
  touchwin(pad);
  wbkgd(pad, hasColours_ ? COLOR_PAIR(4) : A_NORMAL);
  CopyPadToScreen();
}

int ScreenInterface::KeyKind(int key) {
  int k = kKeyCharacter;
  if (key >= KEY_F(0) && key <= KEY_F(63)) k = kKeyFunction;
  else if (key == KEY_ENTER) k = kKeyEnter;
  else if (key == kEscapeCode) k = kKeyEscape;
  else if (key == KEY_BACKSPACE) k = kKeyBackspace;
  else if (key == KEY_DC) k = kKeyDelete;
  else if (key == KEY_IC) k = kKeyInsert;
  else if (key == KEY_UP) k = kKeyUp;
  else if (key == KEY_DOWN) k = kKeyDown;
  else if (key == KEY_RIGHT) k = kKeyRight;
  else if (key == KEY_LEFT) k = kKeyLeft;
  else if (key == KEY_HOME) k = kKeyHome;
  else if (key == KEY_END) k = kKeyEnd;
  else if (key == KEY_PPAGE) k = kKeyPageUp;
  else if (key == KEY_NPAGE) k = kKeyPageDown;
  return k;
}

void ScreenInterface::GetKey(WINDOW* w, int* kind, int* ch, int* extra1, int* extra2, unsigned long) {
  if (!w) return;
  int key = wgetch(w);
  while (key == KEY_RESIZE) {
    Redraw();
    key = wgetch(w);
  }
  if (kind) *kind = KeyKind(key);
  if (ch) *ch = key & 0xff;
  if (extra1) *extra1 = 0;
  if (extra2) *extra2 = 0;
}

int ScreenInterface::GetAKey() {
  int ch = 0;
  GetKey(pad, nullptr, &ch, nullptr, nullptr, 0);
  return ch;
}

bool ScreenInterface::EatAllTypeAhead() {
  bool escape = false;
  nodelay(pad, TRUE);
  for (int key; (key = wgetch(pad)) != ERR;) escape = escape || KeyKind(key) == kKeyEscape;
  nodelay(pad, FALSE);
  return escape;
}

int ScreenInterface::PromptForYesOrNo2(unsigned int defaultFlags, const char* prompt) {
  int defaultAnswer = (defaultFlags & 1) ? 1 : 0;
  char defaultLetter = kAnswerLetters[defaultAnswer ? 0 : 1];
  OutputToScreen(pad, "%s", prompt);
  int row, col;
  getyx(pad, row, col);
  OutputToScreen(pad, "%c", defaultLetter);
  wmove(pad, row, col);
  for (;;) {
    int kind = 0, ch = 0;
    GetKey(pad, &kind, &ch, nullptr, nullptr, 0);
    if (kind == kKeyEnter || (kind == kKeyCharacter && (ch == '\n' || ch == '\r'))) break;
    if (kind == kKeyEscape) {
      if (defaultFlags & ~1u) {
        OutputToScreen(pad, "y\r\n");
        return -1;
      }
      break;
    }
    if (kind == kKeyCharacter && (ch == kAnswerLetters[0] || ch == kAnswerLetters[2])) {
      OutputToScreen(pad, "y\r\n");
      return 1;
    }
    if (kind == kKeyCharacter && (ch == kAnswerLetters[1] || ch == kAnswerLetters[3])) {
      OutputToScreen(pad, "n\r\n");
      return 0;
    }
    beep();
  }
  OutputToScreen(pad, "%c\r\n", defaultLetter);
  return defaultAnswer;
}

bool ScreenInterface::PromptForYesOrNo(bool defaultYes, const char* prompt, bool clearAfter) {
  Flush();
  EatAllTypeAhead();
  int answer = PromptForYesOrNo2(defaultYes ? 1u : 0u, prompt);
  if (clearAfter) ClearLine();
  return answer != 0;
}

void OutputToScreen(WINDOW* w, const char* format, ...) {
  va_list args;
  va_start(args, format);
  OutputToScreenWithPointer(w, format, args);
  va_end(args);
}

void OutputToScreenWithPointer(WINDOW* w, const char* format, va_list args) {
  vw_printw(w, format, args);
  if (!copyToScreen(w, getcury(w))) touchwin(w);  // all of it goes with the next copy
}
