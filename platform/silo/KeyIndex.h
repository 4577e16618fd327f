// Which slot holds which key, in a process's own memory.
#pragma once

#include "silo/Key.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Silo {

// A hash table with open addressing: each record read or written takes one look-up, which has to cost less than the
// copying. reset() fixes the capacity and is the only operation that allocates.
class KeyIndex {
 public:
   static constexpr std::size_t none = SIZE_MAX;

   // Forgets all keys and sets the number of slots.
   void reset(std::size_t slots);

   std::size_t size() const { return size_; } // keys
   std::size_t slotCount() const { return keys_.size(); }
   const Key& keyOf(std::size_t slot) const { return keys_[slot]; } // empty: a slot without a key
   // The key's slot, or none. A right guess saves most of the look-up.
   std::size_t find(const Key& key, std::size_t guess = none) const;
   // Neither the key nor the slot may be in use yet.
   void insert(const Key& key, std::size_t slot);
   void erase(std::size_t slot);

 private:
   struct Place {
      std::uint64_t hash = 0;
      std::size_t slot = none;
   };

   std::size_t placeOf(std::size_t slot) const;

   std::vector<Key> keys_;     // by slot
   std::vector<Place> places_; // a power of two, at most half full
   std::size_t mask_ = 0;
   std::size_t size_ = 0;
};

inline std::size_t KeyIndex::find(const Key& key, std::size_t guess) const {
   // A slot without a key holds the empty key, whose hash is 0: only that one would match it.
   if (guess < keys_.size() && key.hash() != 0 && keys_[guess] == key) {
      return guess;
   }
   for (std::size_t i = key.hash() & mask_;; i = (i + 1) & mask_) {
      const Place& place = places_[i];
      if (place.slot == none || (place.hash == key.hash() && keys_[place.slot] == key)) {
         return place.slot;
      }
   }
}

} // namespace Silo
