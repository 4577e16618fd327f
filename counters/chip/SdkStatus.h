// The texts of the SDK's status codes.
#pragma once

#include "kiln/Types.h"

namespace ZelCounter {

// "Unknown error" for a code outside 0 to 25. Static storage.
const char* sdkStatusText(int status) noexcept;
// "Error 14 (IO error)".
Kiln::String sdkErrorText(int status);
// "Error 14 (IO error) requesting counters for pipe 1"; what of the pipe is the caller's to add.
Kiln::String pipeReadErrorText(int status, U32 pipe);

} // namespace ZelCounter
