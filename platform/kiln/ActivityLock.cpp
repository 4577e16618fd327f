// The process's one activity lock.
#include "kiln/ActivityLock.h"

#include "kiln/Time.h"

#include <algorithm>
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

// Of the present hold, and the end of the one before. Under the lock.
const char* currentHolder = "";
double holdBegin = 0;
double lastEnd = 0;
ActivityLockAnchor::Statistics figures;

} // namespace

unsigned ActivityLockAnchor::heldDepth() noexcept {
   return depthOfThisThread;
}

const char* ActivityLockAnchor::holder() noexcept {
   return currentHolder;
}

const ActivityLockAnchor::Statistics& ActivityLockAnchor::statistics() noexcept {
   return figures;
}

// The clock is read once here and once in release(): a wait ends when the hold before it did.
void ActivityLockAnchor::acquire(const char* who) {
   if (depthOfThisThread++ != 0) {
      return;
   }
   const bool isFree = activityMutex().try_lock();
   const double now = System::monotonicTime();
   if (!isFree) {
      activityMutex().lock();
   }
   holdBegin = isFree ? now : std::max(now, lastEnd);
   currentHolder = who;
   if (holdBegin - now > figures.longestWait) {
      figures.longestWait = holdBegin - now;
      figures.longestWaiter = who;
   }
}

void ActivityLockAnchor::release() noexcept {
   KILN_ASSERT(depthOfThisThread != 0);
   if (--depthOfThisThread == 0) {
      lastEnd = System::monotonicTime();
      if (lastEnd - holdBegin > figures.longestHold) {
         figures.longestHold = lastEnd - holdBegin;
         figures.longestHolder = currentHolder;
      }
      activityMutex().unlock();
   }
}

} // namespace Kiln
