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
      Guard() { acquire(); }
      bool holds_ = true;
   };

   // Blocks until the calling thread has the lock; the guard gives it up when it ends, or before.
   static Guard lock() { return {}; }
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

 private:
   struct Yield {
      Yield() { release(); }
      Yield(const Yield&) = delete;
      Yield& operator=(const Yield&) = delete;
      ~Yield() { acquire(); }
   };

   static unsigned heldDepth() noexcept;
   static void acquire();
   static void release() noexcept;
};

} // namespace Kiln
