// The counters of one port.
#pragma once

#include "vex/SharedTables.h"
#include "vex/VexHelper.h"

namespace Vex::Counters {

// Takes a port from reading to reading. Owned by the counters reactor, which makes one for each port. Activity thread;
// allocates only when made.
class VexPortCounterSm : public Kiln::PtrInterface {
 public:
   // Throws std::invalid_argument if the interface's name cannot be a key of a shared table.
   explicit VexPortCounterSm(const Pelt::IntfId& intf);

   const Pelt::IntfId& intfId() const { return intf_; }
   const Silo::Key& key() const { return key_; }

   // The record published last, without its deltas and interval. The helper seeds it when counting begins.
   KILN_POINTER(VexTypes::IntfCounters, prevCounters)

   // The previous record was just seeded. `isKept`: the table had a record of the port.
   void handleSeed(bool isKept);

   // Reads, vets and publishes the port's counters. The helper reads into `reading`, which then becomes the published
   // record; one serves all ports. `speed` is in bit/s. Publishes nothing if the helper has no reading. Throws what the
   // table throws.
   void update(VexHelper::VexHelperCountersSm& helper, const Kiln::Ptr<VexTypes::IntfCounters>& reading,
               Silo::Interface::AllIntfCounters& counters, U64 speed);

 private:
   U64 suspects(const Silo::Interface::IntfCounters& record, U64 speed) const;

   Pelt::IntfId intf_;
   Silo::Key key_;
   bool isSeeded_ = true; // the previous record is not yet a reading of this process
};

} // namespace Vex::Counters
