// Counters of VLAN interfaces (SVIs) on one chip.
#pragma once

#include "counters/l3/PacketsAndBytes.h"
#include "counters/l3/SviCounterMatchSpec.h"
#include "counters/l3/VlanMap.h"
#include "kiln/Accessors.h"
#include "zel/ChipStatus.h"
#include "zel/SystemStatus.h"
#include "zel/VlanId.h"
#include "zel/ZelDevProfile.h"
#include "zl/ZlResourceInfo.h"

#include <functional>

namespace ZelCounter {

// One a chip, owned by the L3 interface reactor. Activity thread.
//
// A VLAN is in one of four states:
//
//                        matchSpec  pendingVlan  deferredDel  hardware
//    absent                 no          no           no       no entries
//    programmed             yes         no           no       all its entries
//    pending                no          yes          no       no entries: they did not fit
//    removal deferred       yes         no           yes      all its entries, until the chip is up
class ZelCountersL3Helper : public Kiln::Entity {
 public:
   class RetrySm;

   // Sets the tables up at once. Asserts that the program has them and that no pointer but the chip status is null.
   ZelCountersL3Helper(ZelId::ZelDevId devId, ZelDriver::ZelDevProfile devProfile,
                       Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                       Kiln::Ptr<ZlPd::ZlPdIntf> zlPdIntf,
                       Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf> zlResourceInfoIntf,
                       Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus);
   ~ZelCountersL3Helper() override;

   ZelId::ZelDevId deviceId() const { return devId_; }
   const Kiln::Ptr<const ZelSlice::ChipStatus>& chipStatus() const { return chipStatus_; }

   // Programs all of the VLAN's entries; without room for all of them programs none, and the VLAN is pending and
   // logged. Other exceptions of the tables reach the caller, and leave the VLAN as it was.
   void enableSviStats(Bridging::VlanId vlan);
   // Removes the VLAN's entries, or puts that off until the chip is up. Asserts that there is a chip status.
   void disableSviStats(Bridging::VlanId vlan);
   // Fills the pairs with the totals of what came in, what went out, and what came in and was source-translated, which
   // the first includes. False, and zeros, for a VLAN that is not programmed. Reads the SDK's software copy, as old as
   // the last hardware sync. Asserts that no pointer is null and that the SDK can read.
   bool getSviStats(Bridging::VlanId vlan, packets_and_bytes* rxCounter, packets_and_bytes* txCounter,
                    packets_and_bytes* rxSnatCounter) const;
   // The same, entry by entry, and who counted. With `isLastRead`, a read that fails gives false.
   struct SviReading {
      SviCounterMatchSpec* entries = nullptr;
      packets_and_bytes ordinaryIn, decapsulatedIn, sourceNatIn, ordinaryOut, decapsulatedOut;
   };
   bool readSvi(Bridging::VlanId vlan, bool isLastRead, SviReading* reading) const;
   // Adds an entry's count to the pair, with `adjust` bytes less for each packet. Modulo 2^64.
   void accumulateStats(U32 tableHandle, U32 entryHandle, S16 adjust, packets_and_bytes* counter) const;
   // Keeps pendingVlan, and tells the operator when a VLAN begins or ceases to be pending.
   void updatePendingVlan(Bridging::VlanId vlan, bool pending);
   // Called with the VLAN before its entries are removed, so that they can be read once more.
   using BeforeRemoval = std::function<void(Bridging::VlanId)>;
   void beforeRemovalIs(BeforeRemoval beforeRemoval) { beforeRemoval_ = std::move(beforeRemoval); }
   // Tries every pending VLAN again, in slices: may give way.
   void retryPendingVlan();
   // Tries again to delete some of the entries that the chip refused to delete, if it is up. For the VLAN they are gone;
   // in the chip they still take the room that a pending VLAN may wait for. True if it is worth while to go on at once.
   bool retryDeletions();
   // The chip, or its counting, goes: asks the chip for nothing more, and nobody waits for room any more. Whoever has
   // the helper may keep it.
   void stop();

   const Kiln::Ptr<ZlIngL2DomainCount::IngL2DomainCountTable>& ingL2DomainCountTable() const {
      return ingL2DomainCountTable_;
   }
   const Kiln::Ptr<ZlEgrL2DomainCount::EgrL2DomainCountTable>& egrL2DomainCountTable() const {
      return egrL2DomainCountTable_;
   }

   KILN_MAP_OF_KIND(VlanMap, Bridging::VlanId, Kiln::Ptr<SviCounterMatchSpec>, matchSpec,
                    static_cast<void>(0), static_cast<void>(0))
   KILN_HASH_MAP(Bridging::VlanId, bool, pendingVlan)
   KILN_HASH_MAP(Bridging::VlanId, bool, deferredDel)

   const Kiln::Ptr<RetrySm>& retrySm() const { return retrySm_; }
   // Creates it on the activity clock. It watches the chip status.
   void retrySmIs();
   void retrySmDel();

   // What the chip can do, set with the tables and fixed from then on.
   KILN_ATTRIBUTE(bool, vxlanSupported, false)
   KILN_ATTRIBUTE(bool, vrfNatSupported, false)
   KILN_ATTRIBUTE(U32, ingL2DomainHandle, 0)
   KILN_ATTRIBUTE(U32, egrL2DomainHandle, 0)
   KILN_ATTRIBUTE(bool, initialized, false)

 private:
   void handleInitialized();
   void initializeTables();
   U32 matchTableHandle(const Kiln::String& name) const;
   Kiln::Ptr<SviCounterMatchSpec> newMatchSpec() const;
   void programEntries(Bridging::VlanId vlan, SviCounterMatchSpec& spec);
   void deleteEntries(const SviCounterMatchSpec& spec);
   U32 addEntry(U32 tableHandle, U32 entryHandle, S16 adjust, packets_and_bytes* counter) const;

   BeforeRemoval beforeRemoval_;
   U64 lateDeletions_ = 0; // of both tables, when a retry was armed for them

   ZelId::ZelDevId devId_;
   ZelDriver::ZelDevProfile devProfile_;
   Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus_;
   Kiln::Ptr<ZlPd::ZlPdIntf> zlPdIntf_;
   Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf> zlResourceInfoIntf_;
   Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus_;
   Kiln::Ptr<ZlIngL2DomainCount::IngL2DomainCountTable> ingL2DomainCountTable_;
   Kiln::Ptr<ZlEgrL2DomainCount::EgrL2DomainCountTable> egrL2DomainCountTable_;
   Kiln::Ptr<RetrySm> retrySm_;
};

// The arguments are the constructor's.
Kiln::Ptr<ZelCountersL3Helper>
zelCountersL3HelperFactory(ZelId::ZelDevId devId, const ZelDriver::ZelDevProfile& devProfile,
                           Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                           Kiln::Ptr<ZlPd::ZlPdIntf> zlPdIntf,
                           Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf> zlResourceInfoIntf,
                           Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus);

} // namespace ZelCounter
