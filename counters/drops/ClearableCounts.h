// Counts as the hardware has them, and as they were at the last clear.
#pragma once

#include "kiln/Types.h"

#include <cstddef>
#include <vector>

namespace ZelCounter {

// Grows with the indices that are written; others read 0.
class ClearableCounts {
 public:
   // What the hardware has now. When that is below what it had at the last clear, the hardware has begun anew, and so
   // do all counts: a reset spares none of them.
   void lastIs(std::size_t index, U64 value) {
      if (index >= last_.size()) {
         last_.resize(index + 1);
         clear_.resize(index + 1);
         isRead_.resize(index + 1);
      }
      isRead_[index] = true;
      if (value < clear_[index]) {
         clear_.assign(clear_.size(), 0);
      }
      last_[index] = value;
   }
   U64 sinceClear(std::size_t index) const { return index < last_.size() ? last_[index] - clear_[index] : 0; }

   bool isRead(std::size_t index) const { return index < isRead_.size() && isRead_[index]; }

   void clear() { clear_ = last_; }
   // The hardware has been set to zero: nothing that was read counts any more.
   void begin() {
      last_.clear();
      clear_.clear();
      isRead_.clear();
   }

 private:
   std::vector<U64> last_;
   std::vector<U64> clear_;
   std::vector<bool> isRead_;
};

} // namespace ZelCounter
