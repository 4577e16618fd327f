// One counter table of a chip: what the hardware counts, and the SDK's software copy of it.
#pragma once

#include "softchip/P4Program.h"

#include <array>
#include <span>
#include <vector>

namespace SoftChip {

constexpr U16 allPipes = 65535;

struct CounterValue {
   U64 packets = 0;
   U64 bytes = 0;
   bool operator==(const CounterValue&) const = default;
};

// Each pipe counts for itself, whatever the mode; what is read for all pipes is the sum over them. An entry of
// a direct table stands at the slot of its match entry's handle, and slot 0 is nobody's. Under the SDK's lock;
// pipes and slots are the caller's to check.
class CounterTable {
 public:
   // `hardware` holds hardwareWords() and outlives the table. What it holds already is seen after a sync.
   CounterTable(const CounterTableSpec& spec, unsigned pipes, std::span<U64> hardware);

   static std::size_t hardwareWords(const CounterTableSpec& spec, unsigned pipes) {
      return std::size_t{2} * pipes * slotsOf(spec);
   }

   const CounterTableSpec& spec() const { return spec_; }
   U32 slots() const { return slots_; }

   bool symmetric() const { return symmetric_; }
   void symmetricIs(bool symmetric) { symmetric_ = symmetric; }
   // Whether the table is initialized, which it becomes after having been asked so many times in vain.
   bool askInitialized();
   void initializedAfterIs(U32 queries) { queriesInVain_ = queries; }

   // Frames are counted.
   void count(unsigned pipe, U32 slot, U64 packets, U64 bytes) {
      CounterValue& counter = hardware_[pipe * slots_ + slot];
      counter.packets += spec_.packets ? packets : 0;
      counter.bytes += spec_.bytes ? bytes : 0;
      stale_[pipe] = true;
   }
   CounterValue hardware(U16 pipe, U32 slot) const { return sum(hardware_, pipe, slot); }
   // For all pipes, the first holds the value. What the table doesn't count stays 0.
   void hardwareIs(U16 pipe, U32 slot, const CounterValue& value);

   // Refreshes the software copy.
   void sync(U16 pipe);
   CounterValue read(U16 pipe, U32 slot) const { return sum(software_, pipe, slot); }
   void readAll(U16 pipe, std::vector<CounterValue>& into) const;
   // Goes to the hardware and to the software copy.
   void write(U16 pipe, U32 slot, const CounterValue& value);

 private:
   static U32 slotsOf(const CounterTableSpec& spec) { return spec.size + (spec.direct ? 1 : 0); }
   CounterValue sum(std::span<const CounterValue> copy, U16 pipe, U32 slot) const;
   void put(std::span<CounterValue> copy, U16 pipe, U32 slot, const CounterValue& value) const;

   CounterTableSpec spec_;
   U32 slots_;
   unsigned pipes_;
   bool symmetric_;
   U32 queriesInVain_ = 0;
   std::span<CounterValue> hardware_; // by pipe, then by slot; the software copy too
   std::vector<CounterValue> software_;
   std::array<bool, 4> stale_{true, true, true, true}; // by pipe: the hardware may differ from the copy
};

} // namespace SoftChip
