// Says where continuity is broken, as events.
#pragma once

#include "vex/Continuity.h"

namespace Vex {

// The bits in which two values differ, as "flipped bit 47" or "flipped bits 3, 12"; empty if they are more than four.
Kiln::String flippedBits(U64 before, U64 after);
// A counter was implausible.
void tellUpset(const Kiln::String& intf, const Kiln::String& counter, U64 before, U64 after);
// A step was no plain one: what fell began again, or else was implausible. `counter` is the one of those that fall together
// that broke first.
void tellBreak(const Kiln::String& intf, const Kiln::String& counter, const Break& broken);
// The count goes on from another source.
void tellDiscontinuity(const Kiln::String& intf, const char* cause);
// Of a sum of several devices' counts; `names` are those of each entry's two values. A plain sum is no event.
template <std::size_t entries>
void tellBreaks(const Kiln::String& intf, const typename DevicesMeter<entries>::Sum& sum,
                const std::array<std::array<const char*, 2>, entries>& names, const char* exchanged) {
   bool isTold = !sum.isMarked;
   for (std::size_t entry = 0; entry < entries && sum.isMarked; ++entry) {
      if (const Step<2>& step = sum.steps[entry]; step.isMarked) {
         tellBreak(intf, names[entry][step.broken.field], step.broken);
         isTold = true;
      }
   }
   if (sum.isExchanged || !isTold) {
      tellDiscontinuity(intf, exchanged);
   }
}

} // namespace Vex
