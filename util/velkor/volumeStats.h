// The fix-statistics operation: the volume's compression statistics before
// and after the file system recounts them.
#pragma once

namespace velkor {

class CompStats;

// Shows the statistics, asks before going on unless the volume is in
// maintenance, has the file system recount them and shows the new figures.
// Throws KVFError.
void fixVolumeStatistics(char* volumeName, CompStats* stats);

}  // namespace velkor
