// The queue of armed clock notifiees.
#include "kiln/Clock.h"

#include "kiln/Assert.h"

#include <cmath>
#include <stdexcept>

namespace Kiln {

Clock::Notifiee::Notifiee(Ptr<const Clock> clock) : clock_(std::move(clock)) {
   KILN_ASSERT(clock_);
}

Clock::Notifiee::~Notifiee() {
   const std::lock_guard lock(clock_->mutex_);
   clock_->disarm(*this);
}

double Clock::Notifiee::timeMin() const {
   const std::lock_guard lock(clock_->mutex_);
   return timeMin_;
}

void Clock::Notifiee::timeMinIs(double time) {
   if (std::isnan(time)) {
      throw std::invalid_argument("clock time is not a number");
   }
   const std::lock_guard lock(clock_->mutex_);
   // Even if the time stays the same: armed anew, this one goes behind the others of that time.
   clock_->disarm(*this);
   // Neither never nor any other infinity is queued: what is not in the queue never fires.
   if (time <= std::numeric_limits<double>::max()) {
      clock_->arm(*this, time);
   }
}

Clock::~Clock() {
   // Notifiees hold their clock, so none can be left that is armed.
   KILN_ASSERT(queue_.empty());
}

void Clock::arm(Notifiee& notifiee, double time) const {
   const bool earliest = queue_.empty() || time < queue_.begin()->time;
   notifiee.timeMin_ = time;
   notifiee.sequence_ = nextSequence_++;
   if (notifiee.spare_) {
      notifiee.spare_.value() = Expiry(time, notifiee.sequence_, &notifiee);
      queue_.insert(std::move(notifiee.spare_));
   } else {
      queue_.emplace(time, notifiee.sequence_, &notifiee);
   }
   if (earliest && wake_) {
      wake_();
   }
}

void Clock::disarm(Notifiee& notifiee) const {
   if (notifiee.timeMin_ <= std::numeric_limits<double>::max()) {
      notifiee.spare_ = queue_.extract(Expiry(notifiee.timeMin_, notifiee.sequence_, &notifiee));
      notifiee.timeMin_ = never;
   }
}

// Looks at the queue anew for each notifiee: a handler may arm, disarm and destroy any of them. The handler runs
// without the clock's lock, since it arms clocks itself.
bool Clock::fireNext(double time, U64 sequenceLimit) const {
   Notifiee* due = nullptr;
   {
      const std::lock_guard lock(mutex_);
      for (const Expiry& expiry : queue_) {
         if (expiry.time > time) {
            return false;
         }
         // Those armed beyond the limit are passed over, not stopped at: one may stand before an older one that is due.
         if (expiry.sequence < sequenceLimit) {
            due = expiry.notifiee;
            break;
         }
      }
      if (due == nullptr) {
         return false;
      }
      disarm(*due);
   }
   due->onTime();
   return true;
}

U64 Clock::nextSequence() const {
   const std::lock_guard lock(mutex_);
   return nextSequence_;
}

double Clock::earliestExpiry() const {
   const std::lock_guard lock(mutex_);
   return queue_.empty() ? never : queue_.begin()->time;
}

std::size_t Clock::armedCount() const {
   const std::lock_guard lock(mutex_);
   return queue_.size();
}

void Clock::wakeIs(std::function<void()> wake) const {
   const std::lock_guard lock(mutex_);
   wake_ = std::move(wake);
}

} // namespace Kiln
