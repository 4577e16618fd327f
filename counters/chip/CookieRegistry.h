// Objects whose addresses the SDK holds as cookies.
//
// A completion may come late, twice, or after its object was deleted. So an object is added here before it asks the SDK
// for anything, every request is announced, and only completed() turns a cookie into an object. An object that is
// deleted with requests outstanding ends like any other, and gives up all that it held; only its storage waits for the
// last completion, so that its address cannot become another object's. A lost completion keeps that storage;
// retiredCount() says of how many objects. As a doubled completion passes for the answer to another request, storage is
// kept on until `quarantine` more objects have ended.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/ActivityLock.h"

#include <array>
#include <new>

namespace ZelCounter {

// Everything under the activity lock. One registry a class T, which derives from Kiln::PtrInterface first, and from
// CookieStorage<T>.
template <class T>
class CookieRegistry {
 public:
   static constexpr std::size_t quarantine = 64;

   static CookieRegistry& instance() {
      static auto* registry = new CookieRegistry; // completions may outlive static destruction
      return *registry;
   }

   void add(T* object) { entries_.set(object, Entry()); }

   // The object takes no more completions. Does nothing to an object that is unknown or retired already.
   void retire(T* object) {
      Kiln::ActivityLockAnchor::assertHeld();
      if (Entry* entry = entries_.find(object); entry != nullptr && entry->live) {
         entry->live = false;
         retired_ += entry->outstanding > 0 ? 1 : 0;
      }
   }

   // The object has ended, retired before, or was never added.
   void freed(void* storage) {
      Entry* const entry = entries_.find(static_cast<T*>(storage));
      if (entry == nullptr) {
         ::operator delete(storage);
         return;
      }
      entry->hasEnded = true;
      if (entry->outstanding == 0) {
         toQuarantine(static_cast<T*>(storage));
      }
   }

   // Before the request, since its completion may come inline.
   void requested(T* object) {
      if (Entry* entry = entries_.find(object)) {
         ++entry->outstanding;
      }
   }

   // The request was not accepted: no completion will come.
   void refused(T* object) { complete(object); }

   // The live object behind a cookie; null when the cookie is unknown or its object retired. A surplus completion of a
   // live object is answered like any other.
   Kiln::Ptr<T> completed(T* cookie) { return complete(cookie) ? cookie : nullptr; }

   // How many objects have ended, or will, with requests outstanding.
   std::size_t retiredCount() const { return retired_; }

 private:
   struct Entry {
      U32 outstanding = 0;
      bool live = true;
      bool hasEnded = false; // its storage is kept
   };

   bool complete(T* cookie) {
      Kiln::ActivityLockAnchor::assertHeld();
      Entry* const entry = entries_.find(cookie);
      if (entry == nullptr) {
         return false;
      }
      if (entry->outstanding > 0 && --entry->outstanding == 0 && !entry->live) {
         --retired_;
         if (entry->hasEnded) {
            toQuarantine(cookie);
         }
         return false;
      }
      return entry->live;
   }

   // The oldest leaves for it.
   void toQuarantine(T* ended) {
      T*& place = quarantined_[next_++ % quarantine];
      if (place != nullptr) {
         entries_.erase(place);
         ::operator delete(static_cast<void*>(place));
      }
      place = ended;
   }

   Kiln::HashMap<T*, Entry> entries_;
   std::size_t retired_ = 0;
   std::array<T*, quarantine> quarantined_{}; // storage only
   std::size_t next_ = 0;
};

// Leaves the storage of a T that has ended to its registry.
template <class T>
class CookieStorage {
 public:
   // Not inlined: a compiler that sees the allocation takes the deletion for a mismatch.
   [[gnu::noinline]] static void* operator new(std::size_t size) { return ::operator new(size); }
   static void operator delete(void* storage) { CookieRegistry<T>::instance().freed(storage); }
};

} // namespace ZelCounter
