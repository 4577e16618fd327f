// Keeps outstanding requests, sorted by how they will be answered.
#include "softchip/Completions.h"

#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "kiln/RingLog.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <system_error>

namespace SoftChip {

Completions::Completions(Deliver deliver)
     : deliver_(std::move(deliver)), clock_(Kiln::activityManagerClock(), this, &Completions::handleClock) {}

void Completions::check(const CompletionMode& mode) {
   if (mode.kind == CompletionMode::Kind::late && (!std::isfinite(mode.seconds) || mode.seconds < 0)) {
      throw std::invalid_argument("a late completion needs a number of seconds from 0 upward");
   }
}

// Started with the first mode that needs it, so that a scenario stays on one thread, and not with the first request: a
// thread that can't be started has to be known before anybody polls.
void Completions::startThread() {
   if (thread_.joinable()) {
      return;
   }
   try {
      thread_ = std::thread([this] { runThread(); });
   } catch (const std::system_error& error) {
      throw std::runtime_error(std::string("cannot start the thread that delivers completions: ") +
                               error.code().message() +
                               "; allow this user one more thread (ulimit -u, or the service's TasksMax)");
   }
}

void Completions::modeIs(const CompletionMode& mode) {
   check(mode);
   const std::lock_guard lock(mutex_);
   if (mode.kind == CompletionMode::Kind::thread) {
      startThread();
   }
   mode_ = mode;
}

CompletionMode Completions::mode() const {
   const std::lock_guard lock(mutex_);
   return mode_;
}

void Completions::nextModeIs(const CompletionMode& mode, U32 times) {
   check(mode);
   const std::lock_guard lock(mutex_);
   if (mode.kind == CompletionMode::Kind::thread) {
      startThread();
   }
   if (times > 0) {
      nextModes_.emplace_back(mode, times);
   }
}

CompletionMode Completions::takeMode() {
   if (nextModes_.empty()) {
      return mode_;
   }
   const CompletionMode mode = nextModes_.front().first;
   if (--nextModes_.front().second == 0) {
      nextModes_.erase(nextModes_.begin());
   }
   return mode;
}

// Equal times complete in the order of their requests, so that a run can be repeated. The heap has its greatest element
// in front, so "later" is its "less".
bool Completions::isLater(const Timed& a, const Timed& b) {
   return a.due != b.due ? a.due > b.due : a.sequence > b.sequence;
}

void Completions::accept(const Completion& completion) {
   using Kind = CompletionMode::Kind;
   std::unique_lock lock(mutex_);
   const CompletionMode mode = takeMode();
   if (mode.kind == Kind::inlined) {
      lock.unlock(); // the callback may ask again
      for (U32 copy = 0; copy < mode.copies; ++copy) {
         deliver_(completion);
      }
      return;
   }
   for (U32 copy = 0; copy < mode.copies; ++copy) {
      switch (mode.kind) {
      case Kind::thread:
         pushThread(completion);
         break;
      case Kind::held:
         held_.push_back(completion);
         break;
      case Kind::lost:
         ++lostCount_;
         break;
      default:
         pushTimed(completion, mode.kind == Kind::late ? mode.seconds : 0.0);
         break;
      }
   }
}

// Arms under the lock, so that clock and heap agree: otherwise two threads could arm in the wrong order.
void Completions::pushTimed(const Completion& completion, double delay) {
   timed_.push_back({Kiln::System::currentTime() + delay, sequence_++, completion});
   std::push_heap(timed_.begin(), timed_.end(), isLater);
   if (timed_.front().due < clock_.timeMin()) {
      clock_.timeMinIs(timed_.front().due);
   }
}

void Completions::pushThread(const Completion& completion) {
   forThread_.push_back(completion);
   threadWakes_.notify_one();
}

// Nobody is left to throw to: an exception would end the delivery thread, and the process with it, or keep what else is
// due from being delivered.
void Completions::deliverGuarded(const Completion& completion) {
   try {
      deliver_(completion);
   } catch (const std::exception& error) {
      KILN_RINGLOG("SDK completion callback failed: " << error.what());
   } catch (...) {
      KILN_RINGLOG("SDK completion callback failed");
   }
}

// The limit leaves what a callback asks for now to the next turn, as after any other handler.
void Completions::handleClock() {
   std::unique_lock lock(mutex_);
   const double now = Kiln::System::currentTime();
   const U64 limit = sequence_;
   while (!timed_.empty() && timed_.front().due <= now && timed_.front().sequence < limit) {
      std::pop_heap(timed_.begin(), timed_.end(), isLater);
      // A copy, and unlocked below: the callback takes the activity lock, whose holder may be waiting in accept(), and
      // may make requests itself.
      const Completion completion = timed_.back().completion;
      timed_.pop_back();
      lock.unlock();
      deliverGuarded(completion);
      lock.lock();
   }
   clock_.timeMinIs(timed_.empty() ? Kiln::never : timed_.front().due);
}

void Completions::runThread() {
   std::vector<Completion> batch;
   std::unique_lock lock(mutex_);
   while (true) {
      threadWakes_.wait(lock, [this] { return stopping_ || !forThread_.empty(); });
      // Told to stop, it still answers what was accepted.
      if (forThread_.empty()) {
         return;
      }
      // One swap for a whole burst: the lock is shared with every thread that makes requests.
      batch.swap(forThread_);
      threadBusy_ = batch.size();
      for (const Completion& completion : batch) {
         lock.unlock();
         deliverGuarded(completion);
         lock.lock();
         --threadBusy_;
      }
      batch.clear();
   }
}

std::size_t Completions::outstanding() const {
   const std::lock_guard lock(mutex_);
   return timed_.size() + held_.size() + forThread_.size() + threadBusy_;
}

U64 Completions::lostCount() const {
   const std::lock_guard lock(mutex_);
   return lostCount_;
}

std::vector<Completion> Completions::held() const {
   const std::lock_guard lock(mutex_);
   return held_;
}

void Completions::deliverHeld(std::size_t position) {
   std::unique_lock lock(mutex_);
   const Completion completion = held_.at(position);
   held_.erase(held_.begin() + static_cast<std::ptrdiff_t>(position));
   lock.unlock();
   deliverGuarded(completion);
}

std::size_t Completions::deliverAllHeld() {
   std::unique_lock lock(mutex_);
   // What the callbacks ask for stays for the next call: otherwise one that always asks again would never end.
   const std::vector<Completion> taken = std::exchange(held_, {});
   lock.unlock();
   for (const Completion& completion : taken) {
      deliverGuarded(completion);
   }
   return taken.size();
}

// The order: later requests are lost, the delivery thread finishes what it has, then what was to come later is
// delivered early. Each callback may still make requests.
void Completions::shutDown() {
   std::unique_lock lock(mutex_);
   // Otherwise callbacks that ask again would put off the end for ever.
   mode_ = CompletionMode{CompletionMode::Kind::lost, 0.0, 1};
   nextModes_.clear();
   std::sort(timed_.begin(), timed_.end(), [](const Timed& a, const Timed& b) { return isLater(b, a); });
   const std::vector<Timed> timed = std::exchange(timed_, {});
   clock_.timeMinIs(Kiln::never);
   stopping_ = true;
   threadWakes_.notify_all();
   lock.unlock();
   if (thread_.joinable()) {
      // The thread's callbacks take that lock: whoever joins under it waits for ever.
      KILN_ASSERT(!Kiln::ActivityLockAnchor::isHeldByThisThread());
      thread_.join();
   }
   for (const Timed& entry : timed) {
      deliverGuarded(entry.completion);
   }
   deliverAllHeld();
}

} // namespace SoftChip
