// The library of the ingress L2-domain count table: what arrives, by VLAN.
#pragma once

#include "kiln/Accessors.h"
#include "zel/VlanId.h"
#include "zl/ZlTable.h"

#include <optional>

namespace ZlIngL2DomainCount {

// What an entry matches.
class IngL2DomainCountMatchSpec : public Kiln::PtrInterface {
   KILN_ATTRIBUTE(Bridging::VlanId, vlanId)
   // 0: ordinary traffic; 1: traffic that was decapsulated on this VLAN.
   KILN_ATTRIBUTE(U8, decapType)
   // Whether a source-NAT rule was hit; unset where the program's table has no such field.
   KILN_ATTRIBUTE(std::optional<bool>, ingMdSnatHit)
};

// The table's default action: count, and let pass.
struct OnMissActionSpec {};

struct IngL2DomainCountEntry {
   Kiln::Ptr<const IngL2DomainCountMatchSpec> matchSpec;
   OnMissActionSpec actionSpec;
};

class IngL2DomainCountTable : public ZlTable::CountTable {
 public:
   using CountTable::CountTable;

   // Throws ZlTable::ZlTableException when the chip refuses the entry.
   void entryIs(const IngL2DomainCountEntry& entry);
   // The table's own slot of the match spec: tests false, and its handle is 0, while the table holds no such
   // entry. Good as long as the table.
   const ZlTable::EntrySlot& entry(const IngL2DomainCountMatchSpec& matchSpec) const;
   void entryDel(const IngL2DomainCountMatchSpec& matchSpec);
};

// The arguments are CountTable's.
Kiln::Ptr<IngL2DomainCountTable>
ingL2DomainCountTableFactory(Kiln::Ptr<ZlTable::KeyManager> keyManager,
                             Kiln::Ptr<ZlTable::TableStatusManager> tableStatusManager,
                             Kiln::Ptr<ZlPd::ZlPdIntf> pdIntf, U32 flags, U32 session, U32 device, U16 pipe,
                             const Kiln::String& tableName);

} // namespace ZlIngL2DomainCount
