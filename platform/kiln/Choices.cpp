// Joins, quotes and shortens words for people.
#include "kiln/Choices.h"

#include "kiln/Numbered.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace Kiln {

String joined(const std::vector<String>& all, std::string_view separator) {
   String text;
   for (std::size_t i = 0; i < all.size(); ++i) {
      text += i == 0 ? "" : separator;
      text += all[i];
   }
   return text;
}

String quoted(std::string_view word) {
   constexpr std::size_t shown = 40;
   // A character, not a literal: before a temporary, g++ 12 at -O3 warns of an overlap that can't be.
   String text = '\'' + String(word.substr(0, shown));
   return text + (word.size() > shown ? "...'" : "'");
}

String choices(const std::vector<String>& all, std::string_view last) {
   String text;
   for (std::size_t i = 0; i < all.size(); ++i) {
      text += i == 0 ? "" : i + 1 == all.size() ? last : ", ";
      text += all[i];
   }
   return text;
}

String durationText(double seconds) {
   constexpr U64 minute = 60;
   constexpr U64 hour = 60 * minute;
   constexpr U64 day = 24 * hour;
   const auto whole = static_cast<U64>(std::max(seconds, 0.0));
   const auto two = [&](U64 big, const char* bigUnit, U64 small, const char* smallUnit) {
      String text = std::to_string(whole / big) + bigUnit;
      if (const U64 rest = whole % big / small; rest != 0) {
         text += ' ';
         text += std::to_string(rest) + smallUnit;
      }
      return text;
   };
   return whole < 5 * minute ? std::to_string(whole) + " s"
          : whole < hour     ? two(minute, " min", 1, " s")
          : whole < day      ? two(hour, " h", minute, " min")
                             : two(day, " d", hour, " h");
}

String counted(U64 number, std::string_view singular) {
   return std::to_string(number) + " " + String(singular) + (number == 1 ? "" : "s");
}

String nameRanges(const std::vector<String>& sorted, std::string_view lastSeparator) {
   constexpr std::size_t shown = 8;
   std::vector<String> ranges;
   for (std::size_t i = 0; i < sorted.size();) {
      std::size_t last = i;
      while (last + 1 < sorted.size() && Numbered(sorted[last]).isFollowedBy(Numbered(sorted[last + 1]))) {
         ++last;
      }
      ranges.push_back(last == i ? sorted[i] : sorted[i] + " to " + sorted[last]);
      i = last + 1;
   }
   if (ranges.size() > shown) {
      ranges.resize(shown);
      ranges.emplace_back("others");
   }
   return choices(ranges, lastSeparator);
}

namespace {

constexpr std::string_view shortInterface = "intf";
constexpr std::string_view longInterface = "interface";

bool begins(std::string_view choice, std::string_view word) {
   return choice.starts_with(word) || (choice == shortInterface && longInterface.starts_with(word)) ||
          (choice == longInterface && shortInterface.starts_with(word));
}

String lowered(std::string_view text) {
   String low(text);
   std::ranges::transform(low, low.begin(),
                          [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
   return low;
}

constexpr std::size_t longestCompared = 40; // letters: a longer word is no mistyped one

// How many keys have to be added, dropped, changed or swapped with their neighbour to make one word the other. Allocates
// nothing, since a command may compare thousands of names.
std::size_t keysBetween(std::string_view from, std::string_view to) {
   std::array<std::array<std::size_t, longestCompared + 1>, longestCompared + 1> keys;
   std::iota(keys[0].begin(), keys[0].end(), 0);
   for (std::size_t i = 1; i <= from.size(); ++i) {
      keys[i][0] = i;
      for (std::size_t j = 1; j <= to.size(); ++j) {
         const std::size_t change = from[i - 1] == to[j - 1] ? 0 : 1;
         keys[i][j] = std::min({keys[i - 1][j] + 1, keys[i][j - 1] + 1, keys[i - 1][j - 1] + change});
         if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
            keys[i][j] = std::min(keys[i][j], keys[i - 2][j - 2] + 1);
         }
      }
   }
   return keys[from.size()][to.size()];
}

} // namespace

std::vector<String> wordsMeant(std::string_view word, const std::vector<String>& all) {
   std::vector<String> meant;
   for (const String& choice : all) {
      if (choice == word) {
         return {choice};
      }
      if (begins(choice, word)) {
         meant.push_back(choice);
      }
   }
   return meant;
}

String nearest(std::string_view word, const std::vector<String>& all) {
   String near;
   if (word.size() > longestCompared) {
      return near;
   }
   const String low = lowered(word);
   const Numbered numbered(low);
   // A word of two letters is two keys away from half the language, and numbers that differ are different things.
   std::size_t least = word.size() < 3 ? 1 : word.size() < 5 ? 2 : 3;
   for (const String& choice : all) {
      if (choice.size() >= word.size() + least || choice.size() + least <= word.size() ||
          choice.size() > longestCompared) {
         continue;
      }
      const String other = lowered(choice);
      const Numbered otherNumbered(other);
      const bool isOtherNumber =
           numbered.isNumbered && otherNumbered.isNumbered && numbered.number != otherNumbered.number;
      const std::size_t keys = isOtherNumber ? least : keysBetween(low, other);
      if (keys < least) {
         least = keys;
         near = choice;
      }
   }
   return near;
}

String meantOrExpected(std::string_view word, const std::vector<String>& all, const String& expected) {
   const String near = nearest(word, all);
   return near.empty() ? "expected " + expected : "did you mean " + near + "?";
}

String unknownInterface(const String& word, const std::vector<String>& sorted) {
   return "unknown interface " + quoted(word) + ": " +
          (sorted.empty() ? "no interface is known yet" : meantOrExpected(word, sorted, nameRanges(sorted)));
}

} // namespace Kiln
