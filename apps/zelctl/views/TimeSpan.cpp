// Reads and prints times and durations.
#include "apps/zelctl/views/TimeSpan.h"

#include "kiln/Numbers.h"
#include "kiln/Time.h"

#include <array>
#include <cmath>
#include <ctime>

namespace ZelCtl {

namespace {

constexpr double minute = 60;
constexpr double hour = 60 * minute;
constexpr double day = 24 * hour;

struct Unit {
   char letter;
   const char* text;
   double seconds;
};
constexpr std::array units{Unit{'d', "d", day}, Unit{'h', "h", hour}, Unit{'m', "min", minute},
                           Unit{'s', "s", 1}};

std::tm calendarOf(double unixTime, bool isSimulated) {
   const auto whole = static_cast<std::time_t>(std::floor(unixTime));
   std::tm calendar{};
   if (isSimulated) {
      gmtime_r(&whole, &calendar);
   } else {
      localtime_r(&whole, &calendar);
   }
   return calendar;
}

Kiln::String formatted(const char* format, double unixTime, bool isSimulated) {
   const std::tm calendar = calendarOf(unixTime, isSimulated);
   std::array<char, 64> text{};
   return {text.data(), std::strftime(text.data(), text.size(), format, &calendar)};
}

} // namespace

TableClock TableClock::of(const Silo::TableState& state, double newest) {
   TableClock clock;
   clock.isSimulated = state.clockDomain.simulated;
   clock.isOfHere = clock.isSimulated || state.clockDomain.isComparableWith(Silo::ClockDomain::monotonic());
   if (clock.isSimulated) {
      clock.now = newest;
   } else {
      clock.now = Silo::monotonicNow();
      clock.unixOffset = Kiln::System::unixTime() - clock.now;
   }
   return clock;
}

Kiln::String TableClock::timeText(double time) const {
   return formatted("%H:%M:%S", time + unixOffset, isSimulated);
}

Kiln::String TableClock::dateAndTimeText(double time) const {
   return formatted("%Y-%m-%d %H:%M:%S", time + unixOffset, isSimulated);
}

std::optional<double> parseDuration(const Kiln::String& text) {
   double seconds = 0;
   std::size_t at = 0;
   for (const Unit& unit : units) { // in this order, each at most once
      const std::size_t end = text.find(unit.letter, at);
      if (end == Kiln::String::npos) {
         continue;
      }
      const auto count = Kiln::parseDecimal(text.substr(at, end - at), day);
      if (!count) {
         return std::nullopt;
      }
      seconds += *count * unit.seconds;
      at = end + 1;
   }
   return at == text.size() && seconds > 0 ? std::optional(seconds) : std::nullopt;
}

Kiln::String durationText(double seconds) {
   double left = std::max(std::round(seconds), 0.0);
   Kiln::String text;
   int parts = 0;
   for (const Unit& unit : units) {
      const double count = std::floor(left / unit.seconds);
      if (count > 0 && parts < 2) {
         text += parts == 0 ? "" : " ";
         text += std::to_string(static_cast<U64>(count));
         text += ' ';
         text += unit.text;
         left -= count * unit.seconds;
         ++parts;
      } else if (parts > 0) {
         break; // "1 d 5 s" says more than is known
      }
   }
   return text.empty() ? "0 s" : text;
}

std::optional<double> parseTime(const Kiln::String& text, const TableClock& clock) {
   constexpr std::array formats{"%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S", "%H:%M:%S", "%H:%M"};
   for (const char* format : formats) {
      const bool hasDate = format[1] == 'Y';
      std::tm calendar = hasDate ? std::tm{} : calendarOf(clock.now + clock.unixOffset, clock.isSimulated);
      calendar.tm_sec = 0;
      const char* const end = strptime(text.c_str(), format, &calendar);
      if (end == nullptr || *end != '\0') {
         continue;
      }
      calendar.tm_isdst = -1;
      const std::time_t unixTime = clock.isSimulated ? timegm(&calendar) : std::mktime(&calendar);
      if (unixTime == std::time_t{-1} && calendar.tm_year >= 70) {
         return std::nullopt;
      }
      double time = static_cast<double>(unixTime) - clock.unixOffset;
      // After midnight, 23:50 is that of the evening before.
      if (!hasDate && time > clock.now && time - day > clock.now - 12 * hour) {
         time -= day;
      }
      return time;
   }
   return std::nullopt;
}

} // namespace ZelCtl
