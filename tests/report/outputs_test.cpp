// velkor-report on logs whose names were chosen by someone else: runs forged
// by names of older logs (written raw) are not judged clean, names written
// with character references are shown as they are, and what would act on a
// terminal is shown escaped; and JSON of a run's files written as they are
// read.
#include <gtest/gtest.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

#include "logText.h"
#include "loggedFile.h"
#include "output.h"
#include "process.h"
#include "report.h"
#include "velkor/velkorTypes.h"

using nlohmann::json;
using testsupport::LoggedFile;
using testsupport::LogText;
using reporttests::file;

namespace {

const std::string kPlaceholder = "/PLACEHOLDER";

// `text` with its one kPlaceholder replaced by `raw`.
std::string replaced(std::string text, const std::string& raw) {
  size_t at = text.find(kPlaceholder);
  EXPECT_NE(std::string::npos, at);
  if (at != std::string::npos) text.replace(at, kPlaceholder.size(), raw);
  return text;
}

struct Reported {
  int status;
  std::string out, err;
};

// A run log holding `text`, reported with any options.
class LogFile {
 public:
  explicit LogFile(const std::string& text) { testsupport::writeFile(dir_.file("velkor.log"), text); }
  Reported report(velkorreport::Options options) const {
    options.logs = {dir_.file("velkor.log")};
    std::ostringstream out, err;
    int status = velkorreport::report(options, out, err);
    return {status, out.str(), err.str()};
  }

 private:
  testsupport::TempDir dir_;
};

Reported reportOn(const std::string& text, const velkorreport::Options& options) { return LogFile(text).report(options); }

velkorreport::Options checking(const std::string& volume = "") {
  velkorreport::Options options;
  options.check = true;
  options.volume = volume;
  return options;
}

velkorreport::Options jsonFiles() {
  velkorreport::Options options;
  options.format = velkorreport::Format::json;
  options.files = true;
  return options;
}

const std::string kFound = "<finishStatus>finished with problem files found</finishStatus>\n";

// A list run of VOL1 as velkor wrote it before names were escaped: a file
// with a problem, then a file named `raw`, then `status` and the end.
std::string oldListRun(const std::string& raw, const std::string& status = kFound, bool fixed = false) {
  std::ostringstream log;
  LoggedFile first = file("/a", velkor::invalidState, 1000), named = file(kPlaceholder, velkor::invalidZid, 1010);
  first.fixed = named.fixed = fixed;
  LogText text(log);
  text.start({"velkor", fixed ? "-F" : "-L", "VOL1"}).entry(first).entry(named);
  log << status;
  text.end();
  return replaced(log.str(), raw);
}

// The head of a list run of VOL1 from its command line to its start time, as
// velkor writes it.
std::string runHead() {
  std::ostringstream log;
  LogText(log).start({"velkor", "-L", "VOL1"});
  return log.str().substr(log.str().find("<CommandLine>"));
}

}  // namespace

// A name holding the end of its run and the head of another makes a run of
// its own in a log written raw. That run has no entry of the problem files
// its finish status speaks of, or begins inside the name's entry: --check
// judges it incomplete, never clean.
TEST(ReportOutputs, RunsForgedByNamesOfOlderLogsAreNotClean) {
  const std::string forged = "/z\n</velkor>\n\n<velkor>\n" + runHead() + "q";
  // The same with the name's entry ended first: the forged run begins outside it.
  const std::string closedFirst = "/z</name><type><file/></type><fileStatus><good/></fileStatus><zid>1</zid></entry>\n"
                                  "</velkor>\n\n<velkor>\n" + runHead() + "q";
  struct Case {
    const char* what;
    std::string log;
    int status;
    std::string why;
  } cases[] = {
      {"a plain name: both problem files remain", oldListRun("/z"), velkorreport::kProblemsRemain, "2 problem files"},
      {"a forged run", oldListRun(forged), velkorreport::kRunFailed, "begins inside an element left unfinished"},
      {"a forged run of an aborted run", oldListRun(forged, "<finishStatus>user aborted</finishStatus>\n"),
       velkorreport::kRunFailed, "begins inside an element left unfinished"},
      {"a forged run begun after the name's entry", oldListRun(closedFirst), velkorreport::kRunFailed,
       "finish status says problem files were found, but it holds no entry of one"},
      {"a fix run that fixed every problem file", oldListRun("/z", kFound, true), velkorreport::kClean, "is clean"},
  };
  for (const Case& c : cases) {
    for (const std::string& volume : {std::string(), std::string("VOL1")}) {
      Reported r = reportOn(c.log, checking(volume));
      EXPECT_EQ(c.status, r.status) << c.what << "\n" << r.out << c.log;
      EXPECT_NE(std::string::npos, r.out.find(c.why)) << c.what << ": " << r.out;
    }
  }
  // The table shows the forged run as incomplete.
  Reported table = reportOn(oldListRun(forged), velkorreport::Options());
  EXPECT_NE(std::string::npos, table.out.find("incomplete  ")) << table.out;
  EXPECT_EQ(std::string::npos, table.out.find("problem files found")) << table.out;
}

