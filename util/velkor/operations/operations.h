// The operations by their codes: the one place that maps an operation code
// to the routine that runs it, for every program over this library.
#pragma once

namespace velkor {

class CompStats;

// Runs operation `operation` (an OperationCode) on `path` (a volume name for
// the volume operations, an object path for the others) with the view and
// counters of `stats`; `noHeader` not 0 skips the compressed-header check.
// An unknown code does nothing. KVFError passes to the caller.
void runOperation(unsigned int operation, char* path, unsigned long noHeader, CompStats* stats);

// How an operation that ran to its end ended, and the final status text of
// each: "finished with error", "finished with problem files found" (a
// fixable or corrupted file was counted) or "finished successfully".
enum class Finished { kSuccessfully, kWithProblemFiles, kWithError };
Finished finishedAs(bool error, const CompStats& stats);
const char* finishedStatusText(Finished how);

}  // namespace velkor
