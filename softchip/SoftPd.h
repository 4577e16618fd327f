// The PD interface of the soft chips.
#pragma once

#include "zl/ZlPd.h"

namespace SoftChip {

// Serves every chip of the fleet, also when a chip, or the fleet, is gone.
class SoftPd : public ZlPd::ZlPdIntf {
 public:
   // Empty when there is no such entry.
   Kiln::String counterDecodeMatch(U32 session, U32 device, U32 tableHandle, S32 entry) const override;

   // Entries of the L2-domain count tables: fields vlanId, 1 to 4094, and decapType, 0 or 1, both required,
   // and ingMdSnatHit, 0 or 1. An entry that is there already is status 4, what can't be an entry status 3.
   U32 entryAdd(U32 session, U32 device, U16 pipe, const Kiln::String& matchTable,
                std::span<const ZlPd::MatchField> match, U32* entry) override;
   U32 entryDel(U32 session, U32 device, const Kiln::String& matchTable, U32 entry) override;
};

} // namespace SoftChip
