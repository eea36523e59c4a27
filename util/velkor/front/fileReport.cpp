// The details of a single file checked, on the screen (its log entry is
// CompStats::msgReady's).
#include <cstdio>
#include <cstring>
#include <string>

#include "velkor/beastRecords.h"
#include "common/lbString.h"
#include "velkor/velkorUI.h"

namespace velkor {

namespace {

const char* const kStatusTexts[11] = {
    "Good",           "Skipped checking",         "%d: Invalid attribute ", "%d: Invalid state ",
    "%d: Mismatched deleted flag ", "%d: Invalid zid ", "%d: Comp beast not found ", "%d: Comp beast EOF zero ",
    "%d: Bad comp header ", "%d: Mismatched zid ", "%d: No physical data ",
};

// The screen's status text: unnumbered "Good" and "Skipped checking", the
// others numbered from 1.
std::string statusText(unsigned long problems) {
  std::string text;
  int number = 1;
  char piece[64];
  for (int bit = 0; bit < 32; ++bit) {
    if (!(problems >> bit & 1)) continue;
    if (bit < 2) {
      text += kStatusTexts[bit];
      continue;
    }
    snprintf(piece, sizeof piece, bit < 11 ? kStatusTexts[bit] : "%d: Invalid message index ", number++);
    text += piece;
  }
  return text;
}

// The widest name and time text shown whole; a wider one is cut (FitToColumns).
const int kNameColumns = 63;
const int kTimeColumns = 19;  // "2023/03/29 05:36:58"

unsigned long long zidValue(const char* text) { return KVF::LB_strtouq(text, nullptr, 10); }

}  // namespace

void VELKOR_UserInterface::getTypeStr(char* out, unsigned long deletedFlag, unsigned long typeCode,
                                      unsigned long xmlForm) {
  strcpy(out, beastTypeText(deletedFlag != 0, static_cast<int>(typeCode), xmlForm != 0).c_str());
}

void VELKOR_UserInterface::displayFileInfo(const FileResult& result) {
  // A scan draws nothing per file.
  if (result.volumeLevel) return;
  const UncompBeastInfo* info = result.file;
  const CompBeastInfo* comp = result.compData;
  const unsigned long problems = result.problems;
  char type[64];
  getTypeStr(type, info->allNamesDeleted, info->beastType, 0);
  const char* action = result.fixed ? "fixed" : result.deleted ? "deleted" : "checked";

  drawAt(13, 2, kAttrHeading, "Last File Checked: (type: %s)", type);
  // Names and the times are the file system's texts: a name of 64 columns or
  // more is cut to 60 and "...".
  drawName(14, 4, kAttrText, "Volume Name:  ", info->name, kNameColumns);
  drawName(15, 4, kAttrText, "File Name:    ", result.name, kNameColumns);
  drawAt(16, 4, kAttrText, "File Status:  %-30s   Action Taken:  %s", statusText(problems).c_str(), action);
  if (problems & skippedChecking) return;

  drawAt(17, 4, kAttrText, "Zid:          0x%-16Lx               Attributes:    0x%-8Lx", zidValue(info->zid),
         static_cast<unsigned long long>(info->attributes));
  if (info->beastType == beastDirectory) return;
  int r = 1;
  if (info->beastType == beastFile) {
    int end = drawName(18, 4, kAttrText, "Created Time: ", info->createdTimeText, kTimeColumns);
    drawName(18, end, kAttrText, "                   Accessed Time: ", info->accessedTimeText, kTimeColumns);
    r = 2;
  }
  if (info->compInfo) {
    drawAt(17 + r, 4, kAttrText, "CompZid: 0x%-16Lx    UCPrecious: %d            CPrecious: %d",
           zidValue(info->compInfo->compZid), static_cast<int>(info->compInfo->ucPrecious),
           static_cast<int>(info->compInfo->cPrecious));
    drawAt(18 + r, 4, kAttrText, "Status:  %d                                             Action:    %d",
           static_cast<int>(info->compInfo->status), static_cast<int>(info->compInfo->action));
    r += 2;
  }
  if (comp) {
    if (problems & (mismatchedZid | mismatchedDeletedFlag)) {
      // Both figures come from the owner-zid text: the screen never shows the
      // compressed data's deleted flag (the log does).
      unsigned long long owner = zidValue(comp->uncompZid);
      drawAt(17 + r, 4, kAttrText, "Mismatched Zid: %16Lx   Mismatched Delete Flag: %d", owner, static_cast<int>(owner));
      r += 1;
    }
    if (!result.noHeader)
      drawAt(17 + r, 4, kAttrText, "Compress Header: %d %d %d %Lu %Lu", comp->compressCode, comp->compressMajorVersion,
             comp->compressMinorVersion, static_cast<unsigned long long>(comp->originalFileLength),
             static_cast<unsigned long long>(comp->compressedFileLength));
  }
}

}  // namespace velkor
