// What the soft chip's pipeline needs to know of a frame, and how to read it out of captured bytes.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace SoftChip {

constexpr uint32_t fcsOctets = 4;
constexpr uint16_t tpidCustomer = 0x8100;
constexpr uint16_t tpidService = 0x88a8;
constexpr uint16_t etherTypeIpv4 = 0x0800;
constexpr uint16_t etherTypeIpv6 = 0x86dd;
constexpr uint16_t etherTypeMacControl = 0x8808;
constexpr uint16_t macControlPause = 0x0001;
constexpr uint16_t macControlPfc = 0x0101;
constexpr uint8_t ipProtocolTcp = 6;
constexpr uint8_t ipProtocolUdp = 17;
constexpr uint8_t ipProtocolSctp = 132;
constexpr uint16_t vxlanUdpPort = 4789;
constexpr uint64_t broadcastMac = 0xffffffffffff;

enum class Destination : uint8_t { unicast, multicast, broadcast };
enum class IpVersion : uint8_t { none, v4, v6 };

struct VlanTag {
   uint16_t tpid = 0; // 0: the frame has no such tag
   uint16_t vlanId = 0;
   uint8_t priority = 0;
   bool dropEligible = false;

   bool present() const { return tpid != 0; }
   bool operator==(const VlanTag&) const = default;
};

struct IpHeader {
   IpVersion version = IpVersion::none;
   uint8_t dscp = 0;
   uint8_t protocol = 0;  // behind any IPv6 extension headers
   bool hasPorts = false; // TCP, UDP or SCTP, not a later fragment, and both ports were captured
   uint16_t sourcePort = 0;
   uint16_t destinationPort = 0;
   std::array<uint8_t, 16> source{}; // network order; IPv4 fills the first 4 octets
   std::array<uint8_t, 16> destination{};

   bool operator==(const IpHeader&) const = default;
};

struct VxlanHeader {
   bool present = false;
   bool hasInnerEthernet = false; // both inner addresses were captured
   uint32_t vni = 0;
   uint64_t innerDestinationMac = 0;
   uint64_t innerSourceMac = 0;

   bool operator==(const VxlanHeader&) const = default;
};

struct MacControl {
   bool present = false; // untagged, and the opcode was captured
   uint16_t opcode = 0;
   uint8_t pfcPriorities = 0; // bit N: a PFC frame names priority N

   bool operator==(const MacControl&) const = default;
};

/** One frame, as a value of fixed size. A header that the frame lacks, or of which not enough was captured,
 * reads as absent: its fields are zero. MAC addresses are the low 48 bits, first octet highest. */
struct FrameInfo {
   uint32_t wireLength = 0; // octets on the wire from the destination address to the FCS, both included
   Destination destination = Destination::unicast;
   bool fcsError = false;
   uint8_t tagCount = 0;      // all tags, up to 255; the first two are described below
   bool hasEtherType = false; // a type or length field was captured behind the tags
   uint16_t etherType = 0;    // up to 1500: the frame has a length field instead
   uint64_t destinationMac = 0;
   uint64_t sourceMac = 0;
   VlanTag outerTag;
   VlanTag innerTag;
   IpHeader ip;
   VxlanHeader vxlan;
   MacControl macControl;

   bool tagged() const { return outerTag.present(); }
   bool operator==(const FrameInfo&) const = default;
};

/** Which kind of destination a MAC address is. */
Destination destinationKind(uint64_t mac);

/** Reads a captured frame. `captured` begins at the destination address, has no FCS, and may end anywhere;
 * nothing past its end is read and nothing is kept of it. `originalLength` is the frame's length on the wire
 * without FCS, below 2^32 - 4. Never fails and never allocates; any thread. */
FrameInfo parseFrame(std::span<const uint8_t> captured, uint32_t originalLength);

} // namespace SoftChip
