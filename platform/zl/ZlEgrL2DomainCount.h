// The library of the egress L2-domain count table: what leaves, by VLAN.
#pragma once

#include "kiln/Accessors.h"
#include "zl/ZlL2DomainCount.h"

namespace ZlEgrL2DomainCount {

using ZlL2DomainCount::OnMissActionSpec;

// What an entry matches.
class EgrL2DomainCountMatchSpec : public Kiln::PtrInterface {
   KILN_ATTRIBUTE(Bridging::VlanId, vlanId)
   // 0: ordinary traffic; 1: traffic that was decapsulated into this VLAN.
   KILN_ATTRIBUTE(U8, decapType)
};

inline ZlL2DomainCount::Match matchOf(const EgrL2DomainCountMatchSpec& spec) {
   return {spec.vlanId(), spec.decapType()};
}

struct EgrL2DomainCountEntry {
   Kiln::Ptr<const EgrL2DomainCountMatchSpec> matchSpec;
   OnMissActionSpec actionSpec;
};

class EgrL2DomainCountTable
     : public ZlL2DomainCount::L2DomainCountTable<EgrL2DomainCountEntry, EgrL2DomainCountMatchSpec> {
 public:
   using L2DomainCountTable::L2DomainCountTable;
};

// The arguments are ZlTable::CountTable's.
Kiln::Ptr<EgrL2DomainCountTable>
egrL2DomainCountTableFactory(Kiln::Ptr<ZlTable::KeyManager> keyManager,
                             Kiln::Ptr<ZlTable::TableStatusManager> tableStatusManager,
                             Kiln::Ptr<ZlPd::ZlPdIntf> pdIntf, U32 flags, U32 session, U32 device, U16 pipe,
                             const Kiln::String& tableName);

} // namespace ZlEgrL2DomainCount
