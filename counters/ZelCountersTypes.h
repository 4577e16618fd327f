// The library's value types.
#pragma once

#include "kiln/Accessors.h"
#include "sdk/bf_rmon.h"
#include "zel/Pelt.h"
#include "zel/ZelId.h"

#include <array>
#include <span>

namespace ZelCounter {

// One interface's raw RMON counters: unsigned 64-bit, as the hardware counts, indexed by the SDK's RMON
// counter index. An index that was never written reads 0.
class IntfCounters : public Kiln::PtrInterface {
 public:
   explicit IntfCounters(Pelt::IntfId intfId) : intfId_(intfId) {}

   const Pelt::IntfId& intfId() const { return intfId_; }
   // The port that was read.
   KILN_ATTRIBUTE(U16, devicePort, ZelId::PortIndex::invalid)
   // As many as were written.
   std::span<const U64> counters() const { return {counters_.data(), size_}; }
   U64 counters(std::size_t index) const { return index < size_ ? counters_[index] : 0; }
   // Grows the array as far as the index, which must be below BF_NUM_RMON_COUNTERS (assertion).
   void countersIs(std::size_t index, U64 value);
   // All BF_NUM_RMON_COUNTERS at once.
   void countersAre(const bf_rmon_counter_array_t& values);

 private:
   Pelt::IntfId intfId_;
   // In place, so that a completion touches one run of memory. What lies beyond the size is 0.
   std::size_t size_ = 0;
   std::array<U64, BF_NUM_RMON_COUNTERS> counters_{};
};

Kiln::Ptr<IntfCounters> intfCountersFactory(Pelt::IntfId intfId);

} // namespace ZelCounter
