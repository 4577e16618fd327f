// Spells ingress match specs as the P4 program does.
#include "zl/ZlIngL2DomainCount.h"

namespace ZlIngL2DomainCount {

namespace {

U32 keyOf(const IngL2DomainCountMatchSpec& spec) {
   const U32 snat = spec.ingMdSnatHit() ? 1U + U32{*spec.ingMdSnatHit()} : 0U;
   return snat << 24 | U32{spec.decapType()} << 16 | spec.vlanId().value();
}

} // namespace

void IngL2DomainCountTable::entryIs(const IngL2DomainCountEntry& entry) {
   const IngL2DomainCountMatchSpec& spec = *entry.matchSpec;
   const ZlPd::MatchField fields[] = {{"vlanId", spec.vlanId().value()},
                                      {"decapType", spec.decapType()},
                                      {"ingMdSnatHit", U64{spec.ingMdSnatHit().value_or(false)}}};
   add(keyOf(spec), std::span(fields).first(spec.ingMdSnatHit() ? 3 : 2));
}

const ZlTable::EntrySlot& IngL2DomainCountTable::entry(const IngL2DomainCountMatchSpec& matchSpec) const {
   return slot(keyOf(matchSpec));
}

void IngL2DomainCountTable::entryDel(const IngL2DomainCountMatchSpec& matchSpec) {
   remove(keyOf(matchSpec));
}

Kiln::Ptr<IngL2DomainCountTable>
ingL2DomainCountTableFactory(Kiln::Ptr<ZlTable::KeyManager> keyManager,
                             Kiln::Ptr<ZlTable::TableStatusManager> tableStatusManager,
                             Kiln::Ptr<ZlPd::ZlPdIntf> pdIntf, U32 flags, U32 session, U32 device, U16 pipe,
                             const Kiln::String& tableName) {
   return Kiln::allocate<IngL2DomainCountTable>(std::move(keyManager), std::move(tableStatusManager),
                                                std::move(pdIntf), flags, session, device, pipe, tableName);
}

} // namespace ZlIngL2DomainCount
