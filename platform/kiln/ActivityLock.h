// The activity lock: whoever touches the state of the agent holds it. The activity thread's loop holds it
// while it runs anything and gives it up only to sleep; a callback from another thread takes it for its whole
// body:
//
//    const auto lock = Kiln::ActivityLockAnchor::lock();
//
// It is recursive, so that a callback made inline, under the lock, goes through.
#pragma once

#include "kiln/Assert.h"

#include <utility>

namespace Kiln {

class ActivityLockAnchor {
 public:
   // One hold of the thread that took it, which also has to end it.
   class [[nodiscard]] Guard {
    public:
      Guard(Guard&& other) noexcept : holds_(std::exchange(other.holds_, false)) {}
      Guard(const Guard&) = delete;
      Guard& operator=(const Guard&) = delete;
      ~Guard() { giveUp(); }

      // Ends the hold early; does nothing when that has been done, or when the hold has moved on. Asserts that the
      // thread is the one that took it.
      void giveUp() noexcept {
         if (std::exchange(holds_, false)) {
            release();
         }
      }

    private:
      friend class ActivityLockAnchor;
      explicit Guard(const char* who) { acquire(who); }
      bool holds_ = true;
   };

   // Blocks until the calling thread has the lock; the guard gives it up when it ends, or before. `who` names the hold in
   // the statistics: a string that is never freed, unless given the calling function.
   static Guard lock(const char* who = __builtin_FUNCTION()) { return Guard(who); }
   static bool isHeldByThisThread() noexcept { return heldDepth() != 0; }
   // For a code path that must not run without the lock.
   static void assertHeld() { KILN_ASSERT(isHeldByThisThread()); }
   // Runs `blocking` without the lock. The calling thread must hold it exactly once: a nested holder further up the
   // stack does not expect its state to change.
   template <class Blocking>
   static void yieldWhile(Blocking blocking) {
      KILN_ASSERT(heldDepth() == 1);
      const Yield yield;
      blocking();
   }

   // Of the process so far, on the machine's clock. A hold is from taking the lock to giving it up for good, or to sleep.
   struct Statistics {
      double longestHold = 0; // seconds
      const char* longestHolder = "";
      double longestWait = 0; // seconds
      const char* longestWaiter = "";
   };
   // Under the lock.
   static const Statistics& statistics() noexcept;

 private:
   struct Yield {
      Yield() : who(holder()) { release(); }
      Yield(const Yield&) = delete;
      Yield& operator=(const Yield&) = delete;
      ~Yield() { acquire(who); }
      const char* who;
   };

   static unsigned heldDepth() noexcept;
   static const char* holder() noexcept;
   static void acquire(const char* who);
   static void release() noexcept;
};

} // namespace Kiln
