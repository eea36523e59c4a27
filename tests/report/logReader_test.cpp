// The run-log reader on logs written by velkor's own writers: complete,
// cut-off and interleaved runs, stray text, and names holding any bytes; and
// the report's outputs of such names.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <ctime>
#include <nlohmann/json.hpp>
#include <sstream>

#include "logReader.h"
#include "logText.h"
#include "loggedFile.h"
#include "process.h"
#include "report.h"
#include "velkor/logElements.h"
#include "velkor/velkorTypes.h"

using testsupport::LoggedFile;
using testsupport::LogText;
using reporttests::file;
using velkorreport::Entry;
using velkorreport::LogReader;
using RunRecord = velkorreport::Run;

namespace {

// The fileStatus element of one problem bit, as velkor names it.
std::string problem(unsigned long bit) {
  int index = 0;
  while (!(bit >> index & 1)) ++index;
  return std::string(velkor::problemElement(index));
}

struct Skipped {
  uint64_t line, lines;
  std::string text;
};

// Keeps what the reader hands over.
struct Collected : velkorreport::RunSink {
  std::vector<RunRecord> runs;
  std::vector<Entry> entries;
  std::vector<Skipped> pieces;
  void entry(const RunRecord&, const Entry& e) override { entries.push_back(e); }
  void runEnd(RunRecord& run) override { runs.push_back(run); }
  void skipped(const std::string&, uint64_t line, uint64_t lines, std::string_view text) override {
    pieces.push_back({line, lines, std::string(text)});
  }
};

// Reads `text` fed in blocks of `block` bytes.
Collected read(const std::string& text, size_t block = 1 << 16) {
  Collected c;
  LogReader reader(c);
  reader.begin("test.log");
  for (size_t at = 0; at < text.size(); at += block) reader.feed(text.data() + at, std::min(block, text.size() - at));
  reader.finish();
  return c;
}

uint64_t lineOf(const std::string& text, size_t offset) {
  return 1 + static_cast<uint64_t>(std::count(text.begin(), text.begin() + offset, '\n'));
}

}  // namespace

TEST(LogReader, RunsAsVelkorWritesThemInBlocksOfAnySize) {
  std::ostringstream log;
  LoggedFile fixed = file("/a", velkor::invalidAttribute, 1000);
  fixed.fixed = true;
  LoggedFile stream = file("/b", velkor::skippedChecking, 1010);
  stream.classId = 1;
  stream.deleted = true;
  LoggedFile removed = file("/c", velkor::badCompHeader | velkor::mismatchedZid, 1020);
  removed.removed = true;
  time_t before = time(nullptr);
  LogText(log)
      .start({"velkor", "--fix-all", "VOL1"})
      .entry(fixed, velkor::opFixAll)
      .entry(stream, velkor::opFixAll)
      .entry(file("/d", velkor::compBeastNotFound | velkor::invalidState, 1030), velkor::opFixAll)
      .entry(removed, velkor::opFixAll)
      .end()
      .start({"velkor", "-H", "-l", "/media/kvf/VOL1/e"})
      .entry(file("/e", velkor::good, 1040), velkor::opList)
      .end();
  const std::string text = log.str();
  for (size_t block : {size_t(1), size_t(7), size_t(4096)}) {
    Collected c = read(text, block);
    ASSERT_EQ(2u, c.runs.size()) << block;
    EXPECT_TRUE(c.pieces.empty()) << block;
    const RunRecord& fix = c.runs[0];
    EXPECT_EQ(1u, fix.index);
    EXPECT_EQ(1u, fix.line);
    EXPECT_EQ((std::vector<std::string>{"velkor", "--fix-all", "VOL1"}), fix.argv);
    EXPECT_EQ("fix-all", fix.operation);
    EXPECT_EQ("VOL1", fix.target);
    EXPECT_FALSE(fix.fileTarget);
    EXPECT_TRUE(fix.complete());
    EXPECT_GE(fix.start.seconds, before);
    EXPECT_LE(fix.start.seconds, fix.end.seconds);
    EXPECT_EQ(4u, fix.entries);
    EXPECT_EQ(1u, fix.skipped);
    EXPECT_EQ((std::vector<std::string>{"/b"}), fix.skippedFiles.all());
    EXPECT_EQ(1u, fix.remaining) << "only /d: /a was fixed, /c deleted, /b skipped";
    EXPECT_EQ(1u, fix.actions.at("fixed"));
    EXPECT_EQ(1u, fix.actions.at("deleted"));
    EXPECT_EQ(1u, fix.problems.at(problem(velkor::mismatchedZid)));
    EXPECT_EQ(1u, fix.remainingByProblem.at(problem(velkor::compBeastNotFound)));
    EXPECT_EQ(0u, fix.remainingByProblem.count(problem(velkor::badCompHeader)));
    EXPECT_EQ(3u, fix.types.at("file"));
    EXPECT_EQ(1u, fix.types.at("deleted dataStream"));

    const RunRecord& list = c.runs[1];
    EXPECT_EQ(2u, list.index);
    EXPECT_EQ("list", list.operation);
    EXPECT_EQ("/media/kvf/VOL1/e", list.target);
    EXPECT_TRUE(list.fileTarget);
    EXPECT_EQ(1u, list.entries);
    EXPECT_EQ(0u, list.remaining) << "a good file is no problem";
    EXPECT_TRUE(list.concerns("VOL1"));
    EXPECT_FALSE(list.concerns("VOL2"));

    ASSERT_EQ(5u, c.entries.size());
    EXPECT_EQ("1000", c.entries[0].zid);
    EXPECT_TRUE(c.entries[0].fixed);
    EXPECT_EQ("", c.entries[1].zid) << "a skipped file's entry has no zid";
    EXPECT_EQ((std::vector<std::string>{problem(velkor::badCompHeader), problem(velkor::mismatchedZid)}),
              c.entries[3].problems);
    EXPECT_EQ(lineOf(text, text.find("<entry><volume>VOL1</volume><name>/c<")), c.entries[3].line);
  }
}

