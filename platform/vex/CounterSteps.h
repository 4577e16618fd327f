// From one published record to the next: deltas, totals and the time between.
#pragma once

#include "kiln/Time.h"
#include "silo/Table.h"
#include "vex/PublishedRecords.h"
#include "vex/VexTypes.h"

namespace Vex {

// The helper reads a negative value of an upset-only counter as 0, so it lets the step to a flipped top bit pass. Added
// to a total that step would be a jump, so it is absorbed here.
inline bool isImplausible(Interface::FieldGroup group, U64 step) {
   return group == Interface::FieldGroup::upsetOnly && step >= Interface::wrapWindow;
}

// Seconds between two samples; 0 if that is not known or no time has passed.
inline double intervalBetween(double previous, double now) {
   const double interval = now - previous;
   return interval > 0 && previous != Silo::unknownSampleTime ? interval : 0;
}

// One step from reading to reading. `next` comes with a new reading and gets its totals, deltas, interval and times.
// `previous` is moved on to that reading, its totals and its times; it keeps nothing of the step itself. A field that
// was absorbed makes no step. Everything is modulo 2^64. True if no counter wrapped, fell or was upset.
template <class Record>
bool takeStep(VexTypes::CountersOf<Record>& previous, Record& next, double now) {
   constexpr const auto& fields = Interface::fieldsOf<typename Record::Statistics>();
   Record& last = previous.record();
   // Nearly always every step counts as it is. A step that may not leaves a high bit in one of these, so that one test
   // at the end replaces one per field.
   U64 steps = 0;
   U64 falls = 0;
   for (std::size_t i = 0; i < fields.size(); ++i) {
      const U64 from = Interface::word(last.reading, i);
      const U64 to = Interface::word(next.reading, i);
      // A small step forward over the top of the range is a wrap; the top bit then goes from 1 to 0. Bits, not
      // branches, so that the loop runs in vector registers.
      steps |= to - from;
      falls |= from & ~to;
      next.deltas[i] = to - from;
      const U64 total = last.totals[i] + (to - from);
      next.totals[i] = total;
      last.totals[i] = total;
      Interface::wordIs(last.reading, i, to);
   }
   const bool isContinuous =
        !previous.hasAbsorbed() && steps < Interface::wrapWindow && falls < Interface::topBit;
   next.isAbsorbed = {};
   for (std::size_t i = 0; !isContinuous && i < fields.size(); ++i) {
      if (previous.isAbsorbed(i) || isImplausible(fields[i].group, next.deltas[i])) {
         next.isAbsorbed[i] = 1;
         last.totals[i] -= next.deltas[i];
         next.totals[i] = last.totals[i];
         next.deltas[i] = 0;
      }
   }
   next.interval = intervalBetween(previous.sampleTime(), now);
   next.discontinuityTime = isContinuous ? last.discontinuityTime : now;
   next.suspects = last.suspects;
   last.discontinuityTime = next.discontinuityTime;
   previous.sampleTimeIs(now);
   return isContinuous;
}

// Prepares the record that counting begins with. `isKept`: an earlier process left it; its last step is dropped, since
// it is not a step of this process. A kept record without a known sample time was damaged or is of another clock. Its
// discontinuity time is no good either, and becomes now.
template <class Record>
void seed(VexTypes::CountersOf<Record>& counters, bool isKept) {
   Record& record = counters.record();
   record.deltas = {};
   record.isAbsorbed = {};
   record.interval = 0;
   if (isKept && counters.sampleTime() == Silo::unknownSampleTime) {
      record.discontinuityTime = Kiln::System::currentTime();
   }
}

inline bool isBelow(U64 total, U64 cleared) {
   return total < cleared;
}
inline bool isBelow(const Silo::Interface::QueueStatistics& total,
                    const Silo::Interface::QueueStatistics& cleared) {
   return total.packets < cleared.packets || total.bytes < cleared.bytes || total.drops < cleared.drops;
}

// Deletes a clear record that is ahead of the record it was taken from: that one has begun anew since then, and counts
// since the clear would come out negative.
template <class Record>
void dropClearAhead(Silo::Table<Record>& clearTable, const Silo::Key& key, const Record& record) {
   if (!clearTable.has(key)) {
      return;
   }
   const Record cleared = clearTable.sampleOrDefault(key).record;
   for (std::size_t i = 0; i < record.totals.size(); ++i) {
      if (isBelow(record.totals[i], cleared.totals[i])) {
         clearTable.recordDel(key);
         return;
      }
   }
}

} // namespace Vex
