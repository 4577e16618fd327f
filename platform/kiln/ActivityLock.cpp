// The process's one activity lock.
#include "kiln/ActivityLock.h"

#include <mutex>

namespace Kiln {

namespace {

std::mutex& activityMutex() {
   static auto* mutex = new std::mutex; // never freed: SDK threads may call back while statics are destroyed
   return *mutex;
}

// How often this thread holds the lock. Kept apart from the mutex, so that a nested hold costs no atomic operation and
// isHeldByThisThread can be asked at all.
thread_local constinit unsigned depthOfThisThread = 0;

} // namespace

unsigned ActivityLockAnchor::heldDepth() noexcept {
   return depthOfThisThread;
}

void ActivityLockAnchor::acquire() {
   if (depthOfThisThread == 0) {
      activityMutex().lock();
   }
   ++depthOfThisThread;
}

void ActivityLockAnchor::release() noexcept {
   KILN_ASSERT(depthOfThisThread != 0);
   if (--depthOfThisThread == 0) {
      activityMutex().unlock();
   }
}

} // namespace Kiln
