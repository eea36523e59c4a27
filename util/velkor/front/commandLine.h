// The program's command line: its option table and the parse that turns an
// argument vector into one operation code. Header-only, so that a program
// reading the run log can derive a run's operation from its logged argument
// vector the way velkor did, without linking velkor's library.
#pragma once

#include <getopt.h>

#include <utility>
#include <vector>

#include "velkor/velkorTypes.h"

namespace velkor {

inline constexpr char kShortOptions[] = "bcCdDfFhHIlLp:Sv";

// The parser accepts -I/--non-interactive, but the run has no case for it.
inline const struct option kLongOptions[] = {
    {"background", no_argument, nullptr, 'b'},
    {"clear", no_argument, nullptr, 'c'},
    {"clear-all", no_argument, nullptr, 'C'},
    {"delete", no_argument, nullptr, 'd'},
    {"delete-all", no_argument, nullptr, 'D'},
    {"fix", no_argument, nullptr, 'f'},
    {"fix-all", no_argument, nullptr, 'F'},
    {"help", no_argument, nullptr, 'h'},
    {"no-header", no_argument, nullptr, 'H'},
    {"non-interactive", no_argument, nullptr, 'I'},
    {"list", no_argument, nullptr, 'l'},
    {"list-all", no_argument, nullptr, 'L'},
    {"path", required_argument, nullptr, 'p'},
    {"fix-stats", no_argument, nullptr, 'S'},
    {"version", no_argument, nullptr, 'v'},
    {nullptr, 0, nullptr, 0},
};

// velkor-batch's own options, long ones only, beside the table above. Their
// values lie above every option letter.
enum BatchOption : int {
  kBatchYes = 256, kBatchProgress, kBatchQuiet,
  kBatchResume, kBatchStateDir, kBatchNoCheckpoint, kBatchMaxDuration, kBatchMaxRate, kBatchPlan,
};

// velkor-batch's table: velkor's rows and its own. (velkor's table stays as
// it is: velkor refuses these options as the parser does any unknown one.)
inline std::vector<struct option> batchLongOptions() {
  std::vector<struct option> rows;
  for (const struct option* row = kLongOptions; row->name; ++row) rows.push_back(*row);
  rows.push_back({"yes", no_argument, nullptr, kBatchYes});
  rows.push_back({"progress", optional_argument, nullptr, kBatchProgress});
  rows.push_back({"quiet", no_argument, nullptr, kBatchQuiet});
  rows.push_back({"resume", no_argument, nullptr, kBatchResume});
  rows.push_back({"state-dir", required_argument, nullptr, kBatchStateDir});
  rows.push_back({"no-checkpoint", no_argument, nullptr, kBatchNoCheckpoint});
  rows.push_back({"max-duration", required_argument, nullptr, kBatchMaxDuration});
  rows.push_back({"max-rate", required_argument, nullptr, kBatchMaxRate});
  rows.push_back({"plan", required_argument, nullptr, kBatchPlan});
  rows.push_back({nullptr, 0, nullptr, 0});
  return rows;
}

// The operation code of an option letter; 0 for the letters that are not operations.
inline unsigned int operationFor(int option) {
  switch (option) {
    case 'C': return opClearAll;
    case 'D': return opDeleteAll;
    case 'F': return opFixAll;
    case 'L': return opListAll;
    case 'S': return opFixStats;
    case 'c': return opClear;
    case 'd': return opDelete;
    case 'f': return opFix;
    case 'l': return opList;
    case 'b': return opBackground;
    default: return 0;
  }
}

// The long name of an operation code's option; null for a code no option gives.
inline const char* operationName(unsigned int operation) {
  for (const struct option* row = kLongOptions; row->name; ++row)
    if (operation != 0 && operationFor(row->val) == operation) return row->name;
  return nullptr;
}

// Where the parse of a command line stopped.
enum class ParseEnd {
  operand,          // one operation and its operand (argv[operand])
  help,             // -h
  version,          // -v
  parserError,      // getopt_long's ':' or '?' (it has printed why when opterr is set)
  pathIsOption,     // -p's argument begins with '-'
  invalidOption,    // an option the run has no case for (-I); see invalidLetter
  noOperation,      // neither VOPTION nor FOPTION
  manyOperations,   // two different operation options
  noOperand,        // no VOLUMENAME or FILENAME
};

struct CommandLine {
  ParseEnd end = ParseEnd::operand;
  unsigned int operation = 0;
  bool checkHeader = true;
  const char* logPath = nullptr;  // -p's argument, when given (the pointer itself)
  int operand = 0;                // the operand's index when end is operand
  int invalidLetter = 0;          // the parser's optopt for invalidOption
  // The table's options beyond velkor's (BatchOption), with their arguments
  // (null when none was given), in order.
  std::vector<std::pair<int, const char*>> extras;
};

// Parses argv with getopt_long (which may reorder argv) until the first
// option that ends the parse, then checks for exactly one operation and an
// operand. The parser's own messages go to standard error only when
// `parserMessages` is set. The parser's state is restarted first, so argument
// vectors can be parsed one after another. `longOptions` is velkor's table or
// batchLongOptions().
inline CommandLine parseCommandLine(int argc, char** argv, const char* shortOptions = kShortOptions,
                                    bool parserMessages = true, const struct option* longOptions = kLongOptions) {
  CommandLine line;
  optind = 0;
  opterr = parserMessages ? 1 : 0;
  int option;
  while ((option = getopt_long(argc, argv, shortOptions, longOptions, nullptr)) != -1) {
    switch (option) {
      case 0:
        break;
      case ':':
      case '?':
        line.end = ParseEnd::parserError;
        return line;
      case 'C': case 'D': case 'F': case 'L': case 'S':
      case 'b': case 'c': case 'd': case 'f': case 'l':
        line.operation |= operationFor(option);
        break;
      case 'H':
        line.checkHeader = false;
        break;
      case 'h':
        line.end = ParseEnd::help;
        return line;
      case 'v':
        line.end = ParseEnd::version;
        return line;
      case 'p':
        line.logPath = optarg;
        if (optarg[0] == '-') {
          line.end = ParseEnd::pathIsOption;
          return line;
        }
        break;
      case kBatchYes: case kBatchProgress: case kBatchQuiet:
      case kBatchResume: case kBatchStateDir: case kBatchNoCheckpoint:
      case kBatchMaxDuration: case kBatchMaxRate: case kBatchPlan:
        line.extras.emplace_back(option, optarg);
        break;
      default:
        // The parser leaves optopt at 0 for an option it accepted.
        line.end = ParseEnd::invalidOption;
        line.invalidLetter = optopt ? optopt : '?';
        return line;
    }
  }
  if (line.operation == 0) {
    line.end = ParseEnd::noOperation;
    return line;
  }
  int setBits = 0;
  for (int bit = 0; bit < 32; ++bit) {
    if (((line.operation >> bit) & 1u) && ++setBits == 2) {
      line.end = ParseEnd::manyOperations;
      return line;
    }
  }
  if (optind >= argc) {
    line.end = ParseEnd::noOperand;
    return line;
  }
  line.operand = optind;
  return line;
}

}  // namespace velkor
