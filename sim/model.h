// The simulated file system's objects: volumes, their beasts and the beasts
// that hold compressed data. One Model is shared by all request threads.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kvfsim {

// Tag-name tables: a tag's index is its bit number; "" marks an unused bit.
extern const char* const kAttrTags[32];
extern const char* const kStatusTags[4];
extern const char* const kActionTags[2];

enum AttrBit : uint32_t {
  kSubdirectory = 1u << 4,
  kDataStreamCompress = 1u << 26,
  kNoStreamCompress = 1u << 29,
};
enum StatusBit : uint32_t { kUncompressed = 1, kCompressed = 2, kFailure = 4, kClean = 8 };
enum ActionBit : uint32_t { kAddCompLog = 1, kEnableIOWrite = 2 };

// Converts tag names to bits over `table`; false when a name is not in it.
bool tagsToBits(const std::vector<std::string>& names, const char* const* table, int size, uint32_t* bits);
std::vector<std::string> bitsToTags(uint32_t bits, const char* const* table, int size);

// Parent name types, one byte each in Beast::parents.
enum NameType : char { kFile = 0, kDataStream = 1, kExtendedAttribute = 2, kDeletedFile = 3 };
const char* nameTypeText(char type);
bool nameTypeFromText(const std::string& text, char* type);

// A file's compression record.
struct CompRecord {
  uint64_t compZid = 0;
  uint32_t chunkSize = 0, ucPrecious = 0, cPrecious = 0, purgeableBlks = 0, algoID = 0, algoVersion = 0;
  uint32_t status = 0, action = 0;
};

struct Beast {
  uint64_t zid = 0;
  uint32_t classId = 3;  // 1 data stream, 12 extended attribute, 3 file or directory
  uint32_t attributes = 0;
  uint64_t eof = 0, physSize = 0;
  int32_t openCount = 0;
  std::string parents{char(kFile)};  // name type of each parent, first parent first
  std::string fullName;              // Unix full name inside the volume, "/dir/file"
  int64_t createdUtc = 0, accessedUtc = 0;
  std::string createdText, accessedText;  // empty: written from the utc value
  bool hasComp = false;
  CompRecord comp;
  bool removed = false;

  bool allNamesDeleted() const;
  bool isDirectory() const { return attributes & kSubdirectory; }
  // A file or directory that can be reached by its name in the volume's tree.
  bool named() const { return classId == 3 && !allNamesDeleted() && !fullName.empty(); }
};

// The beast that holds a file's compressed data.
struct CompBeast {
  uint64_t zid = 0, owner = 0;
  uint64_t eof = 0, physSize = 0;
  bool deleted = false;       // the owner's names are all deleted
  bool variableData = true;   // false: the beast carries no variable data at all
  uint32_t compressCode = 0, majorVersion = 1, minorVersion = 0;
  uint64_t originalLength = 0, compressedLength = 0;
  bool removed = false;
};

// The objects of a generated volume, made when asked from the seed and the
// object's index (generator.cpp): a volume of millions of objects holds
// little more than where each object lies in the name tree.
class ObjectSource {
 public:
  virtual ~ObjectSource() = default;
  // Objects 0 .. count() - 1, in ascending zid order.
  virtual uint64_t count() const = 0;
  // The object whose zid, or whose compressed data's zid, `zid` could be;
  // count() when none.
  virtual uint64_t indexOf(uint64_t zid) const = 0;
  virtual uint64_t zidAt(uint64_t index) const = 0;
  // Makes object `index` into *b (its full name only when withName) and,
  // when it has one, its compressed-data beast into *c; false when it has none.
  virtual bool make(uint64_t index, Beast* b, CompBeast* c, bool withName) const = 0;
  // The zid of the object a full name can only belong to; 0 when none.
  virtual uint64_t zidOfName(std::string_view fullName) const = 0;
  // The indices of the objects whose names lie directly in the directory of
  // zid `dir` (0: the volume's root).
  virtual std::vector<uint64_t> childIndices(uint64_t dir) const = 0;
};

struct VolumeStats {
  uint64_t compressedFiles = 0, compressedDeletedFiles = 0, uncompressibleFiles = 0;
  uint64_t preCompressionBlocks = 0, compressedBlocks = 0;
};

struct Volume {
  std::string name, state = "active", mountPoint, id = "1";
  // The zid of the volume's root directory: what getFileInfo answers for the
  // mount point itself, and the root's inode number in the name tree.
  uint64_t rootZid = 2;
  bool compression = true;
  uint32_t blockSize = 4096;
  std::vector<std::string> enabledAttributes{"salvage"};
  VolumeStats stats;
  // A fixture's objects:
  std::vector<Beast> beasts;          // ascending zids, never reallocated after loading
  std::vector<CompBeast> compBeasts;  // ascending zids
  std::map<std::string_view, size_t> names;  // live full name -> index in beasts
  // A generated volume's objects: made from `generated`, but for those
  // changed or removed since, held here by zid.
  std::unique_ptr<const ObjectSource> generated;
  std::map<uint64_t, Beast> changed;
  std::map<uint64_t, CompBeast> changedComp;
  size_t liveBeasts = 0;

  // Objects to change (under the model's exclusive lock): a generated one
  // is made and held from then on. Null when there is no live one.
  Beast* findBeast(uint64_t zid);
  CompBeast* findCompBeast(uint64_t zid);
  Beast* findByName(std::string_view fullName);
  // Objects to read: a generated one is made into `scratch`.
  const Beast* beast(uint64_t zid, Beast& scratch) const;
  const CompBeast* compBeast(uint64_t zid, CompBeast& scratch) const;
  const Beast* beastByName(std::string_view fullName, Beast& scratch) const;
  // The zids of at most `max` live beasts above `zid`, ascending.
  std::vector<uint64_t> liveZidsAbove(uint64_t zid, size_t max) const;
  // Adds the names lying directly in directory `dir` ("" the root) to
  // *entries; false when there are none.
  bool listDirectory(std::string_view dir, std::set<std::string>* entries) const;
  // True when some live name lies below dir ("/a" for "/a/b").
  bool isImplicitDirectory(std::string_view dir) const;
  // Every live object, in zid order (a generated one with its name only
  // when withNames).
  void forEachBeast(const std::function<void(const Beast&)>& f, bool withNames) const;
  void forEachCompBeast(const std::function<void(const CompBeast&)>& f) const;
  // Removes the beast and the compressed-data beast it names.
  void removeBeast(Beast& beast);
  // Gives the file or directory `from` (with everything below it) the name
  // `to`; with `exchange` the two swap names. 0 or a negative errno: a
  // generated volume's names follow from its objects and cannot change
  // (EOPNOTSUPP); without `exchange` an existing `to` is not replaced (EEXIST).
  int rename(std::string_view from, std::string_view to, bool exchange);
  // Sorts a fixture's objects and builds the name index; call once after filling.
  void index();
  // The statistics recounted from the objects.
  VolumeStats recount() const;
};

struct Model {
  std::vector<std::unique_ptr<Volume>> volumes;
  mutable std::shared_mutex mutex;  // shared for reading, exclusive for changes

  Volume* findVolume(std::string_view name);
};

// The text of a utc time as replies carry it: "YYYY/MM/DD hh:mm:ss".
std::string timeText(int64_t utc);

}  // namespace kvfsim
