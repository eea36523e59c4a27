#include "velkor/compCandidate.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <string>
#include <utility>

#include "velkor/beastQueries.h"
#include "common_cpp/kvfError.h"
#include "common/lbString.h"
#include "velkor/compStats.h"
#include "velkor/singleFile.h"

namespace {
// Error locations name the documented source of the queries and operations.
constexpr KvfSource kKvfSource = KvfSource::velkorHelper;
}  // namespace

namespace velkor {

const char kCandidateWords[] = "a background compression candidate at this moment";

const char* kvfStartConfigPath = "/etc/opt/quorlen/kvf/kvfstart.cfg";

namespace {

const unsigned int kNoSetting = 4294967295u;

// A setting the rule needs that the file has no line for; the log and the
// screen show the program's documented error for it.
ConfigFileError missingSetting(const char* name, const char* location) {
  return ConfigFileError(KVFError("Error getting set parameter value", location, -1),
                         std::string("no line sets ") + name);
}

}  // namespace

ConfigFileError::ConfigFileError(const KVFError& error, std::string problem)
    : KVFError(error), problem(std::move(problem)) {}

ConfigFileError::~ConfigFileError() = default;

std::string ConfigFileError::operatorWords() const {
  return std::string("the configuration file ") + kvfStartConfigPath + ": " + problem;
}

unsigned int getSetParameterValue(const char* name) {
  // Only a regular file is read: a directory would read as one long line, and
  // opening a FIFO would wait for a writer.
  struct stat status;
  if (stat(kvfStartConfigPath, &status) == 0 && !S_ISREG(status.st_mode)) {
    const char* kind = S_ISDIR(status.st_mode) ? "a directory" : "not a regular file";
    throw ConfigFileError(KVFError(std::string("The start-up configuration file ") + kvfStartConfigPath + " is " + kind,
                                   KVF_HERE, S_ISDIR(status.st_mode) ? EISDIR : EINVAL),
                          std::string("it is ") + kind);
  }
  std::ifstream config(kvfStartConfigPath);
  if (!config.is_open()) {
    const int error = errno;
    throw ConfigFileError(
        KVFError(std::string("Unable to read the start-up configuration file ") + kvfStartConfigPath, KVF_HERE, error),
        std::string("it cannot be read (") + strerror(error) + ")");
  }
  char line[256];
  const size_t nameLength = strlen(name);
  for (;;) {
    config.getline(line, sizeof line);
    if (config.fail()) {
      if (config.eof() && config.gcount() == 0) return kNoSetting;
      if (!config.eof())
        throw ConfigFileError(KVFError(std::string("A line longer than 255 characters in ") + kvfStartConfigPath,
                                       zERR_BUFFER_TOO_SMALL, KVF_HERE),
                              "a line longer than 255 characters");
    }
    // The last line may end without a newline.
    if (line[0] != '#' && line[0] != '\0' && strstr(line + 1, name)) {
      // The value stands after one leading character, the name and one separator.
      size_t start = 2 + nameLength;
      const char* value = start <= strlen(line) ? line + start : "";
      return static_cast<unsigned int>(KVF::LB_strtouq(value, nullptr, 10));
    }
    if (config.eof()) return kNoSetting;
  }
}

bool checkCompCandidate(char* volumeName, char* zid) {
  UncompBeastInfo* fileRecord = nullptr;
  CompBeastInfo* compRecord = nullptr;
  getCompUncompInfo(volumeName, zid, &fileRecord, &compRecord);
  std::unique_ptr<UncompBeastInfo> file(fileRecord);
  std::unique_ptr<CompBeastInfo> comp(compRecord);

  const uint32_t attributes = static_cast<uint32_t>(file->attributes);
  const uint32_t now = static_cast<uint32_t>(time(nullptr));
  if (attributes & (attrSubdirectory | attrLink | attrDoNotCompress | attrNoStreamCompress)) return false;
  if (attributes & attrCompressImmediate) return !(attributes & (attrDataStreamCompress | attrNoStreamCompress));
  if (!file->allNamesDeleted) {
    if (file->beastType != beastFile) return true;
    unsigned int days = getSetParameterValue("DaysUntouchedBeforeCompression");
    if (days == kNoSetting) throw missingSetting("DaysUntouchedBeforeCompression", "util/velkor/velkorHelper[1508]");
    return static_cast<uint32_t>(days * 86400u + file->accessedTime) <= now;
  }
  unsigned int option = getSetParameterValue("DeletedFilesCompressionOption");
  if (option == kNoSetting) throw missingSetting("DeletedFilesCompressionOption", "util/velkor/velkorHelper[1475]");
  if (option == 0) return false;
  if (option == 1) return file->beastType == beastFile ? static_cast<uint32_t>(file->accessedTime + 86400u) < now : true;
  return true;
}

void reportCompCandidate(char* path, CompStats* stats) {
  char volumeName[64];
  char zid[104];
  if (!lookUpFile(path, volumeName, zid, stats)) return;
  stats->view->candidate(checkCompCandidate(volumeName, zid));
}

}  // namespace velkor
