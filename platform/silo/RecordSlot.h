// One record as it lies in shared memory, under a sequence lock.
//
// Memory order. The one writer makes `sequence` odd, stores the words, and makes it even again. A reader accepts
// the words that it loaded between two equal, even sequences. There are no fences (the thread sanitizer does not
// see them): every word is stored with release and loaded with acquire, and that suffices.
//  - A reader that loads a word of write W synchronizes with that store. W's odd sequence, stored before it,
//    therefore happens before the reader's second look, which can no longer find the older, even value.
//  - A reader whose first look finds the even sequence that closed W synchronizes with that store. It therefore
//    loads words of W or of a later write, and for a later write the first point holds.
// On x86 all of these are plain moves. A writer that dies in the middle leaves the sequence odd.
#pragma once

#include "silo/Key.h"
#include "silo/Record.h"
#include "silo/Words.h"

#include <cstddef>
#include <cstdint>

namespace Silo {

// A record outside shared memory. Owns nothing.
struct RecordContent {
   const Key& key;
   RecordInfo info;
   const void* payload;
   std::size_t size; // of the payload, bytes
};

struct RecordChecksums {
   std::uint64_t first;
   std::uint64_t second; // 0: not known
};

// Copies the record's payload to `copy`, which has room for whole rows, and returns the record's checksums: one pass
// over the payload does both.
RecordChecksums copyWithChecksum(const RecordContent& content, void* copy);

class alignas(cacheLine) RecordSlot {
 public:
   // Bytes from one slot to the next for payloads of this size.
   static constexpr std::size_t strideFor(std::size_t payloadSize) {
      return sizeof(RecordSlot) + (payloadSize + cacheLine - 1) / cacheLine * cacheLine;
   }

   // For the one writer. `checksums` are the content's; the journal has just computed them.
   void write(const RecordContent& content, const RecordChecksums& checksums);
   void clear();
   // Whether the head of the slot is that of this record, as its writer left it. Cheap where the record is about to be
   // written.
   bool isHeadedBy(const Key& key, std::uint64_t generation) const {
      constexpr auto relaxed = std::memory_order_relaxed;
      return (sequence_.load(relaxed) & 1) == 0 && generation_.load(relaxed) == generation &&
             keyHash_.load(relaxed) == key.hash() && key_[0].load(relaxed) == key.words()[0];
   }

   // Whether nothing is here, for the one writer. Cheap: a table has thousands that are free.
   bool isFree() const {
      std::uint64_t any = sequence_.load(std::memory_order_relaxed) & 1;
      for (const Word& word : key_) {
         any |= word.load(std::memory_order_relaxed);
      }
      return any == 0;
   }

   enum class State {
      whole,
      free,
      changing, // being written, or left half-written
      corrupt,
      otherKey, // holds another key than the one given
   };

   // One attempt, for writer and readers. `info` and `payload` are valid only if the record is whole. The caller
   // says which key it expects: comparing words is cheaper than building a key out of them.
   State tryRead(const Key& key, RecordInfo& info, void* payload, std::size_t size) const;
   // One attempt at the key alone. `key` is valid only if the result is `whole`.
   State tryReadKey(Key& key) const;

   // The same two, whatever the sequence says: for what a dead writer left. A damaged key is returned empty.
   State load(const Key& key, RecordInfo& info, void* payload, std::size_t size) const;
   Key intactKey() const;
   // The words where the key is, unchecked.
   Key::Words peekKey() const;

 private:
   const Word* payloadWords() const { return reinterpret_cast<const Word*>(this + 1); }
   Word* payloadWords() { return reinterpret_cast<Word*>(this + 1); }
   std::uint64_t beginWrite();

   Word sequence_;
   Word checksum_;
   Word generation_;
   Word sampleTime_;     // the bits of a double
   Word keyHash_;        // of the key alone, so that the key of a torn record can still be trusted
   Word secondChecksum_; // 0: not known, since a writer of an earlier build wrote it
   Word unused_[2];
   Word key_[8]; // all zero: the slot is free
};

static_assert(sizeof(RecordSlot) == 2 * cacheLine);

} // namespace Silo
