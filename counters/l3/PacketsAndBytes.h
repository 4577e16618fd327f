// A count of packets and the bytes in them.
#pragma once

#include "kiln/Types.h"

namespace ZelCounter {

// Modulo 2^64, as the hardware counts. The name is a fixed one.
struct packets_and_bytes {
   U64 packets = 0;
   U64 bytes = 0;

   packets_and_bytes operator+(const packets_and_bytes& other) const {
      return {packets + other.packets, bytes + other.bytes};
   }
};

} // namespace ZelCounter
