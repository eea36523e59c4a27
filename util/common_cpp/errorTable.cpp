// The table of the file system's status names and its lookup.
#include "common_cpp/errorTable.h"


const ErrorRow_s ErrorTable[] = {
#define KVF_ERROR(number, name) {number, #name},
#include "common_cpp/kvfErrors.def"
#undef KVF_ERROR
    {0, "End of table"},
};

namespace KVF {

const char* MM_GetErrorFromNumber(int) { return "MM_UNKNOWN_ERROR"; }

const char* GetErrorFromNumber(int number) {
  if (number == -1) return "zFAILURE";
  if (number == 0) return "zOK";
  if (number < 20000) return MM_GetErrorFromNumber(number);
  for (const ErrorRow_s* row = ErrorTable; row->number != 0; ++row) {
    if (row->number == number) return row->name;
  }
  return "zERR_UNKNOWN_ERROR";
}

}  // namespace KVF
