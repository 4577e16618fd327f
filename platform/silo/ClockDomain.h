// Which clock a table's sample times were taken from.
#pragma once

#include <array>
#include <cstdint>

namespace Silo {

// Two sample times are comparable only within one domain: the monotonic clock of one boot of the machine, or the
// simulated clock of one process.
struct ClockDomain {
   bool simulated = false;
   std::array<std::uint64_t, 2> id{}; // all zero: not known, comparable with nothing

   static ClockDomain monotonic();     // of this boot
   static ClockDomain simulatedTime(); // of this process
   bool isComparableWith(const ClockDomain& other) const;
   bool operator==(const ClockDomain&) const = default;
};

// CLOCK_MONOTONIC in seconds.
double monotonicNow();

} // namespace Silo
