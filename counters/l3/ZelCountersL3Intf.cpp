// The reactors over L3 interfaces and VLAN interfaces.
#include "counters/l3/ZelCountersL3Intf.h"

#include "counters/chip/Guarded.h"
#include "counters/l3/ForEachThenThrow.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "kiln/Assert.h"
#include "kiln/RingLog.h"
#include "kiln/Time.h"
#include "kiln/Trace.h"
#include "vex/BreakEvents.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

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
   const double now = Kiln::System::currentTime();
   natCounter.creationTime = static_cast<S64>(now);
   natCounter.createdTime = natCounter.discontinuityTime = now;
   natCounter.createdUnixTime = Kiln::System::unixTime();
   return natCounter;
}

std::array<U64, 2> packetsFirst(const packets_and_bytes& counter) {
   return {counter.packets, counter.bytes};
}
std::array<U64, 2> bytesFirst(const packets_and_bytes& counter) {
   return {counter.bytes, counter.packets};
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
   stop();
}

void ZelCountersL3IntfSm::stop() {
   if (routedPortCounterSm_) { // before what its pass reads
      routedPortCounterSm_->stop();
      routedPortCounterSm_ = nullptr;
   }
   vexL3IntfTable_.notifierIs(nullptr);
   Kiln::forEachKey(helper_, [this](ZelId::ZelDevId devId) { helperDel(devId); });
   l3IntfToVidDelAll();
   natCounterDir_ = nullptr; // one process at a time writes it
}

void ZelCountersL3IntfSm::handleInitialized() {
   KILN_TRACE(9, "ZelCountersL3IntfSm::handleInitialized");
   initializedIs(true); // first, since what follows does nothing before
   handleIntfL3Index();
   routedPortCounterSm_ = Kiln::allocate<RoutedPortCounterSm>(Kiln::activityManagerClock(), this);
   routedPortCounterSm_->hasNotificationActiveIs(true);
}

Silo::Interface::AllNatCounterDir& ZelCountersL3IntfSm::natCounterDir() const {
   KILN_ASSERT_TEXT(natCounterDir_, "natCounter.instance() != 0");
   return *natCounterDir_;
}

void ZelCountersL3IntfSm::forgetAbsentInterfaces() {
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
      } catch (const std::invalid_argument& error) { // its name is no key
         leaveOut(intf, error);
         publishErrors_.log(intf, error);
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
   static_cast<void>(
        Silo::Key(intf.text())); // throws for a name that can't be one, before anything is changed
   // Held and published as one: a chip that throws must not leave the interface without its record.
   l3IntfToVidIs(intf, vlan);
   publishNatCounter(intf, natCountOf(intf).record);
   forEachThenThrow(helper_, [&](const auto& entry) { entry.second->enableSviStats(vlan); });
}

void ZelCountersL3IntfSm::deleteIntf(const Pelt::IntfId& intf) {
   KILN_TRACE(9, "Remove L3Intf " << intf);
   publishErrors_.forget(intf); // first: one whose name was refused never came to be
   if (!l3IntfToVid().contains(intf)) {
      return;
   }
   // Deliberately also when another interface shares the VLAN: nobody counts how often one was enabled.
   const Bridging::VlanId vlan = l3IntfToVid(intf);
   readOnceMore(intf, vlan); // the VLAN interface's own record may stay
   l3IntfToVidDel(intf);
   natCounterDir().counterDel(intf);
   natCounts_.erase(intf);
   forEachThenThrow(helper_, [&](const auto& entry) { entry.second->disableSviStats(vlan); });
}

