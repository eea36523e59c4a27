// velkor-report on logs whose names were chosen by someone else: runs forged
// by names of older logs (written raw) are not judged clean, names written
// with character references are shown as they are, and what would act on a
// terminal is shown escaped; and JSON of a run's files written as they are
// read.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <clocale>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

#include "logText.h"
#include "loggedFile.h"
#include "output.h"
#include "process.h"
#include "report.h"
#include "screen/displayText.h"
#include "velkor/logElements.h"
#include "velkor/velkorTypes.h"

using nlohmann::json;
using testsupport::LoggedFile;
using testsupport::LogText;
using testsupport::ProcessResult;
using reporttests::checking;
using reporttests::file;
using reporttests::formatted;
using reporttests::jsonFiles;
using reporttests::kFound;
using reporttests::kPlaceholder;
using reporttests::LogFile;
using reporttests::oldListRun;
using reporttests::replaced;
using reporttests::Reported;
using reporttests::reportOn;

namespace {

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
      {"a forged run of an aborted run", oldListRun(forged, "user aborted"),
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

  EXPECT_EQ("run,volume,name,zid,problems,action\r\n1,VOL1,\"/a<b>&c\nd\x1b[31m\"\"e\",1000,invalidState,\r\n",
            reportOn(escaped, formatted(velkorreport::Format::csv)).out);

  // The table and the run in detail: the real bytes, control bytes escaped.
  const std::string shown = "/a<b>&c\\nd\\x1b[31m\"e";
  EXPECT_NE(std::string::npos, reportOn(escaped, velkorreport::Options()).out.find("/media/kvf/VOL1" + shown));
  velkorreport::Options detail;
  detail.lastRun = true;
  Reported one = reportOn(escaped, detail);
  EXPECT_NE(std::string::npos, one.out.find("  " + shown + "  zid 1000")) << one.out;
  EXPECT_NE(std::string::npos, one.out.find("Error:       reply: <bad>\\tx")) << one.out;
}

namespace {

// The process's character handling set to `name` while it lives.
class CharacterSet {
 public:
  explicit CharacterSet(const char* name) : before_(setlocale(LC_CTYPE, nullptr)) { setlocale(LC_CTYPE, name); }
  ~CharacterSet() { setlocale(LC_CTYPE, before_.c_str()); }

