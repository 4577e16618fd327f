// Threads that get the activity lock at the next opportunity.
#pragma once

#include "kiln/ActivityLock.h"

#include <atomic>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace ZelTest {

// Made while the calling thread holds the lock. When the constructor is through, the thread waits for it, and has it before
// who gives way has it back. It is joined without the lock.
class LockWaiter {
 public:
   explicit LockWaiter(std::function<void()> work)
        : thread_([this, work = std::move(work)] {
             const pid_t id = gettid();
             id_ = id;
             const auto lock = Kiln::ActivityLockAnchor::lock("LockWaiter");
             const auto whole = Kiln::ActivityLockAnchor::lock(); // so that the work does not give way
             work();
          }) {
      // Once it has told its id, nothing but the lock can put it to sleep.
      while (id_ == 0) {
         std::this_thread::yield();
      }
      awaitSleep(id_);
   }
   LockWaiter(const LockWaiter&) = delete;
   LockWaiter& operator=(const LockWaiter&) = delete;
   ~LockWaiter() { thread_.join(); }

   // Until the thread waits for something.
   static void awaitSleep(pid_t id) {
      std::string state;
      while (state != "S") {
         std::this_thread::yield();
         std::ifstream file("/proc/self/task/" + std::to_string(id) + "/stat");
         std::string text;
         std::getline(file, text);
         state = text.substr(text.rfind(')') + 2, 1);
      }
   }

 private:
   std::atomic<pid_t> id_ = 0;
   std::thread thread_;
};

// One after the other: each waits before the one before it gives the lock back, and so has it when it is given up next. Made
// and destroyed as one LockWaiter is.
class LockWaiters {
 public:
   explicit LockWaiters(std::vector<std::function<void()>> works)
        : works_(std::move(works)), waiters_(works_.size()) {
      start(0);
   }
   LockWaiters(const LockWaiters&) = delete;
   LockWaiters& operator=(const LockWaiters&) = delete;
   ~LockWaiters() {
      for (auto& waiter : waiters_) { // each has started the next before it ends
         waiter.reset();
      }
   }

 private:
   void start(std::size_t at) {
      if (at < works_.size()) {
         waiters_[at] = std::make_unique<LockWaiter>([this, at] {
            works_[at]();
            start(at + 1);
         });
      }
   }

   std::vector<std::function<void()>> works_;
   std::vector<std::unique_ptr<LockWaiter>> waiters_;
};

// While it lives, a slice of the lock's time ends at each opportunity.
struct NoSlices {
   NoSlices() { Kiln::ActivityLockAnchor::sliceIs(0); }
   NoSlices(const NoSlices&) = delete;
   NoSlices& operator=(const NoSlices&) = delete;
   ~NoSlices() { Kiln::ActivityLockAnchor::sliceIs(Kiln::ActivityLockAnchor::defaultSlice); }
};

} // namespace ZelTest
