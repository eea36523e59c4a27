// The run driver: the command line, the start-up checks and the order of a run.
#include "velkor/velkor.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <cstring>
#include <exception>
#include <iostream>
#include <string>

#include "velkor/commandLine.h"
#include "velkor/runLog.h"
#include "screen/screenInterface.h"
#include "screen/signals.h"
#include "velkor/channel.h"
#include "velkor/velkorUI.h"
#include "velkor/volumeLock.h"

const char* appName = "velkor";
const char* appVersion = "1.00";
const char* logPath = "./velkor.log";
const char* VELKOR_ShortOptions = velkor::kShortOptions;

int failWithTry(const std::string& message, int status) {
  if (!message.empty()) fprintf(stderr, "%s: %s\n", appName, message.c_str());
  fprintf(stderr, "Try '%s --help' for more information.\n", appName);
  return status;
}

bool commandLineError(const velkor::CommandLine& line, std::string* message) {
  message->clear();
  switch (line.end) {
    case velkor::ParseEnd::operand:
    case velkor::ParseEnd::help:
    case velkor::ParseEnd::version: return false;
    case velkor::ParseEnd::parserError: break;  // the parser has said why
    case velkor::ParseEnd::pathIsOption: *message = "option '-p' requires an argument."; break;
    case velkor::ParseEnd::invalidOption:
      *message = std::string("option '-") + static_cast<char>(line.invalidLetter) + "' is invalid.";
      break;
    case velkor::ParseEnd::noOperation: *message = "missing VOPTION or FOPTION argument."; break;
    case velkor::ParseEnd::manyOperations: *message = "more than one VOPTION or FOPTION found."; break;
    case velkor::ParseEnd::noOperand: *message = "missing VOLUMENAME or FILENAME argument."; break;
  }
  return true;
}

char* formObjectPath(unsigned int operation, const char* argument) {
  if (velkor::isVolumeOperation(operation) || argument[0] == '/') {
    char* copy = strdup(argument);
    if (!copy && !velkor::isVolumeOperation(operation)) fprintf(stderr, "Unable to get the working directory\n");
    return copy;
  }
  char* cwd = getcwd(nullptr, 0);
  char* path = cwd ? static_cast<char*>(malloc(strlen(cwd) + strlen(argument) + 2)) : nullptr;
  if (path) sprintf(path, "%s/%s", cwd, argument);
  free(cwd);
  if (!path) fprintf(stderr, "Unable to get the working directory\n");
  return path;
}

bool nameFitsRequests(unsigned int operation, const char* objectPath) {
  // The volume name or path travels in a CDATA section, which "]]>" would end
  // early: the rest would be read as markup and could name another object.
  if (!strstr(objectPath, "]]>")) return true;
  fprintf(stderr, "%s: the %s \"%s\" holds \"]]>\" and cannot be sent to the file system; nothing was done.\n",
          appName, velkor::isVolumeOperation(operation) ? "VOLUMENAME" : "FILENAME", objectPath);
  return false;
}

