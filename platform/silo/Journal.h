// The copy of the record that is being written, so that a writer killed half-way loses nothing.
#pragma once

#include "silo/RecordSlot.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace Silo {

// Holds one record: the last one that the writer began to write. It is complete before the first word of the
// slot changes, so at any moment at least one of the two is whole. Lies in the table's memory, but only the
// writer looks at it, hence plain memory; a kill stops the writer between two instructions, so that their
// order is all it takes.
class alignas(cacheLine) Journal {
 public:
   static constexpr std::size_t sizeFor(std::size_t payloadSize) {
      return sizeof(Journal) + (payloadSize + cacheLine - 1) / cacheLine * cacheLine;
   }

   // Answers the record's checksum.
   std::uint64_t write(std::size_t slot, const RecordContent& content);
   // Before a slot is cleared, lest a restart bring its record back.
   void clear();
   // The slot of the journalled record; it may be anything.
   std::size_t slot() const { return slot_ - 1; }
   // Gives the journalled record, and answers its checksum, if it is whole and was on its way to this slot. Else
   // what was given means nothing. The payload is copied out in whole rows.
   std::optional<std::uint64_t> take(std::size_t slot, Key& key, RecordInfo& info, void* payload,
                                     std::size_t size) const;

 private:
   static std::uint64_t sealOf(std::size_t slot, std::uint64_t checksum) {
      return checksum ^ (slot + 1) * 0x9e3779b97f4a7c15;
   }

   std::uint64_t slot_; // + 1; 0: none
   std::uint64_t seal_; // the record's checksum, bound to the slot
   RecordInfo info_;
   Key::Words key_;
};

} // namespace Silo
