// The framework's maps. Both iterate reproducibly: HashMap in the order in which keys were first inserted, OrderedMap
// in the order of the keys. References to values stay valid until the key is removed. Neither may be changed while it
// is iterated: a walk that may change it goes over keys(), a snapshot.
#pragma once

#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace Kiln {

// Finds a list's entries by their keys: an open-addressed hash table of iterators. A look-up costs a multiplication
// and, mostly, one comparison.
template <class Iterator, class K, class Hash>
class HashIndex {
 public:
   // Null when the key is absent.
   const Iterator* find(const K& key) const {
      if (places_.empty()) {
         return nullptr;
      }
      for (std::size_t at = home(key); places_[at].used; at = next(at)) {
         if (places_[at].entry->first == key) {
            return &places_[at].entry;
         }
      }
      return nullptr;
   }

   // The entry's key must be absent.
   void insert(Iterator entry) {
      if (2 * (count_ + 1) > places_.size()) {
         std::vector<Place> old(places_.empty() ? 8 : 2 * places_.size());
         old.swap(places_);
         for (const Place& place : old) {
            if (place.used) {
               settle(place.entry);
            }
         }
      }
      settle(entry);
      ++count_;
   }

   // The key must be present.
   void erase(const K& key) {
      std::size_t hole = home(key);
      while (!(places_[hole].entry->first == key)) {
         hole = next(hole);
      }
      // An entry behind the hole moves into it, unless its home lies between the two: then a look-up would miss it.
      for (std::size_t at = next(hole); places_[at].used; at = next(at)) {
         if (distance(home(places_[at].entry->first), at) >= distance(hole, at)) {
            places_[hole] = places_[at];
            hole = at;
         }
      }
      places_[hole] = Place();
      --count_;
   }

 private:
   struct Place {
      bool used = false;
      Iterator entry{};
   };

   std::size_t next(std::size_t at) const { return (at + 1) & (places_.size() - 1); }
   std::size_t distance(std::size_t from, std::size_t to) const { return (to - from) & (places_.size() - 1); }
   std::size_t home(const K& key) const {
      // Hashes of small numbers are the numbers themselves; the multiplication spreads them (Knuth, 6.4).
      return static_cast<std::size_t>((Hash()(key) * 0x9E3779B97F4A7C15ULL) >> 32) & (places_.size() - 1);
   }
   void settle(Iterator entry) {
      std::size_t at = home(entry->first);
      while (places_[at].used) {
         at = next(at);
      }
      places_[at] = Place{true, entry};
   }

   std::vector<Place> places_; // a power of two of them, at most half in use
   std::size_t count_ = 0;
};

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
   HashMap(HashMap&& other) noexcept { swap(other); }
   HashMap& operator=(HashMap other) noexcept {
      swap(other);
      return *this;
   }
   ~HashMap() = default;

   void swap(HashMap& other) noexcept {
      entries_.swap(other.entries_);
      std::swap(index_, other.index_);
      passed_.reset();
      other.passed_.reset();
   }

   iterator begin() { return entries_.begin(); }
   iterator end() { return entries_.end(); }
   const_iterator begin() const { return entries_.begin(); }
   const_iterator end() const { return entries_.end(); }
   std::size_t size() const { return entries_.size(); }
   bool empty() const { return entries_.empty(); }

   bool contains(const K& key) const { return index_.find(key) != nullptr; }

   // Null when the key is absent.
   V* find(const K& key) {
      const iterator* const at = index_.find(key);
      return at == nullptr ? nullptr : &(*at)->second;
   }
   const V* find(const K& key) const {
      const iterator* const at = index_.find(key);
      return at == nullptr ? nullptr : &(*at)->second;
   }

   // The same for passes that ask for the keys in the order of the map, as polling passes do: looks first where such a
   // pass is, and fetches the entries that it comes to soon, which are in no cache any more.
   const V* findInPass(const K& key) const {
      if (passed_) {
         if ((*passed_)->first == key) {
            return &(*passed_)->second;
         }
         const const_iterator next = after(*passed_);
         if (next->first == key) {
            passed_ = next;
            ahead_ = after(ahead_);
            fetch(ahead_); // the last calls have fetched those before it
            return &next->second;
         }
      }
      const iterator* const at = index_.find(key);
      if (at == nullptr) {
         return nullptr;
      }
      passed_ = *at;
      lookAhead();
      return &(*at)->second;
   }
   V* findInPass(const K& key) { return const_cast<V*>(std::as_const(*this).findInPass(key)); }
   // What such a pass asks for after the one that it found last, or after that. Null before it has found any.
   const V* nextInPass() const { return passed_ ? &after(*passed_)->second : nullptr; }
   const V* secondNextInPass() const { return passed_ ? &after(after(*passed_))->second : nullptr; }

   // Inserts at the end, or overwrites in place. True when the key is new.
   bool set(const K& key, V value) {
      if (V* present = find(key)) {
         *present = std::move(value);
         return false;
      }
      entries_.emplace_back(key, std::move(value));
      index_.insert(std::prev(entries_.end()));
      lookAhead();
      return true;
   }

   bool erase(const K& key) {
      const iterator* const at = index_.find(key);
      if (at == nullptr) {
         return false;
      }
      const iterator entry = *at;
      if (passed_ && *passed_ == entry) {
         passed_.reset();
      }
      index_.erase(key);
      // Taken out of the map before it is destroyed: its value's destructor may look into the map, and `key` may be the
      // entry's own.
      std::list<value_type> ended;
      ended.splice(ended.begin(), entries_, entry);
      lookAhead();
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
   const_iterator after(const_iterator entry) const {
      return ++entry == entries_.end() ? entries_.begin() : entry;
   }
   void lookAhead() const {
      if (passed_) {
         ahead_ = after(after(after(after(*passed_))));
      }
   }
   static void fetch(const_iterator entry) {
      __builtin_prefetch(&*entry);
      __builtin_prefetch(reinterpret_cast<const char*>(&*entry) - 1); // a list has its links before the value
   }

   std::list<value_type> entries_;
   HashIndex<iterator, K, Hash> index_;
   mutable std::optional<const_iterator> passed_; // what findInPass found last
   mutable const_iterator ahead_{};               // four entries further
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

   // The value is destroyed after it is out of the map, so that its destructor may look into the map.
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
