// The parts of a frame that the soft chip's pipeline looks at, and how to parse them.
#pragma once

#include "kiln/Types.h"

#include <array>
#include <span>

namespace SoftChip {

constexpr U32 fcsOctets = 4;
constexpr U16 tpidCustomer = 0x8100;
constexpr U16 tpidService = 0x88a8;
constexpr U16 etherTypeIpv4 = 0x0800;
constexpr U16 etherTypeIpv6 = 0x86dd;
constexpr U16 etherTypeMacControl = 0x8808;
constexpr U16 macControlPause = 0x0001;
constexpr U16 macControlPfc = 0x0101;
constexpr U8 ipProtocolTcp = 6;
constexpr U8 ipProtocolUdp = 17;
constexpr U8 ipProtocolSctp = 132;
constexpr U16 vxlanUdpPort = 4789;
constexpr U64 broadcastMac = 0xffffffffffff;

enum class Destination : U8 { unicast, multicast, broadcast };
enum class IpVersion : U8 { none, v4, v6 };

struct VlanTag {
   U16 tpid = 0; // 0: the frame has no such tag
   U16 vlanId = 0;
   U8 priority = 0;
   bool dropEligible = false;

   bool present() const { return tpid != 0; }
   bool operator==(const VlanTag&) const = default;
};

struct IpHeader {
   IpVersion version = IpVersion::none;
   U8 dscp = 0;
   U8 protocol = 0;       // behind any IPv6 extension headers
   bool hasPorts = false; // TCP, UDP or SCTP, not a later fragment, and both ports were captured
   U16 sourcePort = 0;
   U16 destinationPort = 0;
   std::array<U8, 16> source{}; // network order; IPv4 fills the first 4 octets
   std::array<U8, 16> destination{};

   bool operator==(const IpHeader&) const = default;
};

struct VxlanHeader {
   bool present = false;
   bool hasInnerEthernet = false; // both inner addresses were captured
   U32 vni = 0;
   U64 innerDestinationMac = 0;
   U64 innerSourceMac = 0;

   bool operator==(const VxlanHeader&) const = default;
};

struct MacControl {
   bool present = false; // untagged, and the opcode was captured
   U16 opcode = 0;
   U8 pfcPriorities = 0; // bit N: a PFC frame names priority N

   bool operator==(const MacControl&) const = default;
};

// One frame, as a value of fixed size. A header that is missing, or was not captured far enough, is absent: its fields
// are zero. MAC addresses are the low 48 bits, first octet highest.
struct FrameInfo {
   U32 wireLength = 0; // octets on the wire from the destination address to the FCS, both included
   Destination destination = Destination::unicast;
   bool fcsError = false;
   U8 tagCount = 0;           // all tags, up to 255; the first two are described below
   bool hasEtherType = false; // a type or length field was captured behind the tags
   U16 etherType = 0;         // up to 1500: the frame has a length field instead
   U64 destinationMac = 0;
   U64 sourceMac = 0;
   VlanTag outerTag;
   VlanTag innerTag;
   IpHeader ip;
   VxlanHeader vxlan;
   MacControl macControl;

   bool tagged() const { return outerTag.present(); }
   bool operator==(const FrameInfo&) const = default;
};

// The kind of destination that a MAC address stands for.
Destination destinationKind(U64 mac);

// Parses a captured frame. `captured` begins at the destination address, has no FCS, and may end anywhere; it is not
// kept. `originalLength` is the frame's length on the wire without FCS, below 2^32 - 4. Never fails and never
// allocates; any thread.
FrameInfo parseFrame(std::span<const U8> captured, U32 originalLength);

} // namespace SoftChip
