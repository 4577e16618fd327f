// Objects whose addresses the SDK holds as cookies.
//
// A completion may come late, twice, or after its object was deleted. So an object is added here before it asks the SDK
// for anything, every request is announced, and only completed() turns a cookie into an object. An object that is
// retired with requests outstanding keeps its storage until the last of them has completed, so that its address cannot
// become another object's. A lost completion keeps its dead object; retiredCount() says how many there are.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/ActivityLock.h"

namespace ZelCounter {

// Everything under the activity lock. One registry a class T, which derives from Kiln::PtrInterface.
template <class T>
class CookieRegistry {
 public:
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
         if (entry->outstanding == 0) {
            entries_.erase(object);
         } else {
            ++retired_;
         }
      }
   }

   // Before the request, since its completion may come inline.
   void requested(T* object) {
      if (Entry* entry = entries_.find(object); entry != nullptr && entry->outstanding++ == 0) {
         entry->kept = object;
      }
   }

   // The request was not accepted: no completion will come.
   void refused(T* object) { complete(object); }

   // The live object behind a cookie; null when the cookie is unknown or its object retired. The last completion of a
   // retired object frees it. A surplus completion of a live object is answered like any other.
   Kiln::Ptr<T> completed(T* cookie) { return complete(cookie); }

   std::size_t retiredCount() const { return retired_; }

 private:
   struct Entry {
      U32 outstanding = 0;
      bool live = true;
      Kiln::Ptr<T> kept; // while requests are outstanding
   };

   Kiln::Ptr<T> complete(T* cookie) {
      Kiln::ActivityLockAnchor::assertHeld();
      Entry* const entry = entries_.find(cookie);
      if (entry == nullptr) {
         return nullptr;
      }
      // Released on return: its destructor may come back here, and must find the entry as it should be.
      Kiln::Ptr<T> last;
      if (entry->outstanding > 0 && --entry->outstanding == 0) {
         last = std::move(entry->kept);
      }
      if (entry->live) {
         return cookie;
      }
      if (entry->outstanding == 0) {
         entries_.erase(cookie);
         --retired_;
      }
      return nullptr;
   }

   Kiln::HashMap<T*, Entry> entries_;
   std::size_t retired_ = 0;
};

} // namespace ZelCounter
