// Reads times that may be two words.
#include "apps/zelctl/views/TimeWords.h"

#include "kiln/Choices.h"

#include <algorithm>
#include <stdexcept>

namespace ZelCtl {

namespace {

using Kiln::String;
using Words = std::vector<String>;

// A number alone may be of seconds or minutes.
String expectedDurations(const String& word) {
   const bool isNumber = !word.empty() && word.find_first_not_of("0123456789") == String::npos;
   return isNumber ? "expected " + word + "s or " + word + "m" : "expected one as 90s, 5m or 1h30m";
}

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
      text += ' ';
      text += unquoted(words[++*at]);
   }
   const std::optional<double> time = parseTime(text, clock);
   if (!time) {
      throw std::runtime_error("invalid time " + Kiln::quoted(text) + expectedTimes(clock));
   }
   return *time;
}

double takePastTime(const Words& words, std::size_t* at, const TableClock& clock) {
   const double time = takeTime(words, at, clock);
   if (clock.isOfHere && time > clock.now) {
      throw std::runtime_error(momentText(time + clock.unixOffset, clock) + " is yet to come: now it is " +
                               clock.dateAndTimeText(clock.now));
   }
   return time;
}

double takeDuration(const Words& words, std::size_t at) {
   const String& before = words[at - 1];
   if (at == words.size()) {
      throw std::runtime_error(before + " needs a duration: " + expectedDurations(""));
   }
   const auto seconds = parseDuration(words[at]);
   if (!seconds) {
      throw std::runtime_error("invalid duration " + Kiln::quoted(words[at]) + ": " +
                               expectedDurations(words[at]));
   }
   return *seconds;
}

void refuseAgain(bool isThere, const String& keyword) {
   if (isThere) {
      throw std::runtime_error(keyword + " is given twice: leave out one of them");
   }
}

bool AskedSpan::take(const String& keyword, const Words& words, std::size_t* at, const TableClock& clock) {
   if (keyword == "last") {
      refuseAgain(last.has_value(), keyword);
      last = takeDuration(words, ++*at);
   } else if (keyword == "from") {
      refuseAgain(from.has_value(), keyword);
      from = takePastTime(words, &++*at, clock);
   } else if (keyword == "to") {
      refuseAgain(to.has_value(), keyword);
      to = takeTime(words, &++*at, clock);
   } else {
      return false;
   }
   return true;
}

void AskedSpan::finish(const TableClock& clock) {
   if (last && (from || to)) {
      throw std::runtime_error(
           "last counts back from now, and from and to are times: leave out one or the other");
   }
   if (from && to && *to < *from) {
      throw std::runtime_error("from " + clock.dateAndTimeText(*from) + " is after to " +
                               clock.dateAndTimeText(*to) + ": now it is " +
                               clock.dateAndTimeText(clock.now));
   }
   if (from && to && *from == *to) {
      constexpr double toTheNext = 1 - 1e-6; // seconds, to the microsecond that clocks are read in
      *to += toTheNext;
   }
   if (to && clock.isOfHere) {
      to = std::min(*to, clock.now);
   }
}

bool isTimeWord(const String& word) {
   return word == "last" || word == "from" || word == "to" || word == "since";
}

Words timeCandidates(const String& word) {
   Words candidates;
   if (word == "last" || word == "since") {
      candidates = {"1m", "5m", "15m"};
   }
   if (word == "since") {
      candidates.emplace_back("clear");
   }
   return candidates;
}

bool isRefusedAfter(const String& word, const Words& words) {
   const auto has = [&](const char* one) { return std::ranges::find(words, one) != words.end(); };
   return word == "last" ? has("from") || has("to") : word == "from" || word == "to" ? has("last") : false;
}

String momentText(double unixTime, const TableClock& clock) {
   const double time = unixTime - clock.unixOffset;
   const String whole = clock.dateAndTimeText(time);
   constexpr std::size_t date = 10; // "2026-11-22"
   return whole.substr(0, date) == clock.dateAndTimeText(clock.now).substr(0, date) ? clock.timeText(time)
                                                                                    : whole;
}

} // namespace ZelCtl
