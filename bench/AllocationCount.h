// Counts heap allocations of the whole process, for benchmarks that show that a path makes none.
#pragma once

#include "kiln/Types.h"

namespace Bench {

struct Allocations {
   U64 count = 0;
   U64 bytes = 0;
};

// How many blocks operator new has handed out since the process began. May be called on any thread.
Allocations allocations() noexcept;

} // namespace Bench
