// The counters of one port.
#pragma once

#include "vex/SharedTables.h"
#include "vex/VexHelper.h"

namespace Vex::Counters {

// Takes a port from reading to reading. Owned by the counters reactor, which makes one for each port that
// exists. Activity thread; allocates nothing once made.
class VexPortCounterSm : public Kiln::PtrInterface {
 public:
   // An interface name that is no key of a shared table is a std::invalid_argument.
   explicit VexPortCounterSm(const Pelt::IntfId& intf);

   const Pelt::IntfId& intfId() const { return intf_; }
   const Silo::Key& key() const { return key_; }

   // The record that was published last, which the helper seeds when counting begins; without what was of its last
   // step alone.
   KILN_POINTER(VexTypes::IntfCounters, prevCounters)

   // The previous record was just seeded. `isKept`: the table had a record of the port.
   void handleSeed(bool isKept);

   // Reads, vets and publishes the port's counters. `reading` is where the helper puts what it reads, and
   // becomes the record that is published: one serves all ports. `speed` is in bit/s. Nothing is published when
   // the helper has no reading. Throws what the table throws.
   void update(VexHelper::VexHelperCountersSm& helper, const Kiln::Ptr<VexTypes::IntfCounters>& reading,
               Silo::Interface::AllIntfCounters& counters, U64 speed);

 private:
   U64 suspects(const Silo::Interface::IntfCounters& record, U64 speed) const;

   Pelt::IntfId intf_;
   Silo::Key key_;
   bool isSeeded_ = true; // the previous record is not a reading of this process
};

} // namespace Vex::Counters
