// Makes events of breaks.
#include "vex/BreakEvents.h"

#include "kiln/EventLog.h"

#include <bit>

namespace Vex {

Kiln::String flippedBits(U64 before, U64 after) {
   constexpr int mostToName = 4;
   const U64 flipped = before ^ after;
   if (std::popcount(flipped) > mostToName) {
      return "";
   }
   Kiln::String text;
   for (U64 left = flipped; left != 0; left &= left - 1) {
      text += (text.empty() ? "" : ", ") + std::to_string(std::countr_zero(left));
   }
   return (std::popcount(flipped) == 1 ? "flipped bit " : "flipped bits ") + text;
}

void tellUpset(const Kiln::String& intf, const Kiln::String& counter, U64 before, U64 after) {
   Kiln::EventLog::instance().record({.kind = Kiln::EventKind::upset,
                                      .where = intf,
                                      .what = counter,
                                      .text = flippedBits(before, after),
                                      .hasValues = true,
                                      .before = before,
                                      .after = after});
}

void tellBreak(const Kiln::String& intf, const Kiln::String& counter, const Break& broken) {
   if (!broken.isFall()) {
      tellUpset(intf, counter, broken.before, broken.after);
      return;
   }
   Kiln::EventLog::instance().record({.kind = Kiln::EventKind::reset,
                                      .where = intf,
                                      .what = counter,
                                      .hasValues = true,
                                      .before = broken.before,
                                      .after = broken.after});
}

void tellDiscontinuity(const Kiln::String& intf, const char* cause) {
   Kiln::EventLog::instance().record({.kind = Kiln::EventKind::discontinuity, .where = intf, .text = cause});
}

} // namespace Vex
