// The head of a request, looked at before the HTTP library gets it.
#pragma once

#include "kiln/Types.h"

#include <string_view>

namespace ZelExporter {

// Bounds of what a client may send.
constexpr std::size_t longestRequestLine = 2048;
constexpr std::size_t longestHead = 8192; // with the request line

// The bytes of the head that the text begins with, up to its empty line; 0 if that has not come yet.
std::size_t headLength(std::string_view text);

// The status with which a request is refused, and why; 0 if it is not. `text` is what has come of the head, which is
// complete or too long. Refused is what is too long, has a body, or has a method that could change something.
struct Refusal {
   unsigned status = 0;
   const char* reason = "";
   const char* explanation = "";
};
Refusal refusalOf(std::string_view text, bool isComplete);

// The head without what is not to be obeyed: parts of an answer (Range) would multiply what a request costs.
Kiln::String withoutRanges(std::string_view head);

} // namespace ZelExporter
