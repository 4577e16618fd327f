// The library of the egress L2-domain count table: what leaves, by VLAN.
#pragma once

#include "kiln/Accessors.h"
#include "zel/VlanId.h"
#include "zl/ZlTable.h"

namespace ZlEgrL2DomainCount {

// What an entry matches.
class EgrL2DomainCountMatchSpec : public Kiln::PtrInterface {
   KILN_ATTRIBUTE(Bridging::VlanId, vlanId)
   // 0: ordinary traffic; 1: traffic that was decapsulated into this VLAN.
   KILN_ATTRIBUTE(U8, decapType)
};

// The table's default action: count, and let pass.
struct OnMissActionSpec {};

struct EgrL2DomainCountEntry {
   Kiln::Ptr<const EgrL2DomainCountMatchSpec> matchSpec;
   OnMissActionSpec actionSpec;
};

class EgrL2DomainCountTable : public ZlTable::CountTable {
 public:
   using CountTable::CountTable;

   // Throws ZlTable::ZlTableException when the chip refuses the entry.
   void entryIs(const EgrL2DomainCountEntry& entry);
   // The table's own slot of the match spec: tests false, and its handle is 0, while the table holds no such
   // entry. Good as long as the table.
   const ZlTable::EntrySlot& entry(const EgrL2DomainCountMatchSpec& matchSpec) const;
   void entryDel(const EgrL2DomainCountMatchSpec& matchSpec);
};

// The arguments are CountTable's.
Kiln::Ptr<EgrL2DomainCountTable>
egrL2DomainCountTableFactory(Kiln::Ptr<ZlTable::KeyManager> keyManager,
                             Kiln::Ptr<ZlTable::TableStatusManager> tableStatusManager,
                             Kiln::Ptr<ZlPd::ZlPdIntf> pdIntf, U32 flags, U32 session, U32 device, U16 pipe,
                             const Kiln::String& tableName);

} // namespace ZlEgrL2DomainCount
