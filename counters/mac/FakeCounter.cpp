// Reads the fake counter from the environment, anew for each polled port, so that a debugger may change it.
#include "counters/mac/FakeCounter.h"

#include "counters/chip/ChipAccess.h"
#include "kiln/Assert.h"
#include "sdk/bf_rmon.h"

#include <cstdlib>

namespace ZelCounter {

std::optional<FakeCounter> fakeCounter() {
   if (!ChipAccess::simulation()) {
      return std::nullopt;
   }
   const char* const id = std::getenv("ZEL_COUNTER_ID");
   const char* const value = std::getenv("ZEL_COUNTER_VALUE");
   if (id == nullptr || value == nullptr) {
      return std::nullopt;
   }
   // Unsigned and in full width, so that the assertion also catches negative ids, and ids that would be small if
   // narrowed.
   const auto ctrId = static_cast<U64>(std::strtol(id, nullptr, 10));
   KILN_ASSERT(ctrId < BF_NUM_RMON_COUNTERS);
   return FakeCounter{ctrId, std::strtoull(value, nullptr, 0)};
}

} // namespace ZelCounter
