// Tries again what a chip could not do: add VLANs when its tables were full, and remove VLANs while it was not up.
#pragma once

#include "counters/l3/ZelCountersL3Helper.h"
#include "kiln/Timer.h"

#include <memory>

namespace ZelCounter {

// Owned by the helper, which stops it before its own end. There is no polling: a pending VLAN is tried again one retryDelay after
// entries were given back or the chip came up. A retry that fails does not arm the timer again.
class ZelCountersL3Helper::RetrySm : public Kiln::Entity {
 public:
   // The constructor's arguments. The name is a fixed one.
   // NOLINTNEXTLINE(readability-identifier-naming)
   static Kiln::Ptr<RetrySm> RetrySmIs(Kiln::Ptr<const Kiln::Clock> clock,
                                       Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus,
                                       ZelCountersL3Helper* helper) {
      return Kiln::allocate<RetrySm>(std::move(clock), std::move(chipStatus), helper);
   }
   // The chip status may be null: then there is nothing to watch.
   RetrySm(Kiln::Ptr<const Kiln::Clock> clock, Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus,
           ZelCountersL3Helper* helper);

   // Nothing is tried again from here on, whoever still holds this.
   void stop();

   // A new clock's timer is not armed. Without a clock it can't be.
   void clockIs(Kiln::Ptr<const Kiln::Clock> clock);
   void clockDel() { clockIs(nullptr); }
   void chipStatusIs(Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus);
   void chipStatusDel() { chipStatusIs(nullptr); }

   // Arms the one-shot timer, unless it is armed.
   void startTimer();
   // When it expires; Kiln::never when not armed.
   double timeMin() const { return clock_ ? clock_->timeMin() : Kiln::never; }
   // The timer expired.
   void retryPendingVlan();
   // The chip's state changed: when it is up, carries out the deferred removals, in slices: may give way. Asserts that
   // there is a chip status.
   void handleChipStatus();

   // Seconds from arming to expiry; taken up when the timer is armed next. Throws std::range_error unless positive and
   // finite.
   KILN_SECONDS(retryDelay, 1.0)

 private:
   struct KilnChipStatus : ZelSlice::ChipStatus::Notifiee {
      explicit KilnChipStatus(RetrySm* owner) : Notifiee(owner), sm(owner) {}
      void onState() override { sm->handleChipStatus(); }
      RetrySm* sm;
   };

   ZelCountersL3Helper* helper_; // owns this; null once stopped
   KilnChipStatus chipStatus_;
   std::unique_ptr<Kiln::Timer<RetrySm>> clock_;
};

} // namespace ZelCounter
