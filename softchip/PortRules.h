// What a chip's ports let through.
#pragma once

#include "kiln/Types.h"

#include <limits>
#include <vector>

namespace SoftChip {

// Ports are given by place, as the chip numbers them; VLANs are 0 to 4095. At first a port lets everything through.
// Owned by the chip, under the SDK's lock.
class PortRules {
 public:
   static constexpr unsigned vlanLimit = 4096;

   explicit PortRules(std::size_t places) : ports_(places) {}

   bool vlanAllowed(std::size_t place, U16 vlan) const {
      const std::vector<bool>& denied = ports_[place].deniedVlans;
      return denied.empty() || !denied[vlan];
   }
   void vlanAllowedIs(std::size_t place, U16 vlan, bool allowed) {
      std::vector<bool>& denied = ports_[place].deniedVlans;
      denied.resize(vlanLimit);
      denied[vlan] = !allowed;
   }

   // The longest frame that may leave from the port, FCS included.
   U32 mtu(std::size_t place) const { return ports_[place].mtu; }
   void mtuIs(std::size_t place, U32 octets) { ports_[place].mtu = octets; }

   // Whether frames that arrive there for an unknown station are flooded.
   bool floods(std::size_t place) const { return ports_[place].floods; }
   void floodsIs(std::size_t place, bool floods) { ports_[place].floods = floods; }

 private:
   struct Port {
      std::vector<bool> deniedVlans; // by VLAN; empty: none
      U32 mtu = std::numeric_limits<U32>::max();
      bool floods = true;
   };

   std::vector<Port> ports_;
};

} // namespace SoftChip
