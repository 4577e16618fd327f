// A chip's life, its well-known tables and pollers, and the polling of its ports' MAC counters.
#include "counters/ZelCounters.h"

#include "counters/chip/CookieRegistry.h"
#include "counters/chip/CounterTableNames.h"
#include "counters/chip/SdkStatus.h"
#include "counters/chip/ZelCountersTrace.h"
#include "counters/queues/PipeIntfQueueCounterSm.h"
#include "counters/tables/HwTableCountersSm.h"
#include "counters/tables/ZelCountersSm.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "kiln/RingLog.h"
#include "sdk/lld.h"
#include "sdk/pipe_mgr.h"
#include "zl/ZelSdk.h"

#include <cstdlib>
#include <sstream>

namespace ZelCounter {

Kiln::TraceHandle traceHandle("ZelCounters");

namespace {

bool simulationFlag = false;

// The faked array has room to spare, as the SDK's has; only the first BF_NUM_RMON_COUNTERS slots are read.
constexpr std::size_t fakedSlots = 128;

CookieRegistry<ZelCounters>& registry() {
   return CookieRegistry<ZelCounters>::instance();
}

} // namespace

ZelCounters::ZelCounters(Context context) : context_(std::move(context)) {
   if (!context_.cliPortDropData) {
      context_.cliPortDropData = Kiln::allocate<CliPortDropData>();
   }
   context_.cliPortDropData->deviceDel(deviceId());
   resetTmCounters();
   registry().add(this);
   simulationFlag = std::getenv("SIMULATION_VMID") != nullptr;
   if (simulationFlag) {
      smRunning = 1;
   }
   if (zlResourceInfoIntf()) {
      const Kiln::Ptr<const Kiln::Clock> clock = Kiln::activityManagerClock();
      initializePerPipeCounters();
      zelCountersSm_ = Kiln::allocate<ZelCountersSm>(this, clock);
      hwTableCountersSm_ = Kiln::allocate<HwTableCountersSm>(clock, this);
   }
   initializedIs(true);
}

ZelCounters::~ZelCounters() {
   stop();
}

Kiln::Ptr<ZelCounters> zelCountersFactory(ZelCounters::Context context) {
   auto made = Kiln::allocate<ZelCounters>(std::move(context));
   made->hasNotificationActiveIs(true);
   return made;
}

bool ZelCounters::simulation() {
   return simulationFlag;
}

void ZelCounters::stop() {
   if (stopped_) {
      return;
   }
   stopped_ = true;
   registry().retire(this);
   if (hwTableCountersSm_) {
      hwTableCountersSm_->stop();
   }
   zelCountersSm_ = nullptr;
   pipeIntfQueueCounterSmDelAll();
   pipeTmCounterSm_ = {};
}

void ZelCounters::initializePerPipeCounters() {
   KILN_TRACE(4, "initializePerPipeCounters");
   const U32 pdpClassCountId = zlResourceInfoIntf()->zlTableCounterIndex(TableNames::pdpClassCount);
   KILN_ASSERT(pdpClassCountId != 0xFFFFFFF);
   perPipeCounterIs(pdpClassCountId, true);

   if (systemStatus()->chipCapabilities(context_.devProfile.chipTypeName).qosPolicyCounter) {
      const U32 tableIndex = zlResourceInfoIntf()->zlTableIndex(TableNames::qosPolicyDropCounter);
      KILN_ASSERT(tableIndex != 0xFFFFFFF);
      const pipe_status_t pps = entryScopeIs(tableIndex, PIPE_ENTRY_SCOPE_SINGLE_PIPELINE);
      KILN_ASSERT(pps == 0);
      const U32 qosPolicyDropCountId =
           zlResourceInfoIntf()->zlTableCounterIndex(TableNames::qosPolicyDropCount);
      KILN_ASSERT(qosPolicyDropCountId != 0xFFFFFFF);
      perPipeCounterIs(qosPolicyDropCountId, true);
   }

   if (simulation()) {
      const U32 queueCountersIndex = zlResourceInfoIntf()->zlTableIndex(TableNames::queueCounters);
      KILN_ASSERT(queueCountersIndex != 0xFFFFFFF);
      pipe_status_t pps = entryScopeIs(queueCountersIndex, PIPE_ENTRY_SCOPE_SINGLE_PIPELINE);
      KILN_ASSERT(pps == 0);
      const U32 pdpPolicyIndex = zlResourceInfoIntf()->zlTableIndex(TableNames::pdpPolicy);
      KILN_ASSERT(pdpPolicyIndex != 0xFFFFFFF);
      pps = entryScopeIs(pdpPolicyIndex, PIPE_ENTRY_SCOPE_SINGLE_PIPELINE);
      KILN_ASSERT(pps == 0);
      const U32 l2DmacClassifyIndex = zlResourceInfoIntf()->zlTableIndex(TableNames::l2DmacClassify);
      KILN_ASSERT(l2DmacClassifyIndex != 0xFFFFFFF);
      // All pipelines, unlike the two before: its entries are the same in every pipe.
      pps = entryScopeIs(l2DmacClassifyIndex, PIPE_ENTRY_SCOPE_ALL_PIPELINES);
      KILN_ASSERT(pps == 0);
      const U32 l2DmacClassifyCountId =
           zlResourceInfoIntf()->zlTableCounterIndex(TableNames::l2DmacClassifyCount);
      KILN_ASSERT(l2DmacClassifyCountId != 0xFFFFFFF);
      perPipeCounterIs(l2DmacClassifyCountId, false);
   }

   const Kiln::Ptr<const Kiln::Clock> clock = Kiln::activityManagerClock();
   for (U32 p = 0; p <= highestPipe(); ++p) {
      const auto pipe = static_cast<U16>(p);
      pipeIntfQueueCounterSmIs(pipe, clock)->pollingClockExpired(); // the first poll waits no period
      U32 physicalPipeId = 0;
      const bf_status_t status = lld_sku_map_pipe_id_to_phy_pipe_id(deviceId(), p, &physicalPipeId);
      KILN_ASSERT_MESSAGE(status == 0, "status == 0", "Failed to map logical to physical pipe-id");
      KILN_ASSERT(physicalPipeId <= ZelId::ZelPipeId::max());
      for (const U32 counterType : polledTmCounterTypes) {
         pipeTmCounterSmIs({pipe, counterType}, physicalPipeId, clock)->scheduleClock();
      }
   }
}

int ZelCounters::entryScopeIs(U32 tableIndex, U32 scope) const {
   return pipe_mgr_tbl_set_property(sessionId(), deviceId(),
                                    zlResourceInfoIntf()->zlTable(tableIndex)->handle,
                                    PIPE_TBL_PROPERTY_ENTRY_SCOPE, scope, 0);
}

const Kiln::Ptr<PipeIntfQueueCounterSm>& ZelCounters::pipeIntfQueueCounterSm(ZelId::ZelPipeId pipe) const {
   return Kiln::valueOrDefault(pipeIntfQueueCounterSm_, pipe);
}

const Kiln::Ptr<PipeIntfQueueCounterSm>&
ZelCounters::pipeIntfQueueCounterSmIs(ZelId::ZelPipeId pipe, Kiln::Ptr<const Kiln::Clock> clock) {
   if (const Kiln::Ptr<PipeIntfQueueCounterSm>* present = pipeIntfQueueCounterSm_.find(pipe)) {
      if ((*present)->clock() != clock) {
         std::ostringstream text;
         text << "Reinstantiating the pointer interface where constructor parameter attribute _pollingClock "
                 "has a different value of "
              << clock.ptr() << " than the current value of " << (*present)->clock().ptr() << " not allowed";
         throw std::invalid_argument(text.str());
      }
      return *present;
   }
   pipeIntfQueueCounterSm_.set(pipe, Kiln::allocate<PipeIntfQueueCounterSm>(this, pipe, std::move(clock)));
   return *pipeIntfQueueCounterSm_.find(pipe);
}

void ZelCounters::pipeIntfQueueCounterSmDel(ZelId::ZelPipeId pipe) {
   if (const Kiln::Ptr<PipeIntfQueueCounterSm> poller = pipeIntfQueueCounterSm(pipe)) {
      poller->stop();
      pipeIntfQueueCounterSm_.erase(pipe);
   }
}

void ZelCounters::pipeIntfQueueCounterSmDelAll() {
   Kiln::forEachKey(pipeIntfQueueCounterSm_, [this](U16 pipe) { pipeIntfQueueCounterSmDel(pipe); });
}

const Kiln::Ptr<PipeTmCounterSm>& ZelCounters::pipeTmCounterSmIs(const PipeTmCounterKey& key,
                                                                 U32 physicalPipe,
                                                                 Kiln::Ptr<const Kiln::Clock> clock) {
   if (!pipeTmCounterSm_.contains(key)) {
      pipeTmCounterSm_.set(key, Kiln::allocate<PipeTmCounterSm>(this, key, physicalPipe, std::move(clock)));
   }
   return *pipeTmCounterSm_.find(key);
}

bool ZelCounters::echo() {
   return simulationFlag && traceHandle.isOn(8);
}

// Only the chip's own internal interface is polled; without a chip status that is none.
bool ZelCounters::isPolled(const Pelt::IntfId& intf, const ZelSystem::PortRecord& record) const {
   if (record.devId != deviceId()) {
      return false;
   }
   if (!Pelt::InternalIntfId::isInternalIntfId(intf)) {
      return true;
   }
   return intf == (chipStatus() ? chipStatus()->internalIntf() : Pelt::IntfId());
}

// Looked through only when a port has changed, since all chips share the table.
void ZelCounters::refreshOwnPorts() {
   if (ownPortsVersion_ == systemStatus()->portInfoVersion()) {
      return;
   }
   ownPortsVersion_ = systemStatus()->portInfoVersion();
   ownPorts_.clear();
   for (const auto& [intf, record] : systemStatus()->portInfo()) {
      if (record.devId == deviceId()) {
         ownPorts_.emplace_back(intf, record);
      }
   }
}

bool ZelCounters::fakeCounter(FakeCounter* fake) {
   if (!simulationFlag) {
      return false;
   }
   const char* const id = std::getenv("ZEL_COUNTER_ID");
   const char* const value = std::getenv("ZEL_COUNTER_VALUE");
   if (id == nullptr || value == nullptr) {
      return false;
   }
   // Unsigned and in full width: a negative id fails, and so does one that would only look small once
   // narrowed.
   const auto ctrId = static_cast<U64>(std::strtol(id, nullptr, 10));
   KILN_ASSERT(ctrId < BF_NUM_RMON_COUNTERS);
   *fake = {ctrId, std::strtoull(value, nullptr, 0)};
   return true;
}

void ZelCounters::fakePort(const FakeCounter& fake, U16 devicePort) {
   KILN_TRACE(7, "Faking counter # " << fake.id << " value " << fake.value);
   U64 buffer[fakedSlots] = {};
   buffer[fake.id] = fake.value;
   registry().requested(this);
   ZelCountersCallback(deviceId(), devicePort, reinterpret_cast<bf_rmon_counter_array_t*>(buffer), this);
}

void ZelCounters::requestPort(const Pelt::IntfId& intf, U16 devicePort) {
   registry().requested(this);
   const bf_status_t status =
        bf_port_mac_stats_hw_async_get(deviceId(), devicePort, ZelCountersCallback, this);
   if (status != BF_SUCCESS) {
      registry().refused(this);
      KILN_TRACE(4, sdkErrorText(status)
                         << " requesting counters for intf " << intf << " (" << devicePort << ")");
   }
}

void ZelCounters::requestHwCountersPolling() {
   Kiln::ActivityLockAnchor::assertHeld();
   KILN_TRACE(4, "requestHwCountersPolling");
   FakeCounter fake{};
   const bool faking = fakeCounter(&fake);
   refreshOwnPorts();
   for (const auto& [intf, recordBefore] : ownPorts_) {
      // A completion that comes inline may have changed the ports, or have stopped this chip.
      const bool isAsBefore = systemStatus()->portInfoVersion() == ownPortsVersion_;
      const ZelSystem::PortRecord record = isAsBefore ? recordBefore : systemStatus()->portInfo(intf);
      if (stopped_ || !isPolled(intf, record)) {
         continue;
      }
      KILN_TRACE(7, "PortId: " << intf << " (" << record.devicePort << ")");
      if (faking) {
         fakePort(fake, record.devicePort);
      } else {
         requestPort(intf, record.devicePort);
      }
   }
   if (stopped_) {
      return;
   }
   if (vexCountersSm() && context_.vexCommonSmData) {
      for (const Pelt::IntfId& intf : context_.vexCommonSmData->vlanIntf().keys()) {
         vexCountersSm()->updateCounters(VexTypes::CounterType::vlanIntf, intf);
      }
   }
   if (context_.vexSubIntfCountersSm) {
      context_.vexSubIntfCountersSm->updateCounters();
   }
}

void ZelCounters::updateCounters(const Pelt::IntfId& intf, const bf_rmon_counter_array_t& counters) {
   const ZelSystem::PortRecord* const record = systemStatus()->portInfo().find(intf);
   if (record == nullptr) {
      KILN_RINGLOG_TRACE(4, " intfId missing in systemStatus::portInfo[] for " << intf);
      return;
   }
   KILN_TRACE(4, "updateCounters"
                      << ", intf: " << intf << ", portId: " << record->devicePort);
   IntfCounters* last = macCountersLast(intf).ptr();
   if (last == nullptr) {
      KILN_RINGLOG_TRACE(4, "Initialize counters for intf " << intf);
      const Kiln::Ptr<IntfCounters> cl = intfCountersFactory(intf);
      KILN_ASSERT(cl);
      macCountersLastIs(intf, cl);
      last = cl.ptr();
   }
   if (!macCountersClear().contains(intf)) {
      KILN_RINGLOG_TRACE(4, "Initialize clear counters for intf " << intf);
      const Kiln::Ptr<IntfCounters> cc = intfCountersFactory(intf);
      KILN_ASSERT(cc);
      macCountersClearIs(intf, cc);
   }
   last->countersAre(counters);
}

void ZelCountersCallback(bf_dev_id_t dev, bf_dev_port_t port, bf_rmon_counter_array_t* counters,
                         void* cookie) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   if (simulationFlag && smRunning == 0) {
      return;
   }
   auto* const bc = static_cast<ZelCounters*>(cookie);
   KILN_ASSERT(bc);
   // Declared after the lock, so that it is given up before the lock is.
   const Kiln::Ptr<ZelCounters> chip = registry().completed(bc);
   const ZelId::PortIndex index(static_cast<U16>(port));
   if (!chip || chip->deviceId() != dev) {
      KILN_TRACE(4, "ZelCountersCallback, port: " << port << ", late completion of device " << dev
                                                  << " dropped");
      return;
   }
   const Pelt::IntfId intf = chip->systemStatus()->portToIntfId(chip->deviceId(), index);
   KILN_TRACE(4, "ZelCountersCallback"
                      << ", port: " << port << ", intf: " << intf);
   chip->updateCounters(intf, *counters);
   if (chip->vexCountersSm()) {
      chip->vexCountersSm()->updateCounters(VexTypes::CounterType::port, intf);
   }
}

} // namespace ZelCounter
