// A machine that did something else since the path under test last ran: walks memory, so that the caches hold none of
// what the path touches. A polling pass comes every two seconds on a processor that other programs use.
#pragma once

#include <benchmark/benchmark.h>
#include <cstddef>
#include <vector>

namespace Bench {

class ColdMemory {
 public:
   // Writes one byte of each cache line of 96 MiB, three times a last-level cache of 32 MiB.
   void walk() {
      for (std::size_t at = 0; at < bytes_.size(); at += cacheLine) {
         ++bytes_[at];
      }
      benchmark::ClobberMemory();
   }

 private:
   static constexpr std::size_t cacheLine = 64;
   std::vector<unsigned char> bytes_ = std::vector<unsigned char>(std::size_t{96} << 20);
};

} // namespace Bench
