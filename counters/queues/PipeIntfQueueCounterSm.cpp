// The polls of a pipe's queue counters, and what their completions read.
#include "counters/queues/PipeIntfQueueCounterSm.h"

#include "counters/chip/CounterTableNames.h"
#include "counters/chip/Guarded.h"
#include "counters/chip/SdkStatus.h"
#include "counters/chip/ZelCountersTrace.h"
#include "counters/queues/QueueCounters.h"
#include "kiln/ActivityLock.h"
#include "kiln/Time.h"
#include "sdk/bf_tm.h"
#include "sdk/pipe_mgr.h"
#include "zl/ZelSdk.h"
#include "zl/ZlPortLayout.h"

#include <array>
#include <deque>
#include <span>

namespace ZelCounter {

namespace {

using ZlPort::portsPerPipe;

constexpr double tableRetryInterval = 1.0; // seconds

// A completion gathers into fixed arrays: a place for every port index of a pipe, and in it one for every queue.
constexpr std::size_t queuesPerPort = ZlPort::queueLimit;

PipeQueueCountersCookie* cookieSlot(ZelId::ZelDevId devId, ZelId::ZelPipeId pipe) {
   // By device, then by pipe: two chips have the same pipe numbers. A deque, so that growing moves no slot. Never
   // freed, since completions may outlive static destruction.
   static auto& pipeQueueCountersCookie =
        *new std::array<std::deque<PipeQueueCountersCookie>, ZelId::maxDevices>;
   auto& slots = pipeQueueCountersCookie.at(devId);
   if (slots.size() <= pipe) {
      slots.resize(std::size_t{pipe} + 1);
   }
   return &slots[pipe];
}

} // namespace

PipeIntfQueueCounterSm::PipeIntfQueueCounterSm(QueueCounters* parent, ZelId::ZelPipeId pipe,
                                               Kiln::Ptr<const Kiln::Clock> clock)
     : parent_(parent), pipe_(pipe), cookie_(cookieSlot(parent->chip().deviceId(), pipe)),
       pollingClock_(std::move(clock), this, &PipeIntfQueueCounterSm::handlePollingClock) {}

PipeIntfQueueCounterSm::~PipeIntfQueueCounterSm() {
   stop();
}

void PipeIntfQueueCounterSm::stop() {
   // The slot belongs to the place, not to this poller: by now it may be a successor's.
   if (cookie_->counters == parent_) {
      cookie_->counters = nullptr;
   }
   parent_ = nullptr;
   syncOutstanding_ = false;
   pollingClock_.timeMinIs(Kiln::never);
}

void PipeIntfQueueCounterSm::scheduleClock() {
   if (parent_ == nullptr) {
      return;
   }
   pollingClock_.timeMinIs(Kiln::System::currentTime() + parent_->pollingInterval());
}

// A poll that throws is made again.
void PipeIntfQueueCounterSm::handlePollingClock() {
   bool isPolled = false;
   guarded("polling a pipe's queues", [&] {
      pollingClockExpired();
      isPolled = true;
   });
   if (!isPolled) {
      syncOutstanding_ = false;
      scheduleClock();
   }
}

void PipeIntfQueueCounterSm::pollingClockExpired() {
   KILN_TRACE(5, "PipeIntfQueueCounterSm::pollingClockExpired");
   if (parent_ == nullptr) {
      return;
   }
   const U32 tableHandle = this->tableHandle();
   // At each poll, since another poller of the same place may have had the slot in between.
   *cookie_ = {parent_, pipe_};
   const U32 egressPortQueueCountId =
        parent_->chip().zlResourceInfoIntf()->zlTableCounterIndex(TableNames::egressPortQueueCount);
   if (!parent_->chip().initializedCounter(egressPortQueueCountId)) {
      KILN_TRACE(5, "returning since table instance is not there");
      pollingClock_.timeMinIs(Kiln::System::currentTime() + tableRetryInterval);
      return;
   }
   KILN_ASSERT_TEXT(parent_->chip().perPipeCounter(egressPortQueueCountId),
                    "parent()->perPipeCounter( egressPortQueueCountId )");
   const ReadingKey key{ReadingKey::Kind::queues, 0, pipe_};
   parent_->chip().readings().periodIs(key.kind, parent_->pollingInterval());
   parent_->chip().readings().requested(key);
   syncOutstanding_ = true; // before the request, since its completion may come inline
   const pipe_status_t rc =
        pipe_mgr_stat_database_sync(parent_->chip().sessionId(), {parent_->chip().deviceId(), pipe_},
                                    tableHandle, ZelIntfQueueCountersCallback, cookie_);
   if (rc != 0) {
      // Deliberately not armed again: this pipe's polling stops, the others go on.
      syncOutstanding_ = false;
      parent_->chip().readings().refused(key, rc);
      parent_->chip().readings().stopped(key);
      KILN_TRACE(5, pipeReadErrorText(rc, pipe_));
   }
}

struct PipeIntfQueueCounterSm::Ports {
   std::array<Port, portsPerPipe> list;
   std::size_t count = 0;

