// The report of one checked file: its entry in the run log and, for the
// single-file operations, its details on the screen.
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>

#include "velkor/beastRecords.h"
#include "velkor/logElements.h"
#include "common/lbString.h"
#include "velkor/velkorUI.h"

namespace velkor {

namespace {

const char* const kStatusTexts[11] = {
    "Good",           "Skipped checking",         "%d: Invalid attribute ", "%d: Invalid state ",
    "%d: Mismatched deleted flag ", "%d: Invalid zid ", "%d: Comp beast not found ", "%d: Comp beast EOF zero ",
    "%d: Bad comp header ", "%d: Mismatched zid ", "%d: No physical data ",
};

// One element per set problem bit, lowest first; higher bits read as invalid state.
std::string statusElements(unsigned long problems) {
  std::string text;
  for (int bit = 0; bit < 32; ++bit) {
    if (problems >> bit & 1) {
      text += '<';
      text += problemElement(bit);
      text += "/>";
    }
  }
  return text;
}

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

unsigned long long zidValue(const char* text) { return KVF::LB_strtouq(text, nullptr, 10); }

}  // namespace

void VELKOR_UserInterface::getTypeStr(char* out, unsigned long deletedFlag, unsigned long typeCode,
                                      unsigned long xmlForm) {
  static const char* const texts[] = {"unknown", "data stream", "extended attribute", "file", "directory"};
  static const char* const elements[] = {"<unknown/>", "<dataStream/>", "<extendedAttribute/>", "<file/>",
                                         "<directory/>"};
  out[0] = '\0';
  if (deletedFlag) strcpy(out, xmlForm ? "<deleted/>" : "deleted ");
  unsigned long index = typeCode >= 1 && typeCode <= 4 ? typeCode : 0;
  strcat(out, xmlForm ? elements[index] : texts[index]);
}

void writeLogEntry(std::ostream& log, uint64_t operation, UncompBeastInfo* info, CompBeastInfo* comp,
                   const char* name, unsigned long problems, unsigned long noHeader, unsigned long fixed,
                   unsigned long deleted) {
  char type[64];
  VELKOR_UserInterface::getTypeStr(type, info->allNamesDeleted, info->beastType, 1);
  log << "<entry><volume>" << info->name << "</volume>"
      << "<name>" << (name ? name : "") << "</name>"
      << "<type>" << type << "</type>"
      << "<fileStatus>" << statusElements(problems) << "</fileStatus>";
  if (fixed) log << "<action><fixed/></action>";
  if (deleted) log << "<actionTaken><deleted/></actionTaken>";
  if (!(problems & skippedChecking)) {
    log << "<zid>" << info->zid << "</zid>"
        << "<attributes>" << std::hex << std::showbase << info->attributes << std::dec << "</attributes>";
    bool volumeLevelGood = operation < 129 && (problems & good);
    if (info->beastType != 4 && !volumeLevelGood) {
      // The created time's closing tag is spelled with a lower-case t.
      if (info->beastType == 3)
        log << "<createdTime>" << info->createdTimeText << "</createdtime>"
            << "<accessedTime>" << info->accessedTimeText << "</accessedTime>";
      if (info->compInfo)
        log << "<compInfo><compZid>" << info->compInfo->compZid << "</compZid><ucPrecious>"
            << info->compInfo->ucPrecious << "</ucPrecious><cPrecious>" << info->compInfo->cPrecious
            << "</cPrecious><status>" << info->compInfo->status << "</status><action>" << info->compInfo->action
            << "</action></compInfo>";
      if (comp) {
        if (problems & mismatchedZid) log << "<uncompZid>" << comp->uncompZid << "</uncompZid>";
        if (problems & mismatchedDeletedFlag) log << "<compDeleteFlag>" << comp->uncompBeastDeleted << "</compDeleteFlag>";
        // The compHeader element is left open.
        if (!noHeader)
          log << "<compHeader><compressCode>" << comp->compressCode << "</compressCode><compressMajorVersion>"
              << comp->compressMajorVersion << "</compressMajorVersion><compressMinorVersion>"
              << comp->compressMinorVersion << "</compressMinorVersion><originalFileLength>"
              << comp->originalFileLength << "</originalFileLength><compressedFileLength>"
              << comp->compressedFileLength << "</compressedFileLength>";
      }
    }
  }
  log << "</entry>" << "\n";
}

void VELKOR_UserInterface::logFileInfo(UncompBeastInfo* info, CompBeastInfo* comp, char* name, unsigned long problems,
                                       unsigned long noHeader, unsigned long fixed, unsigned long deleted) {
  // The entry is put together first and written whole: the log's stream
  // flushes after every insertion, which would cost a write per field. It is
  // formatted with the log's own flags, and hands back the ones it leaves.
  std::ostringstream log;
  log.flags(std::cerr.flags());
  writeLogEntry(log, operation, info, comp, name, problems, noHeader, fixed, deleted);
  std::cerr.flags(log.flags());
  std::cerr << log.str();
  std::cerr.flush();
}

void VELKOR_UserInterface::displayFileInfo(UncompBeastInfo* info, CompBeastInfo* comp, char* name,
                                           unsigned long problems, unsigned long noHeader, unsigned long fixed,
                                           unsigned long deleted) {
  if (operation < 128) {
    // A scan logs only what has something to report and draws nothing.
    if (problems != good) logFileInfo(info, comp, name, problems, noHeader, fixed, deleted);
    return;
  }
  logFileInfo(info, comp, name, problems, noHeader, fixed, deleted);

  char type[64];
  getTypeStr(type, info->allNamesDeleted, info->beastType, 0);
  std::string shownName = name ? name : "";
  if (shownName.size() >= 64) shownName = shownName.substr(0, 60) + "...";
  const char* action = fixed ? "fixed" : deleted ? "deleted" : "checked";

  drawAt(13, 2, 13, "Last File Checked: (type: %s)", type);
  drawAt(14, 4, 2, "Volume Name:  %s", info->name);
  drawAt(15, 4, 2, "File Name:    %s", shownName.c_str());
  drawAt(16, 4, 2, "File Status:  %-30s   Action Taken:  %s", statusText(problems).c_str(), action);
  if (problems & skippedChecking) return;

  drawAt(17, 4, 2, "Zid:          0x%-16Lx               Attributes:    0x%-8Lx", zidValue(info->zid),
         static_cast<unsigned long long>(info->attributes));
  if (info->beastType == 4) return;
  int r = 1;
  if (info->beastType == 3) {
    drawAt(18, 4, 2, "Created Time: %s                   Accessed Time: %s", info->createdTimeText,
           info->accessedTimeText);
    r = 2;
  }
  if (info->compInfo) {
    drawAt(17 + r, 4, 2, "CompZid: 0x%-16Lx    UCPrecious: %d            CPrecious: %d",
           zidValue(info->compInfo->compZid), static_cast<int>(info->compInfo->ucPrecious),
           static_cast<int>(info->compInfo->cPrecious));
    drawAt(18 + r, 4, 2, "Status:  %d                                             Action:    %d",
           static_cast<int>(info->compInfo->status), static_cast<int>(info->compInfo->action));
    r += 2;
  }
  if (comp) {
    if (problems & (mismatchedZid | mismatchedDeletedFlag)) {
      // Both figures come from the owner-zid text: the screen never shows the
      // compressed data's deleted flag (the log does).
      unsigned long long owner = zidValue(comp->uncompZid);
      drawAt(17 + r, 4, 2, "Mismatched Zid: %16Lx   Mismatched Delete Flag: %d", owner, static_cast<int>(owner));
      r += 1;
    }
    if (!noHeader)
      drawAt(17 + r, 4, 2, "Compress Header: %d %d %d %Lu %Lu", comp->compressCode, comp->compressMajorVersion,
             comp->compressMinorVersion, static_cast<unsigned long long>(comp->originalFileLength),
             static_cast<unsigned long long>(comp->compressedFileLength));
  }
}

}  // namespace velkor
