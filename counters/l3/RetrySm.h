// Tries again what a chip could not take: VLANs that found its tables full, and removals that came while it
// was not up.
#pragma once

#include "counters/l3/ZelCountersL3Helper.h"
#include "kiln/Timer.h"

#include <memory>

namespace ZelCounter {

// Owned by the helper, which outlives it. There is no polling: a pending VLAN is tried again one retryDelay
// after entries were given back, or the chip came up, and nothing arms the timer again after that.
class ZelCountersL3Helper::RetrySm : public Kiln::Entity {
 public:
   // The chip status may be null: then there is nothing to watch.
   RetrySm(Kiln::Ptr<const Kiln::Clock> clock, Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus,
           ZelCountersL3Helper* helper);

   // Another clock means a timer that is not armed; without one it can't be.
   void clockIs(Kiln::Ptr<const Kiln::Clock> clock);
   void clockDel() { clockIs(nullptr); }
   void chipStatusIs(Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus);
   void chipStatusDel() { chipStatusIs(nullptr); }

   // Arms the one-shot timer; one that is armed is left alone.
   void startTimer();
   // When it expires; Kiln::never when not armed.
   double timeMin() const { return clock_ ? clock_->timeMin() : Kiln::never; }
   // The timer expired.
   void retryPendingVlan();
   // The chip's state changed: when it is up, the deferred removals are carried out. The chip status must be
   // there (assertion).
   void handleChipStatus();

   // Seconds from arming to expiry; taken up when the timer is armed next. Not positive or not finite is a
   // std::range_error.
   double retryDelay() const { return retryDelay_; }
   void retryDelayIs(double seconds);

 private:
   struct KilnChipStatus : ZelSlice::ChipStatus::Notifiee {
      explicit KilnChipStatus(RetrySm* owner) : Notifiee(owner), sm(owner) {}
      void onState() override { sm->handleChipStatus(); }
      RetrySm* sm;
   };

   ZelCountersL3Helper* helper_;
   double retryDelay_ = 1.0;
   KilnChipStatus chipStatus_;
   std::unique_ptr<Kiln::Timer<RetrySm>> clock_;
};

} // namespace ZelCounter