TEST(LogReader, CutOffRunsAreIncompleteAndTheirBrokenEntrySkipped) {
  std::ostringstream first, second;
  LogText(first).start({"velkor", "-L", "VOL1"}).entry(file("/a", velkor::invalidState)).entry(file("/b", velkor::invalidZid));
  LogText(second).start({"velkor", "-D", "VOL1"}).entry(file("/c", velkor::noPhysicalData)).end();
  std::string killed = first.str();
  // Killed in the middle of its second entry, then a run appended after it.
  std::string cut = killed.substr(0, killed.rfind("<fileStatus>"));
  for (const std::string& text : {cut + "\n" + second.str(), cut}) {
    Collected c = read(text);
    ASSERT_FALSE(c.runs.empty());
    EXPECT_EQ("incomplete", c.runs[0].statusText());
    EXPECT_EQ("list-all", c.runs[0].operation);
    EXPECT_EQ(1u, c.runs[0].entries);
    ASSERT_EQ(1u, c.pieces.size());
    EXPECT_EQ(lineOf(text, cut.rfind("<entry>")), c.pieces[0].line);
    EXPECT_EQ(0u, c.pieces[0].text.find("<entry><volume>VOL1</volume><name>/b</name>"));
    if (c.runs.size() == 2) {
      // Its own document is whole, but it begins while the cut entry is
      // still open: it could be text of that entry.
      EXPECT_FALSE(c.runs[1].complete());
      EXPECT_EQ("it begins inside an element left unfinished at line " + std::to_string(c.pieces[0].line),
                c.runs[1].incompleteReason());
      EXPECT_EQ("delete-all", c.runs[1].operation);
      EXPECT_EQ(1u, c.runs[1].entries);
    }
  }
  // A run after one cut at the end of a line, or after its last argument, is whole.
  std::string head = killed.substr(0, killed.find("</CommandLine>"));
  for (const std::string& before : {killed, head}) {
    Collected c = read(before + second.str());
    ASSERT_EQ(2u, c.runs.size());
    EXPECT_TRUE(c.runs[1].complete()) << c.runs[1].incompleteReason();
  }
  // Cut inside the command line: the arguments read so far still name the operation.
  Collected c = read(head);
  ASSERT_EQ(1u, c.runs.size());
  EXPECT_EQ("list-all", c.runs[0].operation);
  EXPECT_FALSE(c.runs[0].start.present);
}

// An entry longer than the reader takes (a name of control bytes escapes to
// four times its length), on one line or spread over lines as older logs
// wrote names: it is skipped with a warning, and its run is incomplete, so
// --check never judges it cleaner than it was.
TEST(LogReader, AnEntryTooLongForTheReaderMakesItsRunIncomplete) {
  const std::string longName = "/" + std::string(LogReader::kMaxElement, 'n');
  for (const std::string& name : {longName, "/a\n" + longName}) {
    const std::string all = reporttests::oldListRun(name);
    const uint64_t line = lineOf(all, all.rfind("<entry>"));
    Collected c = read(all);
    ASSERT_EQ(1u, c.runs.size());
    EXPECT_EQ(1u, c.runs[0].entries);
    EXPECT_EQ(1u, c.pieces.size());
    EXPECT_EQ("an element at line " + std::to_string(line) + " is longer than the 1048576 bytes read",
              c.runs[0].incompleteReason());
    reporttests::Reported r = reporttests::reportOn(all, reporttests::checking());
    EXPECT_EQ(velkorreport::kRunFailed, r.status) << r.out;
    EXPECT_NE(std::string::npos, r.err.find(":" + std::to_string(line) + ": skipped")) << r.err;
  }
}

