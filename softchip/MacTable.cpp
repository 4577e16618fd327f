// A hash table whose search is bounded. Deleted entries leave holes: a search looks at all places of an address.
#include "softchip/MacTable.h"

namespace SoftChip {

void MacTable::learn(U64 mac, U16 port) {
   const std::size_t first = firstPlace(mac);
   // If all places are taken, the first one goes: its station is learned again with its next frame.
   Place* target = &places_[first];
   for (std::size_t i = first; i < first + probes; ++i) {
      if (places_[i].port == none || places_[i].mac == mac) {
         target = &places_[i];
         break;
      }
   }
   *target = {mac, port};
}

U16 MacTable::portOf(U64 mac) const {
   const std::size_t first = firstPlace(mac);
   for (std::size_t i = first; i < first + probes; ++i) {
      // After a hole was filled an address may be there twice. The newer one is in front.
      if (places_[i].mac == mac && places_[i].port != none) {
         return places_[i].port;
      }
   }
   return none;
}

void MacTable::portDel(U16 port) {
   for (Place& place : places_) {
      if (place.port == port) {
         place.port = none;
      }
   }
}

} // namespace SoftChip
