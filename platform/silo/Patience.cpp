// Spins first, then naps, until the writer is dead or the time is over.
#include "silo/Patience.h"

#include <thread>

namespace Silo {

bool Patience::wait() {
   if (isExhausted_) {
      return false;
   }
   if (waits_++ < spins) {
      return true;
   }
   // The spins nearly always suffice, so only a longer wait pays for the clock and for the query of the lock.
   if (deadline_ == Clock::time_point{}) {
      deadline_ = Clock::now() + limit;
   }
   if (!mapping_.isLockedByAnother()) {
      // Look once more: the writer may have finished and gone since the last look.
      isWriterDead_ = true;
      isExhausted_ = true;
      return true;
   }
   isExhausted_ = Clock::now() >= deadline_;
   if (!isExhausted_) {
      // A sleep, not a yield: a yield would keep a writer of lower priority on this processor from finishing.
      std::this_thread::sleep_for(nap);
   }
   return !isExhausted_;
}

} // namespace Silo
