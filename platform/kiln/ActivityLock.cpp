// The process's one recursive activity lock.
#include "kiln/ActivityLock.h"

#include <mutex>

namespace Kiln {

namespace {

std::recursive_mutex& activityMutex() {
   static auto* mutex =
        new std::recursive_mutex; // SDK threads may still call back while statics are destroyed
   return *mutex;
}

thread_local unsigned depthOfThisThread = 0;

} // namespace

unsigned ActivityLockAnchor::heldDepth() noexcept {
   return depthOfThisThread;
}

void ActivityLockAnchor::acquire() {
   activityMutex().lock();
   ++depthOfThisThread;
}

void ActivityLockAnchor::release() noexcept {
   --depthOfThisThread;
   activityMutex().unlock();
}

} // namespace Kiln
