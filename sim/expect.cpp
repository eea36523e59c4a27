#include "expect.h"

#include <nlohmann/json.hpp>

namespace kvfsim {

namespace {

// A run that checks an object with this word: its class counter, and the
// word of its log entry.
void checked(RunCounts& n, uint32_t word) {
  ++n.processed;
  if (word & kCorruptedProblems) ++n.corrupted;
  else if (word & kFixableProblems) ++n.fixable;
  else if (word == kSkippedChecking) ++n.openSkipped;
  else if (word == kGood) ++n.good;
  if (word != kGood) ++n.words[word];
}

nlohmann::json countsJson(const RunCounts& n) {
  nlohmann::json words = nlohmann::json::object();
  for (auto [word, files] : n.words) words[std::to_string(word)] = files;
  return {{"processed", n.processed}, {"good", n.good},       {"openSkipped", n.openSkipped},
          {"fixable", n.fixable},     {"corrupted", n.corrupted}, {"fixed", n.fixed},
          {"deleted", n.deleted},     {"ccBitCleared", n.ccBitCleared}, {"words", words}};
}

nlohmann::json statsJson(const VolumeStats& s) {
  return {{"compressedFiles", s.compressedFiles},
          {"compressedDeletedFiles", s.compressedDeletedFiles},
          {"uncompressibleFiles", s.uncompressibleFiles},
          {"preCompressionBlocks", s.preCompressionBlocks},
          {"compressedBlocks", s.compressedBlocks}};
}

}  // namespace

void Expectations::add(const KindRow& row) {
  if (row.kind == Kind::kDirectory) ++subdirectories;
  checked(list, row.list);
  checked(listNoHeader, row.listNoHeader);
  checked(afterFix, row.afterFix);
  if (row.afterDelete != kGone) checked(afterDelete, row.afterDelete);
  ++clear.processed;
  if (row.cc) ++clear.ccBitCleared;

  // A fix run counts a fixable file only when its repair reports it fixed.
  const bool fixable = (row.list & kFixableProblems) && !(row.list & kCorruptedProblems);
  if (fixable && !row.fixed) {
    ++fix.processed;
    ++fix.words[row.list];
  } else {
    checked(fix, row.list);
    fix.fixed += fixable;
  }
  checked(remove, row.list);
  if (row.afterDelete == kGone) ++remove.deleted;

  statsRecount.compressedFiles += row.compressed;
  statsRecount.compressedDeletedFiles += row.compressed && row.namesDeleted;
  statsRecount.uncompressibleFiles += row.cc;
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
