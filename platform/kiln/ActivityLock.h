// The activity lock: whoever touches the state of the agent holds it. The activity thread's loop holds it
// while it runs anything and gives it up only to sleep; a callback from another thread takes it for its whole
// body:
//
//    const auto lock = Kiln::ActivityLockAnchor::lock();
//
// It is recursive, so that a callback made inline, under the lock, goes through.
#pragma once

#include "kiln/Assert.h"

namespace Kiln {

class ActivityLockAnchor {
 public:
   class [[nodiscard]] Guard {
    public:
      Guard(const Guard&) = delete;
      Guard& operator=(const Guard&) = delete;
      ~Guard() { release(); }

    private:
      friend class ActivityLockAnchor;
      Guard() { acquire(); }
   };

   // Blocks until the calling thread has the lock; the guard gives it up when it ends.
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
