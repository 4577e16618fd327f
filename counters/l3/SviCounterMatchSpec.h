// What one VLAN's hardware entries match.
#pragma once

#include "counters/l3/SviCounterMap.h"
#include "kiln/Accessors.h"
#include "zl/ZlEgrL2DomainCount.h"
#include "zl/ZlIngL2DomainCount.h"

namespace ZelCounter {

// One per enabled VLAN of a chip.
class SviCounterMatchSpec : public Kiln::PtrInterface {
 public:
   // The tables' slots of the entries, set once they are programmed: a read takes the handle from there
   // instead of looking the match spec up. Null where the match spec has to be looked up.
   struct Entries {
      const ZlTable::EntrySlot* ordinary = nullptr;
      const ZlTable::EntrySlot* decapsulated = nullptr;
      const ZlTable::EntrySlot* sourceNat = nullptr;
   };
   Entries ingress;
   Entries egress;

   // Nobody watches them, so a change has nothing to tell.
   KILN_MAP_OF_KIND(SviCounterMap, SviCounterKey, Kiln::Ptr<ZlIngL2DomainCount::IngL2DomainCountMatchSpec>,
                    ingL2DomainMatchSpec, static_cast<void>(0), static_cast<void>(0))
   KILN_MAP_OF_KIND(SviCounterMap, SviCounterKey, Kiln::Ptr<ZlEgrL2DomainCount::EgrL2DomainCountMatchSpec>,
                    egrL2DomainMatchSpec, static_cast<void>(0), static_cast<void>(0))
};

} // namespace ZelCounter
