// UTF-8 text as a terminal shows it: how many columns it takes.
#pragma once

#include "kiln/Utf8.h"

#include <string_view>
#include <vector>

namespace ZelCtl {

// The columns that the text takes on a terminal: 0 for combining characters, 2 for wide East Asian ones and emoji.
std::size_t columnsIn(std::string_view text);

// The longest beginning of the text that fits into so many columns.
Kiln::String cutTo(std::string_view text, std::size_t columns);

// The text in lines of at most so many columns, broken between words; a longer word has a line of its own. 0 columns for
// no limit.
std::vector<Kiln::String> wrapped(std::string_view text, std::size_t columns);

// Whether what reads standard output shows UTF-8: the locale says so, and it is no terminal whose fonts lack block
// characters.
bool showsUtf8();

using Kiln::printable;

} // namespace ZelCtl