 private:
  std::string before_;
};

}  // namespace

// One rule for untrusted text on a terminal, the same on velkor's screen
// (DisplayText) and on velkor-batch's and velkor-report's terminal
// (printable): what would act on the terminal, take no column of its own or
// reorder the text around it is shown as an escape, other characters of the
// operator's character set as they are.
TEST(ReportOutputs, TerminalTextFollowsTheScreensRule) {
  struct Case {
    const char* locale;
    std::string text, shown;
  } cases[] = {
      {"C.UTF-8", "plain /a b", "plain /a b"},
      {"C.UTF-8", "\xc3\xa9t\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x98\x80 e\xcc\x81",
       "\xc3\xa9t\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x98\x80 e\xcc\x81"},
      {"C.UTF-8", "C0 \x1b[2J\x7f\\ \r\n\t", "C0 \\x1b[2J\\x7f\\\\ \\r\\n\\t"},
      {"C.UTF-8", "C1 \xc2\x9b" "2J \xc2\x80 \xc2\x9f \xc2\xa0", "C1 \\u009b2J \\u0080 \\u009f \xc2\xa0"},
      {"C.UTF-8", "/evil\xe2\x80\xaetxt.exe", "/evil\\u202etxt.exe"},
      {"C.UTF-8", "\xe2\x80\xaa\xe2\x80\xab\xe2\x80\xac\xe2\x80\xad", "\\u202a\\u202b\\u202c\\u202d"},
      {"C.UTF-8", "\xe2\x81\xa6\xe2\x81\xa7\xe2\x81\xa8\xe2\x81\xa9", "\\u2066\\u2067\\u2068\\u2069"},
      {"C.UTF-8", "\xe2\x80\x8e\xe2\x80\x8f \xd8\x9c", "\\u200e\\u200f \\u061c"},
      // Characters that take no column: "/a" and "/a" + U+200B look alike raw.
      {"C.UTF-8", "/a\xe2\x80\x8b \xef\xbb\xbf \xe2\x80\x8d \xe2\x81\xaa", "/a\\u200b \\ufeff \\u200d \\u206a"},
      {"C.UTF-8", "line\xe2\x80\xa8para\xe2\x80\xa9", "line\\u2028para\\u2029"},
      {"C.UTF-8", "\xf3\xa0\x80\x81tag", "\\U000e0001tag"},
      // Bytes that are not UTF-8, alone, cut short or overlong.
      {"C.UTF-8", "\x9b" "2J \xff \xe2\x80 \xc0\xaf \xed\xa0\x80", "\\x9b2J \\xff \\xe2\\x80 \\xc0\\xaf \\xed\\xa0\\x80"},
      // An ASCII character set: every byte above it is escaped.
      {"C", "\xc3\xa9t\xc3\xa9 /a\xe2\x80\x8b", "\\xc3\\xa9t\\xc3\\xa9 /a\\xe2\\x80\\x8b"},
  };
  for (const Case& c : cases) {
    CharacterSet set(c.locale);
    EXPECT_EQ(c.shown, velkorreport::printable(c.text)) << c.locale << " " << c.text;
    std::wstring wide(c.shown.size(), L'\0');
    wide.resize(mbstowcs(wide.data(), c.shown.c_str(), wide.size()));
    EXPECT_TRUE(wide == DisplayText(c.text)) << c.locale << " " << c.text;
  }

  // In the table of runs, a file run's target is its path.
  CharacterSet set("C.UTF-8");
  std::ostringstream log;
  LogText(log).start({"velkor", "-l", "/media/kvf/VOL1/evil\xe2\x80\xaetxt.exe\xc2\x9b\xe2\x80\x8b"}).end();
  Reported table = reportOn(log.str(), velkorreport::Options());
  EXPECT_NE(std::string::npos, table.out.find("/media/kvf/VOL1/evil\\u202etxt.exe\\u009b\\u200b")) << table.out;
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
    velkorreport::Options options = jsonFiles(), summary = formatted(velkorreport::Format::json),
                          csv = formatted(velkorreport::Format::csv);
    options.volume = summary.volume = csv.volume = volume;
    options.problem = summary.problem = csv.problem = problem;
    Reported withFiles = logFile.report(options);
    ASSERT_EQ(0, withFiles.status) << withFiles.err;
    json report = json::parse(withFiles.out), without = json::parse(logFile.report(summary).out);
    std::string rows = "run,volume,name,zid,problems,action\r\n";
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

namespace {

// A run of `argv` with one remaining fixable file, ended with `status`.
std::string endedRun(const std::vector<std::string>& argv, const std::string& status) {
  return reporttests::loggedRun(argv, {file("/a", velkor::invalidState, 1000)}, status);
}

int parsed(std::vector<std::string> args, velkorreport::Options* options, std::string* err) {
  args.insert(args.begin(), "velkor-report");
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  std::ostringstream out, errors;
  int status = -1;
  if (velkorreport::parseOptions(static_cast<int>(argv.size()), argv.data(), options, out, errors, &status))
    status = 0;
  *err = errors.str();
  return status;
}

}  // namespace

// A run stopped before its end covered part of its target, and a last run
// older than --max-age tells that the job stopped running: both are 2,
// whatever they found. Durations that are none are refused.
TEST(ReportOutputs, StoppedAndOldRunsAreNotJudgedByWhatTheyFound) {
  struct Case {
    std::string status;
    int64_t maxAge, age;
    int verdict;
    std::string why;
  } cases[] = {
      {"finished with problem files found", 0, 0, velkorreport::kProblemsRemain, "1 problem files remain (0 corrupted)"},
      {"user aborted", 0, 0, velkorreport::kRunFailed, "was stopped before its end (user aborted)"},
      {"stopped by a signal", 0, 0, velkorreport::kRunFailed, "was stopped before its end (stopped by a signal)"},
      {"stopped: a question needs --yes", 0, 0, velkorreport::kRunFailed, "stopped before its end (stopped: a"},
      {"finished with problem files found", 26 * 3600, 27 * 3600 + 120, velkorreport::kRunFailed,
       "is 1d 3h old, older than 1d 2h"},
      {"finished with problem files found", 26 * 3600, 25 * 3600, velkorreport::kProblemsRemain, "remain"},
      {"user aborted", 90 * 60, 91 * 60 + 5, velkorreport::kRunFailed, "is 1h 31m old, older than 1h 30m"},
  };
  for (const Case& c : cases) {
    velkorreport::Options options = checking();
    options.maxAge = c.maxAge;
    options.now = time(nullptr) + c.age;
    Reported r = reportOn(endedRun({"velkor", "-L", "VOL1"}, c.status), options);
    EXPECT_EQ(c.verdict, r.status) << c.status << " " << c.age << "\n" << r.out;
    EXPECT_NE(std::string::npos, r.out.find(c.why)) << r.out;
  }

  velkorreport::Options options;
  std::string err;
  for (const auto& [text, seconds] : {std::pair<std::string, int64_t>{"26h", 93600}, {"90m", 5400}, {"7d", 604800},
                                      {"3600s", 3600}}) {
    ASSERT_EQ(0, parsed({"--check", "--max-age", text}, &options, &err)) << text << err;
    EXPECT_EQ(seconds, options.maxAge) << text;
  }
  for (std::string bad : {"26", "h", "0h", "-5h", "1.5h", "26x", "26 h", "12345678901d"}) {
    EXPECT_EQ(velkorreport::kNoAnswer, parsed({"--check", "--max-age=" + bad}, &options, &err)) << bad;
    EXPECT_NE(std::string::npos, err.find("--max-age takes a duration")) << bad << ": " << err;
  }
  velkorreport::Options unchecked;
  EXPECT_EQ(velkorreport::kNoAnswer, parsed({"--max-age", "26h"}, &unchecked, &err));
  EXPECT_NE(std::string::npos, err.find("goes with --check")) << err;
  EXPECT_EQ(velkorreport::kNoAnswer, parsed({"--output="}, &unchecked, &err));
  EXPECT_NE(std::string::npos, err.find("--output takes a file name")) << err;
}

// velkor-batch writes velkor's document with its own name in the
// description: it is read and judged alike, and the run names its program.
TEST(ReportOutputs, RunsOfTheBatchProgramNameIt) {
  std::string log = endedRun({"velkor-batch", "--quiet", "--progress=5", "-L", "VOL1"}, "stopped by a signal");
  const std::string velkorLine = "  velkor - Validate and fix KVF compression files\n";
  ASSERT_NE(std::string::npos, log.find(velkorLine));
  log.replace(log.find(velkorLine), velkorLine.size(), "  velkor-batch - Validate and fix KVF compression files\n");
  json report = json::parse(reportOn(log + endedRun({"velkor", "-L", "VOL1"}, "finished"), jsonFiles()).out);
  EXPECT_EQ("velkor-batch", report["runs"][0]["program"]);
  EXPECT_EQ("velkor", report["runs"][1]["program"]);
  EXPECT_EQ("list-all", report["runs"][0]["operation"]);
  EXPECT_EQ(1, report["runs"][0]["remainingFixable"]);
  EXPECT_EQ(velkorreport::kRunFailed, reportOn(log, checking("VOL1")).status);
}

// A volume's verdict comes from its last list, fix or delete run: a single
// file's run, a recount, a Cc clear or a background run after a list that
// found problem files are listed but never turn the volume clean, in
// --check --volume and in the metrics alike.
TEST(ReportOutputs, OnlyVolumeWideRunsDecideAVolumesVerdict) {
  using reporttests::loggedRun;
  std::string others = loggedRun({"velkor", "-l", "/media/kvf/VOL1/ok"}, {file("/ok", velkor::good)},
                                 "finished successfully", velkor::opList);
  for (const char* op : {"-S", "-C"}) others += loggedRun({"velkor", op, "VOL1"}, {}, "finished successfully");
  others += loggedRun({"velkor", "-b", "/media/kvf/VOL1/ok"}, {});
  const std::string found = endedRun({"velkor", "-L", "VOL1"}, "finished with problem files found");
  const velkorreport::Options metrics = formatted(velkorreport::Format::prometheus);
  struct Case {
    std::string log;
    int verdict;
    std::string why;
  } cases[] = {
      {found + others, velkorreport::kProblemsRemain, "run 1 (list-all VOL1"},
      {found + others + oldListRun("/z", kFound, true) + others, velkorreport::kClean,
       "run 6 (fix-all VOL1"},
      {others, velkorreport::kNoAnswer, "no list, fix or delete run on volume VOL1 in the log"},
  };
  for (const Case& c : cases) {
    Reported r = reportOn(c.log, checking("VOL1"));
    EXPECT_EQ(c.verdict, r.status) << r.out;
    EXPECT_NE(std::string::npos, r.out.find(c.why)) << r.out;
    std::string prom = reportOn(c.log, metrics).out;
    bool series = c.verdict != velkorreport::kNoAnswer;
    EXPECT_EQ(series, prom.find("velkor_last_run_verdict{volume=\"VOL1\"} " + std::to_string(c.verdict) + "\n") !=
                          std::string::npos)
        << prom;
  }
  // The other runs are still listed.
  const std::string table = reportOn(found + others, velkorreport::Options()).out;
  EXPECT_EQ(6, std::count(table.begin(), table.end(), '\n')) << table;
}

// The metrics of volumes whose names hold what would end a label value or a
// line: one sample per volume and metric, the names escaped as the text
// format wants, which promtool reads.
TEST(ReportOutputs, MetricsOfAnyVolumeName) {
  const std::string hostile = "V\"1\\x\n} 1\nvelkor_forged{a=\"b\"} 2 \xff";
  std::string log = endedRun({"velkor", "-L", hostile}, "finished with problem files found") +
                    endedRun({"velkor", "-F", "VOL1"}, "finished successfully");
  const velkorreport::Options metrics = formatted(velkorreport::Format::prometheus);
  Reported r = reportOn(log, metrics);
  ASSERT_EQ(0, r.status) << r.err;
  ProcessResult promtool = testsupport::runProcess({"promtool", "check", "metrics"}, r.out);
  EXPECT_EQ(0, promtool.exitStatus) << promtool.out << promtool.err << r.out;
  const std::string label = "volume=\"V\\\"1\\\\\\\\x\\n} 1\\nvelkor_forged{a=\\\"b\\\"} 2 \\\\xff\"";
  EXPECT_NE(std::string::npos, r.out.find("velkor_last_run_verdict{" + label + "} 1\n")) << r.out;
  EXPECT_NE(std::string::npos, r.out.find("velkor_problem_files{" + label + ",problem=\"invalidState\"} 1\n"));
  // The fix run of VOL1 fixed nothing.
  EXPECT_NE(std::string::npos, r.out.find("velkor_last_run_verdict{volume=\"VOL1\"} 1\n")) << r.out;
  std::istringstream lines(r.out);
  std::string line;
  size_t samples = 0;
  while (std::getline(lines, line)) {
    if (line[0] == '#') continue;
    ++samples;
    EXPECT_EQ(0u, line.rfind("velkor_", 0)) << line;
    EXPECT_EQ(std::string::npos, line.find("velkor_forged{a=\"b\"}")) << line;
  }
  // Per volume: time, duration, verdict, fixed, deleted, one per problem
  // name, the files left in all and by kind, the open files skipped, and
  // the times of the last complete pass and the last run without an error.
  EXPECT_EQ(2 * (5 + velkor::kNamedProblemBits - 2 + 4 + 2), samples) << r.out;
  EXPECT_NE(std::string::npos, r.out.find("velkor_problem_files_left{" + label + ",operation=\"list-all\"} 1\n"));
  EXPECT_NE(std::string::npos, r.out.find("velkor_corrupted_files_left{volume=\"VOL1\",operation=\"fix-all\"} 0\n"));

  // Names that are not UTF-8 stay apart from each other and from the valid
  // names that look like them: a byte that is not UTF-8 is written as \xHH,
  // a name's own backslash as two.
  const std::vector<std::pair<std::string, std::string>> names = {
      {"V\xff", "V\\\\xff"}, {"V\xfe", "V\\\\xfe"}, {"V\\xff", "V\\\\\\\\xff"},
      {"V\xef\xbf\xbd", "V\xef\xbf\xbd"}, {"V\xc3", "V\\\\xc3"}};
  std::string several;
  for (const auto& [name, label] : names) several += endedRun({"velkor", "-L", name}, "finished");
  r = reportOn(several, metrics);
  promtool = testsupport::runProcess({"promtool", "check", "metrics"}, r.out);
  EXPECT_EQ(0, promtool.exitStatus) << promtool.out << promtool.err << r.out;
  for (const auto& [name, label] : names)
    EXPECT_NE(std::string::npos, r.out.find("velkor_last_run_verdict{volume=\"" + label + "\"} 1\n")) << r.out;
}

// --output replaces the file only when the report is whole: a log that cannot
// be read, or a directory that cannot be written, leaves it as it was and no
// temporary file behind.
TEST(ReportOutputs, OutputFileIsReplacedWhole) {
  testsupport::TempDir dir;
  const std::string log = dir.file("velkor.log"), target = dir.file("velkor.prom");
  testsupport::writeFile(log, endedRun({"velkor", "-L", "VOL1"}, "finished with problem files found"));
  testsupport::writeFile(target, "old\n");
  auto files = [&] { return testsupport::runProcess({"ls", "-A", dir.path()}).out; };
  velkorreport::Options options = formatted(velkorreport::Format::prometheus);
  options.output = target;
  std::ostringstream err;
  options.logs = {dir.file("missing.log")};
  EXPECT_EQ(velkorreport::kNoAnswer, velkorreport::reportToFile(options, err));
  EXPECT_EQ("old\n", testsupport::readFile(target));
  options.logs = {log};
  options.output = dir.file("no/such/dir.prom");
  EXPECT_EQ(velkorreport::kNoAnswer, velkorreport::reportToFile(options, err));
  EXPECT_NE(std::string::npos, err.str().find("cannot write a temporary file in")) << err.str();
  EXPECT_EQ("velkor.log\nvelkor.prom\n", files());

  options.output = target;
  EXPECT_EQ(0, velkorreport::reportToFile(options, err)) << err.str();
  EXPECT_EQ("velkor.log\nvelkor.prom\n", files());
  std::ostringstream direct, ignored;
  velkorreport::report(options, direct, ignored);
  EXPECT_EQ(direct.str(), testsupport::readFile(target));
  struct stat st;
  ASSERT_EQ(0, stat(target.c_str(), &st));
  EXPECT_EQ(0644u, st.st_mode & 07777);
  // An existing file keeps its mode.
  ASSERT_EQ(0, chmod(target.c_str(), 0640));
  EXPECT_EQ(0, velkorreport::reportToFile(options, err)) << err.str();
  ASSERT_EQ(0, stat(target.c_str(), &st));
  EXPECT_EQ(0640u, st.st_mode & 07777);

  // Only a regular file is replaced: a link, a FIFO, a socket or a
  // directory at the target is left as it was, with the reason.
  ASSERT_EQ(0, mkdir(dir.file("taken.prom").c_str(), 0755));
  ASSERT_EQ(0, symlink("velkor.prom", dir.file("link.prom").c_str()));
  ASSERT_EQ(0, mkfifo(dir.file("fifo.prom").c_str(), 0644));
  testsupport::runProcess({"python3", "-c", "import socket,sys; socket.socket(socket.AF_UNIX).bind(sys.argv[1])",
                           dir.file("socket.prom")});
  const std::string before = files();
  for (const auto& [name, kind] : {std::pair<std::string, std::string>{"link.prom", "a symbolic link"},
                                   {"fifo.prom", "a FIFO"}, {"socket.prom", "a socket"}, {"taken.prom", "a directory"}}) {
    std::ostringstream refused;
    options.output = dir.file(name);
    EXPECT_EQ(velkorreport::kNoAnswer, velkorreport::reportToFile(options, refused)) << name;
    EXPECT_NE(std::string::npos, refused.str().find(name + " is " + kind + ", not a regular file: it is not replaced"))
        << refused.str();
    EXPECT_EQ(before, files());
  }
  struct stat link;
  ASSERT_EQ(0, lstat(dir.file("link.prom").c_str(), &link));
  EXPECT_TRUE(S_ISLNK(link.st_mode));
}
