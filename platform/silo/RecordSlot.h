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

   std::uint64_t checksum() const;
};

class alignas(bytesPerBlock) RecordSlot {
 public:
   // Bytes from one slot to the next for payloads of this size.
   static constexpr std::size_t strideFor(std::size_t payloadSize) {
      return sizeof(RecordSlot) + (payloadSize + bytesPerBlock - 1) / bytesPerBlock * bytesPerBlock;
   }

   // For the one writer. `checksum` is content.checksum(), which the caller has anyway.
   void write(const RecordContent& content, std::uint64_t checksum);
   void clear();

   enum class State {
      whole,
      free,
      changing, // being written, or left so
      corrupt,
   };

   // One attempt, for writer and readers. Key, info and payload are filled in any case, and mean something
   // only if whole.
   State tryRead(Block& key, RecordInfo& info, void* payload, std::size_t size) const;
   // The same whatever the sequence says, so never `changing`: for the writer, and for what a dead one left.
   State load(Block& key, RecordInfo& info, void* payload, std::size_t size) const;
   // The words where the key is, which may just be changing.
   Block peekKey() const;
   // For a record that isn't whole: its key, or an empty one if that is damaged, too.
   Key keyIfIntact() const;

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
   Word key_[wordsPerBlock]; // all zero: the slot is free
};

static_assert(sizeof(RecordSlot) == 2 * bytesPerBlock);

} // namespace Silo
