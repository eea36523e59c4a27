// The screen layer's display attributes, apart from curses, so that code that
// only names them need not include it.
#pragma once

// Display attributes, by the number OutputToScreenWithAttribute takes. On a
// terminal with colours every attribute is white on blue (the plain one in
// the terminal's own colours), some bold; without colours all are plain.
enum ScreenAttribute : int {
  kAttrHidden = 0,
  kAttrEmphasis = 1,  // bold
  kAttrText = 2,      // ordinary text
  kAttrAccent = 5,    // bold
  kAttrFigure = 6,    // recounted figures
  kAttrPlain = 7,     // the terminal's own colours: counters at zero
  kAttrBold = 10,
  kAttrPrompt = 11,
  kAttrWarning = 12,
  kAttrHeading = 13,
  kAttrAlert = 14,  // bold: problems found, abort question
};
