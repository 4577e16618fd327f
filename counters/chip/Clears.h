// When the counts of a view were cleared last, and by whom.
#pragma once

#include "agent/CommandOrigin.h"
#include "kiln/Collections.h"
#include "zel/ZelId.h"

#include <optional>
#include <utility>

namespace ZelCounter {

using Cleared = std::optional<Agent::CommandOrigin>; // nothing: never

// Of a view whose tables are cleared apart, and their pipes.
class Clears {
 public:
   void cleared(U32 table, ZelId::ZelPipeId pipe) {
      clears_.set({table, pipe}, Agent::CommandOrigin::current());
   }
   Cleared last(U32 table, ZelId::ZelPipeId pipe) const {
      Cleared last;
      for (const U16 of : {U16{pipe}, U16{ZelId::ZelPipeId::allPipes()}}) {
         const Agent::CommandOrigin* const one = clears_.find({table, of});
         if (one != nullptr && (!last || last->time < one->time)) {
            last = *one;
         }
      }
      return last;
   }

 private:
   Kiln::OrderedMap<std::pair<U32, U16>, Agent::CommandOrigin> clears_;
};

} // namespace ZelCounter
