// The memory of a history: rings of samples, one ring for each key.
//
// The file begins as any other table's, with a TableHeader whose layout names the values of one sample and whose capacity
// counts rings. The depth of the rings follows, then the rings, in banks of sixteen. A bank has the heads of its rings, then
// the first sample of each, then the second of each, and so on: a polling pass writes what lies side by side, and finds the
// memory that nobody has touched for a quarter of an hour in long runs. There is no journal: each sample stands on its own, so a
// writer that dies in the middle of one leaves all others as they were.
//
// Memory order is as in RecordSlot.h: every word is stored with release and loaded with acquire. A sample's mark is 0
// while its words are written, and names the sample before and after. A mark never comes twice in a ring, so a reader
// that finds the same one before and after has the words of that sample, and none other's.
#pragma once

#include "silo/Key.h"
#include "silo/Record.h"
#include "silo/TableHeader.h"
#include "silo/Words.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace Silo {

// What a mark says of a sample besides its number.
namespace SampleFlag {
inline constexpr std::uint64_t discontinuity = 1; // continuity was broken in the step that leads here
inline constexpr std::uint64_t begun = 2;         // the first one of a record that counts from zero
// Of a port: its queues were not read of late, so that their drops are as old as an earlier sample's.
inline constexpr std::uint64_t queuesUnread = 4;
inline constexpr unsigned bits = 8;
} // namespace SampleFlag

// A sample outside shared memory.
struct HistorySample {
   std::uint64_t number = 0; // counts the samples of its ring, from 1
   std::uint64_t flags = 0;
   double time = 0;                   // seconds, by the table's clock
   std::vector<std::uint64_t> values; // totals, by field

   bool has(std::uint64_t flag) const { return (flags & flag) != 0; }
};

class HistorySlot {
 public:
   static constexpr std::size_t headWords = 3;
   static constexpr std::size_t strideFor(std::size_t fields) {
      return (headWords + fields) * sizeof(std::uint64_t);
   }

   // For the one writer. The number is greater than any that the ring had.
   void write(std::uint64_t number, std::uint64_t flags, double time, std::span<const std::uint64_t> values);
   void clear() { mark_.store(0, std::memory_order_release); }
   // One attempt, into a sample whose values have the right number. False: there is none, or none that is whole.
   bool tryRead(HistorySample& sample) const;

 private:
   static std::uint64_t checksumOf(std::uint64_t mark, std::uint64_t time,
                                   std::span<const std::uint64_t> values);
   const Word* valueWords() const { return reinterpret_cast<const Word*>(this + 1); }
   Word* valueWords() { return reinterpret_cast<Word*>(this + 1); }

   Word mark_; // number << 8 | flags; 0: no sample
   Word time_; // the bits of a double
   Word checksum_;
};
static_assert(sizeof(HistorySlot) == HistorySlot::headWords * sizeof(Word));

// What comes before a ring's samples.
class alignas(cacheLine) RingHead {
 public:
   // A ring that changes hands has no samples.
   void begin() { sequence_.store(sequence_.load(std::memory_order_relaxed) | 1, std::memory_order_release); }
   void keyIs(const Key& key);

   // Differs after the ring was given to another key; odd while that goes on.
   std::uint64_t sequence() const { return sequence_.load(std::memory_order_acquire); }
   // Empty: the ring is free, or its key is damaged.
   Key key() const;

 private:
   Word sequence_;
   Word keyHash_;
   Word unused_[6];
   Word key_[8];
};
static_assert(sizeof(RingHead) == 2 * cacheLine);

// What follows the table's header.
class alignas(cacheLine) HistoryHeader {
 public:
   void depthIs(std::uint64_t depth);
   std::optional<std::uint64_t> depth() const; // none: damaged

 private:
   Word depth_;
   Word checksum_;
};

// Where things lie in such a file.
struct HistoryGeometry {
   HistoryGeometry(const RecordLayout& layout, std::size_t samples)
        : fields(layout.size / sizeof(std::uint64_t)), depth(samples),
          sampleStride(HistorySlot::strideFor(fields)),
          bankStride(ringsPerBank * (sizeof(RingHead) + depth * sampleStride)) {}

   static constexpr std::size_t maxDepth = 1'000'000;
   static constexpr std::size_t ringsPerBank = 16;
   static constexpr std::size_t banksOffset = sizeof(TableHeader) + sizeof(HistoryHeader);

   // Files have whole banks.
   static constexpr std::size_t wholeBanks(std::size_t rings) {
      return (rings + ringsPerBank - 1) / ringsPerBank * ringsPerBank;
   }
   std::size_t sizeFor(std::size_t rings) const {
      return banksOffset + wholeBanks(rings) / ringsPerBank * bankStride;
   }
   std::size_t capacityOf(std::size_t size) const {
      return size < banksOffset ? 0 : (size - banksOffset) / bankStride * ringsPerBank;
   }
   std::size_t bankOffset(std::size_t ring) const { return banksOffset + ring / ringsPerBank * bankStride; }

   // In a bank, of which `ring` is one.
   template <class Byte>
   auto& head(Byte* bank, std::size_t ring) const {
      using Head = std::conditional_t<std::is_const_v<Byte>, const RingHead, RingHead>;
      return *reinterpret_cast<Head*>(bank + ring % ringsPerBank * sizeof(RingHead));
   }
   template <class Byte>
   auto& sample(Byte* bank, std::size_t ring, std::size_t place) const {
      using Slot = std::conditional_t<std::is_const_v<Byte>, const HistorySlot, HistorySlot>;
      return *reinterpret_cast<Slot*>(bank + ringsPerBank * sizeof(RingHead) +
                                      (place * ringsPerBank + ring % ringsPerBank) * sampleStride);
   }
   // The whole samples of a ring, oldest first.
   std::vector<HistorySample> samplesOf(const std::byte* bank, std::size_t ring) const;

   std::size_t fields; // values of a sample
   std::size_t depth;  // samples of a ring
   std::size_t sampleStride;
   std::size_t bankStride;
};
// A bank is a multiple of cache lines, whatever a sample's size: sixteen words are two.
static_assert(HistoryGeometry::ringsPerBank * sizeof(Word) % cacheLine == 0);

// Of a file that begins with a whole header of this layout; none if it is too short, or its depth is damaged.
std::optional<HistoryGeometry> historyGeometryOf(const RecordLayout& layout, const std::byte* file,
                                                 std::size_t size);

} // namespace Silo
