// The header of a shared table: what the table holds, and who writes it.
//
// A table's memory holds the header, the writer's journal entry and the record slots, in this order, each aligned to a
// cache line.
#pragma once

#include "silo/ClockDomain.h"
#include "silo/Mapping.h"
#include "silo/Record.h"
#include "silo/Words.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>

namespace Silo {

// What changes with each start of a writer. A reader's copy.
struct TableState {
   std::uint64_t capacity = 0; // records
   std::uint64_t epoch = 0;    // counts the starts of writers since the table was created, from 1
   pid_t writerPid = 0;        // 0: the last writer closed the table in good order
   double pollingInterval = 0; // seconds between two samples of a record
   ClockDomain clockDomain;    // of the sample times

   bool operator==(const TableState&) const = default;
};

class alignas(cacheLine) TableHeader {
 public:
   static constexpr std::uint64_t formatVersion = 2;
   static constexpr std::size_t maxCapacity = 1'000'000;

   // The identity: written once, the magic number last, then constant.
   void identityIs(const RecordLayout& layout);
   // Empty if this is a table of such records; else says what it is instead and what was expected.
   std::string identityProblem(const RecordLayout& layout) const;
   // Whether the identity is as some writer wrote it; if not, it says nothing of what the table holds.
   bool isIdentityIntact() const;

   // The state: one writer, under the same kind of sequence lock as a record.
   void stateIs(const TableState& state);
   enum class StateRead { whole, changing, corrupt };
   StateRead tryReadState(TableState& state) const;
   // Differs after every stateIs, so that one load tells a reader whether to look again.
   std::uint64_t stateSequence() const { return stateSequence_.load(std::memory_order_acquire); }
   // Sends every attached reader back to the table's name. For a writer that abandons this memory.
   void retire();

   // Rises after a key was added, so that readers know that their index may lack one. A deleted key they notice from
   // its slot. Not under the checksum: damage only makes readers look for their keys again.
   std::uint64_t directoryVersion() const { return directoryVersion_.load(std::memory_order_acquire); }
   void directoryVersionInc() {
      directoryVersion_.store(directoryVersion_.load(std::memory_order_relaxed) + 1,
                              std::memory_order_release);
   }

   // Generations that may not come back: the highest of all records that there ever were, and of those that were
   // removed. For writers only, and not under the checksum: a writer also knows the generations of the records that it
   // finds, so these matter only for records that are gone. A table older than these words has zeros here.
   std::uint64_t highestGeneration() const { return believable(highestGeneration_); }
   void highestGenerationIs(std::uint64_t generation) {
      highestGeneration_.store(generation, std::memory_order_release);
   }
   std::uint64_t removedGeneration() const { return believable(removedGeneration_); }
   void removedGenerationIs(std::uint64_t generation) {
      removedGeneration_.store(generation, std::memory_order_release);
   }

 private:
   // No record is written so often that its top bit gets set. A damaged word must not bring generations to their end.
   static std::uint64_t believable(const Word& generation) {
      const std::uint64_t value = generation.load(std::memory_order_relaxed);
      return value >> 63 == 0 ? value : 0;
   }
   std::uint64_t identityChecksum() const;
   static constexpr std::size_t stateWords = 7;

   Word magic_;
   Word formatVersion_;
   Word layoutName_[4]; // NUL-terminated
   Word layoutVersion_;
   Word recordSize_;
   Word identityChecksum_;

   alignas(cacheLine) Word stateSequence_; // 0: no writer has got this far yet
   Word directoryVersion_;
   Word stateChecksum_;
   Word state_[stateWords];
   Word highestGeneration_;
   Word removedGeneration_;
};

// Tables of earlier releases have to fit.
static_assert(sizeof(TableHeader) == 4 * cacheLine);

// Where things lie in a table of such records.
struct TableGeometry {
   explicit TableGeometry(const RecordLayout& layout);

   std::size_t sizeFor(std::size_t capacity) const { return slotsOffset + capacity * slotStride; }
   std::size_t capacityOf(std::size_t size) const {
      return size < slotsOffset ? 0 : (size - slotsOffset) / slotStride;
   }

   std::size_t journalOffset;
   std::size_t slotsOffset;
   std::size_t slotStride;
};

} // namespace Silo
