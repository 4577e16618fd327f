// One record as it lies in shared memory, under a sequence lock.
//
// Memory order. The one writer makes `sequence` odd, stores the words, and makes it even again; a reader
// takes what lies between two equal even sequences. That holds without fences (which the thread sanitizer
// doesn't see), because every word is stored with release and loaded with acquire:
//  - A reader that loads a word of write W synchronizes with that store, so the odd sequence that W stored
//  before
//    it happens before the reader's second look, which can't find the older even value any more.
//  - A reader whose first look finds the even sequence that closed W synchronizes with that store, so that it
//  loads
//    words of W or later ones, and for later ones the first point holds.
// On x86 these are plain moves. A writer that dies leaves the sequence odd.
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

// The checksum of the record, and a copy of its payload to `copy`, which has room for whole rows, in one go.
std::uint64_t copyWithChecksum(const RecordContent& content, void* copy);

class alignas(cacheLine) RecordSlot {
 public:
   // Bytes from one slot to the next for payloads of this size.
   static constexpr std::size_t strideFor(std::size_t payloadSize) {
      return sizeof(RecordSlot) + (payloadSize + cacheLine - 1) / cacheLine * cacheLine;
   }

   // For the one writer. `checksum` is the content's, which the caller has anyway.
   void write(const RecordContent& content, std::uint64_t checksum);
   void clear();

   enum class State {
      whole,
      free,
      changing, // being written, or left so
      corrupt,
      otherKey, // of another key than the one given
   };

   // One attempt, for writer and readers. Info and payload mean something only if the record is whole. The
   // key is the caller's expectation, so that it is compared on the way and nothing is made of its words.
   State tryRead(const Key& key, RecordInfo& info, void* payload, std::size_t size) const;
   // One attempt at the key alone, which is set if whole.
   State tryReadKey(Key& key) const;

   // The same two whatever the sequence says: for what a dead writer left. The key is empty if it isn't
   // intact.
   State load(const Key& key, RecordInfo& info, void* payload, std::size_t size) const;
   Key intactKey() const;
   // The words where the key is, whatever they are.
   Key::Words peekKey() const;

 private:
   const Word* payloadWords() const { return reinterpret_cast<const Word*>(this + 1); }
   Word* payloadWords() { return reinterpret_cast<Word*>(this + 1); }
   std::uint64_t beginWrite();

   Word sequence_;
   Word checksum_;
   Word generation_;
   Word sampleTime_; // the bits of a double
   Word keyHash_;    // guards the key alone, for a record that is otherwise torn
   Word unused_[3];
   Word key_[8]; // all zero: the slot is free
};

static_assert(sizeof(RecordSlot) == 2 * cacheLine);

} // namespace Silo
