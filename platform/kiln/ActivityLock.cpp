// The process's one activity lock.
#include "kiln/ActivityLock.h"

#include "kiln/Time.h"

#include <algorithm>
#include <mutex>

namespace Kiln {

namespace {

// Never freed: SDK threads may call back while statics are destroyed. Who wants the lock takes `next` first and keeps it
// until `held` is free. So the holder, when it gives way, queues behind who waits already: one mutex alone would mostly
// go back to who had it.
struct Mutexes {
   std::mutex next;
   std::mutex held;
};

Mutexes& mutexes() {
   static auto* both = new Mutexes;
   return *both;
}

// How often this thread holds the lock. Kept apart from the mutexes, so that a nested hold costs no atomic operation and
// isHeldByThisThread can be asked at all.
thread_local constinit unsigned depthOfThisThread = 0;

thread_local constinit ActivityLockAnchor::Meanwhile* newestMeanwhile = nullptr;

// Of the present hold, and the end of the one before. Under the lock.
const char* currentHolder = "";
double holdBegin = 0;
double lastEnd = 0;
U64 takenCount = 0;
double slice = ActivityLockAnchor::defaultSlice;
ActivityLockAnchor::Statistics figures;

void note(double hold) {
   if (hold > figures.longestHold) {
      figures.longestHold = hold;
      figures.longestHolder = currentHolder;
   }
   figures.held += hold;
   const auto* const bound = std::ranges::lower_bound(ActivityLockAnchor::holdBounds, hold);
   ++figures.holds[static_cast<std::size_t>(bound - ActivityLockAnchor::holdBounds.begin())];
}

} // namespace

unsigned ActivityLockAnchor::heldDepth() noexcept {
   return depthOfThisThread;
}

const ActivityLockAnchor::Statistics& ActivityLockAnchor::statistics() noexcept {
   return figures;
}

void ActivityLockAnchor::statisticsDel() noexcept {
   figures = {};
   holdBegin = System::monotonicTime();
}

// The clock is read once here and once in release(): a wait ends when the hold before it did.
void ActivityLockAnchor::acquire(const char* who) {
   if (depthOfThisThread++ != 0) {
      return;
   }
   Mutexes& both = mutexes();
   double now = 0;
   bool isFree = both.next.try_lock();
   if (!isFree) {
      now = System::monotonicTime();
      both.next.lock();
   }
   const bool isFreeToo = both.held.try_lock();
   if (isFree) {
      now = System::monotonicTime();
   }
   if (!isFreeToo) {
      both.held.lock();
      isFree = false;
   }
   both.next.unlock();
   ++takenCount;
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
      note(lastEnd - holdBegin);
      mutexes().held.unlock();
   }
}

// In simulated time a run must not depend on how fast the machine is.
bool ActivityLockAnchor::isSliceOver() noexcept {
   return heldDepth() == 1 && (slice == 0 || (!System::timeSource()->isSimulated() &&
                                              System::monotonicTime() - holdBegin >= slice));
}

bool ActivityLockAnchor::giveWay(const char* who) {
   if (!isSliceOver()) {
      return false;
   }
   const U64 ownHold = takenCount;
   release();
   acquire(who);
   const bool wasAway = takenCount != ownHold + 1;
   return doMeanwhile() || wasAway;
}

ActivityLockAnchor::Meanwhile::Meanwhile(std::function<bool()> work)
     : work_(std::move(work)), older_(std::exchange(newestMeanwhile, this)) {}

ActivityLockAnchor::Meanwhile::~Meanwhile() {
   newestMeanwhile = older_;
}

bool ActivityLockAnchor::doMeanwhile() {
   if (newestMeanwhile == nullptr) {
      return false;
   }
   struct Pause {
      Meanwhile* of = std::exchange(newestMeanwhile, nullptr);
      Pause() = default;
      Pause(const Pause&) = delete;
      Pause& operator=(const Pause&) = delete;
      ~Pause() { newestMeanwhile = of; }
   } const pause;
   return pause.of->work_();
}

void ActivityLockAnchor::sliceIs(double seconds) noexcept {
   slice = seconds;
}

} // namespace Kiln
