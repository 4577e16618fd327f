// Draws frames whose fields agree with each other, as if they had been parsed off the wire.
#include "softchip/TrafficGenerator.h"

#include <algorithm>
#include <array>

namespace SoftChip {

namespace {

constexpr U64 nanosecondsPerSecond = 1'000'000'000;
constexpr U64 batchesPerSecond = 200; // per port, about; fewer if it has fewer frames
constexpr U32 minFrameOctets = 64;
constexpr U32 ethernetOctets = 14 + fcsOctets;
constexpr U32 tagOctets = 4;
constexpr U32 ipv4Octets = 20;
constexpr U32 ipv6Octets = 40;
constexpr U32 udpOctets = 8;
constexpr U32 tcpOctets = 20;
constexpr U32 vxlanOctets = 8;
constexpr U32 hostsPerPort = 16;
constexpr U16 etherTypeArp = 0x0806;
constexpr U16 etherTypeExperimental = 0x88b5;
constexpr U64 macControlMac = 0x0180c2000001;

// Out of 1000 batches.
constexpr U32 macControlShare = 4;
constexpr U32 fcsErrorShare = 4;
constexpr U32 undersizeShare = 2;
constexpr U32 multicastShare = 40;
constexpr U32 broadcastShare = 20;
constexpr U32 taggedShare = 600;
constexpr U32 doubleTaggedShare = 50; // of the tagged ones
constexpr U32 ipv6Share = 250;
constexpr U32 vxlanShare = 40; // of the unicast UDP ones
constexpr U32 tcpShare = 650;

// Frame lengths: the three peaks of ordinary internet traffic, something in between, and a few jumbo frames.
struct LengthShare {
   U32 perThousand;
   U32 min, max;
};
constexpr std::array<LengthShare, 8> lengthShares = {{
     {450, 64, 64},
     {120, 65, 127},
     {60, 128, 511},
     {190, 594, 594},
     {60, 512, 1023},
     {95, 1518, 1518},
     {15, 1519, 9000},
     {10, 9018, 9216},
}};
constexpr U32 allShares() {
   U32 sum = 0;
   for (const LengthShare& share : lengthShares) {
      sum += share.perThousand;
   }
   return sum;
}
static_assert(allShares() == 1000);

// A locally administered address that tells the host's port.
U64 hostMac(std::size_t port, U32 host) {
   return U64{0x02} << 40 | static_cast<U64>(port) << 16 | host;
}

void putBytes(std::array<U8, 16>& address, std::size_t offset, U32 value, std::size_t count) {
   for (std::size_t i = 0; i < count; ++i) {
      address[offset + i] = static_cast<U8>(value >> (8 * (count - 1 - i)));
   }
}

// In 10.0.0.0/8 or 2001:db8::/32, with the host's port and number in the last octets.
std::array<U8, 16> hostAddress(IpVersion version, U64 mac) {
   std::array<U8, 16> address{};
   auto portAndHost = static_cast<U32>(mac & 0xffff'ffff);
   if (version == IpVersion::v4) {
      putBytes(address, 0, 10U << 24 | (portAndHost >> 8 & 0x00ffff00U) | (portAndHost & 0xff), 4);
   } else {
      putBytes(address, 0, 0x20010db8, 4);
      putBytes(address, 12, portAndHost, 4);
   }
   return address;
}

// The group address whose MAC address is groupMac().
std::array<U8, 16> groupAddress(IpVersion version, U32 group) {
   std::array<U8, 16> address{};
   if (version == IpVersion::v4) {
      putBytes(address, 0, 239U << 24 | group, 4);
   } else {
      putBytes(address, 0, 0xff05, 2);
      putBytes(address, 12, group, 4);
   }
   return address;
}

U64 groupMac(IpVersion version, U32 group) {
   return version == IpVersion::v4 ? U64{0x01005e000000} | group : U64{0x333300000000} | group;
}

// From a quiet host to a busy uplink: a thousand times a power of two, give or take a quarter.
U64 drawRate(SeededRandom& random) {
   constexpr U32 lowest = 1000;
   constexpr U32 doublings = 11;
   U32 base = lowest << random.below(doublings);
   return random.between(base - base / 4, base + base / 4);
}

FrameInfo drawMacControl(SeededRandom& random, std::size_t port) {
   constexpr U32 pfcShare = 500;
   FrameInfo frame;
   frame.wireLength = minFrameOctets;
   frame.destinationMac = macControlMac;
   frame.destination = Destination::multicast;
   frame.sourceMac = hostMac(port, 0);
   frame.hasEtherType = true;
   frame.etherType = etherTypeMacControl;
   frame.macControl.present = true;
   frame.macControl.opcode = macControlPause;
   if (random.chance(pfcShare)) {
      frame.macControl.opcode = macControlPfc;
      frame.macControl.pfcPriorities = static_cast<U8>(random.between(1, UINT8_MAX));
   }
   return frame;
}

VlanTag drawTag(SeededRandom& random, U16 tpid) {
   constexpr U32 vlans = 16;
   VlanTag tag;
   tag.tpid = tpid;
   tag.vlanId = static_cast<U16>(10 * random.between(1, vlans));
   tag.priority = static_cast<U8>(random.below(8));
   return tag;
}

// Returns the octets that the tags take.
U32 addTags(SeededRandom& random, FrameInfo& frame) {
   if (!random.chance(taggedShare)) {
      return 0;
   }
   frame.tagCount = 1;
   if (random.chance(doubleTaggedShare)) {
      frame.tagCount = 2;
      frame.outerTag = drawTag(random, tpidService);
      frame.innerTag = drawTag(random, tpidCustomer);
   } else {
      frame.outerTag = drawTag(random, tpidCustomer);
   }
   return frame.tagCount * tagOctets;
}

// Fills in a UDP header that carries another Ethernet frame. Returns the octets of all that.
U32 addVxlan(SeededRandom& random, FrameInfo& frame) {
   constexpr U32 firstVni = 10'000;
   constexpr U32 vnis = 16;
   frame.ip.destinationPort = vxlanUdpPort;
   frame.vxlan.present = true;
   frame.vxlan.hasInnerEthernet = true;
   frame.vxlan.vni = firstVni + random.below(vnis);
   frame.vxlan.innerDestinationMac = hostMac(0, random.below(hostsPerPort));
   frame.vxlan.innerSourceMac = hostMac(0, random.below(hostsPerPort));
   return udpOctets + vxlanOctets + minFrameOctets - fcsOctets;
}

// Fills in the IP header and ports for the frame's addresses. Returns the octets that they take.
U32 addIp(SeededRandom& random, FrameInfo& frame, IpVersion version, U32 group) {
   constexpr U32 firstEphemeralPort = 49152;
   constexpr std::array<U16, 6> servicePorts = {22, 53, 80, 179, 443, 8080};
   frame.etherType = version == IpVersion::v4 ? etherTypeIpv4 : etherTypeIpv6;
   IpHeader& ip = frame.ip;
   ip.version = version;
   // In agreement with the tag, so that a frame gets the same queue by either.
   ip.dscp = static_cast<U8>((frame.tagged() ? frame.outerTag.priority : random.below(8)) << 3);
   ip.source = hostAddress(version, frame.sourceMac);
   bool unicast = frame.destination == Destination::unicast;
   ip.destination = unicast ? hostAddress(version, frame.destinationMac) : groupAddress(version, group);
   ip.protocol = unicast && random.chance(tcpShare) ? ipProtocolTcp : ipProtocolUdp;
   ip.hasPorts = true;
   ip.sourcePort = static_cast<U16>(random.between(firstEphemeralPort, UINT16_MAX));
   ip.destinationPort = servicePorts[random.below(servicePorts.size())];
   U32 octets = version == IpVersion::v4 ? ipv4Octets : ipv6Octets;
   if (ip.protocol == ipProtocolTcp) {
      return octets + tcpOctets;
   }
   if (unicast && random.chance(vxlanShare)) {
      return octets + addVxlan(random, frame);
   }
   return octets + udpOctets;
}

U32 drawLength(SeededRandom& random) {
   U32 ticket = random.below(1000);
   const LengthShare* share = lengthShares.data();
   while (ticket >= share->perThousand) {
      ticket -= (share++)->perThousand;
   }
   return random.between(share->min, share->max);
}

FrameInfo drawData(SeededRandom& random, std::size_t port, std::size_t portCount) {
   constexpr U32 groups = 64;
   FrameInfo frame;
   frame.hasEtherType = true;
   frame.sourceMac = hostMac(port, random.below(hostsPerPort));
   // Drawn one by one: the order in which a call's arguments are evaluated differs between compilers.
   const U32 host = random.below(hostsPerPort);
   frame.destinationMac = hostMac(random.below(static_cast<U32>(portCount)), host);
   if (random.chance(undersizeShare)) {
      frame.etherType = etherTypeExperimental;
      frame.wireLength = random.between(ethernetOctets, minFrameOctets - 1);
      return frame;
   }
   U32 octets = ethernetOctets + addTags(random, frame);
   if (random.chance(broadcastShare)) {
      frame.destinationMac = broadcastMac;
      frame.destination = Destination::broadcast;
      frame.etherType = etherTypeArp;
      frame.wireLength = minFrameOctets;
      return frame;
   }
   IpVersion version = random.chance(ipv6Share) ? IpVersion::v6 : IpVersion::v4;
   U32 group = random.below(groups);
   if (random.chance(multicastShare)) {
      frame.destinationMac = groupMac(version, group);
      frame.destination = Destination::multicast;
   }
   octets += addIp(random, frame, version, group);
   // The headers have to fit: those of VXLAN over IPv6 alone are longer than the shortest frame.
   frame.wireLength = std::max(octets, drawLength(random));
   return frame;
}

U64 framesBy(U64 framesPerSecond, std::chrono::nanoseconds time) {
   if (time.count() <= 0) {
      return 0;
   }
   auto count = static_cast<U64>(time.count());
   // Seconds and the rest separately, so that nothing overflows before 2^64 frames.
   return count / nanosecondsPerSecond * framesPerSecond +
          count % nanosecondsPerSecond * framesPerSecond / nanosecondsPerSecond;
}

} // namespace

U64 SeededRandom::next() {
   state_ += 0x9e3779b97f4a7c15;
   U64 value = state_;
   value = (value ^ value >> 30) * 0xbf58476d1ce4e5b9;
   value = (value ^ value >> 27) * 0x94d049bb133111eb;
   return value ^ value >> 31;
}

TrafficGenerator::TrafficGenerator(U64 seed, std::size_t portCount) {
   SeededRandom seeds(seed);
   ports_.reserve(portCount);
   for (std::size_t port = 0; port < portCount; ++port) {
      // A generator per port: how often one port is asked does not change the frames of another.
      SeededRandom random(seeds.next());
      U64 rate = drawRate(random);
      ports_.push_back({random, rate, 0, {}});
   }
}

bool TrafficGenerator::next(std::size_t port, std::chrono::nanoseconds time, TrafficBatch& batch) {
   Port& state = ports_.at(port);
   U64 arrived = framesBy(state.framesPerSecond, time);
   if (arrived <= state.handedOut) {
      return false;
   }
   if (state.current.repeat == 0) {
      draw(port);
   }
   batch.frame = state.current.frame;
   batch.repeat = std::min(arrived - state.handedOut, state.current.repeat);
   state.current.repeat -= batch.repeat;
   state.handedOut += batch.repeat;
   return true;
}

void TrafficGenerator::draw(std::size_t port) {
   Port& state = ports_[port];
   SeededRandom& random = state.random;
   FrameInfo& frame = state.current.frame;
   state.current.repeat = 1;
   if (random.chance(macControlShare)) {
      frame = drawMacControl(random, port);
      return;
   }
   frame = drawData(random, port, ports_.size());
   frame.fcsError = random.chance(fcsErrorShare);
   if (frame.fcsError || frame.wireLength < minFrameOctets) {
      return;
   }
   // A uniform draw from 1 to 2 x mean - 1 has the mean that gives batchesPerSecond.
   auto meanRepeat = static_cast<U32>(state.framesPerSecond / batchesPerSecond + 1);
   state.current.repeat = random.between(1, 2 * meanRepeat - 1);
}

} // namespace SoftChip
