// Numbers drawn from a seed, the same with every compiler.
#pragma once

#include "kiln/Types.h"

#include <iterator>

namespace Campaign {

// A stream of its own for each event, so that events stay what they are when others are left out. Never drawn twice in one
// expression, since compilers choose the order of operands.
class Draws {
 public:
   Draws(U64 seed, U64 stream) : state_(seed * 0x9E3779B97F4A7C15 ^ (stream + 1) * 0xD1B54A32D192ED03) {
      next();
   }

   U64 next() { // after Steele, Lea and Flood, "Fast splittable pseudorandom number generators" (2014)
      U64 z = state_ += 0x9E3779B97F4A7C15;
      z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
      z = (z ^ z >> 27) * 0x94D049BB133111EB;
      return z ^ z >> 31;
   }
   // From 0 to bound - 1.
   U64 below(U64 bound) { return next() % bound; }
   bool oneIn(U64 chances) { return below(chances) == 0; }
   template <class List>
   const auto& oneOf(const List& list) {
      return *std::next(std::begin(list), static_cast<std::ptrdiff_t>(below(std::size(list))));
   }

 private:
   U64 state_;
};

} // namespace Campaign
