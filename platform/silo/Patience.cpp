// How long a reader waits for a record that is being written.
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
   if (deadline_ == Clock::time_point{}) {
      deadline_ = Clock::now() + limit;
   }
   if (!mapping_.isLockedByAnother()) {
      // One more look: the writer may have finished and gone since the last one.
      isWriterDead_ = true;
      isExhausted_ = true;
      return true;
   }
   isExhausted_ = Clock::now() >= deadline_;
   if (!isExhausted_) {
      // Not a yield, which would keep a writer of lower priority on the same processor from finishing.
      std::this_thread::sleep_for(nap);
   }
   return !isExhausted_;
}

} // namespace Silo
