#include "expect.h"

#include <nlohmann/json.hpp>

namespace kvfsim {

const CompBeast* compBeastOf(Volume& v, const Beast& b) {
  return b.hasComp && b.comp.compZid ? v.findCompBeast(b.comp.compZid) : nullptr;
}

uint32_t detectProblems(const Beast& b, const CompBeast* c, bool skipHeader) {
  uint32_t word = kGood;
  auto set = [&word](uint32_t bit) { word = (word & ~uint32_t(kGood)) | bit; };
  const bool dsc = b.attributes & kDataStreamCompress;
  if (b.attributes & kSubdirectory) return word;
  if (b.openCount != 0) {
    set(kSkippedChecking);
    return word;
  }
  if (!b.hasComp) {
    if (dsc) set(kInvalidAttribute);
    if (b.eof != 0 && b.physSize == 0) set(kNoPhysicalData);
    return word;
  }
  const CompRecord& r = b.comp;
  const bool noZid = r.compZid == 0;
  if (!noZid && !c) {
    set(kCompBeastNotFound);
    return word;
  }
  if (r.ucPrecious == 1 && r.cPrecious == 0) {
    if ((r.status & 3) != 1) set(kInvalidState);
    else if (r.status & kClean) {
      if ((r.action & kAddCompLog) || dsc) set(kInvalidState);
    } else if (!(r.action & kAddCompLog) || dsc) {
      set(kInvalidState);
    }
  } else if (r.ucPrecious == 1 && r.cPrecious == 1) {
    set(kInvalidState);
    if (noZid) {
      set(kInvalidZid);
      return word;
    }
  } else if (r.ucPrecious == 0 && r.cPrecious == 1) {
    if ((r.status & 0xB) != 0xA || !dsc) set(kInvalidState);
    if (noZid) {
      set(kInvalidZid);
      return word;
    }
  } else {
    set(kInvalidState);
  }
  if (noZid) return word;
  if (c->variableData && c->deleted != b.allNamesDeleted()) set(kMismatchedDeletedFlag);
  if (r.cPrecious == 0) return word;
  if (c->eof == 0) {
    set(kCompBeastEOFZero);
    return word;
  }
  if (c->owner != b.zid) set(kMismatchedZid);
  if (!skipHeader) {
    bool vd = c->variableData;  // without variable data the header reads as zeros
    if (!vd || c->compressCode > 2 || c->majorVersion != 1 || c->minorVersion != 0 || c->originalLength != b.eof ||
        c->compressedLength == 0)
      set(kBadCompHeader);
  }
  return word;
}

bool repair(Beast& b, CompBeast* c, uint32_t problems) {
  if ((b.attributes & kSubdirectory) || (problems & kSkippedChecking) || !b.hasComp) return false;
  CompRecord& r = b.comp;
  const bool dsc = b.attributes & kDataStreamCompress;
  const bool addLog = r.action & kAddCompLog;
  if (r.ucPrecious == 1 && r.cPrecious == 1) {
    r.status &= ~uint32_t(kClean);
  } else if (r.ucPrecious == 1 && r.cPrecious == 0 && (r.status & 3) == 1) {
    b.attributes &= ~uint32_t(kDataStreamCompress);
    r.action &= ~uint32_t(kAddCompLog);
  } else if (r.ucPrecious == 1 && r.cPrecious == 0 && (r.status & 0xB) == 0xA && r.compZid != 0) {
    if (!c) return true;
    if (c->physSize != 0) {
      r.cPrecious = 1;
      r.status = (r.status & ~uint32_t(kClean)) | kUncompressed;
    }
  } else if (r.ucPrecious == 0 && r.cPrecious == 1 && (r.status & 0xB) == 0xA && !(dsc && !addLog)) {
    if (!dsc) b.attributes = (b.attributes | kDataStreamCompress) & ~uint32_t(kNoStreamCompress);
    r.action &= ~uint32_t(kAddCompLog);
  }
  if (c && c->variableData) c->deleted = b.allNamesDeleted();
  return true;
}

namespace {

// Adds one object to the counts of a run; returns the problem word.
uint32_t count(RunCounts& n, const Beast& b, const CompBeast* c, bool skipHeader) {
  uint32_t word = detectProblems(b, c, skipHeader);
  ++n.processed;
  if (word & kCorruptedMask) ++n.corrupted;
  else if (word & kFixableMask) ++n.fixable;
  else if (word & kSkippedChecking) ++n.openSkipped;
  else if (word & kGood) ++n.good;
  return word;
}

nlohmann::json countsJson(const RunCounts& n) {
  return {{"processed", n.processed}, {"good", n.good},       {"openSkipped", n.openSkipped},
          {"fixable", n.fixable},     {"corrupted", n.corrupted}, {"fixed", n.fixed},
          {"deleted", n.deleted},     {"ccBitCleared", n.ccBitCleared}};
}

nlohmann::json statsJson(const VolumeStats& s) {
  return {{"compressedFiles", s.compressedFiles},
          {"compressedDeletedFiles", s.compressedDeletedFiles},
          {"uncompressibleFiles", s.uncompressibleFiles},
          {"preCompressionBlocks", s.preCompressionBlocks},
          {"compressedBlocks", s.compressedBlocks}};
}

}  // namespace

Expectations expect(Volume& v) {
  Expectations e;
  e.volume = v.name;
  e.stats = v.stats;
  e.statsRecount = v.recount();
  for (const Beast& b : v.beasts) {
    if (b.removed) continue;
    const CompBeast* c = compBeastOf(v, b);
    if (b.attributes & kSubdirectory) ++e.subdirectories;
    uint32_t word = count(e.list, b, c, false);
    count(e.listNoHeader, b, c, true);
    ++e.clear.processed;
    if (b.attributes & kNoStreamCompress) ++e.clear.ccBitCleared;

    // A fix run counts a fixable file only when its repair reports it fixed;
    // it changes nothing else.
    ++e.fix.processed;
    bool fixable = !(word & kCorruptedMask) && (word & kFixableMask);
    if (word & kCorruptedMask) ++e.fix.corrupted;
    else if (fixable) {
      Beast fixedBeast = b;
      CompBeast fixedComp = c ? *c : CompBeast();
      if (repair(fixedBeast, c ? &fixedComp : nullptr, word)) ++e.fix.fixable, ++e.fix.fixed;
      count(e.afterFix, fixedBeast, c ? &fixedComp : nullptr, false);
    } else if (word & kSkippedChecking) ++e.fix.openSkipped;
    else if (word & kGood) ++e.fix.good;
    if (!fixable) count(e.afterFix, b, c, false);

    // A delete run removes corrupted files and leaves fixable ones alone.
    ++e.remove.processed;
    if (word & kCorruptedMask) ++e.remove.corrupted, ++e.remove.deleted;
    else {
      if (word & kFixableMask) ++e.remove.fixable;
      else if (word & kSkippedChecking) ++e.remove.openSkipped;
      else if (word & kGood) ++e.remove.good;
      count(e.afterDelete, b, c, false);
    }
  }
  return e;
}

std::string Expectations::json() const {
  nlohmann::json j = {{"volume", volume},
                      {"subdirectories", subdirectories},
                      {"list", countsJson(list)},
                      {"listNoHeader", countsJson(listNoHeader)},
                      {"fix", countsJson(fix)},
                      {"delete", countsJson(remove)},
                      {"clear", countsJson(clear)},
                      {"afterFix", countsJson(afterFix)},
                      {"afterDelete", countsJson(afterDelete)},
                      {"stats", statsJson(stats)},
                      {"statsRecount", statsJson(statsRecount)}};
  return j.dump(2) + "\n";
}

}  // namespace kvfsim
