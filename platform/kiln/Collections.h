// The framework's maps. Both iterate reproducibly: HashMap in the order in which the keys were first
// inserted, OrderedMap in the order of the keys. References to values stay good until the key is removed.
// Neither may be changed while it is iterated: a walk that may do so goes over keys(), a snapshot.
#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Kiln {

template <class K, class V, class Hash = std::hash<K>>
class HashMap {
 public:
   using key_type = K;
   using mapped_type = V;
   using value_type = std::pair<const K, V>;
   using iterator = typename std::list<value_type>::iterator;
   using const_iterator = typename std::list<value_type>::const_iterator;

   HashMap() = default;
   HashMap(const HashMap& other) {
      for (const auto& [key, value] : other) {
         set(key, value);
      }
   }
   HashMap& operator=(const HashMap& other) {
      HashMap copy(other);
      entries_.swap(copy.entries_);
      index_.swap(copy.index_);
      return *this;
   }
   HashMap(HashMap&&) noexcept = default;
   HashMap& operator=(HashMap&&) noexcept = default;
   ~HashMap() = default;

   iterator begin() { return entries_.begin(); }
   iterator end() { return entries_.end(); }
   const_iterator begin() const { return entries_.begin(); }
   const_iterator end() const { return entries_.end(); }
   std::size_t size() const { return entries_.size(); }
   bool empty() const { return entries_.empty(); }

   bool contains(const K& key) const { return index_.find(key) != index_.end(); }

   // Null when the key is absent.
   V* find(const K& key) {
      const auto at = index_.find(key);
      return at == index_.end() ? nullptr : &at->second->second;
   }
   const V* find(const K& key) const {
      const auto at = index_.find(key);
      return at == index_.end() ? nullptr : &at->second->second;
   }

   // Inserts at the end, or overwrites in place. True when the key is new.
   bool set(const K& key, V value) {
      if (V* present = find(key)) {
         *present = std::move(value);
         return false;
      }
      entries_.emplace_back(key, std::move(value));
      index_.emplace(key, std::prev(entries_.end()));
      return true;
   }

   bool erase(const K& key) {
      const auto at = index_.find(key);
      if (at == index_.end()) {
         return false;
      }
      const auto entry = at->second;
      index_.erase(at);
      entries_.erase(entry);
      return true;
   }

   std::vector<K> keys() const {
      std::vector<K> all;
      all.reserve(size());
      for (const auto& entry : entries_) {
         all.push_back(entry.first);
      }
      return all;
   }

 private:
   std::list<value_type> entries_;
   std::unordered_map<K, iterator, Hash> index_;
};

template <class K, class V, class Compare = std::less<K>>
class OrderedMap {
 public:
   using key_type = K;
   using mapped_type = V;

   auto begin() { return entries_.begin(); }
   auto end() { return entries_.end(); }
   auto begin() const { return entries_.begin(); }
   auto end() const { return entries_.end(); }
   std::size_t size() const { return entries_.size(); }
   bool empty() const { return entries_.empty(); }
   bool contains(const K& key) const { return entries_.find(key) != entries_.end(); }

   V* find(const K& key) {
      const auto at = entries_.find(key);
      return at == entries_.end() ? nullptr : &at->second;
   }
   const V* find(const K& key) const {
      const auto at = entries_.find(key);
      return at == entries_.end() ? nullptr : &at->second;
   }

   bool set(const K& key, V value) { return entries_.insert_or_assign(key, std::move(value)).second; }

   // The value dies after it is out of the map, so that its destructor may look into the map.
   bool erase(const K& key) { return !entries_.extract(key).empty(); }

   std::vector<K> keys() const {
      std::vector<K> all;
      all.reserve(size());
      for (const auto& entry : entries_) {
         all.push_back(entry.first);
      }
      return all;
   }

 private:
   std::map<K, V, Compare> entries_;
};

} // namespace Kiln
