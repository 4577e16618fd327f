// The counters of L3 interfaces of one kind: VLAN interfaces, or subinterfaces.
#pragma once

#include "kiln/Timer.h"
#include "silo/Table.h"
#include "vex/VexCountersLog.h"
#include "vex/VexTypes.h"

#include <functional>

namespace Vex {

// Part of a reactor. Interfaces are marked due, as often as somebody likes, and read once when everything
// else that this moment holds has run. Activity thread; allocates only for an interface that is new.
class L3Counters {
 public:
   // Fills the first record, with the second one as the previous; false when the interface has no counters.
   using Read = std::function<bool(const Pelt::IntfId&, const Kiln::Ptr<VexTypes::L3IntfCounters>&,
                                   const Kiln::Ptr<VexTypes::L3IntfCounters>&)>;
   using Table = Silo::Table<Silo::Interface::L3IntfCounters>;

   // The tables are the reactor's and outlive this. Either may be null: then nothing is published, or
   // cleared.
   L3Counters(Kiln::Ptr<const Kiln::Clock> clock, Table* counters, Table* clearCounters, Read read)
        : counters_(counters), clearCounters_(clearCounters), read_(std::move(read)),
          endOfTurn_(std::move(clock), this, &L3Counters::handleEndOfTurn) {}

   bool has(const Pelt::IntfId& intf) const { return intfs_.contains(intf); }
   // Begins to count, going on from what was published. A name that no table takes is told to the operator,
   // and not counted. False: it was there, or is not counted.
   bool add(const Pelt::IntfId& intf);
   // The interface is gone; so are its records.
   void remove(const Pelt::IntfId& intf);

   void dueIs(const Pelt::IntfId& intf);
   void allDueIs();
   // Nothing is due any more.
   void cancel() { endOfTurn_.timeMinIs(Kiln::never); }

   // What counts from now on counts since the clear. False: no such interface.
   bool clear(const Pelt::IntfId& intf);
   void clearAll();

 private:
   struct Counted {
      Silo::Key key;
      Kiln::Ptr<VexTypes::L3IntfCounters> previous;
      bool isDue = false;
   };

   void handleEndOfTurn();
   void update(const Pelt::IntfId& intf, Counted& counted);
   void clear(const Counted& counted);
   void arm();

   Table* counters_;
   Table* clearCounters_;
   Read read_;
   Kiln::Ptr<VexTypes::L3IntfCounters> reading_ = Kiln::allocate<VexTypes::L3IntfCounters>(); // of any
   Kiln::HashMap<Pelt::IntfId, Counted> intfs_;
   PublishErrors errors_;
   Kiln::Timer<L3Counters> endOfTurn_;
};

} // namespace Vex
