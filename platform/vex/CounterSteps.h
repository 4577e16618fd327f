// From one published record to the next: deltas, totals and the time between.
#pragma once

#include "kiln/Time.h"
#include "silo/Record.h"
#include "vex/PublishedRecords.h"

namespace Vex {

// A step of an upset-only counter that the helper let pass because it reads a negative value as 0 would still
// be a jump in a total, so it is absorbed here. The sign tests of the helper don't see it: to them 0 and a
// value with a flipped top bit are alike.
inline bool isImplausible(Interface::FieldGroup group, U64 step) {
   return group == Interface::FieldGroup::upsetOnly && step >= Interface::wrapWindow;
}

// Takes the record of `counters` from the last reading, in which a field that was absorbed makes no step, to a
// new one. Everything is modulo 2^64. True when no counter wrapped, fell or was upset.
template <class Counters>
bool takeStep(Counters& counters, const typename Counters::Statistics& reading) {
   constexpr const auto& fields = Interface::fieldsOf<typename Counters::Statistics>();
   auto& record = counters.record();
   // Nearly always every step counts as it is; what may be otherwise leaves a bit here.
   U64 suspicion = counters.hasAbsorbed() ? 1 : 0;
   for (std::size_t i = 0; i < fields.size(); ++i) {
      const U64 from = Interface::word(record.reading, i);
      const U64 to = Interface::word(reading, i);
      record.deltas[i] = to - from;
      // A fall by less than the window that leads over the top is a wrap: the top bit goes. Bits, not branches, so
      // that the fields go through the vector registers in pairs.
      suspicion |= (record.deltas[i] & ~(Interface::wrapWindow - 1)) | (from & ~to & Interface::topBit);
   }
   record.isAbsorbed = {};
   for (std::size_t i = 0; suspicion != 0 && i < fields.size(); ++i) {
      if (counters.isAbsorbed(i) || isImplausible(fields[i].group, record.deltas[i])) {
         record.isAbsorbed[i] = 1;
         record.deltas[i] = 0;
      }
   }
   for (std::size_t i = 0; i < fields.size(); ++i) {
      record.totals[i] += record.deltas[i];
   }
   std::memcpy(&record.reading, &reading, sizeof reading);
   return suspicion == 0;
}

// For the record that an earlier process left. One whose sample time means nothing is damaged, or of another
// clock, and so is the time of its discontinuity: that is now.
template <class Counters>
void renewDiscontinuity(Counters& kept) {
   if (kept.sampleTime() == Silo::unknownSampleTime) {
      kept.record().discontinuityTime = Kiln::System::currentTime();
   }
}

// Seconds between two samples; 0 when that is not known or no time has passed.
inline double intervalBetween(double previous, double now) {
   const double interval = now - previous;
   return interval > 0 && previous != Silo::unknownSampleTime ? interval : 0;
}

} // namespace Vex
