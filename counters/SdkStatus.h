// The texts of the SDK's status codes.
#pragma once

namespace ZelCounter {

// "Unknown error" for a code outside 0 to 25. Static storage.
const char* sdkStatusText(int status) noexcept;

} // namespace ZelCounter
