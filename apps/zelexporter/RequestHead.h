// The head of a request, looked at before the HTTP library gets it.
#pragma once

#include "kiln/Types.h"

#include <string_view>

namespace ZelExporter {

// Bounds of what a client may send.
constexpr std::size_t longestRequestLine = 2048;
constexpr std::size_t longestHead = 8192; // with the request line

// The bytes of the head that the text begins with, up to its empty line; 0 if that has not come yet. No head ends
// within the first `searched` bytes.
std::size_t headLength(std::string_view text, std::size_t searched);

// The status with which a request is refused, and why; 0 if it is not. `text` is what has come of the head, which is
// complete or too long. Refused is what is too long, has a body, has a method that could change something, or could be
// understood in two ways: what one takes for the end of a request is its middle for another.
struct Refusal {
   unsigned status = 0;
   const char* reason = "";
   const char* explanation = "";
};
Refusal refusalOf(std::string_view text, bool isComplete);

// The head as it is obeyed. Parts of an answer (Range) would multiply what a request costs, so they are left out. A
// host within the target, "http://HOST/PATH", becomes that of the request (RFC 9112, 3.2.2).
Kiln::String obeyedHead(std::string_view head);

} // namespace ZelExporter
