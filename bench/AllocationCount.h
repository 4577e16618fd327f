// Counts heap allocations of the whole process, for benchmarks that show that a path makes none.
#pragma once

#include "kiln/Types.h"

namespace Bench {

struct Allocations {
   U64 count = 0;
   U64 bytes = 0;
};

// Everything that operator new handed out since the process began. Any thread.
Allocations allocations() noexcept;

} // namespace Bench
