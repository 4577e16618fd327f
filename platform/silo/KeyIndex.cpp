// Inserts into and deletes from the hash table; deletion closes the gap, so that there are no tombstones.
#include "silo/KeyIndex.h"

#include <bit>

namespace Silo {

void KeyIndex::reset(std::size_t slots) {
   keys_.assign(slots, Key{});
   // At least one place stays free even with every slot in use: a look-up ends there.
   places_.assign(std::bit_ceil(2 * slots + 1), Place{});
   mask_ = places_.size() - 1;
   size_ = 0;
}

void KeyIndex::insert(const Key& key, std::size_t slot) {
   std::size_t i = key.hash() & mask_;
   while (places_[i].slot != none) {
      i = (i + 1) & mask_;
   }
   places_[i] = {key.hash(), slot};
   keys_[slot] = key;
   ++size_;
}

void KeyIndex::erase(std::size_t slot) {
   std::size_t gap = placeOf(slot);
   // An entry further along the run that was pushed past the gap moves into it, so that no look-up ends early.
   for (std::size_t i = (gap + 1) & mask_; places_[i].slot != none; i = (i + 1) & mask_) {
      std::size_t home = places_[i].hash & mask_;
      if (((i - home) & mask_) >= ((i - gap) & mask_)) {
         places_[gap] = places_[i];
         gap = i;
      }
   }
   places_[gap] = {};
   keys_[slot] = {};
   --size_;
}

std::size_t KeyIndex::placeOf(std::size_t slot) const {
   std::size_t i = keys_[slot].hash() & mask_;
   while (places_[i].slot != slot) {
      i = (i + 1) & mask_;
   }
   return i;
}

} // namespace Silo
