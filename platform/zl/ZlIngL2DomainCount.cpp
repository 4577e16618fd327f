// Makes the ingress L2-domain count table.
#include "zl/ZlIngL2DomainCount.h"

namespace ZlIngL2DomainCount {

Kiln::Ptr<IngL2DomainCountTable>
ingL2DomainCountTableFactory(Kiln::Ptr<ZlTable::KeyManager> keyManager,
                             Kiln::Ptr<ZlTable::TableStatusManager> tableStatusManager,
                             Kiln::Ptr<ZlPd::ZlPdIntf> pdIntf, U32 flags, U32 session, U32 device, U16 pipe,
                             const Kiln::String& tableName) {
   return Kiln::allocate<IngL2DomainCountTable>(std::move(keyManager), std::move(tableStatusManager),
                                                std::move(pdIntf), flags, session, device, pipe, tableName);
}

} // namespace ZlIngL2DomainCount
