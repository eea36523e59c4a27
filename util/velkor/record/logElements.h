// Names the run log gives to what velkor found: an entry's fileStatus holds
// one empty element per set problem bit, lowest bit first. Header-only, so
// that a program reading the run log names problems as velkor writes them.
#pragma once

#include <cstddef>
#include <string_view>

namespace velkor {

// Bit i of the problem word is written as the element kProblemElements[i];
// every bit above the table is written as kProblemElements[3] (invalidState).
inline constexpr std::string_view kProblemElements[] = {
    "good",           "skippedChecking",  "invalidAttribute", "invalidState",
    "mismatchedDeletedFlag", "invalidZid", "compBeastNotFound", "compBeastEOFZero",
    "badCompHeader",  "mismatchedZid",    "noPhysicalData",
};
inline constexpr size_t kNamedProblemBits = sizeof kProblemElements / sizeof kProblemElements[0];

// The element of a problem bit.
inline constexpr std::string_view problemElement(int bit) {
  return kProblemElements[static_cast<size_t>(bit) < kNamedProblemBits ? bit : 3];
}

// The elements of the two words that are not problems: a file found good, and
// one whose check was skipped (open).
inline constexpr std::string_view kGoodElement = kProblemElements[0];
inline constexpr std::string_view kSkippedElement = kProblemElements[1];

// How an entry's error begins when a change was sent for the file and its
// reply was lost: the change may or may not have been made, so the file is
// one to check again.
inline constexpr std::string_view kOutcomeUnknown = "a change was sent and its outcome is unknown: ";

// Calls `each` with the element of every set bit of `problems`, lowest first.
template <typename Each>
void forEachProblem(unsigned long problems, Each each) {
  for (int bit = 0; bit < 32; ++bit)
    if (problems >> bit & 1) each(problemElement(bit));
}

// The finish statuses (the finishStatus element): how velkor's and
// velkor-batch's runs end. Every status of a run stopped before its end
// begins with kStoppedPrefix, but velkor's operator abort.
inline constexpr char kFinishedSuccessfully[] = "finished successfully";
inline constexpr char kFinishedWithProblemFiles[] = "finished with problem files found";
inline constexpr char kFinishedWithError[] = "finished with error";
inline constexpr char kUserAborted[] = "user aborted";
inline constexpr char kStoppedBySignal[] = "stopped by a signal";
inline constexpr char kStoppedForQuestion[] = "stopped: a question needs --yes";
inline constexpr std::string_view kStoppedPrefix = "stopped";

}  // namespace velkor
