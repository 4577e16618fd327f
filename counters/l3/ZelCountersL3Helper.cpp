// Programs and reads the count entries of VLANs, and keeps track of VLANs that must wait.
#include "counters/l3/ZelCountersL3Helper.h"

#include "counters/chip/ZelCountersLog.h"
#include "counters/l3/ForEachThenThrow.h"
#include "counters/l3/RetrySm.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "kiln/Assert.h"
#include "kiln/RingLog.h"
#include "kiln/Trace.h"
#include "zl/ZelCountersIntf.h"
#include "zl/ZelSdk.h"

namespace ZelCounter {

namespace {

using ZlEgrL2DomainCount::EgrL2DomainCountMatchSpec;
using ZlIngL2DomainCount::IngL2DomainCountMatchSpec;

Kiln::TraceHandle traceHandle("ZelCountersL3Helper");

U32 programmings = 0; // of VLANs' entries, on all chips so far

constexpr U16 allPipes = ZelId::ZelPipeId::allPipes();
// Outer Ethernet, IPv4, UDP and VXLAN headers: what a decapsulated packet was longer by.
constexpr S16 vxlanOverhead = 50;

void log(const Kiln::LogMessage& message, Bridging::VlanId vlan) {
   const Kiln::String arguments[] = {std::to_string(vlan.value())};
   Kiln::OperatorLog::instance().log(message, arguments);
}

} // namespace

Kiln::Ptr<ZelCountersL3Helper>
zelCountersL3HelperFactory(ZelId::ZelDevId devId, const ZelDriver::ZelDevProfile& devProfile,
                           Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                           Kiln::Ptr<ZlPd::ZlPdIntf> zlPdIntf,
                           Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf> zlResourceInfoIntf,
                           Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus) {
   return Kiln::allocate<ZelCountersL3Helper>(devId, devProfile, std::move(systemStatus), std::move(zlPdIntf),
                                              std::move(zlResourceInfoIntf), std::move(chipStatus));
}

ZelCountersL3Helper::ZelCountersL3Helper(ZelId::ZelDevId devId, ZelDriver::ZelDevProfile devProfile,
                                         Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                                         Kiln::Ptr<ZlPd::ZlPdIntf> zlPdIntf,
                                         Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf> zlResourceInfoIntf,
                                         Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus)
     : devId_(devId), devProfile_(std::move(devProfile)), systemStatus_(std::move(systemStatus)),
       zlPdIntf_(std::move(zlPdIntf)), zlResourceInfoIntf_(std::move(zlResourceInfoIntf)),
       chipStatus_(std::move(chipStatus)) {
   handleInitialized();
}

ZelCountersL3Helper::~ZelCountersL3Helper() {
   stop();
}

// The retry reactor first: neither an expiry nor a chip state may find a helper that is half gone.
void ZelCountersL3Helper::stop() {
   retrySmDel();
   initializedIs(false);
   beforeRemoval_ = nullptr;
   Kiln::forEachKey(pendingVlan(), [this](Bridging::VlanId vlan) { updatePendingVlan(vlan, false); });
}

void ZelCountersL3Helper::handleInitialized() {
   initializeTables();
   retrySmIs();
   initializedIs(true);
   KILN_TRACE(9, "handleInitialized, initialized is " << initialized());
}

void ZelCountersL3Helper::retrySmIs() {
   retrySmDel();
   retrySm_ = RetrySm::RetrySmIs(Kiln::activityManagerClock(), chipStatus_, this);
   retrySm_->hasNotificationActiveIs(true);
}

void ZelCountersL3Helper::retrySmDel() {
   if (retrySm_) {
      retrySm_->stop();
   }
   retrySm_ = nullptr;
}

void ZelCountersL3Helper::initializeTables() {
   KILN_ASSERT(systemStatus_ && zlResourceInfoIntf_);
   const ZelSystem::ChipCapabilities capabilities = systemStatus_->chipCapabilities(devProfile_.chipTypeName);
   vxlanSupportedIs(capabilities.vxlan);
   vrfNatSupportedIs(capabilities.vrfNat);
   ingL2DomainHandleIs(matchTableHandle("ingL2DomainCount"));
   egrL2DomainHandleIs(matchTableHandle("egrL2DomainCount"));

   const auto tableStatusManager = Kiln::allocate<ZlTable::TableStatusManager>();
   const U32 session = ZelSdk::getZelSessionHdl();
   ingL2DomainCountTable_ = ZlIngL2DomainCount::ingL2DomainCountTableFactory(
        Kiln::allocate<ZlTable::KeyManager>(), tableStatusManager, zlPdIntf_, 0, session, devId_, allPipes,
        "ingL2DomainCount");
   egrL2DomainCountTable_ = ZlEgrL2DomainCount::egrL2DomainCountTableFactory(
        Kiln::allocate<ZlTable::KeyManager>(), tableStatusManager, zlPdIntf_, 0, session, devId_, allPipes,
        "egrL2DomainCount");
}

U32 ZelCountersL3Helper::matchTableHandle(const Kiln::String& name) const {
   const U32 tableIndex = zlResourceInfoIntf_->zlTableIndex(name);
   KILN_ASSERT(tableIndex != 0xFFFFFFF);
   const ZlResourceInfo::ZlTable* const tableInfo = zlResourceInfoIntf_->zlTable(tableIndex);
   KILN_ASSERT_TEXT(tableInfo != nullptr, "tableInfo != __null");
   return tableInfo->handle;
}

void ZelCountersL3Helper::enableSviStats(Bridging::VlanId vlan) {
   KILN_RINGLOG_TRACE(9, "Enable Vlan " << vlan);
   const bool wasLeft = deferredDel(vlan);
   deferredDelDel(vlan); // the VLAN came back before its removal: its entries are still there and go on
   if (const Kiln::Ptr<SviCounterMatchSpec> present = matchSpec(vlan)) {
      KILN_TRACE(9, "Enable Vlan " << vlan << " already exists");
      if (wasLeft) {
         present->programming = ++programmings; // what they counted meanwhile is nobody's
         present->isResumed = true;
      }
      return;
   }
   const Kiln::Ptr<SviCounterMatchSpec> spec = newMatchSpec();
   try {
      programEntries(vlan, *spec);
   } catch (const ZlTable::ZlTableException&) { // a table is full: an ordinary state, told and tried again
      KILN_TRACE(9, "Counter Allocation failed.  Vlan " << vlan);
      deleteEntries(*spec);
      updatePendingVlan(vlan, true);
      return;
   } catch (...) {
      deleteEntries(*spec);
      throw;
   }
   spec->programming = ++programmings;
   matchSpecIs(vlan, spec);
   updatePendingVlan(vlan, false);
}

// A source-NAT entry has no egress twin: addresses are translated on the way in only.
Kiln::Ptr<SviCounterMatchSpec> ZelCountersL3Helper::newMatchSpec() const {
   auto spec = Kiln::allocate<SviCounterMatchSpec>();
   spec->ingL2DomainMatchSpecIs(sviOrdinary, Kiln::allocate<IngL2DomainCountMatchSpec>());
   spec->egrL2DomainMatchSpecIs(sviOrdinary, Kiln::allocate<EgrL2DomainCountMatchSpec>());
   if (vxlanSupported()) {
      spec->ingL2DomainMatchSpecIs(sviDecapsulated, Kiln::allocate<IngL2DomainCountMatchSpec>());
      spec->egrL2DomainMatchSpecIs(sviDecapsulated, Kiln::allocate<EgrL2DomainCountMatchSpec>());
   }
   if (vrfNatSupported()) {
      spec->ingL2DomainMatchSpecIs(sviSourceNat, Kiln::allocate<IngL2DomainCountMatchSpec>());
   }
   return spec;
}

void ZelCountersL3Helper::programEntries(Bridging::VlanId vlan, SviCounterMatchSpec& spec) {
   // Described first, so that whatever throws further down, each match spec says which entry to look for.
   for (const auto& [key, ingMspec] : spec.ingL2DomainMatchSpec()) {
      ingMspec->vlanIdIs(vlan);
      ingMspec->decapTypeIs(key.decapType());
      if (vrfNatSupported()) {
         ingMspec->ingMdSnatHitIs(key.snat());
      }
   }
   for (const auto& [key, egrMspec] : spec.egrL2DomainMatchSpec()) {
      egrMspec->vlanIdIs(vlan);
      egrMspec->decapTypeIs(key.decapType());
   }
   for (const auto& [key, ingMspec] : spec.ingL2DomainMatchSpec()) {
      spec.isResumed |= !ingL2DomainCountTable_->entryIs({ingMspec, {}});
   }
   for (const auto& [key, egrMspec] : spec.egrL2DomainMatchSpec()) {
      spec.isResumed |= !egrL2DomainCountTable_->entryIs({egrMspec, {}});
   }

   // Only now, when all entries have their place.
   const auto slots = [](const auto& table, const auto& specs) {
      const auto slot = [&](const SviCounterKey& key) {
         const auto* const mspec = specs.find(key);
         return mspec != nullptr ? &table->entry(**mspec) : nullptr;
      };
      return SviCounterMatchSpec::Entries{slot(sviOrdinary), slot(sviDecapsulated), slot(sviSourceNat)};
   };
   spec.ingress = slots(ingL2DomainCountTable_, spec.ingL2DomainMatchSpec());
   spec.egress = slots(egrL2DomainCountTable_, spec.egrL2DomainMatchSpec());
}

// All of them, whatever was programmed: deleting an entry that the table doesn't have does nothing.
void ZelCountersL3Helper::deleteEntries(const SviCounterMatchSpec& spec) {
   for (const auto& [key, ingMspec] : spec.ingL2DomainMatchSpec()) {
      ingL2DomainCountTable_->entryDel(*ingMspec);
   }
   for (const auto& [key, egrMspec] : spec.egrL2DomainMatchSpec()) {
      egrL2DomainCountTable_->entryDel(*egrMspec);
   }
}

void ZelCountersL3Helper::disableSviStats(Bridging::VlanId vlan) {
   KILN_RINGLOG_TRACE(9, "Disable Vlan " << vlan);
   const Kiln::Ptr<SviCounterMatchSpec> spec = matchSpec(vlan);
   if (!spec) {
      deferredDelDel(vlan);
      updatePendingVlan(vlan, false); // it may have waited for room
      return;
   }
   KILN_ASSERT(chipStatus());
   if (chipStatus()->state() != ZelSlice::chipStateUp) {
      KILN_TRACE(9, "Disable Vlan " << vlan << " deferred");
      deferredDelIs(vlan, true);
      return;
   }
   if (beforeRemoval_) {
      beforeRemoval_(vlan);
   }
   deleteEntries(*spec);
   matchSpecDel(vlan);
   deferredDelDel(vlan);
   // There is room now. Not tried at once: removals come in bursts, and one retry serves them all.
   if (retrySm_) {
      retrySm_->startTimer();
   }
}

bool ZelCountersL3Helper::getSviStats(Bridging::VlanId vlan, packets_and_bytes* rxCounter,
                                      packets_and_bytes* txCounter, packets_and_bytes* rxSnatCounter) const {
   KILN_ASSERT(rxCounter && txCounter && rxSnatCounter);
   SviReading reading;
   const bool isCounted = readSvi(vlan, false, &reading);
   *rxCounter = reading.ordinaryIn + reading.decapsulatedIn + reading.sourceNatIn;
   *txCounter = reading.ordinaryOut + reading.decapsulatedOut;
   *rxSnatCounter = reading.sourceNatIn;
   return isCounted;
}

bool ZelCountersL3Helper::readSvi(Bridging::VlanId vlan, bool isLastRead, SviReading* reading) const {
   KILN_TRACE(6, "getSviStats vlanId " << vlan);
   *reading = {};
   const Kiln::Ptr<SviCounterMatchSpec>& spec = matchSpec(vlan);
   if (!spec) {
      return false;
   }
   matchSpec().prefetchNext(vlan);
   reading->entries = spec.ptr();
   U32 lastStatus = 0;
   const auto add = [&](U32 tableHandle, const ZlTable::EntrySlot& slot, S16 adjust,
                        packets_and_bytes* counter) {
      if (!isLastRead) {
         accumulateStats(tableHandle, slot.handle, adjust, counter);
      } else if (lastStatus == 0) {
         lastStatus = addEntry(tableHandle, slot.handle, adjust, counter);
      }
   };
   const auto addIngress = [&](const SviCounterKey& key, const ZlTable::EntrySlot* entry, S16 adjust,
                               packets_and_bytes* counter) {
      const auto& ingMspec = spec->ingL2DomainMatchSpec(key);
      KILN_ASSERT(!!ingMspec);
      add(ingL2DomainHandle(), entry != nullptr ? *entry : ingL2DomainCountTable_->entry(*ingMspec), adjust,
          counter);
   };
   const auto addEgress = [&](const SviCounterKey& key, const ZlTable::EntrySlot* entry, S16 adjust,
                              packets_and_bytes* counter) {
      const auto& egrMspec = spec->egrL2DomainMatchSpec(key);
      KILN_ASSERT(!!egrMspec);
      add(egrL2DomainHandle(), entry != nullptr ? *entry : egrL2DomainCountTable_->entry(*egrMspec), adjust,
          counter);
   };
   addIngress(sviOrdinary, spec->ingress.ordinary, 0, &reading->ordinaryIn);
   addEgress(sviOrdinary, spec->egress.ordinary, 0, &reading->ordinaryOut);
   // Both directions less the outer headers: an interface counts what its hosts send and get.
   if (vxlanSupported()) {
      addIngress(sviDecapsulated, spec->ingress.decapsulated, vxlanOverhead, &reading->decapsulatedIn);
      addEgress(sviDecapsulated, spec->egress.decapsulated, vxlanOverhead, &reading->decapsulatedOut);
   }
   // Each packet hits one entry, so translated ones are in no other, and sums have to include them.
   if (vrfNatSupported()) {
      addIngress(sviSourceNat, spec->ingress.sourceNat, 0, &reading->sourceNatIn);
   }
   return lastStatus == 0;
}

void ZelCountersL3Helper::accumulateStats(U32 tableHandle, U32 entryHandle, S16 adjust,
                                          packets_and_bytes* counter) const {
   const U32 status = addEntry(tableHandle, entryHandle, adjust, counter);
   KILN_ASSERT(status == 0);
}

U32 ZelCountersL3Helper::addEntry(U32 tableHandle, U32 entryHandle, S16 adjust,
                                  packets_and_bytes* counter) const {
   p4_pd_counter_value value{};
   // All pipes at once: a VLAN has ports in any of them.
   const U32 status = ZelCountersIntf::counterReadDirect(ZelSdk::getZelSessionHdl(), devId_, allPipes,
                                                         tableHandle, entryHandle, 0, &value);
   if (status == 0) {
      counter->packets += value.packets;
      counter->bytes += value.bytes - static_cast<U64>(S64{adjust}) * value.packets;
   }
   return status;
}

void ZelCountersL3Helper::updatePendingVlan(Bridging::VlanId vlan, bool pending) {
   if (pendingVlan(vlan) == pending) { // one message a change, however often a retry fails
      return;
   }
   if (pending) {
      pendingVlanIs(vlan, true);
      log(ZEL_COUNTERS_COUNTER_RESOURCE_FULL, vlan);
   } else {
      pendingVlanDel(vlan);
      // Operators pair this message with the other one, so it also comes when the VLAN is given up.
      log(ZEL_COUNTERS_COUNTER_RESOURCE_NORMAL, vlan);
   }
}

void ZelCountersL3Helper::retryPendingVlan() {
   if (!initialized()) {
      return;
   }
   KILN_TRACE(9, "Retrying pending " << pendingVlan().size() << " vlans");
   // In slices: the helper may stop meanwhile, and a VLAN that was given up or got its entries wins.
   const auto self = heldSelf();
   forEachThenThrow(pendingVlan().keys(), [this](Bridging::VlanId vlan) {
      if (initialized() && pendingVlan(vlan)) {
         enableSviStats(vlan);
         Kiln::ActivityLockAnchor::giveWay("retryPendingVlan");
      }
   });
}

bool ZelCountersL3Helper::retryDeletions() {
   if (chipStatus() && chipStatus()->state() != ZelSlice::chipStateUp) {
      return false;
   }
   const bool isMoreIngress = ingL2DomainCountTable_->retryDeletions();
   const bool isMoreEgress = egrL2DomainCountTable_->retryDeletions();
   // Also those that went when a VLAN was added meanwhile.
   const U64 lateDeletions =
        ingL2DomainCountTable_->lateDeletions() + egrL2DomainCountTable_->lateDeletions();
   if (std::exchange(lateDeletions_, lateDeletions) != lateDeletions && retrySm_) {
      retrySm_->startTimer();
   }
   return isMoreIngress || isMoreEgress;
}

} // namespace ZelCounter
