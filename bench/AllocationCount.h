// Counts heap allocations of the whole process, for benchmarks that show that a path makes none.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Bench {

struct Allocations {
   std::uint64_t count = 0;
   std::uint64_t bytes = 0;
};

// Everything that operator new handed out since the process began. Any thread.
Allocations allocations() noexcept;

} // namespace Bench
