// The fix-statistics operation: the volume's compression statistics before
// and after the file system recounts them.
#pragma once

namespace velkor {

class CompStats;

// The statistics' labels (VolumeStatistics::figure order), each 26 columns wide.
extern const char* const kStatisticLabels[5];

// Asks before going on unless the volume is in maintenance, shows the
// statistics, has the file system recount them and shows the new figures.
// Throws KVFError.
void fixVolumeStatistics(char* volumeName, CompStats* stats);

}  // namespace velkor
