// From a port's raw MAC counters to a record whose every step is true: where wraps and flipped bits are found and
// absorbed.
#pragma once

#include "counters/ZelCountersTypes.h"
#include "kiln/Accessors.h"
#include "vex/VexTypes.h"

namespace ZelCounter {

// Part of the per-chip object, which documents the operations. Under the activity lock.
class MacAccounting {
 public:
   // Fills the record from a port's raw counters and vets it against the previous one.
   void account(const IntfCounters& snapshot, const Kiln::Ptr<VexTypes::IntfCounters>& record,
                const Kiln::Ptr<VexTypes::IntfCounters>& previous);
   // Looks at each counter's step, and at nothing but the two records.
   void checkMacCountersOverflow(const Pelt::IntfId& intf, const Kiln::Ptr<VexTypes::IntfCounters>& record,
                                 const Kiln::Ptr<VexTypes::IntfCounters>& previous);

   // Events since the chip came up: wraps, and single-event upsets (flipped bits).
   KILN_COUNTER(U32, overflowCount)
   KILN_COUNTER(U32, seuCount)
};

} // namespace ZelCounter
