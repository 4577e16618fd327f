// The reactors over L3 interfaces and VLAN interfaces.
#include "counters/l3/ZelCountersL3Intf.h"

#include "counters/l3/ForEachThenThrow.h"
#include "kiln/ActivityManager.h"
#include "kiln/Assert.h"
#include "kiln/RingLog.h"
#include "kiln/Time.h"
#include "kiln/Trace.h"

#include <algorithm>
#include <stdexcept>

namespace ZelCounter {

namespace {

using Silo::Interface::NatCounter;

Kiln::TraceHandle traceHandle("ZelCountersL3Intf");

constexpr U32 vlanBits = 0xFFFF; // of a value in the L3 interface table

// Cut short where it doesn't fit, and always ended by a zero.
void intfIdIs(NatCounter& natCounter, const Pelt::IntfId& intf) {
   natCounter.intfId = {};
   std::copy_n(intf.text().begin(), std::min(intf.text().size(), natCounter.intfId.size() - 1),
               natCounter.intfId.begin());
}

NatCounter newNatCounter(const Pelt::IntfId& intf) {
   NatCounter natCounter;
   intfIdIs(natCounter, intf);
   natCounter.creationTime = static_cast<S64>(Kiln::System::currentTime());
   return natCounter;
}

void add(packets_and_bytes& sum, const packets_and_bytes& counter) {
   sum.packets += counter.packets;
   sum.bytes += counter.bytes;
}

} // namespace

ZelCountersL3IntfSm::ZelCountersL3IntfSm(Kiln::Ptr<const VexL3Intf::Table> vexL3IntfTable,
                                         Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                                         Kiln::Ptr<Silo::Interface::AllNatCounterDir> natCounterDir)
     : vexL3IntfTable_(this), systemStatus_(std::move(systemStatus)),
       natCounterDir_(std::move(natCounterDir)) {
   vexL3IntfTable_.notifierIs(std::move(vexL3IntfTable));
   handleInitialized();
}

ZelCountersL3IntfSm::~ZelCountersL3IntfSm() {
   routedPortCounterSm_ = nullptr; // before what its pass reads
}

void ZelCountersL3IntfSm::handleInitialized() {
   KILN_TRACE(9, "ZelCountersL3IntfSm::handleInitialized");
   initializedIs(true); // first, since what follows does nothing before
   handleIntfL3Index();
   dropForeignNatCounters(); // after that, when l3IntfToVid tells whose records stay
   routedPortCounterSm_ = Kiln::allocate<RoutedPortCounterSm>(Kiln::activityManagerClock(), this);
   routedPortCounterSm_->hasNotificationActiveIs(true);
}

Silo::Interface::AllNatCounterDir& ZelCountersL3IntfSm::natCounterDir() const {
   KILN_ASSERT_TEXT(natCounterDir_, "natCounter.instance() != 0");
   return *natCounterDir_;
}

void ZelCountersL3IntfSm::dropForeignNatCounters() {
   if (!natCounterDir_) {
      return;
   }
   for (const Silo::Key& key : natCounterDir().table().keys()) {
      if (!l3IntfToVid().contains(Pelt::IntfId(Kiln::Name(key.view())))) {
         natCounterDir().table().recordDel(key);
      }
   }
}

void ZelCountersL3IntfSm::handleIntfL3Index() {
   const auto& table = vexL3IntfTable_.notifier();
   if (!table) {
      return;
   }
   const auto leaveOut = [](const Pelt::IntfId& intf, const std::exception& error) {
      KILN_RINGLOG_TRACE(0, "L3 interface " << intf << " is not counted: " << error.what());
   };
   forEachThenThrow(table->intfIdToL3Id().keys(), [&](const Pelt::IntfId& intf) {
      try {
         handleIntfL3Index(intf);
      } catch (const std::range_error& error) { // no such VLAN
         leaveOut(intf, error);
      } catch (const std::invalid_argument& error) { // no such key
         leaveOut(intf, error);
      }
   });
}

void ZelCountersL3IntfSm::handleIntfL3Index(const Pelt::IntfId& intf) {
   KILN_RINGLOG_TRACE(9, "ZelCountersL3IntfSm::handleIntfL3Index intf: " << intf);
   if (!initialized() || !vexL3IntfTable_.notifier()) {
      return;
   }
   const U32 l3Id = vexL3IntfTable_.notifier()->intfIdToL3Id(intf);
   if (l3Id != 0) {
      addIntf(intf, l3Id);
   } else {
      deleteIntf(intf);
   }
}

void ZelCountersL3IntfSm::addIntf(const Pelt::IntfId& intf, U32 l3Id) {
   KILN_TRACE(9, "Add L3Intf " << intf);
   if (l3IntfToVid().contains(intf)) {
      return;
   }
   const Bridging::VlanId vlan(l3Id & vlanBits);
   const Silo::Key key(intf.text()); // throws for a name that can't be one, before anything is changed
   // Held and published as one: a chip that throws must not leave the interface without its record.
   l3IntfToVidIs(intf, vlan);
   publishNatCounter(intf, key, newNatCounter(intf));
   forEachThenThrow(helper_, [&](const auto& entry) { entry.second->enableSviStats(vlan); });
}

void ZelCountersL3IntfSm::deleteIntf(const Pelt::IntfId& intf) {
   KILN_TRACE(9, "Remove L3Intf " << intf);
   if (!l3IntfToVid().contains(intf)) {
      return;
   }
   // Deliberately also when another interface shares the VLAN: nobody counts how often one was enabled.
   const Bridging::VlanId vlan = l3IntfToVid(intf);
   l3IntfToVidDel(intf);
   natCounterDir().counterDel(intf);
   publishErrors_.forget(intf);
   forEachThenThrow(helper_, [&](const auto& entry) { entry.second->disableSviStats(vlan); });
}

// A full table costs this record only. Told once an interface, not once a second.
void ZelCountersL3IntfSm::publishNatCounter(const Pelt::IntfId& intf, const Silo::Key& key,
                                            const NatCounter& natCounter) {
   try {
      natCounterDir().table().recordIs(key, natCounter, Kiln::System::currentTime());
      publishErrors_.forget(intf);
   } catch (const Silo::TableError& error) {
      publishErrors_.log(intf, error);
   }
}

void ZelCountersL3IntfSm::addDevice(ZelId::ZelDevId devId, const ZelDriver::ZelDevProfile& devProfile,
                                    const Kiln::Ptr<ZlPd::ZlPdIntf>& zlPdIntf,
                                    const Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf>& zlResourceInfoIntf,
                                    const Kiln::Ptr<const ZelSlice::ChipStatus>& chipStatus) {
   KILN_TRACE(9, "ZelCountersL3IntfSm::addDevice device: " << static_cast<unsigned>(devId));
   helper_.erase(devId); // also when the new chip gets none
   if (!systemStatus_->chipCapabilities(devProfile.chipTypeName).vlanCounters) {
      return;
   }
   const auto helper = zelCountersL3HelperFactory(devId, devProfile, systemStatus_, zlPdIntf,
                                                  zlResourceInfoIntf, chipStatus);
   helper->hasNotificationActiveIs(true);
   helper_.set(devId, helper);
   forEachThenThrow(l3IntfToVid(), [&](const auto& entry) { helper->enableSviStats(entry.second); });
}

void ZelCountersL3IntfSm::deleteDevice(ZelId::ZelDevId devId) {
   KILN_TRACE(9, "ZelCountersL3IntfSm::deleteDevice device: " << static_cast<unsigned>(devId));
   // Its entries are not deleted one by one: they went with the chip.
   helper_.erase(devId);
}

bool ZelCountersL3IntfSm::getIntfCounter(const Pelt::IntfId& intf, packets_and_bytes* rx,
                                         packets_and_bytes* tx) {
   KILN_TRACE(9, "ZelCountersL3IntfSm::getIntfCounter intf " << intf);
   const Bridging::VlanId* const vlan = l3IntfToVid().find(intf);
   if (vlan == nullptr) {
      return false;
   }
   readIntf(intf, *vlan, rx, tx);
   return true;
}

void ZelCountersL3IntfSm::readIntf(const Pelt::IntfId& intf, Bridging::VlanId vlan, packets_and_bytes* rx,
                                   packets_and_bytes* tx) {
   *rx = *tx = {};
   packets_and_bytes rxSnat;
   const Silo::Key key(intf.text());
   // A record for which there was no room when the interface came is made now.
   const auto& table = natCounterDir().table();
   NatCounter natCounter = table.has(key) ? table.sampleOrDefault(key).record : newNatCounter(intf);
   // In place of a corrupt record comes the default one, which has no interface.
   intfIdIs(natCounter, intf);
   for (const auto& [devId, helper] : helper_) {
      packets_and_bytes chipRx;
      packets_and_bytes chipTx;
      packets_and_bytes chipRxSnat;
      if (helper->getSviStats(vlan, &chipRx, &chipTx, &chipRxSnat)) {
         add(*rx, chipRx);
         add(*tx, chipTx);
         add(rxSnat, chipRxSnat);
      }
   }
   natCounter.packets = rxSnat.packets;
   natCounter.bytes = rxSnat.bytes;
   natCounter.lastUpdate = Kiln::System::currentTime();
   publishNatCounter(intf, key, natCounter);
}

ZelCountersL3IntfSm::RoutedPortCounterSm::RoutedPortCounterSm(Kiln::Ptr<const Kiln::Clock> clock,
                                                              ZelCountersL3IntfSm* l3IntfSm)
     : l3IntfSm_(l3IntfSm), clock_(std::move(clock), this, &RoutedPortCounterSm::updateRoutedPortCounters) {
   updateRoutedPortCounters();
   initializedIs(true);
}

void ZelCountersL3IntfSm::RoutedPortCounterSm::routedPortTimerDelayIs(double seconds) {
   Kiln::requirePositiveSeconds("routedPortTimerDelay", seconds);
   routedPortTimerDelay_ = seconds;
}

void ZelCountersL3IntfSm::RoutedPortCounterSm::updateRoutedPortCounters() {
   // Thrown away: what matters is the NAT record that each read refreshes.
   packets_and_bytes rx;
   packets_and_bytes tx;
   for (const auto& [intf, vlan] : l3IntfSm_->l3IntfToVid()) {
      l3IntfSm_->readIntf(intf, vlan, &rx, &tx);
   }
   // From the end of the pass, with no catching up: a long pass must not leave the thread nothing else to do.
   clock_.timeMinIs(Kiln::System::currentTime() + routedPortTimerDelay());
}

ZelVlanIntfSm::ZelVlanIntfSm(Kiln::Ptr<Vex::VexCommonSmData> vexCommonSmData,
                             Kiln::Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir)
     : vexCommonSmData_(std::move(vexCommonSmData)), vlanIntfStatusDir_(this) {
   vlanIntfStatusDirIs(std::move(vlanIntfStatusDir));
   handleInitialized();
}

void ZelVlanIntfSm::handleInitialized() {
   initializedIs(true);
   handleVlanIntf();
}

void ZelVlanIntfSm::vlanIntfStatusDirIs(Kiln::Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir) {
   vlanIntfStatusDir_.notifierIs(vlanIntfStatusDir);
   handleVlanIntf();
}

void ZelVlanIntfSm::handleVlanIntf() {
   if (!vlanIntfStatusDir_.notifier()) {
      return;
   }
   for (const Pelt::IntfId& intf : vlanIntfStatusDir_.notifier()->intfStatus().keys()) {
      handleVlanIntf(intf);
   }
}

void ZelVlanIntfSm::handleVlanIntf(const Pelt::IntfId& intf) {
   KILN_TRACE(9, "ZelVlanIntfSm::handleVlanIntf IntfId: " << intf);
   if (!initialized() || !vexCommonSmData_ || !vlanIntfStatusDir_.notifier()) {
      return;
   }
   const bool exists = vlanIntfStatusDir_.notifier()->intfStatus().contains(intf);
   const bool isListed = vexCommonSmData_->vlanIntf().contains(intf);
   if (exists && !isListed) {
      vexCommonSmData_->vlanIntfIs(intf, true);
   } else if (!exists && isListed) {
      vexCommonSmData_->vlanIntfDel(intf);
   }
}

} // namespace ZelCounter
