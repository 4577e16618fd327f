// The PD interface of the soft chips.
#pragma once

#include "zl/ZlPd.h"

namespace SoftChip {

// Serves every chip of the fleet, also when a chip, or the fleet, is gone.
class SoftPd : public ZlPd::ZlPdIntf {
 public:
   // Empty when there is no such entry.
   Kiln::String counterDecodeMatch(U32 session, U32 device, U32 tableHandle, S32 entry) const override;
};

} // namespace SoftChip
