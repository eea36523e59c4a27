// ScreenInterface: a thin layer over curses. All drawing goes to one off-screen
// pad that is copied to the terminal after each write (or, for a paced update,
// at a human rate); attributes are numbers.
// Not thread-safe by itself: curses keeps one global state, so a program that
// draws from several threads serialises every call of this layer (velkor's
// interface object holds its screen lock around each one, and that lock also
// guards the pending-copy state below).
#pragma once

#include <curses.h>

#include <pthread.h>

#include <time.h>

#include <cstdarg>
#include <functional>
#include <string>

#include "screen/screenAttributes.h"

// Logical key kinds returned by ScreenInterface::GetKey.
enum KeyKind {
  kKeyCharacter = 0,
  kKeyFunction = 1,
  kKeyEnter = 2,
  kKeyEscape = 3,
  kKeyBackspace = 4,
  kKeyDelete = 5,
  kKeyInsert = 6,
  kKeyUp = 7,
  kKeyDown = 8,
  kKeyRight = 9,
  kKeyLeft = 10,
  kKeyHome = 11,
  kKeyEnd = 12,
  kKeyPageUp = 13,
  kKeyPageDown = 14,
};

class ScreenInterface {
 public:
  static const int kPadRows = 100;
  static const int kPadColumns = 320;

  // Takes the character handling (LC_CTYPE, nothing else) from the
  // environment and enters curses mode; throws std::runtime_error when no
  // screen can be had.
  ScreenInterface();
  ~ScreenInterface();
  ScreenInterface(const ScreenInterface&) = delete;
  ScreenInterface& operator=(const ScreenInterface&) = delete;

  void PositionOutputCursor(int row, int col);
  void GetOutputCursor(int& row, int& col);
  void OutputToScreenWithAttribute(int attribute, const char* format, ...);
  void OutputToScreenWithAttributeV(int attribute, const char* format, va_list args);
  // Wide characters, as they are: text the program does not choose goes
  // through DisplayText (screen/displayText.h) first.
  void OutputTextWithAttribute(int attribute, const std::wstring& text);
  void ClearLine();
  void ClearScreen();
  void Redraw();
  void GetKey(WINDOW* w, int* kind, int* ch, int* extra1, int* extra2, unsigned long flags);
  int GetAKey();
  // Reads every key already typed, without waiting for one; returns whether
  // an Escape (kKeyEscape) was among them.
  bool EatAllTypeAhead();
  bool PromptForYesOrNo(bool defaultYes, const char* prompt, bool clearAfter);

  // Copies the pad's left part, as large as curses's screen, to the
  // terminal, from the first row or from low enough to show the lowest row
  // drawn so far; that also sends whatever a paced update left pending. A new
  // terminal size (SIGWINCH) is taken here, at the first copy after it, and
  // the whole pad sent again; a size that curses cannot hold is refused and
  // the screen keeps the size it has. A copy that curses refuses leaves the
  // pad pending, to be sent whole by the next one.
  void CopyPadToScreen();

  // Outputs between BeginUpdate and the matching EndUpdate go to the pad
  // only; EndUpdate copies the pad to the screen once when any was made. The
  // terminal then shows what a copy after each output would have left on it,
  // for one terminal update instead of one per output. Pairs may nest.
  //
  // A paced end (the outermost one decides) copies only when the last copy is
  // at least kPaceMs old; otherwise the pad's changes stay pending until the
  // next copy of any kind: a later paced end past the interval, any output
  // outside an update, or Flush. A caller that paces must make sure one of
  // those comes (velkor's timer repaints once a second).
  static const int kPaceMs = 50;
  void BeginUpdate();
  void EndUpdate(bool paced = false);
  // Sends what paced updates left pending, at once; nothing when none is.
  void Flush();

  // Drawing left to the next copy: after DeferDrawing, the next copy of any
  // kind (or Flush) first calls `draw` (with the pad's cursor kept), so
  // figures that change many times between two copies are drawn once per
  // copy, and every copy shows them as a drawing per change would have.
  void SetDeferredDrawing(std::function<void()> draw);
  void DeferDrawing() { deferredDue_ = true; }
  // Whether a paced end would copy now (the last copy is kPaceMs old).
  bool PaceElapsed() const;

 private:
  static const int kEscapeCode = 27;
  // The kind (kKey...) of a curses key code.
  static int KeyKind(int key);
  int PromptForYesOrNo2(unsigned int defaultFlags, const char* prompt);
  // After an output: a copy to the screen, or a pending one inside an update.
  void Output();
  attr_t AttributesFor(int attribute) const;

  WINDOW* pad;
  SCREEN* screen_;
  bool hasColours_;
  int updateDepth_ = 0;
  bool copyPending_ = false;      // the pad has changes the terminal lacks
  // The lowest pad row an output has reached since the pad was cleared: a
  // terminal too short for the layout shows the pad from lower down, so that
  // the rows drawn last (the status, the final prompt) are seen.
  int lowestRow_ = 0;
  struct timespec lastCopy_ = {};  // CLOCK_MONOTONIC time of the last copy
  std::function<void()> deferred_;
  bool deferredDue_ = false;
  // Draws what DeferDrawing left, into the pad only.
  void DrawDeferred();
};

// Leaves curses mode, giving the terminal back as it was found (cursor,
// normal screen, echo and line mode). The one restoration routine of the
// program: called on every exit path (normal end, exit(), a handled
// termination signal); harmless when curses mode is not active. It holds the
// screen guard, when one is set, while it does so.
void RestoreTerminal();
// The lock a program holds around all its drawing (null: none), so that
// RestoreTerminal, also run by a signal handler, does not leave curses mode
// in the middle of another thread's drawing.
void SetScreenGuard(pthread_mutex_t* guard);

// The terminal's size from descriptor 0; -1 (and 0 x 0) when it can't be read.
int GetTermSize(int* rows, int* cols);

void OutputToScreen(WINDOW* w, const char* format, ...);
void OutputToScreenWithPointer(WINDOW* w, const char* format, va_list args);
