// The few values that one VLAN has by counter key, stored in place: the speed of a read of 4,094 VLANs on several chips
// is that of the memory that it walks through.
#pragma once

#include "counters/l3/SviCounterKey.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>
#include <vector>

namespace ZelCounter {

constexpr SviCounterKey sviOrdinary{0, false};
constexpr SviCounterKey sviDecapsulated{1, false};
constexpr SviCounterKey sviSourceNat{0, true}; // ingress only

// A map like the framework's collections, in the order of insertion. It has room for the three keys in use, and throws
// std::length_error for one more.
template <class K, class V>
class SviCounterMap {
 public:
   using key_type = K;
   using mapped_type = V;
   static constexpr std::size_t limit = 3;

   auto begin() const { return entries_.begin(); }
   auto end() const { return entries_.begin() + static_cast<std::ptrdiff_t>(size_); }
   std::size_t size() const { return size_; }

   // Null when the key is absent.
   const V* find(const K& key) const {
      const auto at = place(key);
      return at == end() ? nullptr : &at->second;
   }
   V* find(const K& key) { return const_cast<V*>(std::as_const(*this).find(key)); }

   // True when the key is new.
   bool set(const K& key, V value) {
      if (V* const present = find(key)) {
         *present = std::move(value);
         return false;
      }
      if (size_ == limit) {
         throw std::length_error("a VLAN has at most three counter keys");
      }
      entries_[size_++] = {key, std::move(value)};
      return true;
   }
   bool erase(const K& key) {
      const auto at = place(key);
      if (at == end()) {
         return false;
      }
      const auto hole = entries_.begin() + (at - begin());
      std::move(hole + 1, entries_.begin() + static_cast<std::ptrdiff_t>(size_), hole);
      entries_[--size_] = {};
      return true;
   }
   std::vector<K> keys() const {
      std::vector<K> all;
      std::for_each(begin(), end(), [&](const auto& entry) { all.push_back(entry.first); });
      return all;
   }

 private:
   auto place(const K& key) const {
      return std::find_if(begin(), end(), [&](const auto& entry) { return entry.first == key; });
   }

   std::array<std::pair<K, V>, limit> entries_{};
   std::size_t size_ = 0;
};

} // namespace ZelCounter