void VELKOR_Usage(const char* currentLogPath) {
  std::cout.setf(std::ios::showbase);
  std::cout << "THIS UTILITY WILL ONLY WORK WITH KVF FILE SYSTEM !\n"
            << "  Usage: " << appName << " [HOPTION]\n"
            << "  Usage: " << appName << " [GOPTION]... [VOPTION] VOLUMENAME\n"
            << "  Usage: " << appName << " [GOPTION]... [FOPTION] FILENAME\n"
            << "\n"
            << "Mandatory arguments to long options are mandatory for short options too:\n"
            << " HOPTION:  Help options\n"
            << "      -h, --help               Displays this help information and exits\n"
            << "      -v, --version            Displays version information and exits\n"
            << " GOPTION:  Multiple general options can be selected\n"
            << "      -H, --no-header          Will not check compression header (This is useful\n"
            << "                               on volumes restored from scan files that don't\n"
            << "                               have user data blocks)\n"
            << "      -p, --logpath=PATH       Specifies log file location (default: \"" << currentLogPath << "\")\n"
            << " VOPTION:  Only one volume level option can be selected\n"
            << "      -D, --delete-all         Delete all non-fixable compressed files\n"
            << "      -F, --fix-all            Fix all repairable compressed files\n"
            << "      -L, --list-all           List all problematic compressed files\n"
            << "      -S, --fix-stats          Fix volume compression related statistics\n"
            << "                               (Volume needs to be in maintenance mode for\n"
            << "                               accurate results)\n"
            << "      -C  --clear-all          Clear all files' Cc (Cant_Compress_File) attribute\n"
            << " FOPTION:  Only one file level option can be selected\n"
            << "      -b  --background         Check if file is eligible for the next background\n"
            << "                               compression process\n"
            << "      -d, --delete             Delete non-fixable compressed file\n"
            << "      -f, --fix                Try to fix file's compression related problem\n"
            << "      -l, --list               List file's compression related information\n"
            << "      -c, --clear              Clear file's Cc (Cant_Compress_File) attribute\n"
            << "Report bugs to <kvf-tools@localhost>\n"
            << "\n"
            << "\n";
  std::cout.flush();
}

long VELKOR_HaveRights() {
  FILE* probe = fopen(managecmd, "rb+");
  if (!probe) return 0;
  fclose(probe);
  return 1;
}

void VELKOR_Cleanup(void*) { RestoreTerminal(); }

void VELKOR_AtExitCleanup() { RestoreTerminal(); }

void LetUserRead() {}

int velkorMain(int argc, char** argv) {
  Signals_RegisterForTerminationSignals(VELKOR_Cleanup, nullptr);

  if (VELKOR_HaveRights() == 0) {
    std::cout << " ERROR Either the Admin volume was not found or you don't have rights to access it." << std::endl;
    return 1;
  }
  if (argc == 1) {
    VELKOR_Usage(logPath);
    exit(0);
  }

  const velkor::CommandLine line = velkor::parseCommandLine(argc, argv, VELKOR_ShortOptions);
  if (line.logPath) logPath = line.logPath;
  std::string problem;
  if (commandLineError(line, &problem)) return failWithTry(problem);
  switch (line.end) {
    case velkor::ParseEnd::help:
      VELKOR_Usage(logPath);
      exit(0);
    case velkor::ParseEnd::version:
      std::cout << appName << " (KVF) " << appVersion << "\n"
                << "Copyright (C) 2026 The velkor developers. All rights reserved." << std::endl;
      exit(0);
    default:
      break;
  }
  const unsigned int operation = line.operation;
  const bool checkHeader = line.checkHeader;

  std::unique_ptr<char, decltype(&free)> path(formObjectPath(operation, argv[line.operand]), free);
  if (!path) return 1;
  if (!nameFitsRequests(operation, path.get())) return 1;

  RunLog log;
  if (!log.open(logPath)) return 1;
  // A file's volume is known only from its lookup: the file operations take
  // their volume's lock after it, before any change.
  std::string lockRefusal;
  if (velkor::isVolumeOperation(operation) && !velkor::lockVolume(path.get(), &lockRefusal)) {
    fprintf(stderr, "%s: %s.\n", appName, lockRefusal.c_str());
    return 1;
  }
  LogDocumentStart(argc, argv);
  std::cerr.flush();
  if (LogFailure()) {
    fprintf(stderr, "%s: the run log could not be written: %s\n", appName, LogFailure());
    return 1;
  }
  atexit(VELKOR_AtExitCleanup);

  std::unique_ptr<velkor::VELKOR_UserInterface> ui;
  try {
    ui = std::make_unique<velkor::VELKOR_UserInterface>(argc, argv);
  } catch (const std::exception& e) {
    LogInterfaceFailure(e.what());
    return 1;
  }

  ui->opDispatcher(static_cast<int>(operation), path.get(), checkHeader ? 0 : 1);
  ui.reset();  // the screen is given back before the document ends

  LogDocumentEnd();
  // A run whose record was lost is a failed run, whatever the operation did.
  return LogFailure() || velkor::volumeLockRefused() ? 1 : 0;
}