// A full table costs this record only. Told once an interface, not once a second.
void ZelCountersL3IntfSm::publishNatCounter(const Pelt::IntfId& intf, const NatCounter& natCounter) {
   try {
      natCounterDir().counterIs(natCounter, Kiln::System::currentTime());
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
   if (!systemStatus_->chipCapabilities(devProfile.chipTypeName).vlanCounters) {
      helperDel(devId); // of the chip before
      return;
   }
   const Kiln::Ptr<ZelCountersL3Helper> helper =
        helperIs(devId, devProfile, systemStatus_, zlPdIntf, zlResourceInfoIntf, chipStatus);
   // In slices: the chip may go meanwhile, or another one may come in its place. An interface that comes is enabled by
   // addIntf, on this chip too; one that goes is found absent.
   const auto self = heldSelf();
   forEachThenThrow(l3IntfToVid().keys(), [&](const Pelt::IntfId& intf) {
      const Bridging::VlanId* const vlan = l3IntfToVid().find(intf);
      if (vlan != nullptr && this->helper(devId) == helper) {
         helper->enableSviStats(*vlan);
         Kiln::ActivityLockAnchor::giveWay("addDevice");
      }
   });
}

const Kiln::Ptr<ZelCountersL3Helper>&
ZelCountersL3IntfSm::helperIs(ZelId::ZelDevId devId, const ZelDriver::ZelDevProfile& devProfile,
                              const Kiln::Ptr<const ZelSystem::SystemStatus>& systemStatus,
                              const Kiln::Ptr<ZlPd::ZlPdIntf>& zlPdIntf,
                              const Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf>& zlResourceInfoIntf,
                              const Kiln::Ptr<const ZelSlice::ChipStatus>& chipStatus) {
   helperDel(devId);
   const auto made =
        zelCountersL3HelperFactory(devId, devProfile, systemStatus, zlPdIntf, zlResourceInfoIntf, chipStatus);
   made->beforeRemovalIs([this](Bridging::VlanId vlan) {
      for (const auto& [intf, itsVlan] : l3IntfToVid()) {
         if (itsVlan == vlan) {
            readOnceMore(intf, vlan);
         }
      }
   });
   made->hasNotificationActiveIs(true);
   helper_.set(devId, made);
   return helper(devId);
}

void ZelCountersL3IntfSm::helperDel(ZelId::ZelDevId devId) {
   if (const Kiln::Ptr<ZelCountersL3Helper> helper = this->helper(devId)) {
      helper_.erase(devId);
      helper->stop();
   }
}

void ZelCountersL3IntfSm::deleteDevice(ZelId::ZelDevId devId) {
   KILN_TRACE(9, "ZelCountersL3IntfSm::deleteDevice device: " << static_cast<unsigned>(devId));
   helperDel(devId); // its entries are not deleted one by one: they went with the chip
}

// In slices: interfaces that come meanwhile have nothing to be read, and those that go were read once more by that.
void ZelCountersL3IntfSm::readAllOnceMore() {
   const auto self = heldSelf();
   for (const Pelt::IntfId& intf : l3IntfToVid().keys()) {
      if (const Bridging::VlanId* const vlan = l3IntfToVid().find(intf)) {
         readOnceMore(intf, *vlan);
         Kiln::ActivityLockAnchor::giveWay();
      }
   }
}

// Who is told of one may take another away, which is read in the middle of this.
void ZelCountersL3IntfSm::readOnceMore(const Pelt::IntfId& intf, Bridging::VlanId vlan) {
   const bool isNested = std::exchange(isReadingOnceMore_, true);
   guarded("reading an L3 interface once more", [&] {
      packets_and_bytes rx;
      packets_and_bytes tx;
      readIntf(intf, vlan, &rx, &tx, nullptr);
      if (readOnceMore_) {
         readOnceMore_(intf);
      }
   });
   isReadingOnceMore_ = isNested;
}

bool ZelCountersL3IntfSm::getIntfCounter(const Pelt::IntfId& intf, packets_and_bytes* rx,
                                         packets_and_bytes* tx) {
   return getIntfCounter(intf, rx, tx, nullptr);
}

bool ZelCountersL3IntfSm::getIntfCounter(const Pelt::IntfId& intf, packets_and_bytes* rx,
                                         packets_and_bytes* tx, Parts* parts) {
   KILN_TRACE(9, "ZelCountersL3IntfSm::getIntfCounter intf " << intf);
   const Bridging::VlanId* const vlan = l3IntfToVid().find(intf);
   return vlan != nullptr && readIntf(intf, *vlan, rx, tx, parts);
}

ZelCountersL3IntfSm::NatCount& ZelCountersL3IntfSm::natCountOf(const Pelt::IntfId& intf) {
   if (NatCount* present = natCounts_.find(intf)) {
      return *present;
   }
   natCounts_.set(intf, {newNatCounter(intf)});
   NatCount& natCount = *natCounts_.find(intf);
   // Totals that an earlier process published go on; what its entries counted after its last reading is lost.
   const auto published = natCounterDir().table().sampleOrDefault(Silo::Key(intf.text()));
   if (published.info.sampleTime != Silo::unknownSampleTime) {
      natCount.record.totalPackets = published.record.totalPackets;
      natCount.record.totalBytes = published.record.totalBytes;
      natCount.record.createdTime = published.record.createdTime;
      natCount.record.createdUnixTime = published.record.createdUnixTime;
   }
   return natCount;
}

void ZelCountersL3IntfSm::addNatCounts(NatCount& natCount,
                                       std::span<const Vex::DevicesMeter<1>::Reading> readings) {
   const Vex::DevicesMeter<1>::Sum sum = natCount.meter.read(readings);
   NatCounter& record = natCount.record;
   record.totalPackets += sum.steps[0].counts[0];
   record.totalBytes += sum.steps[0].counts[1];
   if (sum.isMarked) {
      record.discontinuityTime = Kiln::System::currentTime();
   }
   Vex::tellBreaks<1>(record.intfId.data(), sum, {{{"nat-packets", "nat-bytes"}}},
                      "its entries for source NAT are other ones than before");
}

// False when a last read failed: then nothing is changed.
bool ZelCountersL3IntfSm::readIntf(const Pelt::IntfId& intf, Bridging::VlanId vlan, packets_and_bytes* rx,
                                   packets_and_bytes* tx, Parts* parts) {
   packets_and_bytes rxSum;
   packets_and_bytes txSum;
   packets_and_bytes rxSnat;
   natReadings_.clear();
   for (const auto& [devId, helper] : helper_) {
      ZelCountersL3Helper::SviReading svi;
      if (!helper->readSvi(vlan, isReadingOnceMore_, &svi)) {
         if (svi.entries != nullptr) {
            return false;
         }
         continue; // this chip does not count the VLAN
      }
      rxSum = rxSum + svi.ordinaryIn + svi.decapsulatedIn + svi.sourceNatIn;
      txSum = txSum + svi.ordinaryOut + svi.decapsulatedOut;
      rxSnat = rxSnat + svi.sourceNatIn;
      // No life: every programming has a number of its own over all lives.
      const Vex::Source source{devId, Vex::Source::Block::l2Domain, vlan.value(),
                               0,     svi.entries->programming,     svi.entries->isResumed};
      natReadings_.push_back({source, &svi.entries->isNatCounted, {packetsFirst(svi.sourceNatIn)}});
      if (parts != nullptr) {
         parts->push_back(
              {source,
               &svi.entries->isCounted,
               {bytesFirst(svi.ordinaryIn), bytesFirst(svi.decapsulatedIn), bytesFirst(svi.sourceNatIn),
                bytesFirst(svi.ordinaryOut), bytesFirst(svi.decapsulatedOut)}});
      }
   }
   *rx = rxSum;
   *tx = txSum;
   const Silo::Key key(intf.text());
   NatCount& natCount = natCountOf(intf);
   addNatCounts(natCount, natReadings_);
   // A corrupt record reads as the default one. Nothing is taken from there.
   const auto published = natCounterDir().table().sampleOrDefault(key);
   if (published.info.generation != 0) {
      natCount.record.creationTime = published.record.creationTime;
   }
   natCount.record.packets = rxSnat.packets;
   natCount.record.bytes = rxSnat.bytes;
   natCount.record.lastUpdate = Kiln::System::currentTime();
   publishNatCounter(intf, natCount.record);
   return true;
}

ZelCountersL3IntfSm::RoutedPortCounterSm::RoutedPortCounterSm(Kiln::Ptr<const Kiln::Clock> clock,
                                                              ZelCountersL3IntfSm* l3IntfSm)
     : l3IntfSm_(l3IntfSm), clock_(std::move(clock), this, &RoutedPortCounterSm::updateRoutedPortCounters) {
   updateRoutedPortCounters();
   initializedIs(true);
}

void ZelCountersL3IntfSm::RoutedPortCounterSm::stop() {
   clock_.timeMinIs(Kiln::never);
   l3IntfSm_ = nullptr;
}

void ZelCountersL3IntfSm::RoutedPortCounterSm::updateRoutedPortCounters() {
   // In slices: chips and interfaces may come and go meanwhile, and so may this.
   const auto self = heldSelf();
   retryDeletions();
   readAll();
   if (l3IntfSm_ != nullptr) {
      // From the end of the pass, with no catching up: a long pass must not leave the thread nothing else to do.
      clock_.timeMinIs(Kiln::System::currentTime() + routedPortTimerDelay());
   }
}

void ZelCountersL3IntfSm::RoutedPortCounterSm::retryDeletions() {
   if (l3IntfSm_ == nullptr) {
      return;
   }
   Kiln::forEachKey(l3IntfSm_->helper(), [this](ZelId::ZelDevId devId) {
      bool isMore = true;
      while (isMore) {
         const Kiln::Ptr<ZelCountersL3Helper> helper =
              l3IntfSm_ != nullptr ? l3IntfSm_->helper(devId) : nullptr;
         isMore = false;
         guarded("deleting counter entries", [&] { isMore = helper && helper->retryDeletions(); });
         giveWay();
      }
   });
}

void ZelCountersL3IntfSm::RoutedPortCounterSm::readAll() {
   if (l3IntfSm_ == nullptr) {
      return;
   }
   // Not keys(), which would allocate with each pass. Taken away meanwhile, lest another thread makes a pass as well.
   std::vector<Pelt::IntfId> intfs = std::exchange(intfs_, {});
   intfs.clear();
   for (const auto& entry : l3IntfSm_->l3IntfToVid()) {
      intfs.push_back(entry.first);
   }
   // Thrown away: what matters is the NAT record that each read refreshes.
   packets_and_bytes rx;
   packets_and_bytes tx;
   for (const Pelt::IntfId& intf : intfs) {
      giveWay(); // before the first one, too: looking up so many interfaces took long
      if (l3IntfSm_ == nullptr) {
         return;
      }
      if (const Bridging::VlanId* const vlan = l3IntfSm_->l3IntfToVid().find(intf)) {
         guarded("reading an L3 interface", [&] { l3IntfSm_->readIntf(intf, *vlan, &rx, &tx, nullptr); });
      }
   }
   intfs_ = std::move(intfs);
}

// The first pass is made by the constructor, whose object nobody can hold yet: it is not interrupted.
void ZelCountersL3IntfSm::RoutedPortCounterSm::giveWay() const {
   if (initialized()) {
      Kiln::ActivityLockAnchor::giveWay("updateRoutedPortCounters");
   }
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
   // Also those that only the directory before had. At construction there was none: what is listed is not this one's.
   if (vexCommonSmData_) {
      for (const Pelt::IntfId& intf : vexCommonSmData_->vlanIntf().keys()) {
         handleVlanIntf(intf);
      }
   }
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
