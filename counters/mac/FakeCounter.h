// The one counter that a simulation pretends that every port has.
#pragma once

#include "kiln/Types.h"

#include <optional>

namespace ZelCounter {

struct FakeCounter {
   U64 id; // RMON counter index
   U64 value;
};

// What ZEL_COUNTER_ID (decimal) and ZEL_COUNTER_VALUE (decimal, hexadecimal or octal) say; nothing outside a simulation
// or when one of them is not set. An id above 88 is an assertion.
std::optional<FakeCounter> fakeCounter();

} // namespace ZelCounter
