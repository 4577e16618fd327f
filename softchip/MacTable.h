// The addresses that a chip has learned, and the ports where they were seen.
#pragma once

#include "kiln/Types.h"

#include <array>

namespace SoftChip {

// Of fixed size, so that learning never allocates: an address has a few places, and when all of them are taken, a new
// address displaces another. One table for all VLANs. Owned by the chip, under the SDK's lock.
class MacTable {
 public:
   static constexpr U16 none = 0xffff;

   void learn(U64 mac, U16 port);
   U16 portOf(U64 mac) const; // none if not learned
   // Forgets the port's addresses.
   void portDel(U16 port);

 private:
   struct Place {
      U64 mac = 0;
      U16 port = none; // none: free
   };
   static constexpr std::size_t placeCount = 8192;
   static constexpr std::size_t probes = 8;

   static std::size_t firstPlace(U64 mac) { return (mac * 0x9e3779b97f4a7c15) >> 51; }
   static_assert(1U << (64 - 51) == placeCount);

   std::array<Place, placeCount + probes> places_;
};

} // namespace SoftChip
