// The counters of L3 interfaces of one kind: VLAN interfaces, or subinterfaces.
#pragma once

#include "kiln/Timer.h"
#include "silo/Table.h"
#include "vex/Clear.h"
#include "vex/VexCountersLog.h"
#include "vex/VexTypes.h"

#include <functional>
#include <vector>

namespace Vex {

// Part of a reactor. Interfaces are marked due, any number of times, and are read once at the end of this turn of the
// loop, or in the next ones if they are many: a pass marks them for each chip, and each read sums over all chips. Activity
// thread; allocates only for a new interface.
class L3Counters {
 public:
   // Fills the first record; the second one is the previous. False if the interface has no counters.
   using Read = std::function<bool(const Pelt::IntfId&, const Kiln::Ptr<VexTypes::L3IntfCounters>&,
                                   const Kiln::Ptr<VexTypes::L3IntfCounters>&)>;
   using Table = Silo::Table<Silo::Interface::L3IntfCounters>;

   // The tables are the reactor's and outlive this. Either may be null: then nothing is published, or cleared.
   L3Counters(Kiln::Ptr<const Kiln::Clock> clock, Table* counters, Table* clearCounters, Read read)
        : counters_(counters), clearCounters_(clearCounters), read_(std::move(read)),
          endOfTurn_(std::move(clock), this, &L3Counters::handleEndOfTurn) {}

   bool has(const Pelt::IntfId& intf) const { return intfs_.contains(intf); }
   // Begins to count, going on from what was published. A name that no table takes is reported to the operator and not
   // counted. False: the interface was counted already, or is not counted.
   bool add(const Pelt::IntfId& intf);
   // The interface is gone: deletes its records.
   void remove(const Pelt::IntfId& intf);

   void dueIs(const Pelt::IntfId& intf);
   // Reads the interface now, before what it counts with goes away.
   void read(const Pelt::IntfId& intf);
   void allDueIs();
   // Forgets what is due.
   void cancel() {
      endOfTurn_.timeMinIs(Kiln::never);
      pass_.clear();
      nextInPass_ = 0;
   }

   // Moves the clear baseline to now; what the table does not take comes with the next read. False: no such interface.
   bool clear(const Pelt::IntfId& intf);
   void clearAll();

   // Removes the records of interfaces that an earlier process published, unless they are counted or there.
   void removeAbsent(const std::function<bool(const Pelt::IntfId&)>& isThere);

 private:
   struct Counted {
      Silo::Key key;
      Kiln::Ptr<VexTypes::L3IntfCounters> previous;
      VexTypes::L3IntfCounters::Meter meter{};
      Clear<Silo::Interface::L3IntfCounters> clear{};
      bool isKept = false; // goes on from an earlier process's record, and was not read yet
      bool isDue = false;
   };

   void beginPass();
   void handleEndOfTurn();
   void update(const Pelt::IntfId& intf, Counted& counted);
   void tryUpdate(const Pelt::IntfId& intf, Counted& counted);
   void clear(const Pelt::IntfId& intf, Counted& counted);
   bool clearKept(const Silo::Key& key);
   void arm();

   Table* counters_;
   Table* clearCounters_;
   Read read_;
   Kiln::Ptr<VexTypes::L3IntfCounters> reading_ = Kiln::allocate<VexTypes::L3IntfCounters>(); // one for all
   Kiln::HashMap<Pelt::IntfId, Counted> intfs_;
   std::vector<Pelt::IntfId> pass_; // what was due when it began
   std::size_t nextInPass_ = 0;
   bool isDueAgain_ = false; // something was marked amid the pass
   PublishErrors errors_;
   Kiln::Timer<L3Counters> endOfTurn_;
};

} // namespace Vex
