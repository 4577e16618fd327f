// In a simulation: the one counter that every port pretends to have, all others being 0.
#pragma once

#include "kiln/Types.h"

#include <optional>

namespace ZelCounter {

struct FakeCounter {
   U64 id; // RMON counter index
   U64 value;
};

// What ZEL_COUNTER_ID (decimal) and ZEL_COUNTER_VALUE (decimal, hexadecimal or octal) say; nothing outside a simulation
// or unless both are set. Asserts that the id is at most 88.
std::optional<FakeCounter> fakeCounter();

} // namespace ZelCounter
