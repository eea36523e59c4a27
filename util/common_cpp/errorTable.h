// The file system's status-name table: ascending rows ended by a row whose
// number is 0; KVF::GetErrorFromNumber (kvfUtil.h) searches it.
#pragma once

struct ErrorRow_s {
  int number;
  const char* name;
};

extern const ErrorRow_s ErrorTable[];
