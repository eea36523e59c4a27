// The steps of a run's start that both drivers share.
#include "velkor/runStart.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "velkor/channel.h"
#include "velkor/commandLine.h"
#include "velkor/identity.h"
#include "velkor/volumeLock.h"

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

bool lockVolumeOperation(unsigned int operation, const char* objectPath) {
  if (!velkor::isVolumeOperation(operation)) return true;
  std::string refusal;
  if (velkor::lockVolume(objectPath, &refusal)) return true;
  fprintf(stderr, "%s: %s.\n", appName, refusal.c_str());
  return false;
}
