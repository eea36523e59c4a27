// The run log: every run appends one document (header, command line, times,
// per-file entries, errors, final status) to the log file through std::cerr.
#pragma once

#include <fstream>

// Opens `stream` on `path` in one of the modes 1, 2, 4, 8, 16, 32 (8 appends);
// returns 0 when open, -1 otherwise (after printing why).
int doOpenLogFile(std::ofstream& stream, const char* path, int mode);

// Writes the CurrentTime element to the log; optionally a newline, and
// optionally the time on standard output too.
void LogCurrentTime(bool alsoToScreen, bool newline);
void DisplayTime();

// The document's opening (description, command line, start time) and its end
// (end time, closing element, three empty lines).
void LogDocumentStart(int argc, char** argv);
void LogDocumentEnd();
