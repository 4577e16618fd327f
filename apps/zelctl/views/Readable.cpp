// Chooses units and digits.
#include "apps/zelctl/views/Readable.h"

#include <algorithm>
#include <cstdio>

namespace ZelCtl {

namespace {

using Kiln::String;

// The value, at least 1000, with so many digits and a unit.
String scaled(double value, int digits) {
   const double rounded =
        1 - 0.5 / (digits == 3 ? 1e3 : 1e4); // 999.5 of three digits is the next unit's 1.00
   const char* unit = "kMGTPE";
   for (value /= 1000; value >= 1000 * rounded && unit[1] != '\0'; value /= 1000) {
      ++unit;
   }
   const int whole = value < 10 * rounded ? 1 : value < 100 * rounded ? 2 : 3;
   char text[48];
   std::snprintf(text, sizeof text, "%.*f%c", digits - whole, value, *unit);
   return text;
}

} // namespace

String countText(U64 count) {
   constexpr U64 exact = 99999;
   return count <= exact ? std::to_string(count) : scaled(static_cast<double>(count), 4);
}

String rateText(double rate) {
   constexpr double slow = 10;
   constexpr double wide = 99999.5;
   if (!(rate > 0)) {
      return "0";
   }
   if (rate >= wide) {
      return scaled(rate, 3);
   }
   char text[48];
   std::snprintf(text, sizeof text, rate < slow ? "%.1f" : "%.0f", std::max(rate, 0.1));
   return text;
}

String speedText(U64 bitsPerSecond, const char* unit) {
   constexpr double giga = 1e9;
   char text[48];
   std::snprintf(text, sizeof text, "%.9g", static_cast<double>(bitsPerSecond) / giga);
   return String(text) + unit;
}

String perMilleText(U64 perMille, bool isZero) {
   if (perMille == 0) {
      return isZero ? "0%" : "<0.1%";
   }
   String text = std::to_string(perMille / 10);
   if (perMille < 1000) {
      text += '.';
      text += std::to_string(perMille % 10);
   }
   return text + '%';
}

} // namespace ZelCtl
