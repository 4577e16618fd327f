// One counter table of a chip: the hardware's counts, and the SDK's software copy of them.
#pragma once

#include "softchip/P4Program.h"
#include "zl/ZlPortLayout.h"

#include <array>
#include <memory>
#include <span>
#include <vector>

namespace SoftChip {

constexpr U16 allPipes = 65535;

struct CounterValue {
   U64 packets = 0;
   U64 bytes = 0;
   bool operator==(const CounterValue&) const = default;
};

// The values of a pipe, or the sums over all of them, as the software copy had them when they were asked for: they share its
// blocks, which whoever writes then leaves alone. Read on any thread; made, copied and let go under the SDK's lock.
class TableValues {
 public:
   using Block = std::vector<CounterValue>; // a pipe's values, by slot

   bool has(U32 slot) const { return blocks_[0] && slot < blocks_[0]->size(); }
   // The caller checks the slot.
   CounterValue at(U32 slot) const {
      CounterValue total;
      for (const auto& block : blocks_) {
         if (block) {
            total.packets += (*block)[slot].packets;
            total.bytes += (*block)[slot].bytes;
         }
      }
      return total;
   }

 private:
   friend class CounterTable;
   std::array<std::shared_ptr<const Block>, ZlPort::maxPipes> blocks_; // from the first place on
};

// Each pipe counts for itself, whatever the mode; a read for all pipes gives the sum over them. An entry of a direct
// table is at the slot of its match entry's handle; slot 0 is unused. Under the SDK's lock. The caller checks pipes and
// slots.
class CounterTable {
 public:
   // `hardware` holds hardwareWords() and outlives the table. What it holds already appears with the first sync.
   CounterTable(const CounterTableSpec& spec, unsigned pipes, std::span<U64> hardware);

   static std::size_t hardwareWords(const CounterTableSpec& spec, unsigned pipes) {
      return std::size_t{2} * pipes * slotsOf(spec);
   }

   const CounterTableSpec& spec() const { return spec_; }
   U32 slots() const { return slots_; }

   bool symmetric() const { return symmetric_; }
   void symmetricIs(bool symmetric) { symmetric_ = symmetric; }
   // Whether the table is initialized. It is once it has been asked in vain as many times as was set.
   bool askInitialized();
   void initializedAfterIs(U32 queries) { queriesInVain_ = queries; }

   // The SDK begins anew: its copy is empty until the next sync, and the mode is the program's.
   void restart();

   // Frames are counted.
   void count(unsigned pipe, U32 slot, U64 packets, U64 bytes) {
      CounterValue& counter = hardware_[pipe * slots_ + slot];
      counter.packets += spec_.packets ? packets : 0;
      counter.bytes += spec_.bytes ? bytes : 0;
      stale_[pipe] = true;
   }
   CounterValue hardware(U16 pipe, U32 slot) const;
   // A value for all pipes goes to the first one. What the table does not count stays 0.
   void hardwareIs(U16 pipe, U32 slot, const CounterValue& value);

   // Refreshes the software copy.
   void sync(U16 pipe);
   CounterValue read(U16 pipe, U32 slot) const;
   TableValues values(U16 pipe) const;
   // Writes both the hardware and the software copy.
   void write(U16 pipe, U32 slot, const CounterValue& value);

 private:
   static U32 slotsOf(const CounterTableSpec& spec) { return spec.size + (spec.direct ? 1 : 0); }
   template <class ValueOf>
   CounterValue sum(U16 pipe, ValueOf valueOf) const;
   template <class ValueOf>
   void put(U16 pipe, const CounterValue& value, ValueOf valueOf) const;
   TableValues::Block& ownBlock(unsigned pipe);

   CounterTableSpec spec_;
   U32 slots_;
   unsigned pipes_;
   bool symmetric_;
   U32 queriesInVain_ = 0;
   std::span<CounterValue> hardware_; // by pipe, then by slot
   // The software copy, by pipe. A block that a started read shares is never written, but replaced.
   std::vector<std::shared_ptr<TableValues::Block>> software_;
   // By pipe: the hardware may differ from the copy. A sync skips a table that has not counted since the last one.
   std::array<bool, ZlPort::maxPipes> stale_;
};

} // namespace SoftChip
