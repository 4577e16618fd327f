// Decoding of UTF-8, and text that may go to a terminal.
#pragma once

#include "kiln/Types.h"

#include <string_view>

namespace Kiln {

struct CodePoint {
   char32_t value = 0;
   std::size_t length = 1; // bytes
   bool isValid = false;   // complete, not overlong, not a surrogate

   bool isControl() const { return value < 0x20 || (value >= 0x7f && value < 0xa0); } // C0, DEL, C1
};

// The code point that begins at `at`, which must be within the text. An invalid one is one byte long, so that decoding
// goes on with the next byte.
CodePoint codePointAt(std::string_view text, std::size_t at);

// The text with '?' for what must not be sent to a terminal: control characters (C0 and C1), line breaks among them, and
// bytes that are not valid UTF-8.
String printable(std::string_view text);

} // namespace Kiln
