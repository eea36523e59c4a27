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
#include "velkor/velkorUI.h"

const char* VELKOR_ShortOptions = velkor::kShortOptions;

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
  if (!lockVolumeOperation(operation, path.get())) return 1;
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

  const bool lockRefused = ui->opDispatcher(static_cast<int>(operation), path.get(), checkHeader ? 0 : 1);
  ui.reset();  // the screen is given back before the document ends

  LogDocumentEnd();
  // A run whose record was lost is a failed run, whatever the operation did.
  return LogFailure() || lockRefused ? 1 : 0;
}
