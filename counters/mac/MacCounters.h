// The ports' raw MAC counters: as read last, as at the last clear, and how they are shown.
#pragma once

#include "counters/ZelCountersTypes.h"
#include "counters/chip/ChipView.h"
#include "vex/Continuity.h"

namespace ZelCounter {

class MacCounters : public ChipView {
 public:
   using ChipView::ChipView;

   // Stores a port's 89 raw counters as the interface's latest.
   void updateCounters(const Pelt::IntfId& intf, const bf_rmon_counter_array_t& counters);

   // The interface is at another port or chip, or has none any more. What was read elsewhere goes; of an interface without
   // a port it stays, to be shown.
   void handlePort(const Pelt::IntfId& intf);
   // What counts the snapshot's port, and whether anybody was ever counted there in this life of the chip.
   Vex::Source sourceOf(const IntfCounters& snapshot) const {
      return {chip().deviceId(), Vex::Source::Block::mac, snapshot.devicePort(), chip().life()};
   }
   bool& isCounted(const IntfCounters& snapshot) { return isCounted_.at(snapshot.devicePort()); }

   void show(ShowOutput& out, const Pelt::IntfId& intf, bool nonZeroOnly);
   void showAll(ShowOutput& out, bool nonZeroOnly);
   void clear(ShowOutput& out, const Pelt::IntfId& intf);
   void clearAll(ShowOutput& out);

   // The latest completed read, and the values at the last clear, by interface.
   KILN_HASH_MAP(Pelt::IntfId, Kiln::Ptr<IntfCounters>, macCountersLast)
   KILN_HASH_MAP(Pelt::IntfId, Kiln::Ptr<IntfCounters>, macCountersClear)

 private:
   Kiln::HashMap<Pelt::IntfId, Agent::CommandOrigin> cleared_;   // those that hold
   std::array<bool, ZelId::PortIndex::invalid + 1> isCounted_{}; // by device port
};

} // namespace ZelCounter
