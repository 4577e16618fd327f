// How long a reader waits for a record that is being written.
#pragma once

#include "silo/Mapping.h"

#include <chrono>

namespace Silo {

// One object serves one call of a reader, however many records the call reads: all of them together wait no longer than
// the limit, and not at all for a dead writer.
class Patience {
 public:
   explicit Patience(const Mapping& mapping) : mapping_(mapping) {}

   // Waits a moment. False when the caller should give up.
   bool wait();
   // Why: the writer is dead, as opposed to busy or stuck.
   bool isWriterDead() const { return isWriterDead_; }

 private:
   using Clock = std::chrono::steady_clock;
   static constexpr int spins = 200; // a write takes less, unless its writer has lost the processor
   static constexpr std::chrono::milliseconds limit{50};
   static constexpr std::chrono::microseconds nap{50};

   const Mapping& mapping_;
   int waits_ = 0;
   Clock::time_point deadline_{};
   bool isWriterDead_ = false;
   bool isExhausted_ = false;
};

} // namespace Silo
