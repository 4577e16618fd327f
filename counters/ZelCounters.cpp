// A chip's life, and the polling of its ports' MAC counters.
#include "ZelCounters.h"

#include "CookieRegistry.h"
#include "SdkStatus.h"
#include "ZelCountersTrace.h"
#include "kiln/ActivityLock.h"
#include "kiln/RingLog.h"
#include "zl/ZelSdk.h"

#include <cstdlib>
#include <iomanip>

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
   registry().add(this);
   simulationFlag = std::getenv("SIMULATION_VMID") != nullptr;
   if (simulationFlag) {
      smRunning = 1;
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
   if (!stopped_) {
      stopped_ = true;
      registry().retire(this);
   }
}

bool ZelCounters::echo() const {
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
      KILN_TRACE(4, "Error " << status << " (" << sdkStatusText(status) << ") requesting counters for intf "
                             << intf << " (" << devicePort << ")");
   }
}

void ZelCounters::requestHwCountersPolling() {
   Kiln::ActivityLockAnchor::assertHeld();
   KILN_TRACE(4, "requestHwCountersPolling");
   FakeCounter fake{};
   const bool faking = fakeCounter(&fake);
   // A completion that comes inline may change the ports.
   for (const Pelt::IntfId& intf : systemStatus()->portInfo().keys()) {
      const ZelSystem::PortRecord record = systemStatus()->portInfo(intf);
      if (!isPolled(intf, record)) {
         continue;
      }
      KILN_TRACE(7, "PortId: " << intf << " (" << record.devicePort << ")");
      if (faking) {
         fakePort(fake, record.devicePort);
      } else {
         requestPort(intf, record.devicePort);
      }
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
