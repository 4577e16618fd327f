// VLAN identifiers (IEEE 802.1Q).
#pragma once

#include "kiln/Types.h"

#include <compare>
#include <functional>
#include <iosfwd>

namespace Bridging {

// 1 to 4094. Throws std::range_error for anything else.
class VlanId {
 public:
   static constexpr U16 min = 1;
   static constexpr U16 max = 4094;

   constexpr VlanId() noexcept = default; // VLAN 1
   explicit VlanId(U32 value);
   constexpr U16 value() const noexcept { return value_; }
   auto operator<=>(const VlanId&) const noexcept = default;

 private:
   U16 value_ = min;
};

std::ostream& operator<<(std::ostream& out, const VlanId& vlan);

} // namespace Bridging

template <>
struct std::hash<Bridging::VlanId> {
   std::size_t operator()(const Bridging::VlanId& vlan) const noexcept { return vlan.value(); }
};
