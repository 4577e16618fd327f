// From one published record to the next: deltas, totals and the time between.
#pragma once

#include "kiln/Time.h"
#include "silo/Table.h"
#include "vex/PublishedRecords.h"
#include "vex/VexTypes.h"

namespace Vex {

// A step of an upset-only counter that the helper let pass because it reads a negative value as 0 would still
// be a jump in a total, so it is absorbed here. The sign tests of the helper don't see it: to them 0 and a
// value with a flipped top bit are alike.
inline bool isImplausible(Interface::FieldGroup group, U64 step) {
   return group == Interface::FieldGroup::upsetOnly && step >= Interface::wrapWindow;
}

// Seconds between two samples; 0 when that is not known or no time has passed.
inline double intervalBetween(double previous, double now) {
   const double interval = now - previous;
   return interval > 0 && previous != Silo::unknownSampleTime ? interval : 0;
}

// Makes `next`, which has a new reading, the record that follows the last one, and takes `previous` there: its
// reading, totals and times, that is, for what the last step alone was it doesn't keep. A field that was absorbed
// makes no step. Everything is modulo 2^64. True when no counter wrapped, fell or was upset.
template <class Record>
bool takeStep(VexTypes::CountersOf<Record>& previous, Record& next, double now) {
   constexpr const auto& fields = Interface::fieldsOf<typename Record::Statistics>();
   Record& last = previous.record();
   // Nearly always every step counts as it is; what may be otherwise leaves a bit here.
   U64 suspicion = previous.hasAbsorbed() ? 1 : 0;
   for (std::size_t i = 0; i < fields.size(); ++i) {
      const U64 from = Interface::word(last.reading, i);
      const U64 to = Interface::word(next.reading, i);
      // A fall by less than the window that leads over the top is a wrap: the top bit goes. Bits, not branches, so
      // that the fields go through the vector registers in pairs.
      suspicion |= ((to - from) & ~(Interface::wrapWindow - 1)) | (from & ~to & Interface::topBit);
      next.deltas[i] = to - from;
      const U64 total = last.totals[i] + (to - from);
      next.totals[i] = total;
      last.totals[i] = total;
      Interface::wordIs(last.reading, i, to);
   }
   next.isAbsorbed = {};
   for (std::size_t i = 0; suspicion != 0 && i < fields.size(); ++i) {
      if (previous.isAbsorbed(i) || isImplausible(fields[i].group, next.deltas[i])) {
         next.isAbsorbed[i] = 1;
         last.totals[i] -= next.deltas[i];
         next.totals[i] = last.totals[i];
         next.deltas[i] = 0;
      }
   }
   const bool isContinuous = suspicion == 0;
   next.interval = intervalBetween(previous.sampleTime(), now);
   next.discontinuityTime = isContinuous ? last.discontinuityTime : now;
   next.suspects = last.suspects;
   last.discontinuityTime = next.discontinuityTime;
   previous.sampleTimeIs(now);
   return isContinuous;
}

// For a record that counting begins with; `isKept`: an earlier process left it. What was of that one's last step is no
// step of this one. A record whose sample time means nothing is damaged, or of another clock, and so is the time of
// its discontinuity: that is now.
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

// Deletes a clear record that is ahead of the record that it was taken from: that one began anew since, and what it
// counted since the clear would come out below zero.
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
