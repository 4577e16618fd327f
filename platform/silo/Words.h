// The words that shared tables are made of, and the checksum over them.
#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace Silo {

// Everything in shared memory that two processes touch at the same time is a word of this type. It has to be
// lock-free: a lock inside the atomic would live in one process only.
using Word = std::atomic<std::uint64_t>;
static_assert(Word::is_always_lock_free && sizeof(Word) == 8);

// Payloads are stored in whole blocks, one cache line each; the last one is filled up with zeros.
inline constexpr std::size_t wordsPerBlock = 8;
inline constexpr std::size_t bytesPerBlock = 64;
using Block = std::array<std::uint64_t, wordsPerBlock>;

// Calls take(i) for each word of a block, written out eight times: a loop would keep its words in memory.
template <class Take>
[[gnu::always_inline]] inline void forEachWord(Take take) {
   [&]<std::size_t... i>(std::index_sequence<i...>) {
      (take(i), ...);
   }
   (std::make_index_sequence<wordsPerBlock>{});
}

// Checksum over blocks, eight independent lanes so that the multiplications overlap. Each step is a bijection
// of the lane, and the lanes are combined by exclusive or: damage within one word is always found, anything
// wider with all but a chance of 2^-64. It guards against torn and overwritten memory, not against an
// attacker.
class Checksum {
 public:
   Checksum(std::uint64_t seed0, std::uint64_t seed1) {
      lanes_[0] ^= seed0;
      lanes_[1] ^= seed1;
   }

   void add(const Block& block) {
      forEachWord([&](std::size_t i) { lanes_[i] = std::rotl(lanes_[i] ^ block[i], 29) * multiplier_; });
   }

   std::uint64_t value() const {
      std::uint64_t sum = 0;
      forEachWord([&](std::size_t i) { sum ^= std::rotl(lanes_[i], static_cast<int>(7 * i)); });
      return sum;
   }

 private:
   static constexpr std::uint64_t multiplier_ = 0x9e3779b97f4a7c15;

   // Lanes start unequal, so that two words that change places are noticed.
   Block lanes_{0x243f6a8885a308d3, 0x13198a2e03707344, 0xa4093822299f31d0, 0x082efa98ec4e6c89,
                0x452821e638d01377, 0xbe5466cf34e90c6c, 0xc0ac29b7c97c50dd, 0x3f84d5b5b5470917};
};

} // namespace Silo
