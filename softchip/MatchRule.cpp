// The text of a rule.
#include "softchip/MatchRule.h"

#include "kiln/Choices.h"

#include <cinttypes>
#include <cstdio>

namespace SoftChip {

Kiln::String MatchRule::text() const {
   std::vector<Kiln::String> conditions;
   const auto add = [&](const char* format, U64 value) {
      char piece[48];
      std::snprintf(piece, sizeof piece, format, value);
      conditions.emplace_back(piece);
   };
   if (destinationMacMask != 0) {
      add("dmac %012" PRIx64, destinationMac);
      if (destinationMacMask != broadcastMac) {
         add("mask %012" PRIx64, destinationMacMask);
      }
   }
   if (vlanId != 0) {
      add("vlan %" PRIu64, vlanId);
   }
   if (decapType) {
      add("decapType %" PRIu64, *decapType);
   }
   if (snatHit) {
      add("snatHit %" PRIu64, U64{*snatHit});
   }
   if (etherType != 0) {
      add("etherType 0x%04" PRIx64, etherType);
   }
   if (ipProtocol != 0) {
      add("ipProtocol %" PRIu64, ipProtocol);
   }
   if (sourcePort != 0) {
      add("sport %" PRIu64, sourcePort);
   }
   if (destinationPort != 0) {
      add("dport %" PRIu64, destinationPort);
   }
   return conditions.empty() ? "any" : Kiln::joined(conditions, ", ");
}

} // namespace SoftChip
