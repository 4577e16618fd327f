// The counters of one port.
#pragma once

#include "vex/Clear.h"
#include "vex/SharedTables.h"
#include "vex/VexHelper.h"

namespace Vex::Counters {

// Takes a port from reading to reading. Owned by the counters reactor, which makes one for each port. Activity thread;
// allocates only when made and when cleared.
class VexPortCounterSm : public Kiln::PtrInterface {
 public:
   // Throws std::invalid_argument if the interface's name cannot be a key of a shared table.
   explicit VexPortCounterSm(const Pelt::IntfId& intf);

   const Pelt::IntfId& intfId() const { return intf_; }
   const Silo::Key& key() const { return key_; }

   // The record published last, without its deltas and interval. The helper seeds it when counting begins.
   KILN_POINTER(VexTypes::IntfCounters, prevCounters)

   // The tables are the reactor's; all but the first may be null.
   struct Tables {
      Silo::Table<Silo::Interface::IntfCounters>& counters;
      Silo::Table<Silo::Interface::IntfCounters>* clearCounters;
      History* history;
   };

   // The previous record was just seeded. `isKept`: the table had a record of the port.
   void handleSeed(bool isKept, const Tables& tables);

   // Reads, vets and publishes the port's counters. The helper reads into `reading`, which then becomes the published
   // record; one serves all ports. `speed` is in bit/s, null if the platform does not say. Publishes nothing if the
   // helper has no reading. Throws what the tables throw.
   void update(VexHelper::VexHelperCountersSm& helper, const Kiln::Ptr<VexTypes::IntfCounters>& reading,
               const Tables& tables, const U64* speed);

   // It is updated soon: asks for the memory of that.
   void prefetch() const { prevCounters_->prefetch(); }

   // The drops of all its queues, as published last.
   void queueDropsIs(const QueueDrops& drops) { queueDrops_ = drops; }

   // Counts since the clear begin now. Throws what the table throws; what it did not take comes with the next update.
   void clear(const Tables& tables);
   // The port is gone.
   void remove(const Tables& tables) const;

 private:
   U64 suspects(const Silo::Interface::IntfCounters& record, U64 speed) const;
   void tellExchange(const Source& before) const;

   Pelt::IntfId intf_;
   Silo::Key key_;
   Clear<Silo::Interface::IntfCounters> clear_;
   QueueDrops queueDrops_;
   bool isSeeded_ = true; // the previous record is not yet a reading of this process
};

} // namespace Vex::Counters
