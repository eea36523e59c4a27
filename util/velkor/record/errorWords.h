// What went wrong, in the operator's words: said first wherever an error is
// shown to a person (velkor-batch on standard error, velkor-report's verdict
// and its run in detail), before the error as the run log records it.
// Header-only: velkor-report reads the error back from the log.
#pragma once

#include <cstdlib>
#include <string>
#include <string_view>

#include "common_cpp/errorTable.h"
#include "common_cpp/kvfError.h"
#include "velkor/velkorTypes.h"

namespace velkor {

// The run log's error element, as velkor writes it: "<origin> error: <number>
// <name> message: <message>".
inline constexpr std::string_view kLoggedErrorNumber = " error: ";
inline constexpr std::string_view kLoggedErrorMessage = " message: ";

// `kvfCode`: the number is a status of the file system (else an errno);
// `message` the error's text; `beforeAnyObject`: it came before the run
// reached its first object; `target` as it is to be shown.
inline std::string errorWords(bool kvfCode, int number, std::string_view message, unsigned int operation,
                              std::string_view target, bool beforeAnyObject) {
  const bool refused = kvfCode && message == "Reply results";
  if (refused && number == zERR_GENERIC_KVF_ERROR && beforeAnyObject)
    return isVolumeOperation(operation) ? "volume " + std::string(target) + " not found on this server"
                                        : std::string(target) + " is not a file on a KVF volume of this server";
  if (kvfCode && number == zERR_VALUE_CHANGED) return "an object kept changing while it was repaired";
  if (kvfCode && number == zERR_COMPRESSION_NOT_ENABLED) return "compression is not enabled on this volume";
  if (kvfCode && (number == zERR_XML_IS_BAD || number == zERR_XML_IS_INCOMPLETE))
    return "a reply of the file system could not be read";
  if (kvfCode && number == zERR_BUFFER_TOO_SMALL) return "a name or a reply is too long to handle";
  if (!kvfCode) return "the management interface failed";
  return "the file system refused a request";
}

// The same for an error element of the run log; false when `logged` is not
// written as velkor writes one.
inline bool loggedErrorWords(std::string_view logged, unsigned int operation, std::string_view target,
                             bool beforeAnyObject, std::string* words) {
  const size_t number = logged.find(kLoggedErrorNumber);
  const size_t message = logged.find(kLoggedErrorMessage, number);
  if (number == std::string_view::npos || message == std::string_view::npos) return false;
  const std::string numbered(logged.substr(number + kLoggedErrorNumber.size(),
                                           message - number - kLoggedErrorNumber.size()));
  char* end = nullptr;
  const long value = std::strtol(numbered.c_str(), &end, 10);
  if (end == numbered.c_str() || *end != ' ') return false;
  // A status of the file system is logged with its name in the error table,
  // an errno with strerror's text.
  const bool kvfCode = std::string_view(end + 1) == KVF::GetErrorFromNumber(static_cast<int>(value));
  *words = errorWords(kvfCode, static_cast<int>(value), logged.substr(message + kLoggedErrorMessage.size()), operation,
                      target, beforeAnyObject);
  return true;
}

}  // namespace velkor
