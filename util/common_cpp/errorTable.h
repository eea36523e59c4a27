// The file system's status-name table: ascending rows ended by a row whose
// number is 0, and its lookup.
#pragma once

struct ErrorRow_s {
  int number;
  const char* name;
};

extern const ErrorRow_s ErrorTable[];

namespace KVF {

// The name of a file-system status number; never fails.
const char* GetErrorFromNumber(int number);
// The name of a number below the file system's range.
const char* MM_GetErrorFromNumber(int number);

}  // namespace KVF
