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
   // The entries' slots in the tables, set once the entries are programmed, so that a read needs no look-up by match
   // spec. A null slot means that one is needed. A slot keeps its address, whatever becomes of the entry.
   struct Entries {
      const ZlTable::EntrySlot* ordinary = nullptr;
      const ZlTable::EntrySlot* decapsulated = nullptr;
      const ZlTable::EntrySlot* sourceNat = nullptr;
   };
   Entries ingress;
   Entries egress;

   // The number of this programming of the entries, one for each in the process: what they count is a source of its own.
   U32 programming = 0;
   // Their VLAN had gone, and came back before all of them were removed: what they counted before is nobody's.
   bool isResumed = false;
   // Whether anybody was ever counted by these entries: as an interface, and for source NAT.
   bool isCounted = false;
   bool isNatCounted = false;

   // Nobody watches these maps, so a change notifies nobody.
   KILN_MAP_OF_KIND(SviCounterMap, SviCounterKey, Kiln::Ptr<ZlIngL2DomainCount::IngL2DomainCountMatchSpec>,
                    ingL2DomainMatchSpec, static_cast<void>(0), static_cast<void>(0))
   KILN_MAP_OF_KIND(SviCounterMap, SviCounterKey, Kiln::Ptr<ZlEgrL2DomainCount::EgrL2DomainCountMatchSpec>,
                    egrL2DomainMatchSpec, static_cast<void>(0), static_cast<void>(0))
};

} // namespace ZelCounter
