// A reader of a shared table, for records of any one size; TableReader adds the record type.
#pragma once

#include "silo/KeyIndex.h"
#include "silo/Patience.h"
#include "silo/RecordSlot.h"
#include "silo/TableAttachment.h"

#include <cstddef>
#include <optional>
#include <string>

namespace Silo {

// See TableReader for the contract.
class RawTableReader {
 public:
   RawTableReader(const Store& store, const std::string& name, const RecordLayout& layout);

   ReadResult read(const Key& key, void* payload, RecordInfo& info);
   const TableState& state();
   bool isWriterAlive();
   const std::string& problem() const { return attachment_.problem(); }
   Patience patience() const { return Patience(attachment_.mapping()); }

   // A walk over the slots, for snapshots. Within it the reader stays with the mapping that it has.
   bool beginWalk(); // false: unavailable
   std::size_t capacity() const { return attachment_.state().capacity; }
   // `absent` for a free slot. `key` goes in as the caller's guess, which saves time if it is right, and comes out as
   // the slot's key.
   ReadResult readSlot(std::size_t i, Patience& patience, Key& key, void* payload, RecordInfo& info) const;
   enum class WalkEnd {
      stable,
      keysAdded, // one may have moved to another slot, or been missed
      lost,      // the table was replaced, removed or cut meanwhile; problem() says so
   };
   WalkEnd endWalk();

 private:
   const TableHeader& header() const { return attachment_.header(); }
   const RecordSlot& slot(std::size_t i) const {
      return *reinterpret_cast<const RecordSlot*>(attachment_.mapping().data() + geometry_.slotsOffset +
                                                  i * geometry_.slotStride);
   }

   bool refresh(bool isThorough);
   void forgetKeys();
   ReadResult readAttached(const Key& key, void* payload, RecordInfo& info);
   void indexKeys();
   ReadResult readIndexed(std::size_t i, Patience& patience, const Key& key, void* payload,
                          RecordInfo& info) const;
   RecordSlot::State settle(std::size_t i, Patience& patience, const Key& key, void* payload,
                            RecordInfo& info) const;

   const RecordLayout layout_;
   const TableGeometry geometry_;
   TableAttachment attachment_;
   unsigned readsUntilThorough_ = 0;
   std::uint64_t walkVersion_ = 0;

   KeyIndex index_;                            // may be out of date: the slot's own key decides
   std::optional<std::uint64_t> indexVersion_; // the directory version that the index was made from
   bool isIndexComplete_ = false;              // every key was intact at that moment
};

} // namespace Silo
