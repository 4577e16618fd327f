// Moves values between hardware and software copy.
#include "softchip/CounterTable.h"

#include "kiln/Assert.h"

#include <algorithm>

namespace SoftChip {

// Takes the hardware's words as pairs.
CounterTable::CounterTable(const CounterTableSpec& spec, unsigned pipes, std::span<U64> hardware)
     : spec_(spec), slots_(slotsOf(spec)), pipes_(pipes), symmetric_(spec.symmetric),
       hardware_(reinterpret_cast<CounterValue*>(hardware.data()), hardware.size() / 2), software_(pipes) {
   static_assert(sizeof(CounterValue) == 2 * sizeof(U64));
   restart();
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
   for (auto& block : software_) {
      block = std::make_shared<TableValues::Block>(slots_);
   }
   stale_.fill(true);
}

// `valueOf` gives what a pipe holds.
template <class ValueOf>
CounterValue CounterTable::sum(U16 pipe, ValueOf valueOf) const {
   if (pipe != allPipes) {
      return valueOf(pipe);
   }
   CounterValue total;
   for (unsigned each = 0; each < pipes_; ++each) {
      total.packets += valueOf(each).packets;
      total.bytes += valueOf(each).bytes;
   }
   return total;
}

template <class ValueOf>
void CounterTable::put(U16 pipe, const CounterValue& value, ValueOf valueOf) const {
   // So that the sum over the pipes is the value.
   if (pipe == allPipes) {
      for (unsigned each = 1; each < pipes_; ++each) {
         valueOf(each) = {};
      }
      pipe = 0;
   }
   valueOf(pipe) = {spec_.packets ? value.packets : 0, spec_.bytes ? value.bytes : 0};
}

CounterValue CounterTable::hardware(U16 pipe, U32 slot) const {
   return sum(pipe, [&](unsigned each) { return hardware_[each * slots_ + slot]; });
}

void CounterTable::hardwareIs(U16 pipe, U32 slot, const CounterValue& value) {
   put(pipe, value, [&](unsigned each) -> CounterValue& { return hardware_[each * slots_ + slot]; });
   stale_.fill(true);
}

void CounterTable::sync(U16 pipe) {
   for (unsigned each = 0; each < pipes_; ++each) {
      if ((pipe == each || pipe == allPipes) && stale_[each]) {
         const auto counts = hardware_.subspan(std::size_t{each} * slots_, slots_);
         if (software_[each].use_count() == 1) {
            std::ranges::copy(counts, software_[each]->begin());
         } else {
            software_[each] = std::make_shared<TableValues::Block>(counts.begin(), counts.end());
         }
         stale_[each] = false;
      }
   }
}

CounterValue CounterTable::read(U16 pipe, U32 slot) const {
   return sum(pipe, [&](unsigned each) { return (*software_[each])[slot]; });
}

TableValues CounterTable::values(U16 pipe) const {
   TableValues values;
   const auto first = software_.begin() + (pipe == allPipes ? 0 : pipe);
   std::copy_n(first, pipe == allPipes ? pipes_ : 1, values.blocks_.begin());
   return values;
}

TableValues::Block& CounterTable::ownBlock(unsigned pipe) {
   if (software_[pipe].use_count() != 1) {
      software_[pipe] = std::make_shared<TableValues::Block>(*software_[pipe]);
   }
   return *software_[pipe];
}

void CounterTable::write(U16 pipe, U32 slot, const CounterValue& value) {
   put(pipe, value, [&](unsigned each) -> CounterValue& { return hardware_[each * slots_ + slot]; });
   // The pipe stays as stale as it was: its other slots may still differ.
   put(pipe, value, [&](unsigned each) -> CounterValue& { return ownBlock(each)[slot]; });
}

} // namespace SoftChip
