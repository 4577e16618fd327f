// Parses Ethernet, VLAN, MAC control, IPv4, IPv6, layer 4 ports and VXLAN headers.
#include "softchip/Frame.h"

#include <algorithm>

namespace SoftChip {

namespace {

constexpr std::size_t macOctets = 6;
constexpr std::size_t tagOctets = 4;

// A position in the captured bytes. Callers ask has() before they read.
class Cursor {
 public:
   explicit Cursor(std::span<const U8> bytes) : bytes_(bytes) {}

   bool has(std::size_t count) const { return bytes_.size() >= count; }
   std::size_t size() const { return bytes_.size(); }
   void skip(std::size_t count) { bytes_ = bytes_.subspan(count); }
   void limit(std::size_t count) { bytes_ = bytes_.first(std::min(count, bytes_.size())); }
   U8 at(std::size_t offset) const { return bytes_[offset]; }
   U16 u16At(std::size_t offset) const { return static_cast<U16>(at(offset) << 8 | at(offset + 1)); }
   U64 macAt(std::size_t offset) const {
      U64 mac = 0;
      for (std::size_t i = 0; i < macOctets; ++i) {
         mac = mac << 8 | at(offset + i);
      }
      return mac;
   }
   void copyTo(std::array<U8, 16>& address, std::size_t offset, std::size_t count) const {
      std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), count, address.begin());
   }

 private:
   std::span<const U8> bytes_;
};

// A tag whose control word was cut off is still a tag, but only its TPID is known.
VlanTag tagAt(const Cursor& cursor, U16 tpid) {
   VlanTag tag;
   tag.tpid = tpid;
   if (!cursor.has(tagOctets)) {
      return tag;
   }
   U16 control = cursor.u16At(2);
   tag.vlanId = control & 0x0fff;
   tag.priority = static_cast<U8>(control >> 13);
   tag.dropEligible = (control & 0x1000) != 0;
   return tag;
}

// Leaves the cursor behind the type or length field. False if there is none.
bool parseTagsAndType(Cursor& cursor, FrameInfo& frame) {
   while (cursor.has(2)) {
      U16 type = cursor.u16At(0);
      if (type != tpidCustomer && type != tpidService) {
         frame.hasEtherType = true;
         frame.etherType = type;
         cursor.skip(2);
         return true;
      }
      VlanTag tag = tagAt(cursor, type);
      if (frame.tagCount == 0) {
         frame.outerTag = tag;
      } else if (frame.tagCount == 1) {
         frame.innerTag = tag;
      }
      // Stays at its highest value: a jumbo frame has room for more tags.
      if (frame.tagCount < UINT8_MAX) {
         ++frame.tagCount;
      }
      cursor.skip(std::min(tagOctets, cursor.size()));
   }
   return false;
}

void parseMacControl(const Cursor& cursor, MacControl& control) {
   if (!cursor.has(2)) {
      return;
   }
   control.present = true;
   control.opcode = cursor.u16At(0);
   // The priorities are a field of 16 bits, of which the upper octet is reserved.
   if (control.opcode == macControlPfc && cursor.has(4)) {
      control.pfcPriorities = cursor.at(3);
   }
}

void parseVxlan(Cursor cursor, VxlanHeader& vxlan) {
   constexpr std::size_t headerOctets = 8;
   constexpr U8 vniValid = 0x08;
   // Without this flag the header has no valid VNI (RFC 7348).
   if (!cursor.has(headerOctets) || (cursor.at(0) & vniValid) == 0) {
      return;
   }
   vxlan.present = true;
   vxlan.vni = static_cast<U32>(cursor.u16At(4)) << 8 | cursor.at(6);
   cursor.skip(headerOctets);
   if (!cursor.has(2 * macOctets)) {
      return;
   }
   vxlan.hasInnerEthernet = true;
   vxlan.innerDestinationMac = cursor.macAt(0);
   vxlan.innerSourceMac = cursor.macAt(macOctets);
}

void parsePorts(Cursor cursor, FrameInfo& frame) {
   constexpr std::size_t udpOctets = 8;
   IpHeader& ip = frame.ip;
   if (ip.protocol != ipProtocolTcp && ip.protocol != ipProtocolUdp && ip.protocol != ipProtocolSctp) {
      return;
   }
   if (!cursor.has(4)) {
      return;
   }
   // All three protocols begin with the source port and the destination port.
   ip.hasPorts = true;
   ip.sourcePort = cursor.u16At(0);
   ip.destinationPort = cursor.u16At(2);
   if (ip.protocol == ipProtocolUdp && ip.destinationPort == vxlanUdpPort && cursor.has(udpOctets)) {
      cursor.skip(udpOctets);
      parseVxlan(cursor, frame.vxlan);
   }
}

