// The ports' raw MAC counters: as read last, as at the last clear, and how they are shown.
#pragma once

#include "counters/ZelCountersTypes.h"
#include "counters/chip/ChipView.h"

namespace ZelCounter {

class MacCounters : public ChipView {
 public:
   using ChipView::ChipView;

   // Stores a port's 89 raw counters as the interface's latest.
   void updateCounters(const Pelt::IntfId& intf, const bf_rmon_counter_array_t& counters);

   void show(ShowOutput& out, const Pelt::IntfId& intf, bool nonZeroOnly);
   void showAll(ShowOutput& out, bool nonZeroOnly);
   void clear(ShowOutput& out, const Pelt::IntfId& intf);
   void clearAll(ShowOutput& out);

   // The latest completed read, and the values at the last clear, by interface.
   KILN_HASH_MAP(Pelt::IntfId, Kiln::Ptr<IntfCounters>, macCountersLast)
   KILN_HASH_MAP(Pelt::IntfId, Kiln::Ptr<IntfCounters>, macCountersClear)
};

} // namespace ZelCounter
