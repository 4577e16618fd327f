// The slots of the timer wheel and the tick that turns it.
#include "kiln/TimerWheel.h"

#include "kiln/Assert.h"
#include "kiln/Time.h"

#include <algorithm>
#include <cmath>

namespace Oxbow {

TimerWheel::TimerWheel(const Kiln::Ptr<const Kiln::Clock>& clock, U32 tickMs, U32 perTick, U32 firstSlot,
                       U32 slotCount)
     : tickSeconds_(tickMs / 1000.0), perTick_(perTick), current_(firstSlot), slots_(slotCount),
       tick_(clock, this) {
   KILN_ASSERT(tickMs > 0 && perTick > 0 && slotCount > 1 && firstSlot < slotCount);
}

void TimerWheel::arm(Timer& timer, double delay) {
   disarm(timer);
   const double ticks =
        std::clamp(std::ceil(delay / tickSeconds_), 1.0, static_cast<double>(slots_.size() - 1));
   std::list<Timer*>& slot = slots_[(current_ + static_cast<std::size_t>(ticks)) % slots_.size()];
   if (free_.empty()) {
      slot.push_back(&timer);
   } else {
      free_.front() = &timer;
      slot.splice(slot.end(), free_, free_.begin());
   }
   timer.place_ = std::prev(slot.end());
   timer.slot_ = &slot;
   timer.armed_ = true;
   if (armedCount_++ == 0) {
      tick_.timeMinIs(Kiln::System::currentTime() + tickSeconds_);
   }
}

void TimerWheel::disarm(Timer& timer) {
   if (timer.armed_) {
      free_.splice(free_.begin(), *timer.slot_, timer.place_);
      timer.armed_ = false;
      if (--armedCount_ == 0) {
         tick_.timeMinIs(Kiln::never);
      }
   }
}

void TimerWheel::handleTick() {
   current_ = (current_ + 1) % slots_.size();
   for (Timer* timer : slots_[current_]) {
      timer->slot_ = &due_;
   }
   due_.splice(due_.end(), slots_[current_]);
   // Armed before the handlers run: one of them may end the wheel's last timer, or throw.
   tick_.timeMinIs(Kiln::System::currentTime() + tickSeconds_);
   for (U32 served = 0; served < perTick_ && !due_.empty(); ++served) {
      Timer& timer = *due_.front();
      disarm(timer);
      timer.onTime();
   }
}

} // namespace Oxbow
