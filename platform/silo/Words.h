// The words that shared tables are made of, and the checksum over them.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace Silo {

// Everything in shared memory that two processes may touch at the same time is a word of this type. It has to be
// lock-free: a lock inside the atomic would be private to one process.
using Word = std::atomic<std::uint64_t>;
static_assert(Word::is_always_lock_free && sizeof(Word) == 8);

inline constexpr std::size_t cacheLine = 64;

// Payloads are handled in rows of four words; a payload's last row is filled up with zeros.
inline constexpr std::size_t wordsPerRow = 4;
inline constexpr std::size_t bytesPerRow = 32;

// Calls step(i) for i from 0 to count - 1, unrolled: neither compiler unrolls by itself at -O2, and the lanes and
// words below have to stay in registers.
template <std::size_t count, class Step>
inline void unrolled(Step step) {
   [&]<std::size_t... i>(std::index_sequence<i...>) {
      (step(i), ...);
   }
   (std::make_index_sequence<count>{});
}

// Loads a T from plain memory, aligned or not.
template <class T>
inline T loadPlain(const void* address) {
   T value;
   std::memcpy(&value, address, sizeof value);
   return value;
}

// Two words side by side, for the processor's vector registers.
using WordPair = std::uint64_t __attribute__((vector_size(16)));

// A checksum over rows. Each of a row's words has two sums: the sum of the words, and the sum of the first sum's values
// after each word, in which a word weighs the more the earlier it stands. Both are put together in two ways, value() and
// second(). Damage within one word is always found by either. Of two flipped bits, value() misses about one pair in 2,000,
// at the tops of two words, and both together miss one in 28,000, of three flipped bits one in a million. It guards against
// torn and overwritten memory, not against an attacker.
//
// From row to row a sum waits for one addition only, so that copying takes about as long without the checksum.
//
// The lane type does not change the sum: pairs are quicker, single words do for a few rows.
template <class Lane>
class Checksum {
 public:
   static constexpr std::size_t lanes = bytesPerRow / sizeof(Lane);
   using Row = Lane[lanes];

   Checksum() { std::memcpy(words_, start_, sizeof words_); }

   void add(const Row& row) {
      unrolled<lanes>([&](std::size_t i) {
         words_[i] += row[i];
         sums_[i] += words_[i];
      });
   }

   std::uint64_t value() const {
      std::uint64_t words[wordsPerRow];
      std::uint64_t sums[wordsPerRow];
      std::memcpy(words, words_, sizeof words);
      std::memcpy(sums, sums_, sizeof sums);
      std::uint64_t sum = 0;
      // A word that is off by d, k rows before the end, puts this off by d * multiplier * (1 + 2 * (k + 1) * weight).
      // That is never 0 modulo 2^64, because every factor but d is odd.
      unrolled<wordsPerRow>(
           [&](std::size_t i) { sum ^= (words[i] + 2 * weight_ * sums[i]) * multipliers_[i]; });
      return sum;
   }

   // Another one, of the same sums with the halves of each exchanged: flipped bits at the tops of words, whose differences
   // value() may lose, stand in the middle here. Never 0.
   std::uint64_t second() const {
      std::uint64_t words[wordsPerRow];
      std::uint64_t sums[wordsPerRow];
      std::memcpy(words, words_, sizeof words);
      std::memcpy(sums, sums_, sizeof sums);
      std::uint64_t sum = 0;
      unrolled<wordsPerRow>([&](std::size_t i) {
         sum += std::rotl(words[i], 32) * multipliers_[i] +
                std::rotl(sums[i], 32) * multipliers_[wordsPerRow - 1 - i];
      });
      return sum | 1;
   }

 private:
   // Lanes start and weigh differently, so that words that change places are noticed. Multipliers must be odd.
   static constexpr std::uint64_t start_[wordsPerRow] = {0x243f6a8885a308d3, 0x13198a2e03707344,
                                                         0xa4093822299f31d0, 0x082efa98ec4e6c89};
   static constexpr std::uint64_t multipliers_[wordsPerRow] = {0x9e3779b97f4a7c15, 0xd6e8feb86659fd93,
                                                               0xc2b2ae3d27d4eb4f, 0xa0761d6478bd642f};
   static constexpr std::uint64_t weight_ = 0x452821e638d01377;

   Row words_;
   Row sums_{};
};

} // namespace Silo
