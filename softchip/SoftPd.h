// The PD interface of the soft chips.
#pragma once

#include "zl/ZlPd.h"

namespace SoftChip {

// Serves every chip of the fleet, and may outlive the fleet.
class SoftPd : public ZlPd::ZlPdIntf {
 public:
   // Empty if there is no such entry.
   Kiln::String counterDecodeMatch(U32 session, U32 device, U32 tableHandle, S32 entry) const override;

   // For entries of the L2-domain count tables: the fields vlanId, 1 to 4094, and decapType, 0 or 1, are required,
   // ingMdSnatHit, 0 or 1, is not. Status 4 for an entry that exists, 3 for invalid fields.
   U32 entryAdd(U32 session, U32 device, U16 pipe, const Kiln::String& matchTable,
                std::span<const ZlPd::MatchField> match, U32* entry) override;
   U32 entryDel(U32 session, U32 device, const Kiln::String& matchTable, U32 entry) override;
};

} // namespace SoftChip