   std::span<const Port> all() const { return {list.data(), count}; }
};

// Some 26 KB on the stack, left uninitialized but for the queues that the pipe's ports have, mostly a part of them.
struct PipeIntfQueueCounterSm::Readings {
   std::array<pipe_stat_data_t, portsPerPipe * queuesPerPort> sent;
   std::array<uint64_t, portsPerPipe * queuesPerPort> dropped;
};

pipe_status_t PipeIntfQueueCounterSm::readSent(const Port& port, U32 tableHandle, Readings& readings) const {
   const std::size_t first = port.pipePort * queuesPerPort;
   pipe_status_t rc = 0;
   for (unsigned queue = 0; queue < port.queues && rc == 0; ++queue) {
      rc = pipe_mgr_stat_ent_query(parent_->chip().sessionId(), parent_->chip().deviceId(), pipe_,
                                   tableHandle, ZlPort::queueEntry(port.pipePort, queue),
                                   &readings.sent[first + queue]);
   }
   return rc;
}

bf_status_t PipeIntfQueueCounterSm::readDropped(const Port& port, Readings& readings) const {
   const std::size_t first = port.pipePort * queuesPerPort;
   bf_status_t rc = BF_SUCCESS;
   for (unsigned queue = 0; queue < port.queues && rc == BF_SUCCESS; ++queue) {
      rc = bf_tm_q_drop_get(parent_->chip().deviceId(), pipe_, port.devicePort, queue,
                            &readings.dropped[first + queue]);
   }
   return rc;
}

// A front-panel interface that came back at another port has nothing in common with what is stored. An internal one
// needs nothing here: it was restarted as its port changed.
void PipeIntfQueueCounterSm::forgetOtherPort(const Port& port) const {
   const IntfQueueCounters* const stored = parent_->storedInPass(port.intf);
   if (stored != nullptr && stored->devicePort() != port.devicePort &&
       !Pelt::InternalIntfId::isInternalIntfId(port.intf)) {
      parent_->intfQueueCountersDel(port.intf);
   }
}

void PipeIntfQueueCounterSm::storePort(const Port& port, const Readings& readings, double time) const {
   forgetOtherPort(port);
   IntfQueueCounters& counters = parent_->intfQueueCountersIs(port.intf);
   Vex::QueueMeters::Values values;
   for (unsigned queue = 0; queue < port.queues; ++queue) {
      const std::size_t slot = port.pipePort * queuesPerPort + queue;
      const pipe_stat_data_t& sent = readings.sent[slot];
      values[queue] = {sent.packets, sent.bytes, readings.dropped[slot]};
      KILN_TRACE(5, "queue " << queue << " pkts " << sent.packets << " bytes " << sent.bytes);
   }
   counters.readingsAre(port.devicePort, values, port.queues, time);
   parent_->handOver(counters);
}

void PipeIntfQueueCounterSm::syncCompleted() {
   if (!syncOutstanding_) {
      if (parent_ != nullptr) {
         ChipAccess::lateCompletionInc(parent_->chip().deviceId());
      }
      KILN_TRACE(5, "ZelIntfQueueCountersCallback: completion without a request dropped");
      return;
   }
   syncOutstanding_ = false;
   guarded("reading a pipe's queues", [this] { readAll(); });
   scheduleClock();
}

void PipeIntfQueueCounterSm::readAll() {
   parent_->forgetLeft();
   const Ports ports = this->ports();
   const U32 tableHandle = this->tableHandle();
   // All reads before all stores: every port of the pipe has counts of one moment, which one time stands for.
   Readings readings;
   const double time = Kiln::System::currentTime();
   for (const Port& port : ports.all()) {
      const pipe_status_t rc = readSent(port, tableHandle, readings);
      KILN_ASSERT(rc == 0);
   }
   for (const Port& port : ports.all()) {
      const bf_status_t rc = readDropped(port, readings);
      KILN_ASSERT(rc == BF_SUCCESS);
   }
   parent_->chip().readings().completed({ReadingKey::Kind::queues, 0, pipe_});
   // Handing over may also take the chip away, and this poller with it.
   for (std::size_t i = 0; i < ports.count && parent_ != nullptr; ++i) {
      guarded("storing a port's queue counters", [&] { storePort(ports.list[i], readings, time); });
   }
}

void PipeIntfQueueCounterSm::readOnceMore() {
   Readings readings;
   const double time = Kiln::System::currentTime();
   const Ports ports = this->ports();
   for (std::size_t i = 0; i < ports.count && parent_ != nullptr; ++i) {
      const Port& port = ports.list[i];
      const Kiln::Ptr<IntfQueueCounters> stored = parent_->intfQueueCounters(port.intf);
      const bool wasRead = stored && !stored->hasLeft() && stored->devicePort() == port.devicePort &&
                           stored->readTime() != Silo::unknownSampleTime;
      if (wasRead && readSent(port, tableHandle(), readings) == 0 &&
          readDropped(port, readings) == BF_SUCCESS) {
         guarded("storing a port's queue counters", [&] { storePort(port, readings, time); });
      }
   }
}

U32 PipeIntfQueueCounterSm::tableHandle() const {
   return parent_->chip().zlResourceInfoIntf()->zlTableCounterField(
        TableNames::egressPortQueueCount, ZlResourceInfo::ZlCounterFieldId::tableHandle);
}

// Gathered before anything is handed over, since that may change the ports.
PipeIntfQueueCounterSm::Ports PipeIntfQueueCounterSm::ports() const {
   Ports ports;
   for (const auto& [intf, devicePort] : parent_->chip().ports()) {
      if (ZlPort::pipeOf(devicePort) == pipe_) {
         const auto pipePort = static_cast<U8>(ZlPort::slotOf(devicePort));
         const unsigned queues = queuesOfPort(pipePort); // also asserts that the index has a place
         ports.list[ports.count++] = {intf, devicePort, pipePort, queues};
      }
   }
   return ports;
}

void ZelIntfQueueCountersCallback(bf_dev_id_t dev, void* cookie) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   const auto whole = Kiln::ActivityLockAnchor::lock(); // nested: whatever a watcher does, nobody gets in
   if (ChipAccess::isCleanedUp()) {
      return;
   }
   KILN_TRACE(5, "ZelIntfQueueCountersCallback");
   KILN_ASSERT(cookie);
   const PipeQueueCountersCookie slot = *static_cast<PipeQueueCountersCookie*>(cookie);
   // Declared after the lock, so that it is given up before the lock is.
   const Kiln::Ptr<ChipAccess> chip = slot.counters != nullptr ? &slot.counters->chip() : nullptr;
   if (!chip || chip->deviceId() != dev) {
      ChipAccess::lateCompletionInc(dev);
      KILN_TRACE(5, "ZelIntfQueueCountersCallback: late completion of device " << dev << " dropped");
      return;
   }
   const Kiln::Ptr<PipeIntfQueueCounterSm> pipeIntfQueueCounterSm =
        slot.counters->pipeIntfQueueCounterSm(slot.pipe);
   KILN_ASSERT(pipeIntfQueueCounterSm);
   pipeIntfQueueCounterSm->syncCompleted();
}

} // namespace ZelCounter
