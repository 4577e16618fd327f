// Builds the library's services in their order, keeps the chips, and runs the polling clock.
#include "counters/ZelCountersMgr.h"

#include "agent/AgentCommand.h"
#include "counters/ZelCounters.h"
#include "counters/ZelCountersCli.h"
#include "counters/helper/CountersMounts.h"
#include "counters/helper/ZelCountersHelper.h"
#include "counters/l3/ZelCountersL3Intf.h"
#include "counters/publish/ChipHealth.h"
#include "counters/publish/ChipPublishingSm.h"
#include "counters/tables/HwTableCountersSm.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "kiln/EventLog.h"
#include "kiln/Time.h"
#include "kiln/TimerWheel.h"
#include "kiln/Trace.h"
#include "vex/VexL3Intf.h"

#include <algorithm>
#include <set>
#include <stdexcept>

namespace ZelCounter {

namespace {

Kiln::TraceHandle traceHandle("ZelCountersMgr");

// The subinterfaces' timer wheel.
constexpr U32 wheelTickMs = 100;
constexpr U32 wheelEntriesPerTick = 20;
constexpr U32 wheelFirstSlot = 0;
constexpr U32 wheelSlots = 1024;

// Others may hold a service longer than the manager does: from then on it watches nothing and asks nobody.
void stop(Vex::Counters::CountersSm& sm) {
   sm.hasNotificationActiveIs(false);
}
void stop(Vex::SubIntfCountersSm& sm) {
   sm.hasNotificationActiveIs(false);
}
void stop(ZelCountersL3IntfSm& sm) {
   sm.stop();
}
void stop(ZelVlanIntfSm& sm) {
   sm.vlanIntfStatusDirIs(nullptr);
}
void stop(ZelCountersHelper& helper) {
   helper.mgrDel();
}

template <class Service>
void replaceService(Kiln::Ptr<Service>& service, Kiln::Ptr<Service> successor) {
   if (service && service != successor) {
      stop(*service);
   }
   service = std::move(successor);
}

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
       cliPortDropData_(std::move(cliPortDropData)),
       dropData_(cliPortDropData_ ? cliPortDropData_ : Kiln::allocate<CliPortDropData>()),
       chipPublisher_(this->mounts()->chipTables()
                           ? Kiln::allocate<Vex::ChipPublisher>(this->mounts()->chipTables())
                           : nullptr) {
   try {
      handleInitialized();
   } catch (...) {
      stop(); // the command directory is the caller's, and knows this already
      throw;
   }
}

ZelCountersMgr::~ZelCountersMgr() {
   stop();
}

// First what starts requests, then the chips: their completions must find nobody. Then the services, which stop as the
// manager lets go of them.
void ZelCountersMgr::stop() {
   // Nested, so that nobody gets in while half of it is gone, also when who lets go of it last doesn't hold the lock.
   const auto lock = Kiln::ActivityLockAnchor::lock();
   const auto whole = Kiln::ActivityLockAnchor::lock();
   cliCallbackDel();
   countersMgrSmDel();
   readOnceMore();
   if (!zelCounters_.keys().empty()) {
      publishHealth();
   }
   zelCountersDelAll();
   zelCountersL3IntfSmDel();
   vlanIntfSmDel();
   vexCountersSmDel();
   vexSubIntfCountersSmDel();
   zelCountersHelperDel();
}

void ZelCountersMgr::handlePort(const Pelt::IntfId& intf) {
   const ZelSystem::PortRecord& port = systemStatus()->portInfo(intf);
   dropData_->portIs(intf, port.devId, port.devicePort);
   for (const auto& [devId, chip] : zelCounters()) {
      chip->handlePort(intf);
   }
   if (!chipPublisher_ || systemStatus()->portInfo().contains(intf)) {
      return;
   }
   // No directory has an internal interface: it is gone with its port. So is one that has left its directory before.
   const auto& directory = mounts()->ethPhyIntfStatusDir();
   if (directory && directory->intfStatus().contains(intf)) {
      chipPublisher_->portDel(intf);
   } else {
      chipPublisher_->intfDel(intf);
   }
}

void ZelCountersMgr::publishHealth() {
   for (const ZelId::ZelDevId devId : zelCounters().keys()) {
      publishHealth(*zelCounters(devId));
   }
   publishAgentHealth();
}

void ZelCountersMgr::publishHealth(const ZelCounters& chip) {
   if (chipPublisher_) {
      ZelCounter::publishHealth(chip, *this);
   }
}

void ZelCountersMgr::publishAgentHealth() {
   if (chipPublisher_) {
      ZelCounter::publishAgentHealth(*chipPublisher_);
   }
}

// What was counted until an orderly end is not lost.
void ZelCountersMgr::readOnceMore() {
   // What is handed over may take chips away.
   Kiln::forEachKey(zelCounters_, [this](ZelId::ZelDevId devId) {
      if (const Kiln::Ptr<ZelCounters> chip = zelCounters(devId)) {
         chip->readOnceMore();
      }
   });
   if (zelCountersL3IntfSm()) {
      if (!ZelCounters::isCleanedUp()) {
         zelCountersL3IntfSm()->readAllOnceMore();
      }
      zelCountersL3IntfSm()->readOnceMoreIs(nullptr);
   }
}

void ZelCountersMgr::forgetAbsentInterfaces() {
   if (vexCountersSm()) {
      vexCountersSm()->forgetAbsentInterfaces(
           [this](const Pelt::IntfId& intf) { return systemStatus()->portInfo().contains(intf); });
   }
   if (vexSubIntfCountersSm()) {
      vexSubIntfCountersSm()->forgetAbsentInterfaces();
   }
   if (chipPublisher_) {
      forgetAbsentChips();
   }
   if (zelCountersL3IntfSm()) {
      zelCountersL3IntfSm()->forgetAbsentInterfaces();
   }
}

void ZelCountersMgr::forgetAbsentChips() {
   std::set<Kiln::String> chips;
   std::set<Kiln::String> pipes;
   for (const auto& [devId, chip] : zelCounters()) {
      chips.insert(chip->chipName());
      for (const U16 pipe : chip->pipes()) {
         pipes.insert(ChipPublishingSm::pipeName(*chip, pipe));
      }
   }
   chipPublisher_->absentDel(
        [this](const Kiln::String& intf) {
           return systemStatus()->portInfo().contains(Pelt::IntfId{Kiln::Name(intf)});
        },
        [&](const Kiln::String& pipe) { return pipes.contains(pipe); },
        [&](const Kiln::String& chip) { return chips.contains(chip); });
}

// The order matters: each service is made from those before it, and the polling clock comes last, when all are there to
// be told of a pass.
void ZelCountersMgr::handleInitialized() {
   const Kiln::Ptr<const Kiln::Clock> activityManagerClock = Kiln::activityManagerClock();
   cliCallbackIs("ZelCounters", "ZelCountersCli", this);
   KILN_ASSERT(cliRequestDirSm());
   KILN_TRACE(1, "agentCommandCallbackIs");
   cliRequestDirSm()->agentCommandCallbackIs(cliCallback());
   zelCountersHelperIs(this, systemStatus());
   vexCountersSmIs();
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
   vexSubIntfCountersSmIs(std::move(timerWheel), zelSubIntfCountersHelper());
   zelCountersL3IntfSm()->readOnceMoreIs([this](const Pelt::IntfId& intf) {
      vexCountersSm()->readVlanIntf(intf);
      vexSubIntfCountersSm()->readSubIntf(intf);
   });
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
      cliCallback_->mgrDel(); // the command directory may hold it longer than this lives
   }
   cliCallback_ = nullptr;
}

void ZelCountersMgr::zelCountersHelperIs(ZelCountersMgr* mgr,
                                         Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus) {
   KILN_TRACE(1, "zelCountersHelperIs");
   zelCountersHelper_ = Kiln::allocate<ZelCountersHelper>(mgr, std::move(systemStatus));
   zelCountersHelper_->hasNotificationActiveIs(true);
}

void ZelCountersMgr::vexCountersSmIs() {
   KILN_TRACE(1, "vexCountersSmIs");
   vexCountersSm_ = Kiln::allocate<Vex::Counters::CountersSm>(Vex::Counters::CountersSm::Context{
        vexCommonSmData(), mounts()->ethPhyIntfStatusDir(), mounts()->vlanIntfStatusDir(),
        mounts()->allIntfCounters(), mounts()->allIntfClearCounters(), mounts()->allIntfQueueCounters(),
        mounts()->allIntfClearQueueCounters(), mounts()->allVlanIntfCounters(),
        mounts()->vlanIntfCounterWriterStatus(), Kiln::activityManagerClock(), zelCountersHelper(),
        mounts()->history(), chipPublisher_});
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

void ZelCountersMgr::vexSubIntfCountersSmIs(Kiln::Ptr<Oxbow::TimerWheel> timerWheel,
                                            const Kiln::Ptr<ZelCountersSubIntfCountersHelper>& helper) {
   KILN_TRACE(1, "vexSubIntfCountersSmIs");
   vexSubIntfCountersSm_ = Kiln::allocate<Vex::SubIntfCountersSm>(Vex::SubIntfCountersSm::Context{
        std::move(timerWheel), mounts()->subIntfStatusDir(), mounts()->subIntfCountersDir(),
        mounts()->subIntfCountersSnapshotDir(), subIntfPollInterval, Kiln::activityManagerClock(), helper});
   vexSubIntfCountersSm_->hasNotificationActiveIs(true);
}

void ZelCountersMgr::countersMgrSmIs(ZelCountersMgr* mgr,
                                     Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                                     Kiln::Ptr<const Kiln::Clock> clock) {
   KILN_TRACE(1, "countersMgrSmIs");
   countersMgrSmDel();
   countersMgrSm_ = Kiln::allocate<ZelCountersMgrSm>(mgr, std::move(systemStatus), std::move(clock));
   countersMgrSm_->hasNotificationActiveIs(true);
}

void ZelCountersMgr::countersMgrSmDel() {
   if (countersMgrSm_) {
      countersMgrSm_->stop();
   }
   countersMgrSm_ = nullptr;
}

const Kiln::Ptr<ZelCounters>& ZelCountersMgr::zelCounters(ZelId::ZelDevId devId) const {
   return Kiln::valueOrDefault(zelCounters_, devId);
}

void ZelCountersMgr::zelCountersIs(Kiln::Ptr<ZelCounters> zelCounters) {
   if (!zelCounters) {
      Kiln::throwNullParameter("zelCounters", "ZelCounter::ZelCountersMgr");
   }
   const ZelId::ZelDevId devId = zelCounters->deviceId();
   // Others may hold the old chip longer: it must neither ask for anything more nor take completions.
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

// The name by value: the caller's may be that of the chip that goes.
namespace {

Kiln::String deviceText(ZelId::ZelDevId devId) {
   return "device " + std::to_string(devId);
}

} // namespace

void ZelCountersMgr::addChip(ZelId::ZelDevId devId, Kiln::String chipName,
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
   const auto self = heldSelf();
   // Not read once more: where another life of the chip begins already, the SDK answers for that one.
   deleteDevice(devId, false, chipName);
   if (systemStatus()->chipCapabilities(devProfile.chipTypeName).qosPolicyCounter) {
      KILN_ASSERT(mounts()->qosPolicyDropCountSiloTable());
   }
   // The chip makes its own entries in tmCountersData, one a pipe.
   const auto chip = zelCountersFactory(
        {devId, std::move(chipName), sessionId, chipStatus, systemStatus(), tmCountersData(),
         tmCountersDataLastClear(), mounts()->qosPolicyDropCountSiloTable(), mounts()->aclCounterTable(),
         mounts()->aclCounterClearRequest(), mounts()->aclCounterClearResponse(), vexCountersSm(),
         vexSubIntfCountersSm(), zlPdIntf, zlResourceInfoIntf, devProfile, dropData_, vexCommonSmData(),
         chipPublisher_});
   zelCountersIs(chip);
   Kiln::EventLog::instance().record(
        {.kind = Kiln::EventKind::chipCame, .where = chip->chipName(), .what = deviceText(devId)});
   try {
      if (const Kiln::Ptr<ZelCountersL3IntfSm> l3IntfSm = zelCountersL3IntfSm()) {
         l3IntfSm->addDevice(devId, devProfile, zlPdIntf, zlResourceInfoIntf, chipStatus);
      }
   } catch (...) {
      if (zelCounters(devId) == chip) {
         deleteDevice(devId, false);
      }
      throw;
   }
}

// The records of a chip go until it comes back; they stay if its successor has its name.
void ZelCountersMgr::deleteDevice(ZelId::ZelDevId devId, bool isReadOnceMore, const Kiln::String& successor) {
   const auto self = heldSelf();
   const Kiln::Ptr<ZelCounters> chip = zelCounters(devId); // held: what it hands over may lead here again
   if (!chip) {
      return;
   }
   if (isReadOnceMore) {
      chip->readOnceMore();
   }
   if (zelCounters(devId) != chip) {
      return;
   }
   if (const auto& publishing = chip->chipPublishingSm()) {
      publishing->healthIs(
           healthOf(*chip, *this)); // what went wrong since the last pass goes on with its name
      if (chip->chipName() != successor) {
         publishing->withdraw();
      }
   }
   zelCountersDel(devId);
   Kiln::EventLog::instance().record(
        {.kind = Kiln::EventKind::chipWent, .where = chip->chipName(), .what = deviceText(devId)});
   if (const Kiln::Ptr<ZelCountersL3IntfSm> l3IntfSm = zelCountersL3IntfSm()) {
      // Nested, so that nobody gets in: a pass would assert that the chip answers, which may have ceased.
      const auto whole = Kiln::ActivityLockAnchor::lock();
      if (isReadOnceMore) {
         l3IntfSm->readAllOnceMore();
      }
      l3IntfSm->deleteDevice(devId);
   }
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the caller's may be that of a chip that goes.
void ZelCountersMgr::deleteChip(Kiln::String chipName) {
   Kiln::ActivityLockAnchor::assertHeld();
   KILN_TRACE(1, "deleteChip " << chipName);
   const auto self = heldSelf();
   // Names are the agent's and need not be unique. A snapshot of the keys, since the walk deletes.
   for (const ZelId::ZelDevId devId : zelCounters().keys()) {
      if (zelCounters(devId) && zelCounters(devId)->chipName() == chipName) {
         deleteDevice(devId, true);
      }
   }
}

void ZelCountersMgr::requestHwCountersPolling() {
   // A completion that comes inline may add or delete chips. So may others as a chip gives way, and this may go: only the
   // chips are kept, and one that is stopped does nothing.
   std::vector<Kiln::Ptr<ZelCounters>> chips;
   for (const auto& [devId, chip] : zelCounters()) {
      chips.push_back(chip);
   }
   for (const Kiln::Ptr<ZelCounters>& chip : chips) {
      chip->requestHwCountersPolling();
   }
}

KILN_POINTER_TO_DEFINE(ZelCountersMgr, const ZelSystem::SystemStatus, systemStatus)
KILN_POINTER_TO_DEFINE(ZelCountersMgr, CountersMounts, mounts)
KILN_POINTER_TO_DEFINE(ZelCountersMgr, Vex::VexCommonSmData, vexCommonSmData)
KILN_POINTER_TO_DEFINE(ZelCountersMgr, Agent::AgentCommandRequestDirSm, cliRequestDirSm)
KILN_POINTER_TO_DEFINE(ZelCountersMgr, ZelQos::TmCountersData, tmCountersData)
KILN_POINTER_TO_DEFINE(ZelCountersMgr, ZelQos::TmCountersData, tmCountersDataLastClear)
KILN_POINTER_TO_DEFINE(ZelCountersMgr, CliPortDropData, cliPortDropData)
KILN_POINTER_TO_DEFINE(ZelCountersMgr, Vex::VexL3IntfData, vexL3IntfData)
KILN_POINTER_TO_DEFINE(ZelCountersMgr, ZelCountersSubIntfCountersHelper, zelSubIntfCountersHelper)

void ZelCountersMgr::vexCountersSmIs(Kiln::Ptr<Vex::Counters::CountersSm> value) {
   replaceService(vexCountersSm_, std::move(value));
}

void ZelCountersMgr::vexCountersSmDel() {
   replaceService(vexCountersSm_, {});
}

void ZelCountersMgr::zelCountersL3IntfSmIs(Kiln::Ptr<ZelCountersL3IntfSm> value) {
   replaceService(zelCountersL3IntfSm_, std::move(value));
}

void ZelCountersMgr::zelCountersL3IntfSmDel() {
   replaceService(zelCountersL3IntfSm_, {});
}

void ZelCountersMgr::vexSubIntfCountersSmIs(Kiln::Ptr<Vex::SubIntfCountersSm> value) {
   replaceService(vexSubIntfCountersSm_, std::move(value));
}

void ZelCountersMgr::vexSubIntfCountersSmDel() {
   replaceService(vexSubIntfCountersSm_, {});
}

void ZelCountersMgr::zelCountersHelperIs(Kiln::Ptr<ZelCountersHelper> value) {
   replaceService(zelCountersHelper_, std::move(value));
}

void ZelCountersMgr::zelCountersHelperDel() {
   replaceService(zelCountersHelper_, {});
}

void ZelCountersMgr::vlanIntfSmIs(Kiln::Ptr<ZelVlanIntfSm> value) {
   replaceService(vlanIntfSm_, std::move(value));
}

void ZelCountersMgr::vlanIntfSmDel() {
   replaceService(vlanIntfSm_, {});
}

ZelCountersMgrSm::ZelCountersMgrSm(ZelCountersMgr* mgr, Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                                   Kiln::Ptr<const Kiln::Clock> clock)
     : mgr_(mgr), systemStatus_(this),
       intfCounterPollingClock_(std::move(clock), this, &ZelCountersMgrSm::intfCounterPollingClockExpired) {
   systemStatus_.notifierIs(std::move(systemStatus));
   handleInitialized();
}

void ZelCountersMgrSm::handleInitialized() {
   armPollingClock();
   handlePortInfo();
   initializedIs(true);
}

void ZelCountersMgrSm::stop() {
   intfCounterPollingClock_.timeMinIs(Kiln::never);
   systemStatus_.notifierIs(nullptr);
   mgr_ = nullptr;
}

void ZelCountersMgrSm::armPollingClock() {
   if (mgr_ == nullptr) { // stopped in the middle of a pass
      return;
   }
   const double interval = mgr_->sdkPollingInterval();
   intfCounterPollingClock_.timeMinIs(Kiln::System::currentTime() + interval);
   if (interval != publishedInterval_) {
      publishInterval(interval);
   }
   for (const auto& [devId, chip] : mgr_->zelCounters()) {
      chip->readings().periodIs(ReadingKey::Kind::mac, interval);
   }
   publishQueueInterval();
   publishSyncInterval();
}

// Readers of the shared tables judge by it how old a record may be.
void ZelCountersMgrSm::publishInterval(double seconds) {
   publishedInterval_ = seconds;
   const Kiln::Ptr<CountersMounts>& mounts = mgr_->mounts();
   if (mounts->allIntfCounters()) {
      mounts->allIntfCounters()->table().pollingIntervalIs(seconds);
   }
   if (mounts->allVlanIntfCounters()) {
      mounts->allVlanIntfCounters()->table().pollingIntervalIs(seconds);
   }
   if (mounts->history()) {
      mounts->history()->pollingIntervalIs(seconds);
   }
   if (mounts->chipTables()) {
      mounts->chipTables()->pollingIntervalIs(seconds);
   }
   if (mounts->subIntfCountersDir()) {
      // Their reactor reads by itself when passes are rarer.
      mounts->subIntfCountersDir()->table().pollingIntervalIs(
           std::min(seconds, ZelCountersMgr::subIntfPollInterval));
   }
}

// First in a pass, so that what was lost comes with it.
void ZelCountersMgrSm::mendTables() {
   const Kiln::Ptr<CountersMounts> mounts = mgr_->mounts();
   const std::function<bool()> goesOn = [this] {
      Kiln::ActivityLockAnchor::giveWay("mendTables");
      return mgr_ != nullptr; // otherwise the tables may be others' already
   };
   const auto mend = [&](const auto mounted) {
      if (mgr_ == nullptr || !mounted) {
         return;
      }
      if constexpr (requires { mounted->mend(goesOn); }) {
         mounted->mend(goesOn);
      } else {
         mounted->mend();
      }
      goesOn();
   };
   mend(mounts->allIntfCounters());
   mend(mounts->allIntfClearCounters());
   mend(mounts->allIntfQueueCounters());
   mend(mounts->allIntfClearQueueCounters());
   mend(mounts->allVlanIntfCounters());
   mend(mounts->subIntfCountersDir());
   mend(mounts->subIntfCountersSnapshotDir());
   mend(mounts->intfAllNatCounterDir());
   mend(mounts->history());
   mend(mounts->events());
   mend(mounts->chipTables());
}

// All chips share the table, so its readers are told the slowest one's. Looked at with every pass, since a chip's
// interval changes without the manager hearing of it.
void ZelCountersMgrSm::publishQueueInterval() {
   double slowest = 0;
   for (const auto& [devId, chip] : mgr_->zelCounters()) {
      slowest = std::max(slowest, chip->intfQueueCountersSdkPollingInterval());
   }
   const CountersMounts& mounts = *mgr_->mounts();
   if (slowest > 0 && slowest != publishedQueueInterval_ && mounts.allIntfQueueCounters()) {
      publishedQueueInterval_ = slowest;
      mounts.allIntfQueueCounters()->table().pollingIntervalIs(slowest);
      if (mounts.history()) {
         mounts.history()->queueIntervalIs(slowest);
      }
   }
}

// The same for what comes with the sync passes.
void ZelCountersMgrSm::publishSyncInterval() {
   double slowest = 0;
   for (const auto& [devId, chip] : mgr_->zelCounters()) {
      if (chip->hwTableCountersSm()) {
         slowest = std::max(slowest, chip->hwTableCountersSm()->hwTableCountersPollingInterval());
      }
   }
   const Kiln::Ptr<Vex::ChipTables>& tables = mgr_->mounts()->chipTables();
   if (slowest > 0 && slowest != publishedSyncInterval_ && tables) {
      publishedSyncInterval_ = slowest;
      tables->syncIntervalIs(slowest);
   }
}

void ZelCountersMgrSm::intfCounterPollingClockExpired() {
   // Armed after the pass, so that the interval runs from its end: a slow chip gets no denser load. Also when the pass
   // throws, or one bad port would end the polling of all chips.
   // In slices: meanwhile the manager may go, which stops this. So it is asked anew after each, and not kept: who lets go
   // of it relies on its end.
   const auto self = heldSelf();
   try {
      mendTables();
      forEachChip([this](ZelCounters& chip) { mgr_->publishHealth(chip); });
      if (mgr_ != nullptr) {
         mgr_->publishAgentHealth();
      }
      forEachChip([](ZelCounters& chip) { chip.requestHwCountersPolling(); });
   } catch (...) {
      armPollingClock();
      throw;
   }
   armPollingClock();
}

void ZelCountersMgrSm::forEachChip(const std::function<void(ZelCounters&)>& operation) {
   if (mgr_ == nullptr) {
      return;
   }
   for (const ZelId::ZelDevId devId : mgr_->zelCounters().keys()) {
      const Kiln::Ptr<ZelCounters> chip = mgr_ != nullptr ? mgr_->zelCounters(devId) : nullptr;
      if (chip) {
         operation(*chip);
         Kiln::ActivityLockAnchor::giveWay("intfCounterPollingClockExpired");
      }
   }
}

void ZelCountersMgrSm::handlePortInfo() {
   if (systemStatus_.notifier()) {
      for (const Pelt::IntfId& intf : systemStatus_.notifier()->portInfo().keys()) {
         handlePortInfo(intf);
      }
   }
}

// An internal interface that comes, or changes its port, begins anew here, and as no directory has it, its queues' record
// goes here. Of a front-panel interface the poller sees whether its port is another one.
void ZelCountersMgrSm::handlePortInfo(const Pelt::IntfId& intf) {
   mgr_->handlePort(intf);
   const bool hasPort = systemStatus_.notifier()->portInfo().contains(intf);
   const Kiln::Ptr<Vex::Counters::WriterConfig>& writerConfig = mgr_->mounts()->writerConfig();
   if (Pelt::InternalIntfId::isInternalIntfId(intf) && !hasPort && writerConfig) {
      writerConfig->intfQueueCountersDel(intf);
   }
   if (Pelt::InternalIntfId::isInternalIntfId(intf) && mgr_->zelCountersHelper()) {
      mgr_->zelCountersHelper()->doClearIntfQueueCounters(intf, true);
   }
}

} // namespace ZelCounter
