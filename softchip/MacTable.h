// The addresses that a chip has learned, and the ports that they are behind.
#pragma once

#include "kiln/Types.h"

#include <array>

namespace SoftChip {

// Of fixed size, so that learning never allocates; when the few places of an address are all taken, the
// newest address displaces another. One table for all VLANs. The chip's, under its lock.
class MacTable {
 public:
   static constexpr U16 none = 0xffff;

   void learn(U64 mac, U16 port);
   U16 portOf(U64 mac) const; // none when not learned
   // Forgets every address behind the port.
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