TEST(LogReader, TextOutsideTheElementsIsSkippedNamingItsLine) {
  std::ostringstream log;
  LogText text(log);
  text.start({"velkor", "-L", "VOL1"}).entry(file("/a", velkor::invalidState));
  log << "what a signal handler wrote\n";
  text.end();
  log << "between runs\nand two lines\n";
  text.start({"velkor", "-L", "VOL1"}).end();
  const std::string all = log.str();
  Collected c = read(all);
  ASSERT_EQ(2u, c.runs.size());
  EXPECT_TRUE(c.runs[0].complete());
  EXPECT_EQ(1u, c.runs[0].entries);
  ASSERT_EQ(3u, c.pieces.size());
  EXPECT_EQ(lineOf(all, all.find("what a signal")), c.pieces[0].line);
  EXPECT_EQ("what a signal handler wrote", c.pieces[0].text);
  EXPECT_EQ(lineOf(all, all.find("between runs")), c.pieces[1].line);
  EXPECT_EQ(c.pieces[1].line + 1, c.pieces[2].line);

  // A line longer than the reader takes is skipped as one; reading goes on.
  std::string longLine(LogReader::kMaxElement + 10, 'x');
  Collected big = read(longLine + "\n" + all, 65536);
  EXPECT_EQ(2u, big.runs.size());
  ASSERT_EQ(4u, big.pieces.size());
  EXPECT_EQ(1u, big.pieces[0].line);
  EXPECT_EQ(c.pieces[0].line + 1, big.pieces[1].line);
}

TEST(LogReader, NamesAndArgumentsKeepEveryByte) {
  const std::vector<std::string> names = {"/quo\"te's", "/a<b>&c</d", "/two\nlines\n", "/bad\xff\xfe utf8",
                                          "/tab\there", "/ends with </name"};
  std::ostringstream log;
  LogText text(log);
  for (const std::string& name : names)
    text.start({"velkor", "-f", "/media/kvf/VOL1" + name}).entry(file(name, velkor::invalidState), velkor::opFix).end();
  const std::string all = log.str();
  Collected c = read(all, 3);
  EXPECT_TRUE(c.pieces.empty());
  ASSERT_EQ(names.size(), c.runs.size());
  ASSERT_EQ(names.size(), c.entries.size());
  for (size_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ(names[i], c.entries[i].name);
    EXPECT_EQ("/media/kvf/VOL1" + names[i], c.runs[i].target);
    EXPECT_EQ("fix", c.runs[i].operation);
    EXPECT_TRUE(c.runs[i].complete());
  }

  // The JSON output gives a name that is not UTF-8 also in hexadecimal (the
  // other names: outputs_test's EscapedTextsAreShownDecoded).
  reporttests::Reported report = reporttests::reportOn(all, reporttests::jsonFiles());
  ASSERT_EQ(0, report.status) << report.err;
  nlohmann::json runs = nlohmann::json::parse(report.out)["runs"];
  ASSERT_EQ(names.size(), runs.size());
  EXPECT_EQ("/bad\xef\xbf\xbd\xef\xbf\xbd utf8", runs[3]["files"][0]["name"]);
  EXPECT_EQ("2f626164fffe2075746638", runs[3]["files"][0]["nameHex"]);
  EXPECT_FALSE(runs[2]["files"][0].contains("nameHex"));
}

TEST(LogReader, EntriesThatAreNotEntries) {
  std::ostringstream log;
  LogText(log).entry(file("/a", velkor::invalidState));
  const std::string entry = log.str().substr(0, log.str().size() - 1);
  Entry parsed;
  ASSERT_TRUE(velkorreport::parseEntry(entry, &parsed));
  // Every cut of a real entry is refused whole, never read past its end.
  for (size_t n = 0; n < entry.size(); ++n) {
    std::string cut = entry.substr(0, n);
    EXPECT_FALSE(velkorreport::parseEntry(cut, &parsed)) << cut;
  }
  EXPECT_FALSE(velkorreport::parseEntry("<entry><volume>V</volume><name>n</name><type></entry>", &parsed));
  // A skipped entry counts once, as skipped, whatever else a damaged log put
  // in its status (the fuzzer's log: skipped plus stray elements counted twice).
  Entry skipped;
  ASSERT_TRUE(velkorreport::parseEntry("<entry><volume>V</volume><name>/n</name><type><file/></type><fileStatus>"
                                       "<skippedChecking/><argv/></fileStatus></entry>",
                                       &skipped));
  EXPECT_TRUE(skipped.skipped());
  EXPECT_FALSE(skipped.remains());
}

// A run's skipped names are kept in a temporary file; when the file refuses a
// name (here: the file-size limit, met partway through a name), that name and
// those after it are kept in memory, each name once and in the order read.
TEST(LogReader, SkippedNamesOutlastAFullTemporaryFile) {
  struct rlimit old;
  ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &old));
  void (*oldHandler)(int) = signal(SIGXFSZ, SIG_IGN);
  const struct rlimit small = {100, old.rlim_max};
  velkorreport::NameList names;
  std::vector<std::string> expected;
  ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
  for (int i = 0; i < 20; ++i) {
    expected.push_back("/dir/file" + std::to_string(i));
    names.push_back(expected.back());
  }
  ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &old));
  signal(SIGXFSZ, oldHandler);
  EXPECT_EQ(20u, names.size());
  EXPECT_EQ(expected, names.all());
}
