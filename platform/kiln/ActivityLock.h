// The activity lock: whoever touches the state of the agent holds it. The activity thread's loop holds it
// while it runs anything and gives it up to sleep, and between two pieces of work for whoever waits; a callback from
// another thread takes it for its whole body:
//
//    const auto lock = Kiln::ActivityLockAnchor::lock();
//
// It is recursive, so that a callback made inline, under the lock, goes through. Threads get it in the order in which they
// came for it.
#pragma once

#include "kiln/Assert.h"
#include "kiln/Types.h"

#include <array>
#include <functional>
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
   // Runs `blocking` without the lock; what follows is a new hold, named `who`. The calling thread must hold it exactly
   // once: a nested holder further up the stack does not expect its state to change.
   template <class Blocking>
   static void yieldWhile(Blocking blocking, const char* who = __builtin_FUNCTION()) {
      KILN_ASSERT(heldDepth() == 1);
      const Yield yield(who);
      blocking();
   }

   // For work that takes long, between two of its pieces. Once the hold has lasted a slice, lets in everybody who waits
   // and goes on as a new hold, named `who` in the statistics. Says whether somebody was in, so that what the caller
   // knew may have changed: its own objects may have been stopped or let go by their owners, and it keeps them by Ptr
   // for that long. Does nothing without the lock, or under a nested hold, whose holder further up the stack does not
   // expect its state to change.
   static bool giveWay(const char* who = __builtin_FUNCTION());
   // Whether giveWay() would end the hold now: for who has to tidy up first, as by ending a read of the chip's tables.
   static bool isSliceOver() noexcept;
   // How long a slice lasts: seconds. 0 ends one at each opportunity, for tests; otherwise none ends in simulated time,
   // where holds take no time that counts.
   static void sliceIs(double seconds) noexcept;
   static constexpr double defaultSlice = 200e-6;

   // What else the calling thread has to do while its work gives way: giveWay() then runs `work`, too, after who waited for
   // the lock; it says whether it did anything. Of several such objects, the newest counts, and none during the work
   // itself. Ends on its own thread, before those that are older.
   class [[nodiscard]] Meanwhile {
    public:
      explicit Meanwhile(std::function<bool()> work);
      Meanwhile(const Meanwhile&) = delete;
      Meanwhile& operator=(const Meanwhile&) = delete;
      ~Meanwhile();

    private:
      friend class ActivityLockAnchor;
      std::function<bool()> work_;
      Meanwhile* older_;
   };

   // Holds are counted by how long they were. A hold belongs to the first of these bounds, in seconds, that it does not
   // exceed, or to the last count, which has none.
   static constexpr std::array holdBounds{10e-6, 100e-6, 1e-3, 10e-3, 100e-3};
   // Of the process so far, on the machine's clock. A hold is from taking the lock to giving it up for good, to sleep, or
   // to give way.
   struct Statistics {
      double longestHold = 0; // seconds
      const char* longestHolder = "";
      double longestWait = 0; // seconds
      const char* longestWaiter = "";
      double held = 0; // seconds, all holds together
      std::array<U64, holdBounds.size() + 1> holds{};
   };
   // Under the lock.
   static const Statistics& statistics() noexcept;
   // Forgets what was so far, as when a program has started; the present hold begins anew, too. Under the lock.
   static void statisticsDel() noexcept;

 private:
   struct Yield {
      explicit Yield(const char* nextHolder) : who(nextHolder) { release(); }
      Yield(const Yield&) = delete;
      Yield& operator=(const Yield&) = delete;
      ~Yield() { acquire(who); }
      const char* who;
   };

   static unsigned heldDepth() noexcept;
   static bool beginAnew(const char* who);
   static bool doMeanwhile();
   static void acquire(const char* who);
   static void release() noexcept;
};

} // namespace Kiln
