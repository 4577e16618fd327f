// Pointers by VLAN, found by index: a pass over thousands of VLANs can't afford a search for each.
#pragma once

#include "zel/VlanId.h"

#include <cstddef>
#include <vector>

namespace ZelCounter {

// A map like the framework's collections, in the order of the VLANs. A null pointer is an absent one. References to
// values stay good until the next set.
template <class K, class V>
class VlanMap {
 public:
   using key_type = K;
   using mapped_type = V;

   std::size_t size() const { return size_; }
   bool contains(const K& vlan) const { return find(vlan) != nullptr; }

   // Null when the VLAN is absent.
   const V* find(const K& vlan) const {
      return vlan.value() < values_.size() && values_[vlan.value()] ? &values_[vlan.value()] : nullptr;
   }
   V* find(const K& vlan) {
      return vlan.value() < values_.size() && values_[vlan.value()] ? &values_[vlan.value()] : nullptr;
   }

   // For a walk in the order of the VLANs: brings the next VLAN's object into the cache. Always inlined, since
   // compilers drop calls of a function that does nothing but prefetch.
   [[gnu::always_inline]] void prefetchNext(const K& vlan) const {
      if (std::size_t{vlan.value()} + 1 < values_.size() && values_[vlan.value() + 1U]) {
         // Three lines, not a loop, which they would drop, too.
         static_assert(sizeof(*values_.front()) <= 3 * cacheLine);
         const auto* const object = reinterpret_cast<const char*>(values_[vlan.value() + 1U].ptr());
         __builtin_prefetch(object);
         __builtin_prefetch(object + cacheLine);
         __builtin_prefetch(object + 2 * cacheLine);
      }
   }

   // True when the VLAN is new.
   bool set(const K& vlan, V value) {
      if (vlan.value() >= values_.size()) {
         values_.resize(std::size_t{vlan.value()} + 1);
      }
      V& place = values_[vlan.value()];
      const bool isNew = !place;
      size_ = size_ - !isNew + static_cast<bool>(value);
      place = std::move(value);
      return isNew;
   }
   bool erase(const K& vlan) {
      V* const present = find(vlan);
      if (present == nullptr) {
         return false;
      }
      *present = {};
      --size_;
      return true;
   }
   std::vector<K> keys() const {
      std::vector<K> all;
      for (std::size_t vlan = K::min; vlan < values_.size(); ++vlan) {
         if (values_[vlan]) {
            all.push_back(K(static_cast<U32>(vlan)));
         }
      }
      return all;
   }

 private:
   static constexpr std::size_t cacheLine = 64;

   std::vector<V> values_; // by VLAN, up to the highest that there ever was
   std::size_t size_ = 0;
};

} // namespace ZelCounter
