// The table of SDK status texts, and the errors that have them.
#include "counters/chip/SdkStatus.h"

#include <iterator>
#include <string>

namespace ZelCounter {

namespace {

constexpr const char* statusTexts[] = {
     "Success",
     "Not ready",
     "No system resources",
     "Invalid arguments",
     "Already exists",
     "HW access fails",
     "Object not found",
     "Max sessions exceeded",
     "Session not found",
     "Not enough space",
     "Resource temporarily not available, try again later",
     "Initialization error",
     "Not supported in transaction",
     "Resource held by another session",
     "IO error",
     "Unexpected error",
     "Action data entry is being referenced by match entries",
     "Operation not supported",
     "Updating hardware failed",
     "No learning clients registered",
     "Idle time update state already in progress",
     "Device locked",
     "Internal error",
     "Table not found",
     "In use",
     "Object not implemented",
};
static_assert(std::size(statusTexts) == 26);

} // namespace

const char* sdkStatusText(int status) noexcept {
   // Unsigned, so that a negative code is out of range too.
   const auto index = static_cast<unsigned>(status);
   return index < std::size(statusTexts) ? statusTexts[index] : "Unknown error";
}

Kiln::String sdkErrorText(int status) {
   return "Error " + std::to_string(status) + " (" + sdkStatusText(status) + ")";
}

Kiln::String pipeReadErrorText(int status, U32 pipe) {
   return sdkErrorText(status) + " requesting counters for pipe " + std::to_string(pipe);
}

} // namespace ZelCounter
