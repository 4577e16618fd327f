// Passes on to the chip's tables.
#include "SoftPd.h"

#include "Fleet.h"

namespace SoftChip {

Kiln::String SoftPd::counterDecodeMatch(U32 /*session*/, U32 device, U32 tableHandle, S32 entry) const {
   Fleet* const fleet = Fleet::instance();
   Chip* const chip = fleet != nullptr ? fleet->chip(device) : nullptr;
   return chip != nullptr ? chip->entryText(tableHandle, entry) : Kiln::String();
}

} // namespace SoftChip
