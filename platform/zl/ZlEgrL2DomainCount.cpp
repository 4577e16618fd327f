// Makes the egress L2-domain count table.
#include "zl/ZlEgrL2DomainCount.h"

namespace ZlEgrL2DomainCount {

Kiln::Ptr<EgrL2DomainCountTable>
egrL2DomainCountTableFactory(Kiln::Ptr<ZlTable::KeyManager> keyManager,
                             Kiln::Ptr<ZlTable::TableStatusManager> tableStatusManager,
                             Kiln::Ptr<ZlPd::ZlPdIntf> pdIntf, U32 flags, U32 session, U32 device, U16 pipe,
                             const Kiln::String& tableName) {
   return Kiln::allocate<EgrL2DomainCountTable>(std::move(keyManager), std::move(tableStatusManager),
                                                std::move(pdIntf), flags, session, device, pipe, tableName);
}

} // namespace ZlEgrL2DomainCount
