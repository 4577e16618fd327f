// The process's one activity lock.
#include "kiln/ActivityLock.h"

#include "kiln/Time.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace Kiln {

namespace {

// Who waits, on its own stack.
struct Waiter {
   std::condition_variable hasCome;
   bool hasLock = false;
   Waiter* next = nullptr;
};

// The lock is handed over to who has waited longest. A mutex alone would mostly go to who comes by just then: back to who
// gave way, before the waiter it was left to is awake.
struct Queue {
   std::mutex mutex; // of what follows, for moments
   bool isTaken = false;
   Waiter* first = nullptr;
   Waiter* last = nullptr;
};

// Never freed: SDK threads may call back while statics are destroyed.
Queue& queue() {
   static auto* one = new Queue;
   return *one;
}

void wait(std::unique_lock<std::mutex>& guard) {
   Queue& all = queue();
   Waiter waiter;
   (all.first == nullptr ? all.first : all.last->next) = &waiter;
   all.last = &waiter;
   waiter.hasCome.wait(guard, [&] { return waiter.hasLock; });
}

// With the queue's mutex, lest the waiter ends before it is notified.
void handOver() {
   Queue& all = queue();
   const std::lock_guard guard(all.mutex);
   all.isTaken = all.first != nullptr;
   if (Waiter* const waiter = all.first) {
      all.first = waiter->next;
      waiter->hasLock = true;
      waiter->hasCome.notify_one();
   }
}

// How often this thread holds the lock. Kept apart from the queue, so that a nested hold costs no atomic operation and
// isHeldByThisThread can be asked at all.
thread_local constinit unsigned depthOfThisThread = 0;

thread_local constinit ActivityLockAnchor::Meanwhile* newestMeanwhile = nullptr;

std::atomic<double> sliceLength = ActivityLockAnchor::defaultSlice; // seconds

// Of the present hold, and the end of the one before. Under the lock.
const char* currentHolder = "";
double holdBegin = 0;
double lastEnd = 0;
U64 takenCount = 0;
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
   std::unique_lock guard(queue().mutex);
   const bool isFree = !std::exchange(queue().isTaken, true);
   const double now = System::monotonicTime();
   if (!isFree) {
      wait(guard);
   }
   guard.unlock();
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
      handOver();
   }
}

// In simulated time a run must not depend on how fast the machine is.
bool ActivityLockAnchor::isSliceOver() noexcept {
   if (heldDepth() != 1) {
      return false;
   }
   const double slice = sliceLength.load(std::memory_order_relaxed);
   return slice == 0 ||
          (!System::timeSource()->isSimulated() && System::monotonicTime() - holdBegin >= slice);
}

bool ActivityLockAnchor::giveWay(const char* who) {
   if (!isSliceOver()) {
      return false;
   }
   const bool hasMore = newestMeanwhile != nullptr;
   bool wasAway = beginAnew(hasMore ? "the loop" : who);
   if (hasMore) {
      wasAway = doMeanwhile() || wasAway;
      wasAway = beginAnew(who) || wasAway;
   }
   return wasAway;
}

bool ActivityLockAnchor::beginAnew(const char* who) {
   const U64 ownHold = takenCount;
   release();
   acquire(who);
   return takenCount != ownHold + 1;
}

ActivityLockAnchor::Meanwhile::Meanwhile(std::function<bool()> work)
     : work_(std::move(work)), older_(std::exchange(newestMeanwhile, this)) {}

ActivityLockAnchor::Meanwhile::~Meanwhile() {
   newestMeanwhile = older_;
}

bool ActivityLockAnchor::doMeanwhile() {
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
   sliceLength.store(seconds, std::memory_order_relaxed);
}

} // namespace Kiln
