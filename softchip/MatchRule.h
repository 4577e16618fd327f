// The rule of a match table's entry.
#pragma once

#include "kiln/Types.h"
#include "softchip/Frame.h"

#include <optional>

namespace SoftChip {

// The fields that a frame must have. A field at its default matches anything.
struct MatchRule {
   U64 destinationMac = 0;
   U64 destinationMacMask = 0; // the bits of destinationMac that matter
   U16 etherType = 0;
   U8 ipProtocol = 0;
   U16 sourcePort = 0;
   U16 destinationPort = 0;
   U16 vlanId = 0;
   // Only for entries of an L2-domain table, together with the VLAN: L2DomainCount looks those tables up.
   std::optional<U8> decapType = {};
   std::optional<bool> snatHit = {};
   bool drop = false; // what becomes of a frame that matches

   // `vlan` is the frame's VLAN in the chip.
   bool matches(const FrameInfo& frame, U16 vlan) const {
      return ((frame.destinationMac ^ destinationMac) & destinationMacMask) == 0 &&
             (etherType == 0 || etherType == frame.etherType) && (vlanId == 0 || vlanId == vlan) &&
             (ipProtocol == 0 || ipProtocol == frame.ip.protocol) &&
             (sourcePort == 0 || sourcePort == frame.ip.sourcePort) &&
             (destinationPort == 0 || destinationPort == frame.ip.destinationPort);
   }
   // "etherType 0x0800, ipProtocol 6", or "any".
   Kiln::String text() const;
   bool operator==(const MatchRule&) const = default;
};

} // namespace SoftChip
