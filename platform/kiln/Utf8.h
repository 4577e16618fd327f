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

// The text as one line with '?' for what a terminal might obey: control characters (C0, DEL, C1), and bytes that are
// not valid UTF-8, since a terminal without UTF-8 takes 0x80 to 0x9f for C1.
String printable(std::string_view text);

// The same for text of several lines: newlines and tabs stay.
String printableText(std::string_view text);

} // namespace Kiln
