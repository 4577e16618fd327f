// The retry timer and the reaction to the chip's state.
#include "counters/l3/RetrySm.h"

#include "counters/l3/ForEachThenThrow.h"
#include "kiln/ActivityLock.h"
#include "kiln/Assert.h"
#include "kiln/RingLog.h"
#include "kiln/Time.h"
#include "kiln/Trace.h"

namespace ZelCounter {

namespace {

Kiln::TraceHandle traceHandle("ZelCountersL3RetrySm");

} // namespace

ZelCountersL3Helper::RetrySm::RetrySm(Kiln::Ptr<const Kiln::Clock> clock,
                                      Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus,
                                      ZelCountersL3Helper* helper)
     : helper_(helper), chipStatus_(this) {
   clockIs(std::move(clock));
   chipStatusIs(std::move(chipStatus));
}

void ZelCountersL3Helper::RetrySm::stop() {
   clockDel();
   chipStatusDel();
   helper_ = nullptr;
}

void ZelCountersL3Helper::RetrySm::clockIs(Kiln::Ptr<const Kiln::Clock> clock) {
   clock_ = clock ? std::make_unique<Kiln::Timer<RetrySm>>(std::move(clock), this, &RetrySm::retryPendingVlan)
                  : nullptr;
}

void ZelCountersL3Helper::RetrySm::chipStatusIs(Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus) {
   chipStatus_.notifierIs(std::move(chipStatus));
}

// An armed timer is not moved: a stream of removals must not put the retry off for ever.
void ZelCountersL3Helper::RetrySm::startTimer() {
   if (helper_ == nullptr || !clock_ || clock_->isArmed()) {
      return;
   }
   KILN_RINGLOG_TRACE(9, "Starting timer for " << helper_->pendingVlan().size() << " vlans");
   clock_->timeMinIs(Kiln::System::currentTime() + retryDelay());
}

void ZelCountersL3Helper::RetrySm::retryPendingVlan() {
   if (helper_ == nullptr) {
      return;
   }
   if (clock_) {
      clock_->timeMinIs(Kiln::never); // also when this was called before the expiry
   }
   helper_->retryPendingVlan(); // in which the helper may go, and this with it
}

void ZelCountersL3Helper::RetrySm::handleChipStatus() {
   if (helper_ == nullptr) {
      return;
   }
   KILN_ASSERT(chipStatus_.notifier());
   const U32 state = chipStatus_.notifier()->state();
   KILN_RINGLOG_TRACE(9, "handleChipStatus device: " << static_cast<unsigned>(helper_->deviceId())
                                                     << " state: " << state);
   if (state != ZelSlice::chipStateUp) {
      return;
   }
   // In slices, over what was deferred when the chip came up. Meanwhile the helper may stop, the chip may go down again,
   // which defers the rest anew, and VLANs may come back or be deferred: what they became then holds. When one throws,
   // its mark stays: it is tried again when the chip comes up the next time.
   const auto self = heldSelf();
   forEachThenThrow(helper_->deferredDel().keys(), [this](Bridging::VlanId vlan) {
      if (helper_ != nullptr && helper_->deferredDel(vlan)) {
         helper_->disableSviStats(vlan);
         Kiln::ActivityLockAnchor::giveWay("handleChipStatus");
      }
   });
   startTimer(); // even if nothing was deferred: VLANs may be pending since before the chip went down
}

} // namespace ZelCounter
