// What errors say of a word that was typed, and of what is expected in its place.
#pragma once

#include "kiln/Types.h"

#include <string_view>
#include <vector>

namespace Kiln {

// "a, b, c" with the separator ", ".
String joined(const std::vector<String>& all, std::string_view separator);

// In quotes, a long word cut short.
String quoted(std::string_view word);

// "a", "a or b", "a, b or c".
String choices(const std::vector<String>& all);

// "1 row", "2 rows".
String counted(U64 number, std::string_view singular);

// Names in their natural order, neighbours drawn together, the first few of them: "Ethernet1 to Ethernet64 or
// Internal1".
String nameRanges(const std::vector<String>& sorted);

// That there is no such interface, and which there are.
String unknownInterface(const String& word, const std::vector<String>& sorted);

} // namespace Kiln