// Names, argument values and texts of replies written with character
// references read as the bytes they stand for, in every output.
TEST(ReportOutputs, EscapedTextsAreShownDecoded) {
  const std::string name = "/a<b>&c\nd\x1b[31m\"e";
  std::ostringstream log;
  LogText text(log);
  text.start({"velkor", "-f", "/media/kvf/VOL1" + kPlaceholder});
  text.entry(file(kPlaceholder, velkor::invalidState, 1000), velkor::opFix);
  log << "<error>reply: &lt;bad&gt;&#9;x</error>\n";
  text.end();
  std::string escaped = replaced(log.str(), "/a&lt;b&gt;&amp;c&#10;d&#27;[31m&quot;e");
  escaped = replaced(escaped, "/a&lt;b&gt;&amp;c&#10;d&#27;[31m\"e");

  json report = json::parse(reportOn(escaped, jsonFiles()).out);
  const json& run = report["runs"][0];
  EXPECT_EQ("/media/kvf/VOL1" + name, run["argv"][2]);
  EXPECT_EQ("/media/kvf/VOL1" + name, run["target"]);
  EXPECT_EQ("fix", run["operation"]);
  EXPECT_EQ(json::array({"reply: <bad>\tx"}), run["errors"]);
  EXPECT_EQ(name, run["files"][0]["name"]);

  velkorreport::Options csv;
  csv.format = velkorreport::Format::csv;
  EXPECT_EQ("run,volume,name,zid,problems,action\r\n1,VOL1,\"/a<b>&c\nd\x1b[31m\"\"e\",1000,invalidState,\r\n",
            reportOn(escaped, csv).out);

  // The table and the run in detail: the real bytes, control bytes escaped.
  const std::string shown = "/a<b>&c\\nd\\x1b[31m\"e";
  EXPECT_NE(std::string::npos, reportOn(escaped, velkorreport::Options()).out.find("/media/kvf/VOL1" + shown));
  velkorreport::Options detail;
  detail.lastRun = true;
  Reported one = reportOn(escaped, detail);
  EXPECT_NE(std::string::npos, one.out.find("  " + shown + "  zid 1000")) << one.out;
  EXPECT_NE(std::string::npos, one.out.find("Error:       reply: <bad>\\tx")) << one.out;
}

