// A thread that gets the activity lock at the next opportunity.
#pragma once

#include "kiln/ActivityLock.h"

#include <atomic>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <unistd.h>

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
      while (!isAsleep()) {
         std::this_thread::yield();
      }
   }
   LockWaiter(const LockWaiter&) = delete;
   LockWaiter& operator=(const LockWaiter&) = delete;
   ~LockWaiter() { thread_.join(); }

 private:
   // Once it has told its id, nothing but the lock can put it to sleep.
   bool isAsleep() const {
      if (id_ == 0) {
         return false;
      }
      std::ifstream file("/proc/self/task/" + std::to_string(id_) + "/stat");
      std::string text;
      std::getline(file, text);
      return text.substr(text.rfind(')') + 2, 1) == "S";
   }

   std::atomic<pid_t> id_ = 0;
   std::thread thread_;
};

} // namespace ZelTest
