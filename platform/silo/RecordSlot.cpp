// Stores and loads a record word by word, and computes its checksum on the way.
#include "silo/RecordSlot.h"

#include "silo/PairAccess.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace Silo {

namespace {

constexpr auto acquire = std::memory_order_acquire;
constexpr auto release = std::memory_order_release;

// Calls take(row) with the address of each row of the payload. The last row is filled up with zeros.
template <class Take>
inline void forEachRow(const void* payload, std::size_t size, Take take) {
   auto* bytes = static_cast<const std::byte*>(payload);
   for (; size >= bytesPerRow; size -= bytesPerRow, bytes += bytesPerRow) {
      take(bytes);
   }
   if (size != 0) {
      std::byte row[bytesPerRow]{};
      std::memcpy(row, bytes, size);
      take(row);
   }
}

constexpr std::size_t pairsPerRow = bytesPerRow / sizeof(WordPair);

inline void storeRow(Word* words, const std::byte* row) {
   unrolled<pairsPerRow>(
        [&](std::size_t i) { storePair(words + 2 * i, loadPlain<WordPair>(row + i * sizeof(WordPair))); });
}

inline void loadRow(WordPair (&row)[pairsPerRow], const Word* words) {
   unrolled<pairsPerRow>([&](std::size_t i) { row[i] = loadPair(words + 2 * i); });
}

inline void storeKey(Word* words, const Key::Words& key) {
   unrolled<std::tuple_size_v<Key::Words>>([&](std::size_t i) { words[i].store(key[i], release); });
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

RecordChecksums copyWithChecksum(const RecordContent& content, void* copy) {
   // The key's hash stands for the key: a reader compares the key itself anyway.
   Checksum<WordPair> sum;
   sum.add({WordPair{content.info.generation, std::bit_cast<std::uint64_t>(content.info.sampleTime)},
            WordPair{content.key.hash(), 0}});
   auto* to = static_cast<std::byte*>(copy);
   forEachRow(content.payload, content.size, [&sum, &to](const std::byte* row) {
      WordPair pairs[pairsPerRow];
      unrolled<pairsPerRow>([&](std::size_t i) {
         pairs[i] = loadPlain<WordPair>(row + i * sizeof(WordPair));
         std::memcpy(to + i * sizeof(WordPair), &pairs[i], sizeof(WordPair));
      });
      sum.add(pairs);
      to += bytesPerRow;
   });
   return {sum.value(), sum.second()};
}

// Relaxed will do: the release stores of the words that follow carry the odd sequence along. OR-ing 1 in also continues
// from the odd sequence that a dead writer left.
std::uint64_t RecordSlot::beginWrite() {
   std::uint64_t odd = sequence_.load(std::memory_order_relaxed) | 1;
   sequence_.store(odd, std::memory_order_relaxed);
   return odd;
}

void RecordSlot::write(const RecordContent& content, const RecordChecksums& checksums) {
   std::uint64_t odd = beginWrite();
   // The order of these stores is free: readers reject them all until the sequence is even, and after a kill the
   // journal has the record.
   // The key is written every time: if somebody has overwritten it, this makes the record whole again.
   keyHash_.store(content.key.hash(), release);
   storeKey(key_, content.key.words());
   generation_.store(content.info.generation, release);
   sampleTime_.store(std::bit_cast<std::uint64_t>(content.info.sampleTime), release);
   checksum_.store(checksums.first, release);
   secondChecksum_.store(checksums.second, release);
   Word* words = payloadWords();
   forEachRow(content.payload, content.size, [&words](const std::byte* row) {
      storeRow(words, row);
      words += wordsPerRow;
   });
   sequence_.store(odd + 1, release);
}

void RecordSlot::clear() {
   std::uint64_t odd = beginWrite();
   // The hash first: without it the key is not valid, so a kill in here leaves no record that looks intact.
   keyHash_.store(0, release);
   // The payload stays: a slot without a key is free, whatever else lies in it.
   storeKey(key_, {});
   sequence_.store(odd + 1, release);
}

RecordSlot::State RecordSlot::tryRead(const Key& key, RecordInfo& info, void* payload,
                                      std::size_t size) const {
   std::uint64_t before = sequence_.load(acquire);
   if (before & 1) {
      return State::changing;
   }
   State state = load(key, info, payload, size);
   // Relaxed: the acquire loads of the words keep this second look after them.
   return sequence_.load(std::memory_order_relaxed) == before ? state : State::changing;
}

RecordSlot::State RecordSlot::tryReadKey(Key& key) const {
   std::uint64_t before = sequence_.load(acquire);
   bool isFree = peekKey() == Key::Words{};
   key = intactKey();
   if ((before & 1) || sequence_.load(std::memory_order_relaxed) != before) {
      return State::changing;
   }
   return isFree ? State::free : key.isEmpty() ? State::corrupt : State::whole;
}

RecordSlot::State RecordSlot::load(const Key& key, RecordInfo& info, void* payload, std::size_t size) const {
   std::uint64_t any = 0;
   std::uint64_t difference = 0;
   unrolled<std::tuple_size_v<Key::Words>>([&](std::size_t i) {
      std::uint64_t word = key_[i].load(acquire);
      any |= word;
      difference |= word ^ key.words()[i];
   });
   if (difference != 0 || any == 0) {
      return any == 0 ? State::free : State::otherKey;
   }
   std::uint64_t generation = generation_.load(acquire);
   std::uint64_t sampleTimeBits = sampleTime_.load(acquire);
   std::uint64_t expected = checksum_.load(acquire);
   std::uint64_t second = secondChecksum_.load(acquire);
   info = {generation, std::bit_cast<double>(sampleTimeBits)};

   Checksum<WordPair> sum;
   sum.add({WordPair{generation, sampleTimeBits}, WordPair{key.hash(), 0}});
   const Word* words = payloadWords();
   auto* to = static_cast<std::byte*>(payload);
   for (; size >= bytesPerRow; size -= bytesPerRow, to += bytesPerRow, words += wordsPerRow) {
      WordPair row[pairsPerRow];
      loadRow(row, words);
      sum.add(row);
      unrolled<pairsPerRow>( // pair by pair, so that they stay in registers
           [&](std::size_t i) { std::memcpy(to + i * sizeof(WordPair), &row[i], sizeof(WordPair)); });
   }
   if (size != 0) {
      // The writer filled this row up with zeros, so the whole row is summed. The caller gets only the payload's own
      // bytes.
      WordPair row[pairsPerRow];
      loadRow(row, words);
      sum.add(row);
      std::memcpy(to, row, size);
   }
   const bool isWhole = sum.value() == expected && (second == 0 || sum.second() == second);
   return isWhole ? State::whole : State::corrupt;
}

Key RecordSlot::intactKey() const {
   Key key(peekKey());
   return key.isValid() && key.hash() == keyHash_.load(acquire) ? key : Key{};
}

Key::Words RecordSlot::peekKey() const {
   Key::Words words;
   unrolled<std::tuple_size_v<Key::Words>>([&](std::size_t i) { words[i] = key_[i].load(acquire); });
   return words;
}

} // namespace Silo
