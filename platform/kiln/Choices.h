// Lists and words as errors show them: what was typed, and what was expected instead.
#pragma once

#include "kiln/Types.h"

#include <string_view>
#include <vector>

namespace Kiln {

// "a, b, c" with the separator ", ".
String joined(const std::vector<String>& all, std::string_view separator);

// The word in quotes, cut short when it is long.
String quoted(std::string_view word);

// "a", "a or b", "a, b or c".
String choices(const std::vector<String>& all, std::string_view last = " or ");

// An age for people: "118 s", from five minutes on "5 min 3 s", then "3 h 20 min" and "2 d 3 h".
String durationText(double seconds);

// "1 row", "2 rows".
String counted(U64 number, std::string_view singular);

// The first few of the names, which are in natural order, with neighbours drawn together: "Ethernet1 to Ethernet64 or
// Internal1". `lastSeparator` stands before the last one.
String nameRanges(const std::vector<String>& sorted, std::string_view lastSeparator = " or ");

// The choices that the word names: the one that it is, else all that begin with it. `intf` and `interface` are one word.
std::vector<String> wordsMeant(std::string_view word, const std::vector<String>& all);

// The choice that the word was most likely meant to be: at most two keys away, or other only in case. Empty if none is
// near, or the word is too short to tell.
String nearest(std::string_view word, const std::vector<String>& all);

// "did you mean drop?" if a choice is near the word, else "expected " and the choices, which are what `expected` says.
String meantOrExpected(std::string_view word, const std::vector<String>& all, const String& expected);

// Says that there is no such interface, and which ones there are.
String unknownInterface(const String& word, const std::vector<String>& sorted);

} // namespace Kiln