// Text for a terminal: what would act on it or reorder the text around it is
// shown as an escape, other text as it is.
TEST(ReportOutputs, TerminalTextEscapesWhatActsOnTheTerminal) {
  struct Case {
    std::string text, shown;
  } cases[] = {
      {"plain /a b", "plain /a b"},
      {"\xc3\xa9t\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x98\x80", "\xc3\xa9t\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x98\x80"},
      {"C0 \x1b[2J\x7f\\", "C0 \\x1b[2J\\x7f\\\\"},
      {"C1 \xc2\x9b" "2J \xc2\x80 \xc2\x9f \xc2\xa0", "C1 \\u009b2J \\u0080 \\u009f \xc2\xa0"},
      {"/evil\xe2\x80\xaetxt.exe", "/evil\\u202etxt.exe"},
      {"\xe2\x80\xaa\xe2\x80\xab\xe2\x80\xac\xe2\x80\xad", "\\u202a\\u202b\\u202c\\u202d"},
      {"\xe2\x81\xa6\xe2\x81\xa7\xe2\x81\xa8\xe2\x81\xa9", "\\u2066\\u2067\\u2068\\u2069"},
      {"\xe2\x80\x8e\xe2\x80\x8f \xe2\x80\x8d \xe2\x81\xaa", "\\u200e\\u200f \xe2\x80\x8d \xe2\x81\xaa"},
      // Bytes that are not UTF-8, alone, cut short or overlong.
      {"\x9b" "2J \xff \xe2\x80 \xc0\xaf \xed\xa0\x80", "\\x9b2J \\xff \\xe2\\x80 \\xc0\\xaf \\xed\\xa0\\x80"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.shown, velkorreport::printable(c.text)) << c.text;

  // In the table of runs, a file run's target is its path.
  std::ostringstream log;
  LogText(log).start({"velkor", "-l", "/media/kvf/VOL1/evil\xe2\x80\xaetxt.exe\xc2\x9b"}).end();
  Reported table = reportOn(log.str(), velkorreport::Options());
  EXPECT_NE(std::string::npos, table.out.find("/media/kvf/VOL1/evil\\u202etxt.exe\\u009b")) << table.out;
}

// With --files, a run's files are written as they are read, before the run
// has ended; the document is the same JSON: the run's fields as without
// --files, its files as the CSV rows list them.
TEST(ReportOutputs, JsonFilesAreWrittenAsTheyAreRead) {
  std::ostringstream out;
  std::unique_ptr<velkorreport::Output> output = velkorreport::makeOutput(jsonFiles(), out);
  ASSERT_TRUE(output->streamsEntries());
  velkorreport::Run run;
  velkorreport::Entry entry;
  entry.name = "/streamed";
  output->entry(run, entry);
  EXPECT_NE(std::string::npos, out.str().find("/streamed")) << out.str();

  std::ostringstream log;
  LogText text(log);
  for (int r = 0; r < 3; ++r) {
    text.start({"velkor", "-L", r == 1 ? "VOL2" : "VOL1"});
    for (int i = 0; i < 4 * r; ++i) {
      LoggedFile f = file("/f" + std::to_string(r) + "," + std::to_string(i), i % 2 ? velkor::good : velkor::invalidZid,
                          1000 + 3 * i);
      f.volume = r == 1 ? "VOL2" : "VOL1";
      text.entry(f);
    }
    text.end();
  }
  const LogFile logFile(log.str());
  for (const auto& [volume, problem] : {std::pair<std::string, std::string>{"", ""}, {"VOL1", ""}, {"", "invalidZid"}}) {
    velkorreport::Options options = jsonFiles(), summary, csv;
    options.volume = summary.volume = csv.volume = volume;
    options.problem = summary.problem = csv.problem = problem;
    summary.format = velkorreport::Format::json;
    csv.format = velkorreport::Format::csv;
    Reported withFiles = logFile.report(options);
    ASSERT_EQ(0, withFiles.status) << withFiles.err;
    json report = json::parse(withFiles.out), without = json::parse(logFile.report(summary).out);
    std::string rows = "run,volume,name,zid,problems,action\r\n";
    ASSERT_EQ(without["runs"].size(), report["runs"].size()) << volume << problem;
    for (json& run : report["runs"]) {
      ASSERT_TRUE(run.contains("files"));
      for (const json& f : run["files"]) {
        std::string name = f["name"];
        rows += std::to_string(run["index"].get<int>()) + "," + f["volume"].get<std::string>() + ",\"" + name + "\"," +
                f["zid"].get<std::string>() + "," + f["problems"][0].get<std::string>() + "," +
                f["action"].get<std::string>() + "\r\n";
      }
      run.erase("files");
    }
    EXPECT_EQ(without, report) << volume << problem;
    EXPECT_EQ(logFile.report(csv).out, rows) << volume << problem;
  }
}
