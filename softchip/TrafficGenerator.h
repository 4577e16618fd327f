// Seeded synthetic traffic: a plausible mix of frames, and a rate of its own for each port.
#pragma once

#include "softchip/Frame.h"

#include <chrono>
#include <vector>

namespace SoftChip {

// splitmix64. Not the standard's generators: their distributions differ between libraries, and a seed has to give the
// same frames everywhere.
class SeededRandom {
 public:
   explicit SeededRandom(U64 seed) : state_(seed) {}

   U64 next();
   // 0 to bound - 1.
   U32 below(U32 bound) { return static_cast<U32>((next() >> 32) * bound >> 32); }
   // low to high, both included.
   U32 between(U32 low, U32 high) { return low + below(high - low + 1); }
   bool chance(U32 perThousand) { return below(1000) < perThousand; }

 private:
   U64 state_;
};

// `repeat` equal frames that arrive together.
struct TrafficBatch {
   FrameInfo frame;
   U64 repeat = 0;
};

// The frames that arrive at ports 0 to portCount - 1 of one chip. The same seed and port count give the same frames on
// every machine. A busy port's frames come in longer batches, so that the work for a port hardly depends on its rate;
// faulty and MAC control frames come one by one. Hosts have the addresses 02:00:PP:PP:HH:HH, where PPPP is their port.
// Allocates only when made. Not shared between threads.
class TrafficGenerator {
 public:
   TrafficGenerator(U64 seed, std::size_t portCount);

   // A port's average rate. Throws std::out_of_range for an unknown port.
   U64 framesPerSecond(std::size_t port) const { return ports_.at(port).framesPerSecond; }

   // Hands out the next batch that has arrived at the port by `time`; false if there is none. `time` is traffic time:
   // it begins at 0 and stands still while traffic is off. Asking often or rarely gives the same frames in the same
   // order, only cut into other batches. Throws std::out_of_range for an unknown port.
   bool next(std::size_t port, std::chrono::nanoseconds time, TrafficBatch& batch);

 private:
   struct Port {
      SeededRandom random;
      U64 framesPerSecond;
      U64 handedOut;
      TrafficBatch current; // what is left of the batch being handed out
   };

   void draw(std::size_t port);

   std::vector<Port> ports_;
};

} // namespace SoftChip
