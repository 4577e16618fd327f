// How raw counters are stored.
#include "counters/ZelCountersTypes.h"

#include "kiln/Assert.h"

#include <algorithm>

namespace ZelCounter {

void IntfCounters::countersIs(std::size_t index, U64 value) {
   KILN_ASSERT(index < counters_.size());
   size_ = std::max(size_, index + 1);
   counters_[index] = value;
}

void IntfCounters::countersAre(const bf_rmon_counter_array_t& values) {
   std::copy(std::begin(values), std::end(values), counters_.begin());
   size_ = counters_.size();
}

Kiln::Ptr<IntfCounters> intfCountersFactory(Pelt::IntfId intfId) {
   return Kiln::allocate<IntfCounters>(intfId);
}

} // namespace ZelCounter
