// The process's one activity lock.
#include "kiln/ActivityLock.h"

#include <mutex>

namespace Kiln {

namespace {

std::mutex& activityMutex() {
   static auto* mutex = new std::mutex; // SDK threads may still call back while statics are destroyed
   return *mutex;
}

// How often this thread holds the lock; the mutex is taken for the first hold only.
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
   if (--depthOfThisThread == 0) {
      activityMutex().unlock();
   }
}

} // namespace Kiln
