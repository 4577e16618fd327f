// Builds the library's services in their order, and keeps the chips.
#include "counters/ZelCountersMgr.h"

#include "counters/ZelCountersCli.h"
#include "counters/ZelCountersMgrSm.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "kiln/Trace.h"

#include <cmath>
#include <stdexcept>

namespace ZelCounter {

namespace {

Kiln::TraceHandle traceHandle("ZelCountersMgr");

// The subinterfaces' timer wheel.
constexpr U32 wheelTickMs = 100;
constexpr U32 wheelEntriesPerTick = 20;
constexpr U32 wheelFirstSlot = 0;
constexpr U32 wheelSlots = 1024;

} // namespace

Kiln::Ptr<ZelCountersMgr> zelCountersMgrFactory(Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                                                Kiln::Ptr<CountersMounts> mounts,
                                                Kiln::Ptr<Vex::VexCommonSmData> vexCommonSmData,
                                                Kiln::Ptr<Agent::AgentCommandRequestDirSm> cliRequestDirSm,
                                                Kiln::Ptr<ZelQos::TmCountersData> tmCountersData,
                                                Kiln::Ptr<ZelQos::TmCountersData> tmCountersDataLastClear,
                                                Kiln::Ptr<CliPortDropData> cliPortDropData) {
   auto mgr = Kiln::allocate<ZelCountersMgr>(
        std::move(systemStatus), std::move(mounts), std::move(vexCommonSmData), std::move(cliRequestDirSm),
        std::move(tmCountersData), std::move(tmCountersDataLastClear), std::move(cliPortDropData));
   mgr->hasNotificationActiveIs(true);
   return mgr;
}

ZelCountersMgr::ZelCountersMgr(Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                               Kiln::Ptr<CountersMounts> mounts,
                               Kiln::Ptr<Vex::VexCommonSmData> vexCommonSmData,
                               Kiln::Ptr<Agent::AgentCommandRequestDirSm> cliRequestDirSm,
                               Kiln::Ptr<ZelQos::TmCountersData> tmCountersData,
                               Kiln::Ptr<ZelQos::TmCountersData> tmCountersDataLastClear,
                               Kiln::Ptr<CliPortDropData> cliPortDropData)
     : systemStatus_(std::move(systemStatus)), mounts_(std::move(mounts)),
       vexCommonSmData_(std::move(vexCommonSmData)), cliRequestDirSm_(std::move(cliRequestDirSm)),
       tmCountersData_(std::move(tmCountersData)),
       tmCountersDataLastClear_(std::move(tmCountersDataLastClear)),
       cliPortDropData_(std::move(cliPortDropData)), sdkPollingInterval_(2.0) {
   handleInitialized();
}

// Chips stop first: their completions must find nobody. The reactors follow before what they watch. A chip
// that waits for its last completion keeps the forwarding layer's reactors, but their helper needs this.
ZelCountersMgr::~ZelCountersMgr() {
   cliCallbackDel();
   countersMgrSmDel();
   zelCountersDelAll();
   if (vexCountersSm()) {
      vexCountersSm()->hasNotificationActiveIs(false);
   }
   if (vexSubIntfCountersSm()) {
      vexSubIntfCountersSm()->hasNotificationActiveIs(false);
   }
}

void ZelCountersMgr::handleInitialized() {
   const Kiln::Ptr<const Kiln::Clock> activityManagerClock = Kiln::activityManagerClock();
   cliCallbackIs("ZelCounters", "ZelCountersCli", this);
   KILN_ASSERT(cliRequestDirSm());
   KILN_TRACE(1, "agentCommandCallbackIs");
   cliRequestDirSm()->agentCommandCallbackIs(cliCallback());
   zelCountersHelperIs(this, systemStatus());
   vexCountersSmIs({vexCommonSmData(), mounts()->ethPhyIntfStatusDir(), mounts()->vlanIntfStatusDir(),
                    mounts()->allIntfCounters(), mounts()->allIntfClearCounters(),
                    mounts()->allIntfQueueCounters(), mounts()->allIntfClearQueueCounters(),
                    mounts()->allVlanIntfCounters(), mounts()->vlanIntfCounterWriterStatus(),
                    activityManagerClock, zelCountersHelper()});
   vexCountersSm()->ethIntfCounterWriterStatusIs(mounts()->ethIntfCounterWriterStatus());
   KILN_TRACE(1, "writerConfigIs");
   vexCountersSm()->writerConfigIs(mounts()->writerConfig());
   vlanIntfSmIs();
   vexL3IntfDataIs("vexL3IntfData");
   KILN_TRACE(1, "vexL3IntfTableIs");
   vexL3IntfData()->vexL3IntfTableIs(Kiln::allocate<VexL3Intf::Table>("vexL3IntfTable"));
   zelCountersL3IntfSmIs();
   KILN_TRACE(1, "vexL3IntfSmIs");
   vexL3IntfData()->vexL3IntfSmIs(vexL3IntfData()->vexL3IntfTable(), true);
   KILN_TRACE(1, "timerWheel");
   auto timerWheel = Kiln::allocate<Oxbow::TimerWheel>(activityManagerClock, wheelTickMs, wheelEntriesPerTick,
                                                       wheelFirstSlot, wheelSlots);
   zelSubIntfCountersHelperIs();
   vexSubIntfCountersSmIs({std::move(timerWheel), mounts()->subIntfStatusDir(),
                           mounts()->subIntfCountersDir(), mounts()->subIntfCountersSnapshotDir(),
                           subIntfPollInterval, activityManagerClock, zelSubIntfCountersHelper()});
   countersMgrSmIs(this, systemStatus(), activityManagerClock);
   initializedIs(true);
}

void ZelCountersMgr::cliCallbackIs(Kiln::Name name, const Kiln::String& commandType, ZelCountersMgr* mgr) {
   KILN_TRACE(1, "cliCallbackIs " << name << " " << commandType);
   if (cliCallback_ && cliCallback_->name() == name && cliCallback_->commandType() == commandType) {
      return;
   }
   cliCallbackDel();
   cliCallback_ = Kiln::allocate<ZelCountersCli>(name, commandType, mgr);
}

void ZelCountersMgr::cliCallbackDel() {
   if (cliCallback_) {
      cliCallback_->mgrDel(); // the command directory may keep it
   }
   cliCallback_ = nullptr;
}

void ZelCountersMgr::zelCountersHelperIs(ZelCountersMgr* mgr,
                                         Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus) {
   KILN_TRACE(1, "zelCountersHelperIs");
   zelCountersHelper_ = Kiln::allocate<ZelCountersHelper>(mgr, std::move(systemStatus));
   zelCountersHelper_->hasNotificationActiveIs(true);
}

void ZelCountersMgr::vexCountersSmIs(Vex::Counters::CountersSm::Context context) {
   KILN_TRACE(1, "vexCountersSmIs");
   vexCountersSm_ = Kiln::allocate<Vex::Counters::CountersSm>(std::move(context));
   vexCountersSm_->hasNotificationActiveIs(true);
}

void ZelCountersMgr::vlanIntfSmIs() {
   KILN_TRACE(1, "vlanIntfSmIs");
   vlanIntfSm_ = Kiln::allocate<ZelVlanIntfSm>(vexCommonSmData(), mounts()->vlanIntfStatusDir());
   vlanIntfSm_->hasNotificationActiveIs(true);
}

void ZelCountersMgr::vexL3IntfDataIs(Kiln::Name name) {
   KILN_TRACE(1, "vexL3IntfDataIs " << name);
   vexL3IntfData_ = Kiln::allocate<Vex::VexL3IntfData>(name);
}

void ZelCountersMgr::zelCountersL3IntfSmIs() {
   KILN_TRACE(1, "zelCountersL3IntfSmIs");
   zelCountersL3IntfSm_ = Kiln::allocate<ZelCountersL3IntfSm>(
        vexL3IntfData()->vexL3IntfTable(), systemStatus(), mounts()->intfAllNatCounterDir());
   zelCountersL3IntfSm_->hasNotificationActiveIs(true);
}

void ZelCountersMgr::zelSubIntfCountersHelperIs() {
   KILN_TRACE(1, "zelSubIntfCountersHelperIs");
   zelSubIntfCountersHelper_ = Kiln::allocate<ZelCountersSubIntfCountersHelper>(zelCountersL3IntfSm());
   zelSubIntfCountersHelper_->hasNotificationActiveIs(true);
}

void ZelCountersMgr::vexSubIntfCountersSmIs(Vex::SubIntfCountersSm::Context context) {
   KILN_TRACE(1, "vexSubIntfCountersSmIs");
   vexSubIntfCountersSm_ = Kiln::allocate<Vex::SubIntfCountersSm>(std::move(context));
   vexSubIntfCountersSm_->hasNotificationActiveIs(true);
}

void ZelCountersMgr::countersMgrSmIs(ZelCountersMgr* mgr,
                                     Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                                     Kiln::Ptr<const Kiln::Clock> clock) {
   KILN_TRACE(1, "countersMgrSmIs");
   countersMgrSm_ = Kiln::allocate<ZelCountersMgrSm>(mgr, std::move(systemStatus), std::move(clock));
   countersMgrSm_->hasNotificationActiveIs(true);
}

void ZelCountersMgr::countersMgrSmDel() {
   countersMgrSm_ = nullptr;
}

void ZelCountersMgr::sdkPollingIntervalIs(double seconds) {
   if (!std::isfinite(seconds) || seconds <= 0.0) {
      throw std::range_error("sdkPollingInterval must be a positive number of seconds");
   }
   sdkPollingInterval_ = seconds;
}

void ZelCountersMgr::zelCountersIs(Kiln::Ptr<ZelCounters> zelCounters) {
   if (!zelCounters) {
      Kiln::throwNullParameter("zelCounters", "ZelCounter::ZelCountersMgr");
   }
   const ZelId::ZelDevId devId = zelCounters->deviceId();
   if (const Kiln::Ptr<ZelCounters> old = this->zelCounters(devId); old && old != zelCounters) {
      old->stop();
   }
   zelCounters_.set(devId, std::move(zelCounters));
}

void ZelCountersMgr::zelCountersDel(ZelId::ZelDevId devId) {
   if (const Kiln::Ptr<ZelCounters> chip = zelCounters(devId)) {
      chip->stop();
      zelCounters_.erase(devId);
   }
}

void ZelCountersMgr::zelCountersDelAll() {
   Kiln::forEachKey(zelCounters_, [this](ZelId::ZelDevId devId) { zelCountersDel(devId); });
}

ZelSystem::ChipCapabilities ZelCountersMgr::capabilities(const ZelDriver::ZelDevProfile& devProfile) const {
   return systemStatus()->chipCapabilities(devProfile.chipTypeName);
}

void ZelCountersMgr::addTmCounters(ZelId::ZelDevId devId,
                                   const Kiln::Ptr<const ZelSlice::ChipStatus>& chipStatus) {
   if (tmCountersData()) {
      const auto device = tmCountersData()->countersByDevIdIs(devId);
      const U32 highest = chipStatus ? chipStatus->highestLogicalPipeId() : 0;
      for (U32 pipe = 0; pipe <= highest; ++pipe) {
         device->countersByPipeIs(static_cast<U16>(pipe));
      }
   }
}

void ZelCountersMgr::addChip(ZelId::ZelDevId devId, const Kiln::String& chipName,
                             const ZelDriver::ZelDevProfile& devProfile, U32 sessionId,
                             Kiln::Ptr<ZlPd::ZlPdIntf> zlPdIntf,
                             Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf> zlResourceInfoIntf,
                             Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus) {
   Kiln::ActivityLockAnchor::assertHeld();
   KILN_TRACE(1, "addChip " << chipName << " device " << static_cast<unsigned>(devId));
   if (devId >= ZelId::maxDevices) {
      throw std::range_error("device id " + std::to_string(devId) + " is above " +
                             std::to_string(ZelId::maxDevices - 1));
   }
   deleteDevice(devId);
   addTmCounters(devId, chipStatus);
   if (capabilities(devProfile).qosPolicyCounter) {
      KILN_ASSERT(mounts()->qosPolicyDropCountSiloTable());
   }
   zelCountersIs(
        zelCountersFactory({devId, chipName, sessionId, chipStatus, systemStatus(), tmCountersData(),
                            tmCountersDataLastClear(), mounts()->qosPolicyDropCountSiloTable(),
                            mounts()->aclCounterTable(), mounts()->aclCounterClearRequest(),
                            mounts()->aclCounterClearResponse(), vexCountersSm(), vexSubIntfCountersSm(),
                            zlPdIntf, zlResourceInfoIntf, devProfile, cliPortDropData(), vexCommonSmData()}));
   if (zelCountersL3IntfSm()) {
      zelCountersL3IntfSm()->addDevice(devId, devProfile, zlPdIntf, zlResourceInfoIntf, chipStatus);
   }
}

void ZelCountersMgr::deleteDevice(ZelId::ZelDevId devId) {
   if (!zelCounters(devId)) {
      return;
   }
   zelCountersDel(devId);
   if (zelCountersL3IntfSm()) {
      zelCountersL3IntfSm()->deleteDevice(devId);
   }
}

void ZelCountersMgr::deleteChip(const Kiln::String& chipName) {
   Kiln::ActivityLockAnchor::assertHeld();
   KILN_TRACE(1, "deleteChip " << chipName);
   for (const ZelId::ZelDevId devId : zelCounters().keys()) {
      if (zelCounters(devId) && zelCounters(devId)->chipName() == chipName) {
         deleteDevice(devId);
      }
   }
}

void ZelCountersMgr::requestHwCountersPolling() {
   // A completion that comes inline may add or delete chips.
   for (const ZelId::ZelDevId devId : zelCounters().keys()) {
      if (const Kiln::Ptr<ZelCounters> chip = zelCounters(devId)) {
         chip->requestHwCountersPolling();
      }
   }
}

} // namespace ZelCounter
