// The names that a word stands for: one, a range, a list, or a short form of them.
#pragma once

#include "kiln/Types.h"

#include <string_view>
#include <vector>

namespace Kiln {

// Either names or an error.
struct NameChoice {
   std::vector<String> names; // of those that are known, each once, in the order in which the word has them
   String error;              // what is wrong, and what is expected; about interfaces
};

// Of the known names, which are sorted, those that the word stands for:
//
//    Ethernet1        that name; a word that is a known name is never anything else
//    Eth1             a name whose stem begins so and whose rest is the same, if there is only one
//    Ethernet1-4      all known names from Ethernet1 to Ethernet4; at least one must be known
//    Ethernet1-4,7    a list; a number alone has the stem of the name before it
NameChoice chooseNames(std::string_view word, const std::vector<String>& known);

// What the beginning of such a word may become, as far as its last name or number: for "Ethernet1,3-" all lists up to
// "Ethernet1,3-64". Only for a list or a range: a name alone is one of the known.
std::vector<String> continuedNames(std::string_view begun, const std::vector<String>& known);

} // namespace Kiln
