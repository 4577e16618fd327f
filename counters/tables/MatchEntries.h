// The match entries of a direct counter table.
#pragma once

#include "counters/chip/ChipAccess.h"

namespace ZelCounter {

// Goes through them once, and may be interrupted: whoever gets in may add and delete entries. Each entry that stays is
// visited once, if the SDK lists them in an order that others' coming and going leaves alone; one that comes meanwhile may
// be. Under the activity lock; the chip outlives this.
class MatchEntries {
 public:
   MatchEntries(const ChipAccess& chip, U16 pipe, U32 tableHandle)
        : chip_(chip), pipe_(pipe), tableHandle_(tableHandle) {}

   // The next entry's handle; nothing after the last one. A step that fails ends the walk as the last entry does: there is
   // no entry to go on from.
   std::optional<int> next();
   // The lock was given up since the last entry, which may have gone.
   void handleAway() { mayHaveGone_ = true; }
   // Whether entries were found to have gone, after they were visited.
   bool hasLost() const { return hasLost_; }

 private:
   int after(std::optional<int> entry) const;
   int behindWhatIsLeft();

   const ChipAccess& chip_;
   U16 pipe_;
   U32 tableHandle_;
   std::vector<int> visited_;
   bool mayHaveGone_ = false;
   bool hasLost_ = false;
};

} // namespace ZelCounter
