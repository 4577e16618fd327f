// The forms of a scenario's statements, and how a line's words are matched with one.
#pragma once

#include "kiln/Types.h"

#include <optional>
#include <string_view>
#include <vector>

namespace ZelAgent {

// A form is what --help shows of a statement: "sdk ENTRY-POINT fail STATUS [TIMES]". A word in lower case stands for
// itself, one in capitals or with '|' is an operand, one in brackets may be left out, and "..." stands for any number
// of words.
//
// The operands, if the words are a statement of this form.
std::optional<std::vector<Kiln::String>> operandsOf(std::string_view form,
                                                    const std::vector<Kiln::String>& words);

} // namespace ZelAgent
