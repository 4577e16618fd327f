// Reads times that may be two words.
#include "apps/zelctl/views/TimeWords.h"

#include "kiln/Choices.h"

#include <stdexcept>

namespace ZelCtl {

namespace {

using Kiln::String;
using Words = std::vector<String>;

constexpr const char* durations = "one as 90s, 5m or 1h30m";

String expectedTimes(const TableClock& clock) {
   return ": expected one as 14:05, 14:05:09 or 2026-11-22 14:05:09; now it is " +
          clock.dateAndTimeText(clock.now);
}

String unquoted(String text) {
   std::erase_if(text, [](char c) { return c == '"' || c == '\''; });
   return text;
}

} // namespace

double takeTime(const Words& words, std::size_t* at, const TableClock& clock) {
   const String& before = words[*at - 1];
   if (*at == words.size()) {
      throw std::runtime_error(before + " needs a time" + expectedTimes(clock));
   }
   String text = unquoted(words[*at]);
   // A date and its time are two words.
   if (text.find('-') != String::npos && text.find(':') == String::npos && *at + 1 < words.size()) {
      text += " " + unquoted(words[++*at]);
   }
   const std::optional<double> time = parseTime(text, clock);
   if (!time) {
      throw std::runtime_error("invalid time " + Kiln::quoted(text) + expectedTimes(clock));
   }
   return *time;
}

double takeDuration(const Words& words, std::size_t at) {
   const String& before = words[at - 1];
   if (at == words.size()) {
      throw std::runtime_error(before + " needs a duration: expected " + durations);
   }
   const auto seconds = parseDuration(words[at]);
   if (!seconds) {
      throw std::runtime_error("invalid duration " + Kiln::quoted(words[at]) + ": expected " + durations);
   }
   return *seconds;
}

String momentText(double unixTime, const TableClock& clock) {
   const double time = unixTime - clock.unixOffset;
   const String whole = clock.dateAndTimeText(time);
   constexpr std::size_t date = 10; // "2026-11-22"
   return whole.substr(0, date) == clock.dateAndTimeText(clock.now).substr(0, date) ? clock.timeText(time)
                                                                                    : whole;
}

} // namespace ZelCtl
