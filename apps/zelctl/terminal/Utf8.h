// What of a text in UTF-8 a terminal shows, and how much room that takes.
#pragma once

#include "kiln/Types.h"

#include <string_view>

namespace ZelCtl {

// Columns that it takes on a terminal: none for what joins the character before, 2 for wide East Asian ones
// and pictures.
std::size_t columnsIn(std::string_view text);

// The beginning of the text that takes at most so many columns.
Kiln::String cutTo(std::string_view text, std::size_t columns);

// The text with '?' for whatever a terminal must not be sent: control characters of either set, and bytes that
// are no character.
Kiln::String printable(std::string_view text);

} // namespace ZelCtl
