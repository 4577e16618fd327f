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

// Completes `next`, whose reading is set, to follow `previous`. `published` is the reading of `previous`
// before it was vetted: where the two differ, the step was an upset. Everything is modulo 2^64. True when no
// counter wrapped, fell or was upset.
template <class Record>
bool takeStep(Record& next, const Record& previous, const typename Record::Statistics& published) {
   constexpr const auto& fields = Interface::fieldsOf<typename Record::Statistics>();
   bool isContinuous = true;
   for (std::size_t i = 0; i < fields.size(); ++i) {
      const U64 reading = Interface::word(next.reading, i);
      const U64 vetted = Interface::word(previous.reading, i);
      const U64 step = reading - vetted;
      const bool isAbsorbed = vetted != Interface::word(published, i) || isImplausible(fields[i].group, step);
      next.isAbsorbed[i] = isAbsorbed ? 1 : 0;
      next.deltas[i] = isAbsorbed ? 0 : step;
      next.totals[i] = previous.totals[i] + next.deltas[i];
      isContinuous = isContinuous && !isAbsorbed && reading >= vetted;
   }
   return isContinuous;
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
