// The library of the ingress L2-domain count table: what arrives, by VLAN.
#pragma once

#include "kiln/Accessors.h"
#include "zl/ZlL2DomainCount.h"

namespace ZlIngL2DomainCount {

using ZlL2DomainCount::OnMissActionSpec;

// What an entry matches.
class IngL2DomainCountMatchSpec : public Kiln::PtrInterface {
   KILN_ATTRIBUTE(Bridging::VlanId, vlanId)
   // 0: ordinary traffic; 1: traffic that was decapsulated on this VLAN.
   KILN_ATTRIBUTE(U8, decapType)
   // Whether a source-NAT rule was hit; unset where the program's table has no such field.
   KILN_ATTRIBUTE(std::optional<bool>, ingMdSnatHit)
};

inline ZlL2DomainCount::Match matchOf(const IngL2DomainCountMatchSpec& spec) {
   return {spec.vlanId(), spec.decapType(), spec.ingMdSnatHit()};
}

struct IngL2DomainCountEntry {
   Kiln::Ptr<const IngL2DomainCountMatchSpec> matchSpec;
   OnMissActionSpec actionSpec;
};

class IngL2DomainCountTable
     : public ZlL2DomainCount::L2DomainCountTable<IngL2DomainCountEntry, IngL2DomainCountMatchSpec> {
 public:
   using L2DomainCountTable::L2DomainCountTable;
};

// The arguments are ZlTable::CountTable's.
Kiln::Ptr<IngL2DomainCountTable>
ingL2DomainCountTableFactory(Kiln::Ptr<ZlTable::KeyManager> keyManager,
                             Kiln::Ptr<ZlTable::TableStatusManager> tableStatusManager,
                             Kiln::Ptr<ZlPd::ZlPdIntf> pdIntf, U32 flags, U32 session, U32 device, U16 pipe,
                             const Kiln::String& tableName);

} // namespace ZlIngL2DomainCount
