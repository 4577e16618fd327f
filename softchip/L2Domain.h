// The L2 domain of a frame, and the look-up of count entries by L2 domain.
#pragma once

#include "kiln/Types.h"

#include <optional>
#include <vector>

namespace SoftChip {

// What the L2-domain count tables tell apart.
struct L2Domain {
   U16 vlan = 0;
   U8 decapType = 0; // 1: the frame was decapsulated into the VLAN
   bool snatHit = false;
};

// The handles of entries, by what they match. Not thread-safe.
class L2DomainIndex {
 public:
   static constexpr unsigned vlanLimit = 4096;
   static constexpr unsigned decapTypes = 2;

   // The entry's handle; 0 stands for none, and deletes it. Without snatHit: the entry that matches either value. The
   // caller checks VLAN and decapsulation type.
   U32 handle(U16 vlan, U8 decapType, std::optional<bool> snatHit) const {
      return handles_.empty() ? 0 : handles_[place(vlan, decapType, snatHit)];
   }
   void handleIs(U16 vlan, U8 decapType, std::optional<bool> snatHit, U32 handle) {
      if (handles_.empty()) {
         handles_.resize(std::size_t{vlanLimit} * decapTypes * 3);
      }
      handles_[place(vlan, decapType, snatHit)] = handle;
   }

   // The entry that the frame hits, or 0.
   U32 lookUp(const L2Domain& domain) const {
      const U32 exact = handle(domain.vlan, domain.decapType, domain.snatHit);
      return exact != 0 ? exact : handle(domain.vlan, domain.decapType, std::nullopt);
   }

 private:
   static std::size_t place(U16 vlan, U8 decapType, std::optional<bool> snatHit) {
      const unsigned snat = snatHit ? 1U + unsigned{*snatHit} : 0U;
      return (std::size_t{vlan} * decapTypes + decapType) * 3 + snat;
   }

   std::vector<U32> handles_; // empty before the first entry
};

} // namespace SoftChip
