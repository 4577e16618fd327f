// The writer of a shared table, for records of any one size; Table adds the record type.
#pragma once

#include "silo/Errors.h"
#include "silo/FormerLayout.h"
#include "silo/Journal.h"
#include "silo/KeyIndex.h"
#include "silo/RecordSlot.h"
#include "silo/Store.h"
#include "silo/TableHeader.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Silo {

struct TableOptions {
   std::size_t capacity = 0;       // records; a table kept from an earlier start never shrinks
   double pollingInterval = 0;     // seconds, above 0
   ClockDomain clockDomain;        // of the sample times that will be written
   CorruptionHandler onCorruption; // may be empty
   bool isBegunAnew = false;       // drop the records of an earlier start
   bool isProvisional = false;     // a table that is created goes with its writer, unless that keeps it
   std::size_t restingLooks =
        TableHeader::maxCapacity; // records that nobody writes of which a mend() reads so many
};

// See Table for the contract. One thread at a time. Neither copied nor moved: the mapping has one owner.
class RawTable {
 public:
   RawTable(const Store& store, const std::string& name, const RecordLayout& layout, const void* defaultEntry,
            TableOptions options, const FormerLayout& former = {});
   ~RawTable();
   RawTable(const RawTable&) = delete;
   RawTable& operator=(const RawTable&) = delete;

   const std::string& name() const { return name_; }
   std::size_t capacity() const { return index_.slotCount(); }
   std::size_t size() const { return index_.size(); }
   bool has(const Key& key) const { return index_.find(key) != KeyIndex::none; }
   std::vector<Key> keys() const;

   void write(const Key& key, const void* payload, double sampleTime);
   void remove(const Key& key);
   RecordInfo read(const Key& key, void* payload) const;
   RecordInfo readOrDefault(const Key& key, void* payload) const;
   void pollingIntervalIs(double seconds);
   void keep() { options_.isProvisional = false; }
   void mend();
   std::uint64_t losses() const { return losses_; }
   bool isIntact(const Key& key) const;
   pid_t unclosedBy() const { return unclosedBy_; }

 private:
   using SlotIndex = std::size_t;
   TableHeader& header() const { return *reinterpret_cast<TableHeader*>(mapping_.data()); }
   Journal& journal() const { return *reinterpret_cast<Journal*>(mapping_.data() + geometry_.journalOffset); }
   RecordSlot& slot(SlotIndex i) const {
      return *reinterpret_cast<RecordSlot*>(mapping_.data() + geometry_.slotsOffset +
                                            i * geometry_.slotStride);
   }

   // A table of the former layout that is to be taken over, by its locked mapping.
   RawTable(const RawTable& successor, const FormerLayout& former, Mapping mapping);

   void open(const FormerLayout& former);
   void removeIfNew();
   std::string problemWith(const RecordLayout& layout) const;
   bool holds(const RecordLayout& layout);
   bool restoreIdentity(const RecordLayout& layout);
   void create(std::size_t capacity);
   void recreate();
   void takeOver(const FormerLayout& former);
   std::size_t restoreState();
   void restore(std::size_t kept, std::size_t capacity);
   void reset(std::size_t capacity);
   std::string lossInMemory() const;
   void remake(const std::string& problem);
   std::size_t carryOver(const Mapping& old);
   void findOverwritten();
   void clearOverwrittenUnused();
   bool isIntact(SlotIndex i) const;
   void restoreSlots(std::size_t kept);
   bool restoreSlot(SlotIndex i);
   bool mendSlot(SlotIndex i);
   void beginAnew(SlotIndex i);
   const char* findingOf(SlotIndex i) const;
   void adopt(SlotIndex i, const Key& key, const RecordInfo& info);
   void listFreeSlots();
   void begin();
   void highestGenerationIs(std::uint64_t generation);
   void removedGenerationIs(std::uint64_t generation);
   void prefetch(SlotIndex i) const;
   SlotIndex slotFor(const Key& key);
   void writeSlot(SlotIndex i, const RecordContent& content);
   void freeSlot(SlotIndex i);
   void report(const std::string& key, std::string text, Corruption::Remedy remedy) const;

   const Store store_;
   const std::string name_;
   const RecordLayout layout_;
   const TableGeometry geometry_;
   const std::vector<std::byte> defaultEntry_;
   TableOptions options_;

   Mapping mapping_;
   bool isNew_ = false; // made by this writer, in place of nothing
   pid_t unclosedBy_ = 0;
   TableState state_;
   // The writer's own copy of keys and generations: it never trusts shared memory, which others might overwrite.
   KeyIndex index_;
   std::vector<std::uint64_t> generations_; // by slot
   std::vector<std::uint64_t> looked_;      // the generations when mend() looked last
   std::vector<bool> isLost_;               // by slot: missing or overwritten, and reported
   SlotIndex lookedAt_ = 0;                 // the last one that was looked at for being unused
   SlotIndex restingAt_ = 0;                // the next one that is looked at although nobody writes it
   std::uint64_t losses_ = 0;
   bool isNameLost_ = false;             // reported, and not yet made anew
   std::uint64_t highestGeneration_ = 0; // see TableHeader
   std::uint64_t removedGeneration_ = 0;
   std::vector<SlotIndex> free_;            // the last one is used next
   SlotIndex nextGuess_ = 0;                // after the one written last: passes write records in one order
   mutable std::vector<std::byte> scratch_; // room for one record, in whole rows
};

} // namespace Silo
