// The slots of the timer wheel and the tick that turns it.
#include "kiln/TimerWheel.h"

#include "kiln/Assert.h"
#include "kiln/Time.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace Oxbow {

TimerWheel::TimerWheel(const Kiln::Ptr<const Kiln::Clock>& clock, U32 tickMs, U32 perTick, U32 firstSlot,
                       U32 slotCount)
     : tickMs_(tickMs), perTick_(perTick), current_(firstSlot), slots_(slotCount),
       tick_(clock, this, &TimerWheel::handleTick) {
   // Two slots at least: no timer goes into the current one, which has been passed already.
   KILN_ASSERT(tickMs > 0 && perTick > 0 && slotCount > 1 && firstSlot < slotCount);
}

// Counted from the start of the turning, so that neither delays nor rounding add up.
double TimerWheel::tickTime() const {
   return turnStart_ + static_cast<double>(turnTicks_ * tickMs_) / 1000.0;
}

void TimerWheel::arm(Timer& timer, double delay) {
   if (std::isnan(delay)) {
      throw std::invalid_argument("timer delay is not a number");
   }
   disarm(timer);
   const double ticks =
        std::clamp(std::ceil(delay * 1000.0 / tickMs_), 1.0, static_cast<double>(slots_.size() - 1));
   std::list<Timer*>& slot = slots_[(current_ + static_cast<std::size_t>(ticks)) % slots_.size()];
   // Nodes are used again: once as many timers were armed as ever are, arming allocates nothing.
   if (free_.empty()) {
      slot.push_back(&timer);
   } else {
      free_.front() = &timer;
      slot.splice(slot.end(), free_, free_.begin());
   }
   timer.place_ = std::prev(slot.end());
   timer.slot_ = &slot;
   timer.armed_ = true;
   ++armedCount_;
   if (!turning_) {
      turning_ = true;
      turnStart_ = Kiln::System::currentTime();
      turnTicks_ = 1;
      tick_.timeMinIs(tickTime());
   }
}

void TimerWheel::disarm(Timer& timer) {
   if (timer.armed_) {
      free_.splice(free_.begin(), *timer.slot_, timer.place_);
      timer.armed_ = false;
      --armedCount_;
   }
}

// Passes every slot whose time has come; after a stall of the loop that may be several.
void TimerWheel::turn() {
   const double now = Kiln::System::currentTime();
   do {
      current_ = (current_ + 1) % slots_.size();
      for (Timer* timer : slots_[current_]) {
         // A timer may be disarmed while it waits to be served, and has to know which list it is in.
         timer->slot_ = &due_;
      }
      due_.splice(due_.end(), slots_[current_]);
      ++turnTicks_;
   } while (tickTime() <= now);
}

void TimerWheel::handleTick() {
   // Stops one tick after the last timer, so that an idle agent does not wake up for it.
   if (armedCount_ == 0) {
      turning_ = false;
      return;
   }
   const Kiln::Ptr<TimerWheel> self(this); // a handler may destroy the last timer, which holds the wheel
   turn();
   // Armed before the handlers run: one of them may throw.
   tick_.timeMinIs(tickTime());
   for (U32 served = 0; served < perTick_ && !due_.empty(); ++served) {
      Timer& timer = *due_.front();
      disarm(timer);
      timer.onTime();
   }
}

} // namespace Oxbow
