// `| include TEXT`, `| exclude TEXT` and `| count` behind a command.
#pragma once

#include "kiln/Types.h"

#include <string_view>
#include <vector>

namespace ZelCtl {

struct Filter {
   enum class Kind : U8 { include, exclude, count };
   Kind kind;
   Kiln::String text; // as it was typed, blanks within included; empty for a count
};

struct FilteredLine {
   Kiln::String command;
   std::vector<Filter> filters; // in order
};

// The names of the filters.
std::vector<Kiln::String> filterNames();

// A filter begins with a word that begins with '|'; so a name may hold one. Throws std::runtime_error, saying what was
// expected.
FilteredLine splitFilters(const Kiln::String& line);

struct FilteredText {
   Kiln::String text;  // the lines that the filters leave, or their number
   Kiln::String notes; // the lines that say how old the counts are: no filter takes them away
};
// Without filters, all of the text.
FilteredText filtered(const std::vector<Filter>& filters, Kiln::String text);

} // namespace ZelCtl
