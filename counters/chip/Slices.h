// A show or a clear of a chip, in slices of the activity lock's time.
#pragma once

#include "counters/chip/ChipAccess.h"
#include "kiln/ActivityLock.h"

namespace ZelCounter {

// Made for one operation. Between two of its pieces, whoever waits for the lock gets in: completions, other commands, and
// threads that may take the chip away, add and delete ports and table entries, clear, and show. So after each next()
// nothing holds but copies and the chip object, which this keeps. Iterators and references into maps don't, nor does a
// started read of the SDK, which is to be ended before, nor what a view fetched, which another show may fetch anew.
//
// Does its work in one piece if the caller holds the lock more than once.
class Slices {
 public:
   // `who` names the holds in the lock's statistics.
   explicit Slices(ChipAccess& chip, const char* who = __builtin_FUNCTION()) : chip_(&chip), who_(who) {}

   // Whether next() would let others in now: time to end a read of the SDK.
   static bool isOver() { return Kiln::ActivityLockAnchor::isSliceOver(); }
   // Between two pieces. False if the chip has gone: then the operation ends, and the SDK is asked for nothing more.
   bool next() {
      wasAway_ |= Kiln::ActivityLockAnchor::giveWay(who_);
      return !chip_->isStopped();
   }
   // Whether somebody was in since this was asked last.
   bool wasAway() { return std::exchange(wasAway_, false); }

 private:
   Kiln::Ptr<ChipAccess> chip_;
   const char* who_;
   bool wasAway_ = false;
};

} // namespace ZelCounter
