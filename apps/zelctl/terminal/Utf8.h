// UTF-8 a code point at a time, for what is typed, read and shown.
#pragma once

#include "kiln/Types.h"

#include <string_view>

namespace ZelCtl {

struct CodePoint {
   char32_t value = 0;
   std::size_t length = 1; // bytes
   bool isValid = false;   // not cut short, not overlong, no surrogate
};

// The one that begins at `at`, which is within the text. What is invalid is one byte long.
CodePoint codePointAt(std::string_view text, std::size_t at);

// Where the one before `at` begins; `at` is above 0.
std::size_t codePointBefore(std::string_view text, std::size_t at);

void addCodePoint(Kiln::String* text, char32_t value);

// Columns that it takes on a terminal: 0 for what joins the one before, 2 for wide East Asian ones and
// pictures.
unsigned columnsOf(char32_t value);

std::size_t columnsIn(std::string_view text);

// The beginning of the text that takes at most so many columns.
Kiln::String cutTo(std::string_view text, std::size_t columns);

// A control character, of either set: never sent to a terminal.
bool isControl(char32_t value);

// The text with '?' for whatever a terminal must not be sent.
Kiln::String printable(std::string_view text);

} // namespace ZelCtl
