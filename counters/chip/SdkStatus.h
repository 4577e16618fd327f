// The texts of the SDK's status codes.
#pragma once

#include "kiln/Types.h"

namespace ZelCounter {

// The status with which the SDK says that a table can't do what was asked: no failure, since it never will.
constexpr U32 sdkNotSupported = 17;

// "Unknown error" for a code outside 0 to 25. Static storage.
const char* sdkStatusText(int status) noexcept;
// "Error 14 (IO error)".
Kiln::String sdkErrorText(int status);
// "Error 14 (IO error) requesting counters for pipe 1". The caller adds what it read of the pipe.
Kiln::String pipeReadErrorText(int status, U32 pipe);

} // namespace ZelCounter
