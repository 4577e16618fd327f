// Random numbers for tests.
#pragma once

#include "kiln/Types.h"

#include <random>

namespace ZelTest {

// Draws numbers from a seed, which it prints. ZEL_TEST_SEED in the environment sets the seed, to repeat a run.
class Random {
 public:
   Random();

   U64 seed() const { return seed_; }

   // Any 64 bits.
   U64 next() { return engine_(); }
   // From 0 to bound - 1.
   U64 below(U64 bound) { return next() % bound; }
   bool oneIn(U64 chances) { return below(chances) == 0; }
   char byte() { return static_cast<char>(below(256)); }
   template <class List>
   const auto& oneOf(const List& list) {
      return list[below(std::size(list))];
   }

 private:
   U64 seed_;
   std::mt19937_64 engine_;
};

} // namespace ZelTest
