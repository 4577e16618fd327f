// The polling clock of all chips.
#include "counters/ZelCountersMgrSm.h"

#include "counters/ZelCountersMgr.h"
#include "kiln/Time.h"

#include <algorithm>

namespace ZelCounter {

ZelCountersMgrSm::ZelCountersMgrSm(ZelCountersMgr* mgr, Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                                   Kiln::Ptr<const Kiln::Clock> clock)
     : mgr_(mgr), systemStatus_(this), intfCounterPollingClock_(std::move(clock), this) {
   systemStatus_.notifierIs(std::move(systemStatus));
   handleInitialized();
}

void ZelCountersMgrSm::handleInitialized() {
   armPollingClock();
   handlePortInfo();
   initializedIs(true);
}

void ZelCountersMgrSm::armPollingClock() {
   const double interval = mgr_->sdkPollingInterval();
   intfCounterPollingClock_.timeMinIs(Kiln::System::currentTime() + interval);
   if (interval != publishedInterval_) {
      publishInterval(interval);
   }
   publishQueueInterval();
}

// Readers judge by it how old a record may be.
void ZelCountersMgrSm::publishInterval(double seconds) {
   publishedInterval_ = seconds;
   const Kiln::Ptr<CountersMounts>& mounts = mgr_->mounts();
   if (mounts->allIntfCounters()) {
      mounts->allIntfCounters()->table().pollingIntervalIs(seconds);
   }
   if (mounts->allVlanIntfCounters()) {
      mounts->allVlanIntfCounters()->table().pollingIntervalIs(seconds);
   }
   if (mounts->subIntfCountersDir()) {
      mounts->subIntfCountersDir()->table().pollingIntervalIs(
           std::min(seconds, ZelCountersMgr::subIntfPollInterval));
   }
}

// All chips share the table, so the slowest one's.
void ZelCountersMgrSm::publishQueueInterval() {
   double slowest = 0;
   for (const auto& [devId, chip] : mgr_->zelCounters()) {
      slowest = std::max(slowest, chip->intfQueueCountersSdkPollingInterval());
   }
   if (slowest > 0 && slowest != publishedQueueInterval_ && mgr_->mounts()->allIntfQueueCounters()) {
      publishedQueueInterval_ = slowest;
      mgr_->mounts()->allIntfQueueCounters()->table().pollingIntervalIs(slowest);
   }
}

void ZelCountersMgrSm::intfCounterPollingClockExpired() {
   // Re-armed after the pass, so that the interval runs from its end; also when the pass throws.
   try {
      mgr_->requestHwCountersPolling();
   } catch (...) {
      armPollingClock();
      throw;
   }
   armPollingClock();
}

void ZelCountersMgrSm::handlePortInfo() {
   if (systemStatus_.notifier()) {
      for (const Pelt::IntfId& intf : systemStatus_.notifier()->portInfo().keys()) {
         handlePortInfo(intf);
      }
   }
}

void ZelCountersMgrSm::handlePortInfo(const Pelt::IntfId& intf) {
   if (Pelt::InternalIntfId::isInternalIntfId(intf) && mgr_->zelCountersHelper()) {
      mgr_->zelCountersHelper()->doClearIntfQueueCounters(intf, true);
   }
}

} // namespace ZelCounter
