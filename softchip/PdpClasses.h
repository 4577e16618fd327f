// The PDP classes: a chip sorts the frames that it receives by protocol.
#pragma once

#include "kiln/Types.h"
#include "softchip/Frame.h"

#include <array>

namespace SoftChip {

struct PdpClass {
   const char* name;
   U8 id; // below ZlPort::pdpClassesPerSlot
};

// A frame of no other class is "default".
inline constexpr std::array pdpClasses = {
     PdpClass{"default", 0}, PdpClass{"arp", 1},    PdpClass{"lacp", 2},  PdpClass{"lldp", 3},
     PdpClass{"stp", 4},     PdpClass{"isis", 5},   PdpClass{"eapol", 6}, PdpClass{"ptp", 7},
     PdpClass{"ospf", 8},    PdpClass{"bgp", 9},    PdpClass{"bfd", 10},  PdpClass{"vrrp", 11},
     PdpClass{"pim", 12},    PdpClass{"igmp", 13},  PdpClass{"dhcp", 14}, PdpClass{"icmp", 15},
     PdpClass{"icmpv6", 16}, PdpClass{"vxlan", 17},
};

// The id of the frame's class. Any thread.
U8 pdpClassOf(const FrameInfo& frame);

} // namespace SoftChip
