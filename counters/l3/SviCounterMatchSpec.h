// What one VLAN's hardware entries match.
#pragma once

#include "kiln/Accessors.h"
#include "l3/SviCounterKey.h"
#include "zl/ZlEgrL2DomainCount.h"
#include "zl/ZlIngL2DomainCount.h"

#include <array>

namespace ZelCounter {

constexpr SviCounterKey sviOrdinary{0, false};
constexpr SviCounterKey sviDecapsulated{1, false};
constexpr SviCounterKey sviSourceNat{0, true}; // ingress only

// One per enabled VLAN of a chip.
class SviCounterMatchSpec : public Kiln::PtrInterface {
 public:
   // The tables' slots of the entries, set once they are programmed: a read takes the handle from there
   // instead of looking the match spec up.
   struct Entries {
      const ZlTable::EntrySlot* ordinary = nullptr;
      const ZlTable::EntrySlot* decapsulated = nullptr;
      const ZlTable::EntrySlot* sourceNat = nullptr;
   };
   Entries ingress;
   Entries egress;

   KILN_HASH_MAP(SviCounterKey, Kiln::Ptr<ZlIngL2DomainCount::IngL2DomainCountMatchSpec>,
                 ingL2DomainMatchSpec)
   KILN_HASH_MAP(SviCounterKey, Kiln::Ptr<ZlEgrL2DomainCount::EgrL2DomainCountMatchSpec>,
                 egrL2DomainMatchSpec)
};

} // namespace ZelCounter