void parseIpv4(Cursor cursor, FrameInfo& frame) {
   constexpr std::size_t minHeaderOctets = 20;
   if (!cursor.has(minHeaderOctets) || cursor.at(0) >> 4 != 4) {
      return;
   }
   std::size_t headerOctets = std::size_t{4} * (cursor.at(0) & 0x0fU);
   if (headerOctets < minHeaderOctets) {
      return;
   }
   IpHeader& ip = frame.ip;
   ip.version = IpVersion::v4;
   ip.dscp = cursor.at(1) >> 2;
   ip.protocol = cursor.at(9);
   cursor.copyTo(ip.source, 12, 4);
   cursor.copyTo(ip.destination, 16, 4);
   // Later fragments have no layer 4 header: their data would pass for ports.
   bool firstFragment = (cursor.u16At(6) & 0x1fff) == 0;
   // What follows the packet's own end is Ethernet padding. Captures taken above segmentation offload have length 0.
   if (U16 totalLength = cursor.u16At(2); totalLength != 0) {
      cursor.limit(totalLength);
   }
   // With options cut off, only the ports are out of reach; the addresses are known.
   if (!firstFragment || !cursor.has(headerOctets)) {
      return;
   }
   cursor.skip(headerOctets);
   parsePorts(cursor, frame);
}

// Walks the extension headers. Leaves the protocol behind them in the frame and the cursor at its header; false if that
// header is not there to read.
bool skipIpv6Extensions(Cursor& cursor, IpHeader& ip) {
   constexpr U8 hopByHop = 0;
   constexpr U8 routing = 43;
   constexpr U8 fragment = 44;
   constexpr U8 authentication = 51;
   constexpr U8 destinationOptions = 60;
   constexpr std::size_t minOctets = 8;
   // Ends with the captured bytes, since each turn takes at least 8 of them.
   for (;;) {
      std::size_t octets = minOctets;
      bool laterFragment = false;
      if (ip.protocol != hopByHop && ip.protocol != routing && ip.protocol != destinationOptions &&
          ip.protocol != authentication && ip.protocol != fragment) {
         return true;
      }
      if (!cursor.has(minOctets)) {
         return false;
      }
      if (ip.protocol == authentication) {
         // The only one that gives its length in words of 4 octets, less 2 (RFC 4302).
         octets = std::size_t{4} * (cursor.at(1) + 2U);
      } else if (ip.protocol == fragment) {
         laterFragment = (cursor.u16At(2) & 0xfff8) != 0;
      } else {
         octets = std::size_t{8} * (cursor.at(1) + 1U);
      }
      // Before the return: a later fragment has no ports to read, but its protocol is known.
      ip.protocol = cursor.at(0);
      if (laterFragment || !cursor.has(octets)) {
         return false;
      }
      cursor.skip(octets);
   }
}

void parseIpv6(Cursor cursor, FrameInfo& frame) {
   constexpr std::size_t headerOctets = 40;
   if (!cursor.has(headerOctets) || cursor.at(0) >> 4 != 6) {
      return;
   }
   IpHeader& ip = frame.ip;
   ip.version = IpVersion::v6;
   ip.dscp = static_cast<U8>((cursor.u16At(0) >> 6) & 0x3f);
   ip.protocol = cursor.at(6);
   cursor.copyTo(ip.source, 8, 16);
   cursor.copyTo(ip.destination, 24, 16);
   U16 payloadLength = cursor.u16At(4);
   cursor.skip(headerOctets);
   if (payloadLength != 0) { // 0: jumbogram or segmentation offload
      cursor.limit(payloadLength);
   }
   if (skipIpv6Extensions(cursor, ip)) {
      parsePorts(cursor, frame);
   }
}

} // namespace

Destination destinationKind(U64 mac) {
   constexpr U64 groupBit = U64{1} << 40;
   if (mac == broadcastMac) {
      return Destination::broadcast;
   }
   return (mac & groupBit) != 0 ? Destination::multicast : Destination::unicast;
}

// A tagged frame of the MAC control type is data: the MAC consumes control frames before anything looks at tags.
FrameInfo parseFrame(std::span<const U8> captured, U32 originalLength) {
   FrameInfo frame;
   frame.wireLength = originalLength + fcsOctets;
   Cursor cursor(captured);
   if (!cursor.has(macOctets)) {
      if (cursor.has(1) && (cursor.at(0) & 1) != 0) {
         frame.destination = Destination::multicast; // the first octet has the group bit
      }
      return frame;
   }
   frame.destinationMac = cursor.macAt(0);
   frame.destination = destinationKind(frame.destinationMac);
   cursor.skip(macOctets);
   if (!cursor.has(macOctets)) {
      return frame;
   }
   frame.sourceMac = cursor.macAt(0);
   cursor.skip(macOctets);
   if (!parseTagsAndType(cursor, frame)) {
      return frame;
   }
   if (frame.etherType == etherTypeIpv4) {
      parseIpv4(cursor, frame);
   } else if (frame.etherType == etherTypeIpv6) {
      parseIpv6(cursor, frame);
   } else if (frame.etherType == etherTypeMacControl && !frame.tagged()) {
      parseMacControl(cursor, frame.macControl);
   }
   return frame;
}

} // namespace SoftChip
