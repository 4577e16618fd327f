// Turns a port's raw MAC counters into a record, and finds and absorbs wraps and flipped bits on the way.
#pragma once

#include "counters/ZelCountersTypes.h"
#include "kiln/Accessors.h"
#include "vex/VexTypes.h"

#include <optional>

namespace ZelCounter {

// Part of the per-chip object, which documents the operations. Under the activity lock.
class MacAccounting {
 public:
   // Fills the record from a port's raw counters and vets it against the previous one.
   void account(const IntfCounters& snapshot, const Kiln::Ptr<VexTypes::IntfCounters>& record,
                const Kiln::Ptr<VexTypes::IntfCounters>& previous);
   // Makes the previous record's reading that of the snapshot: the next step begins there.
   static void beginAt(const IntfCounters& snapshot, VexTypes::IntfCounters& previous);
   // Looks at each counter's step from one record to the other, and at nothing else.
   void checkMacCountersOverflow(const Pelt::IntfId& intf, const Kiln::Ptr<VexTypes::IntfCounters>& record,
                                 const Kiln::Ptr<VexTypes::IntfCounters>& previous);

   // Events since the chip came up: wraps, and single-event upsets (flipped bits).
   KILN_COUNTER(U32, overflowCount)
   KILN_COUNTER(U32, seuCount)

   // A counter whose step was a wrap or an upset.
   struct Event {
      Pelt::IntfId intf;
      const char* counter;
      U64 before;
      U64 after;
      double time; // on the system's clock
   };
   // Nothing if there was none yet.
   const std::optional<Event>& lastWrap() const { return lastWrap_; }
   const std::optional<Event>& lastUpset() const { return lastUpset_; }

 private:
   std::optional<Event> lastWrap_;
   std::optional<Event> lastUpset_;
};

} // namespace ZelCounter
