// The polling clock of all chips.
#include "ZelCountersMgrSm.h"

#include "ZelCountersMgr.h"
#include "kiln/Time.h"

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
   intfCounterPollingClock_.timeMinIs(Kiln::System::currentTime() + mgr_->sdkPollingInterval());
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
