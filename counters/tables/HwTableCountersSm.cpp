// The hardware-sync passes over a chip's counter tables, and the count of what is outstanding.
#include "counters/tables/HwTableCountersSm.h"

#include "counters/chip/ChipAccess.h"
#include "counters/chip/CounterTableNames.h"
#include "counters/chip/Guarded.h"
#include "counters/chip/SdkStatus.h"
#include "counters/chip/ZelCountersTrace.h"
#include "kiln/ActivityLock.h"
#include "kiln/RingLog.h"
#include "kiln/Time.h"
#include "zl/ZelCountersIntf.h"
#include "zl/ZelSdk.h"

#include <ios>
#include <utility>

namespace ZelCounter {

namespace {

CookieRegistry<HwTableCountersSm>& registry() {
   return CookieRegistry<HwTableCountersSm>::instance();
}

} // namespace

HwTableCountersSm::HwTableCountersSm(Kiln::Ptr<const Kiln::Clock> clock, ChipAccess* parent)
     : parent_(parent) {
   pollingClockIs(std::move(clock));
   registry().add(this);
   try {
      handleInitialized();
   } catch (...) {
      stop();
      throw;
   }
}

HwTableCountersSm::~HwTableCountersSm() {
   stop();
}

// A notifiee is bound to its clock, so another clock takes another one.
void HwTableCountersSm::pollingClockIs(Kiln::Ptr<const Kiln::Clock> clock) {
   if (!clock) {
      Kiln::throwNullParameter("pollingClock", "ZelCounter::HwTableCountersSm");
   }
   pollingClock_.emplace(std::move(clock), this, &HwTableCountersSm::handlePollingClock);
}

void HwTableCountersSm::handleInitialized() {
   scheduleClock();
   initializedIs(true);
}

void HwTableCountersSm::stop() {
   if (parent_ != nullptr) {
      parent_ = nullptr;
      registry().retire(this);
      pollingClockDel();
   }
}

void HwTableCountersSm::scheduleClock() {
   KILN_TRACE(3, "ZelCounters::HwTableCountersSm::"
                      << "scheduleClock");
   if (pollingClock_ && !pollingClock_->isArmed()) {
      KILN_TRACE(3, "Start the HwTableCountersSm polling clock");
      pollingClock_->timeMinIs(Kiln::System::currentTime() + hwTableCountersPollingInterval());
   }
}

void HwTableCountersSm::handlePollingClock() {
   KILN_TRACE(3, "ZelCounters::HwTableCountersSm::"
                      << "handlePollingClock");
   // Whatever completes inline may take the chip away.
   const Kiln::Ptr<HwTableCountersSm> held = this;
   pollingClock_->timeMinIs(Kiln::never);
   parent_->readings().periodIs(ReadingKey::Kind::tableSync, hwTableCountersPollingInterval());
   asked_.clear();
   scheduleInProgressIs(true);
   bool anyScheduled = false;
   guarded("a sync pass", [&] {
      const U32 countersNum = parent_->zlResourceInfoIntf()->zlTableCountersNum();
      for (U32 tableId = 0; tableId < countersNum && parent_ != nullptr; ++tableId) {
         anyScheduled |= scheduleHwSyncTable(tableId);
      }
   });
   scheduleInProgressIs(false);
   if (parent_ == nullptr || pendingCallbacks() != 0) {
      return; // the last completion arms the clock
   }
   // All came inline, or none was asked for. In the second case nothing has landed yet.
   if (anyScheduled) {
      parent_->firstPollingCompleteIs(true);
   }
   passCompleted();
}

void HwTableCountersSm::passCompleted() {
   for (const ReadingKey& key : std::exchange(asked_, {})) {
      parent_->readings().completed(key);
   }
   parent_->handleSyncPass();
   scheduleClock();
}

U32 HwTableCountersSm::requestSync(U32 tableId, const ZlResourceInfo::ZlTableCounter& info, U16 pipe) {
   const auto sync =
        info.direct ? ZelCountersIntf::counterHwSyncDirect : ZelCountersIntf::counterHwSyncIndirect;
   // Counted before the request, since its completion may come inline.
   registry().requested(this);
   pendingCallbacksInc(1);
   const ReadingKey key{ReadingKey::Kind::tableSync, tableId, pipe};
   parent_->readings().requested(key);
   asked_.push_back(key);
   const U32 status =
        sync(parent_->sessionId(), parent_->deviceId(), pipe, info.tableHandle, hwTableCallback, this);
   if (status != 0) {
      registry().refused(this);
      if (parent_ != nullptr) {
         parent_->readings().refused(key, static_cast<int>(status));
         for (const U16 behind : parent_->tablePipes(tableId)) { // not asked for any more in this pass
            if (behind > pipe) {
               parent_->readings().skipped({key.kind, tableId, behind}, static_cast<int>(status));
            }
         }
      }
      std::erase(asked_, key);
      // A stray completion, inline, may have taken this request's count already.
      if (pendingCallbacks() != 0) {
         pendingCallbacksDec(1);
      }
   }
   return status;
}

// The first refusal ends the table for this pass, since its other pipes are likely to be refused as well; accepted
// requests complete as usual, and the next pass asks for all pipes again.
bool HwTableCountersSm::scheduleHwSyncTable(U32 tableId) {
   KILN_TRACE(3, "ZelCounters::HwTableCountersSm::"
                      << "scheduleHwSyncTable"
                      << ", tableId: " << tableId);
   if (!parent_->initializedCounter(tableId)) {
      KILN_TRACE(3, "Skip counter, not initialized yet");
      return false;
   }
   const ZlResourceInfo::ZlResourceInfoIntf& catalogue = *parent_->zlResourceInfoIntf();
   const ZlResourceInfo::ZlTableCounter* const info = catalogue.zlTableCounter(tableId);
   KILN_ASSERT(info);
   if (catalogue.zlTableCounterField(TableNames::egressPortQueueCount,
                                     ZlResourceInfo::ZlCounterFieldId::tableHandle) == info->tableHandle) {
      KILN_TRACE(3, "Skip table egressPortQueue"); // left to the queue pollers
      return false;
   }
   KILN_TRACE(3, "Counter: " << info->name << ", handle: " << std::hex << info->tableHandle << std::dec
                             << ", size: " << info->size << ", direct: " << info->direct
                             << ", pkts/bytes: " << info->packets << "/" << info->bytes);
   for (const U16 pipe : parent_->tablePipes(tableId)) {
      KILN_TRACE(3, "Pipe: " << pipe);
      const U32 status = requestSync(tableId, *info, pipe);
      if (parent_ == nullptr) {
         return false;
      }
      // To the trace only: such a table says so on every pass, and would fill the ring log.
      if (status == sdkNotSupported) {
         KILN_TRACE(3, "Counter hw sync error: counters not supported for"
                            << " counter table " << info->name << " pipe: " << pipe);
         return false;
      }
      if (status != 0) {
         KILN_RINGLOG_TRACE(3, "Counter hw sync error: " << static_cast<int>(status) << " for counter table "
                                                         << info->name << " pipe: " << pipe);
         return false;
      }
      if (!parent_->firstPollingComplete()) {
         KILN_RINGLOG("First callback registered for counter table "
                      << info->name << " pipe: " << pipe << " pendingCallbacks: " << pendingCallbacks());
      }
      KILN_TRACE(3, "Pending callbacks: " << pendingCallbacks());
   }
   return true;
}

void HwTableCountersSm::syncCompleted() {
   if (pendingCallbacks() == 0) {
      ChipAccess::lateCompletionInc(parent_->deviceId());
      KILN_TRACE(3, "hwTableCallback: completion without a request dropped");
      return;
   }
   if (!parent_->firstPollingComplete() || !scheduleInProgress()) {
      // A fixed text, which is misleading: it comes of every completion of the first pass, and of every one that does
      // not come inline. Nothing is broken.
      KILN_RINGLOG_TRACE(3, "hwTableCallback invoked inline. counters may be broken: " << pendingCallbacks());
   }
   pendingCallbacksDec(1);
   parent_->tableSyncsInc(1);
   if (!parent_->firstPollingComplete()) {
      KILN_RINGLOG("hwTableSm counter callback received, pendingCallbacks: " << pendingCallbacks());
   }
   KILN_TRACE(3, "hwTableCallback:Pending callbacks: " << pendingCallbacks());
   // While a pass still makes its requests, an inline completion may bring the count to 0 again and again.
   if (pendingCallbacks() == 0 && !scheduleInProgress()) {
      parent_->firstPollingCompleteIs(true);
      passCompleted();
   }
}

void hwTableCallback(bf_dev_id_t dev, void* hwTableSm) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   const auto whole = Kiln::ActivityLockAnchor::lock(); // nested: whatever a watcher does, nobody gets in
   KILN_TRACE(3, "ZelCounters::HwTableCountersSm::"
                      << "hwTableCallback");
   // The clean-up of a simulation has begun: nothing may be touched any more.
   if (ChipAccess::isCleanedUp()) {
      return;
   }
   KILN_ASSERT(hwTableSm);
   // Declared after the lock, so that it is given up before the lock is.
   const Kiln::Ptr<HwTableCountersSm> sm = registry().completed(static_cast<HwTableCountersSm*>(hwTableSm));
   if (!sm || sm->parent()->deviceId() != dev) {
      ChipAccess::lateCompletionInc(dev);
      KILN_TRACE(3, "hwTableCallback: late completion of device " << dev << " dropped");
      return;
   }
   sm->syncCompleted();
}

} // namespace ZelCounter
