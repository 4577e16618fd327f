// Spells egress match specs as the P4 program does.
#include "zl/ZlEgrL2DomainCount.h"

namespace ZlEgrL2DomainCount {

namespace {

U32 keyOf(const EgrL2DomainCountMatchSpec& spec) {
   return U32{spec.decapType()} << 16 | spec.vlanId().value();
}

} // namespace

void EgrL2DomainCountTable::entryIs(const EgrL2DomainCountEntry& entry) {
   const EgrL2DomainCountMatchSpec& spec = *entry.matchSpec;
   const ZlPd::MatchField fields[] = {{"vlanId", spec.vlanId().value()}, {"decapType", spec.decapType()}};
   add(keyOf(spec), fields);
}

const ZlTable::EntrySlot& EgrL2DomainCountTable::entry(const EgrL2DomainCountMatchSpec& matchSpec) const {
   return slot(keyOf(matchSpec));
}

void EgrL2DomainCountTable::entryDel(const EgrL2DomainCountMatchSpec& matchSpec) {
   remove(keyOf(matchSpec));
}

Kiln::Ptr<EgrL2DomainCountTable>
egrL2DomainCountTableFactory(Kiln::Ptr<ZlTable::KeyManager> keyManager,
                             Kiln::Ptr<ZlTable::TableStatusManager> tableStatusManager,
                             Kiln::Ptr<ZlPd::ZlPdIntf> pdIntf, U32 flags, U32 session, U32 device, U16 pipe,
                             const Kiln::String& tableName) {
   return Kiln::allocate<EgrL2DomainCountTable>(std::move(keyManager), std::move(tableStatusManager),
                                                std::move(pdIntf), flags, session, device, pipe, tableName);
}

} // namespace ZlEgrL2DomainCount
