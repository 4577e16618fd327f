// Moves values between hardware and software copy.
#include "softchip/CounterTable.h"

#include "kiln/Assert.h"

#include <algorithm>

namespace SoftChip {

// Takes the hardware's words as pairs.
CounterTable::CounterTable(const CounterTableSpec& spec, unsigned pipes, std::span<U64> hardware)
     : spec_(spec), slots_(slotsOf(spec)), pipes_(pipes), symmetric_(spec.symmetric),
       hardware_(reinterpret_cast<CounterValue*>(hardware.data()), hardware.size() / 2),
       software_(hardware_.size()) {
   static_assert(sizeof(CounterValue) == 2 * sizeof(U64));
   stale_.fill(true);
   KILN_ASSERT(hardware.size() == hardwareWords(spec, pipes) && pipes <= stale_.size());
}

bool CounterTable::askInitialized() {
   if (queriesInVain_ == 0) {
      return true;
   }
   --queriesInVain_;
   return false;
}

void CounterTable::restart() {
   symmetric_ = spec_.symmetric;
   std::fill(software_.begin(), software_.end(), CounterValue{});
   stale_.fill(true);
}

CounterValue CounterTable::sum(std::span<const CounterValue> copy, U16 pipe, U32 slot) const {
   if (pipe != allPipes) {
      return copy[pipe * slots() + slot];
   }
   CounterValue total;
   for (unsigned each = 0; each < pipes_; ++each) {
      total.packets += copy[each * slots() + slot].packets;
      total.bytes += copy[each * slots() + slot].bytes;
   }
   return total;
}

void CounterTable::put(std::span<CounterValue> copy, U16 pipe, U32 slot, const CounterValue& value) const {
   // So that the sum over the pipes is the value.
   if (pipe == allPipes) {
      for (unsigned each = 1; each < pipes_; ++each) {
         copy[each * slots() + slot] = {};
      }
      pipe = 0;
   }
   copy[pipe * slots() + slot] = {spec_.packets ? value.packets : 0, spec_.bytes ? value.bytes : 0};
}

void CounterTable::hardwareIs(U16 pipe, U32 slot, const CounterValue& value) {
   put(hardware_, pipe, slot, value);
   stale_.fill(true);
}

void CounterTable::sync(U16 pipe) {
   for (unsigned each = 0; each < pipes_; ++each) {
      if ((pipe == each || pipe == allPipes) && stale_[each]) {
         std::copy_n(hardware_.begin() + each * slots(), slots(), software_.begin() + each * slots());
         stale_[each] = false;
      }
   }
}

void CounterTable::readAll(U16 pipe, std::vector<CounterValue>& into) const {
   into.resize(slots());
   if (pipe != allPipes) {
      std::copy_n(software_.begin() + pipe * slots(), slots(), into.begin());
      return;
   }
   for (U32 slot = 0; slot < slots(); ++slot) {
      into[slot] = sum(software_, allPipes, slot);
   }
}

void CounterTable::write(U16 pipe, U32 slot, const CounterValue& value) {
   put(hardware_, pipe, slot, value);
   // The pipe stays as stale as it was: its other slots may still differ.
   put(software_, pipe, slot, value);
}

} // namespace SoftChip
