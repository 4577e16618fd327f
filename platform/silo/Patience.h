// How long a reader waits for a record that is being written.
#pragma once

#include "silo/Mapping.h"

#include <chrono>

namespace Silo {

// One piece of patience serves one call of a reader, however many records the call reads: together they wait
// no longer than the limit, and not at all for a writer that is dead.
class Patience {
 public:
   explicit Patience(const Mapping& mapping) : mapping_(mapping) {}

   // Waits a moment. False if there is no more waiting.
   bool wait();
   // Why there is none: the writer is dead, as opposed to too busy or stuck.
   bool isWriterDead() const { return isWriterDead_; }

 private:
   using Clock = std::chrono::steady_clock;
   static constexpr int spins = 200; // a write takes less, unless its writer is off the processor
   static constexpr std::chrono::milliseconds limit{50};
   static constexpr std::chrono::microseconds nap{50};

   const Mapping& mapping_;
   int waits_ = 0;
   Clock::time_point deadline_{};
   bool isWriterDead_ = false;
   bool isExhausted_ = false;
};

} // namespace Silo
