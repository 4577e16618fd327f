// A copy of the record that is being written, so that a writer killed in the middle loses nothing.
#pragma once

#include "silo/RecordSlot.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace Silo {

// Holds one record: the one that the writer began to write last. The invariant: the journal is complete before the
// first word of the slot changes, so that at any moment at least one of the two is whole.
//
// It lies in the table's memory, but readers never look at it. So plain memory will do: a kill stops the writer
// between two instructions, and only their order has to be kept.
class alignas(cacheLine) Journal {
 public:
   static constexpr std::size_t sizeFor(std::size_t payloadSize) {
      return sizeof(Journal) + (payloadSize + cacheLine - 1) / cacheLine * cacheLine;
   }

   // Returns the record's checksums.
   RecordChecksums write(std::size_t slot, const RecordContent& content);
   // To be called before a slot is cleared; else a restart would bring its record back.
   void clear();
   // The slot of the journalled record. After damage it may be any number.
   std::size_t slot() const { return slot_ - 1; }
   // Hands out the journalled record and returns its checksums, if it is whole and was on its way to this slot.
   // Otherwise the arguments hold nothing valid. The payload is copied out in whole rows.
   std::optional<RecordChecksums> take(std::size_t slot, Key& key, RecordInfo& info, void* payload,
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
