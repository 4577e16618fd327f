// The range check and the text of a VLAN id.
#include "zel/VlanId.h"

#include <ostream>
#include <stdexcept>

namespace Bridging {

VlanId::VlanId(U32 value) : value_(static_cast<U16>(value)) {
   if (value < min || value > max) {
      throw std::range_error("VlanId::value < 1 or > 4094 not allowed");
   }
}

std::ostream& operator<<(std::ostream& out, const VlanId& vlan) {
   return out << vlan.value();
}

} // namespace Bridging
