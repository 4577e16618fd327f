// One record as it lies in shared memory, under a sequence lock.
#include "silo/RecordSlot.h"

#include <algorithm>
#include <cstring>

namespace Silo {

namespace {

// Calls take(block) for each block of the payload, the last one filled up with zeros.
template <class Take>
inline void forEachBlock(const void* payload, std::size_t size, Take take) {
   auto* bytes = static_cast<const std::byte*>(payload);
   Block block;
   for (; size >= bytesPerBlock; size -= bytesPerBlock, bytes += bytesPerBlock) {
      // Word by word, so that the block stays in registers.
      forEachWord(
           [&](std::size_t i) { std::memcpy(&block[i], bytes + i * sizeof block[i], sizeof block[i]); });
      take(block);
   }
   if (size != 0) {
      block = {};
      std::memcpy(block.data(), bytes, size);
      take(block);
   }
}

inline void storeBlock(Word* words, const Block& block) {
   forEachWord([&](std::size_t i) { words[i].store(block[i], std::memory_order_release); });
}

inline Block loadBlock(const Word* words) {
   Block block;
   forEachWord([&](std::size_t i) { block[i] = words[i].load(std::memory_order_acquire); });
   return block;
}

// The checksum of what lies before the payload; the payload's blocks follow.
inline Checksum beginChecksum(const Block& key, std::uint64_t generation, std::uint64_t sampleTimeBits) {
   Checksum checksum(generation, sampleTimeBits);
   checksum.add(key);
   return checksum;
}

} // namespace

const char* text(ReadResult result) {
   switch (result) {
   case ReadResult::ok:
      return "ok";
   case ReadResult::absent:
      return "no such record";
   case ReadResult::busy:
      return "being written all the time";
   case ReadResult::torn:
      return "half-written by a dead writer";
   case ReadResult::corrupt:
      return "corrupt: checksum mismatch";
   case ReadResult::unavailable:
      break;
   }
   return "table unavailable";
}

std::uint64_t RecordContent::checksum() const {
   Checksum sum = beginChecksum(key.words(), info.generation, std::bit_cast<std::uint64_t>(info.sampleTime));
   forEachBlock(payload, size, [&sum](const Block& block) { sum.add(block); });
   return sum.value();
}

std::uint64_t RecordSlot::beginWrite() {
   std::uint64_t odd = sequence_.load(std::memory_order_relaxed) | 1;
   sequence_.store(odd, std::memory_order_relaxed);
   return odd;
}

void RecordSlot::write(const RecordContent& content, std::uint64_t checksum) {
   std::uint64_t odd = beginWrite();
   // The key is written every time: should somebody have overwritten it, the record is whole again after
   // this.
   keyHash_.store(content.key.hash(), std::memory_order_release);
   storeBlock(key_, content.key.words());
   generation_.store(content.info.generation, std::memory_order_release);
   sampleTime_.store(std::bit_cast<std::uint64_t>(content.info.sampleTime), std::memory_order_release);
   checksum_.store(checksum, std::memory_order_release);
   Word* words = payloadWords();
   forEachBlock(content.payload, content.size, [&words](const Block& block) {
      storeBlock(words, block);
      words += wordsPerBlock;
   });
   sequence_.store(odd + 1, std::memory_order_release);
}

void RecordSlot::clear() {
   std::uint64_t odd = beginWrite();
   // First what makes the key valid, so that a writer killed in here leaves no record that looks intact.
   keyHash_.store(0, std::memory_order_release);
   storeBlock(key_, Block{});
   sequence_.store(odd + 1, std::memory_order_release);
}

RecordSlot::State RecordSlot::tryRead(Block& key, RecordInfo& info, void* payload, std::size_t size) const {
   std::uint64_t before = sequence_.load(std::memory_order_acquire);
   if (before & 1) {
      return State::changing;
   }
   State state = load(key, info, payload, size);
   return sequence_.load(std::memory_order_relaxed) == before ? state : State::changing;
}

RecordSlot::State RecordSlot::load(Block& key, RecordInfo& info, void* payload, std::size_t size) const {
   key = peekKey();
   if (key == Block{}) {
      return State::free;
   }
   std::uint64_t generation = generation_.load(std::memory_order_acquire);
   std::uint64_t sampleTimeBits = sampleTime_.load(std::memory_order_acquire);
   info = {generation, std::bit_cast<double>(sampleTimeBits)};
   std::uint64_t expected = checksum_.load(std::memory_order_acquire);

   Checksum sum = beginChecksum(key, generation, sampleTimeBits);
   const Word* words = payloadWords();
   auto* bytes = static_cast<std::byte*>(payload);
   for (; size >= bytesPerBlock; size -= bytesPerBlock) {
      Block block = loadBlock(words);
      sum.add(block);
      forEachWord(
           [&](std::size_t i) { std::memcpy(bytes + i * sizeof block[i], &block[i], sizeof block[i]); });
      words += wordsPerBlock;
      bytes += bytesPerBlock;
   }
   if (size != 0) {
      Block block = loadBlock(words);
      sum.add(block);
      std::memcpy(bytes, block.data(), size);
   }
   return sum.value() == expected ? State::whole : State::corrupt;
}

Block RecordSlot::peekKey() const {
   return loadBlock(key_);
}

Key RecordSlot::keyIfIntact() const {
   Key key(peekKey());
   return key.isValid() && key.hash() == keyHash_.load(std::memory_order_acquire) ? key : Key{};
}

} // namespace Silo
