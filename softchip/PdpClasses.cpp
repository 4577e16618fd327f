// Recognises protocols by their addresses, types and ports.
#include "softchip/PdpClasses.h"

#include <string_view>

namespace SoftChip {

namespace {

consteval U8 idOf(std::string_view name) {
   for (const PdpClass& each : pdpClasses) {
      if (each.name == name) {
         return each.id;
      }
   }
   throw "no such class"; // never compiles as a constant
}

constexpr U8 defaultClass = idOf("default");

// Protocols over IEEE 802.2 have a length instead of a type: their group address identifies them.
U8 classByMac(U64 mac) {
   switch (mac) {
   case 0x0180c2000000:
   case 0x0180c2000008:
      return idOf("stp");
   case 0x0180c2000014:
   case 0x0180c2000015:
      return idOf("isis");
   default:
      return defaultClass;
   }
}

bool usesPort(const IpHeader& ip, U16 first, U16 second) {
   return ip.destinationPort == first || ip.destinationPort == second || ip.sourcePort == first ||
          ip.sourcePort == second;
}

U8 classByUdp(const IpHeader& ip) {
   if (usesPort(ip, 67, 68) || usesPort(ip, 546, 547)) {
      return idOf("dhcp");
   }
   // From here on only the destination tells: the source port is the sender's own choice.
   if (ip.destinationPort == 3784 || ip.destinationPort == 4784) {
      return idOf("bfd");
   }
   if (ip.destinationPort == 319 || ip.destinationPort == 320) {
      return idOf("ptp");
   }
   return ip.destinationPort == vxlanUdpPort ? idOf("vxlan") : defaultClass;
}

U8 classByIp(const IpHeader& ip) {
   switch (ip.protocol) {
   case 1:
      return idOf("icmp");
   case 2:
      return idOf("igmp");
   case ipProtocolTcp:
      return usesPort(ip, 179, 179) ? idOf("bgp") : defaultClass;
   case ipProtocolUdp:
      return classByUdp(ip);
   case 58:
      return idOf("icmpv6");
   case 89:
      return idOf("ospf");
   case 103:
      return idOf("pim");
   case 112:
      return idOf("vrrp");
   default:
      return defaultClass;
   }
}

} // namespace

U8 pdpClassOf(const FrameInfo& frame) {
   if (frame.ip.version != IpVersion::none) {
      return classByIp(frame.ip);
   }
   switch (frame.etherType) {
   case 0x0806:
      return idOf("arp");
   case 0x8809:
      return idOf("lacp");
   case 0x88cc:
      return idOf("lldp");
   case 0x888e:
      return idOf("eapol");
   case 0x88f7:
      return idOf("ptp");
   default:
      return classByMac(frame.destinationMac);
   }
}

} // namespace SoftChip
