// Joins, quotes and shortens words for people.
#include "kiln/Choices.h"

#include <algorithm>
#include <strings.h>

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

String choices(const std::vector<String>& all) {
   String text;
   for (std::size_t i = 0; i < all.size(); ++i) {
      text += (i == 0 ? "" : i + 1 == all.size() ? " or " : ", ") + all[i];
   }
   return text;
}

String durationText(double seconds) {
   constexpr U64 minute = 60;
   constexpr U64 hour = 60 * minute;
   constexpr U64 day = 24 * hour;
   const auto whole = static_cast<U64>(std::max(seconds, 0.0));
   const auto two = [&](U64 big, const char* bigUnit, U64 small, const char* smallUnit) {
      const U64 rest = whole % big / small;
      return std::to_string(whole / big) + bigUnit +
             (rest == 0 ? "" : " " + std::to_string(rest) + smallUnit);
   };
   return whole < 5 * minute ? std::to_string(whole) + " s"
          : whole < hour     ? two(minute, " min", 1, " s")
          : whole < day      ? two(hour, " h", minute, " min")
                             : two(day, " d", hour, " h");
}

String counted(U64 number, std::string_view singular) {
   return std::to_string(number) + " " + String(singular) + (number == 1 ? "" : "s");
}

namespace {

// A name as a stem and a number: "Ethernet3.100" is "Ethernet3." and 100.
struct NumberedName {
   explicit NumberedName(const String& text) {
      const std::size_t digits = text.find_last_not_of("0123456789") + 1;
      stem = text.substr(0, digits);
      // At most nine digits, so that stoul cannot throw.
      isNumbered = text.size() > digits && text.size() - digits < 10;
      number = isNumbered ? std::stoul(text.substr(digits)) : 0;
   }
   bool isFollowedBy(const NumberedName& next) const {
      return isNumbered && next.isNumbered && stem == next.stem && number + 1 == next.number;
   }
   String stem;
   bool isNumbered = false;
   unsigned long number = 0;
};

} // namespace

String nameRanges(const std::vector<String>& sorted) {
   constexpr std::size_t shown = 8;
   std::vector<String> ranges;
   for (std::size_t i = 0; i < sorted.size();) {
      std::size_t last = i;
      while (last + 1 < sorted.size() &&
             NumberedName(sorted[last]).isFollowedBy(NumberedName(sorted[last + 1]))) {
         ++last;
      }
      ranges.push_back(last == i ? sorted[i] : sorted[i] + " to " + sorted[last]);
      i = last + 1;
   }
   if (ranges.size() > shown) {
      ranges.resize(shown);
      ranges.emplace_back("others");
   }
   return choices(ranges);
}

String unknownInterface(const String& word, const std::vector<String>& sorted) {
   const auto near = std::find_if(sorted.begin(), sorted.end(), [&](const String& one) {
      return strcasecmp(one.c_str(), word.c_str()) == 0;
   });
   return "unknown interface " + quoted(word) + ": " +
          (near != sorted.end() ? "did you mean " + *near + "?"
           : sorted.empty()     ? "no interface is known yet"
                                : "expected " + nameRanges(sorted));
}

} // namespace Kiln
