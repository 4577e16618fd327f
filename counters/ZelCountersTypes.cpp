// Storage of the value types.
#include "ZelCountersTypes.h"

namespace ZelCounter {

void IntfCounters::countersIs(std::size_t index, U64 value) {
   if (index >= counters_.size()) {
      counters_.resize(index + 1);
   }
   counters_[index] = value;
}

void IntfCounters::countersAre(const bf_rmon_counter_array_t& values) {
   counters_.assign(values, values + BF_NUM_RMON_COUNTERS);
}

Kiln::Ptr<IntfCounters> intfCountersFactory(Pelt::IntfId intfId) {
   return Kiln::allocate<IntfCounters>(intfId);
}

} // namespace ZelCounter
