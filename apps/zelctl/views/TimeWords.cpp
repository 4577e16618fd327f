// Reads times that may be two words.
#include "apps/zelctl/views/TimeWords.h"

#include "kiln/Choices.h"

#include <stdexcept>

namespace ZelCtl {

namespace {

using Kiln::String;
using Words = std::vector<String>;

constexpr const char* times = "14:05, 14:05:09 or 2026-11-22 14:05:09";
constexpr const char* durations = "90s, 5m, 1h30m or 2d";

String unquoted(String text) {
   std::erase_if(text, [](char c) { return c == '"' || c == '\''; });
   return text;
}

} // namespace

double takeTime(const Words& words, std::size_t* at, const TableClock& clock) {
   const String& before = words[*at - 1];
   if (*at == words.size()) {
      throw std::runtime_error(before + " needs a time: expected " + times);
   }
   const String& first = words[*at];
   if (*at + 1 < words.size()) {
      if (const auto time = parseTime(unquoted(first + " " + words[*at + 1]), clock)) {
         ++*at;
         return *time;
      }
   }
   if (const auto time = parseTime(unquoted(first), clock)) {
      return *time;
   }
   throw std::runtime_error(Kiln::quoted(first) + " after " + before + " is no time: expected " + times);
}

double takeDuration(const Words& words, std::size_t at) {
   const String& before = words[at - 1];
   if (at == words.size()) {
      throw std::runtime_error(before + " needs a span of time: expected " + durations);
   }
   const auto seconds = parseDuration(words[at]);
   if (!seconds) {
      throw std::runtime_error(Kiln::quoted(words[at]) + " after " + before +
                               " is no span of time: expected " + durations);
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
