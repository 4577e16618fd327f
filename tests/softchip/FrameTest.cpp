// How frames are parsed, whole and cut off anywhere. The fuzz target of captures has damaged ones.
#include "softchip/Frame.h"

#include "kiln/Types.h"
#include "tests/softchip/Bytes.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace SoftChip {
namespace {

const std::string macs = "020000000001 020000000002 ";
const std::string ipv4 = "0a000001 0a000002 ";
const std::string ipv6 = "20010db8000000000000000000000001 20010db8000000000000000000000002 ";
const std::string inner = "0800000003e8 0800000003e9 0800 ";

const std::string vxlanFrame = macs + "88a8 b064 8100 2065 0800 4500003e 00000000 4011 0000 " + ipv4 +
                               "c000 12b5 002a 0000 08000000 00abcd00 " + inner;
const std::string extendedIpv6Frame = macs + "86dd 62e00000 0030 00 40 " + ipv6 + //
                                      "2b00 000000000000 " +                      // hop by hop
                                      "3c00 000000000000 " +                      // routing
                                      "3301 000000000000 0000000000000000 " +     // destination options
                                      "0601 000000000000 00000000 01bb d431";     // authentication, then TCP
const std::string pfcFrame = "0180c2000001 020000000002 8808 0101 0028 000000010000";

FrameInfo parse(const std::vector<U8>& octets) {
   return parseFrame(octets, static_cast<U32>(octets.size()));
}

FrameInfo parse(const std::string& hex) {
   return parse(bytes(hex));
}

TEST(Frame, TagsAndTunnelAreReadThroughEachOther) {
   FrameInfo frame = parse(vxlanFrame);
   EXPECT_EQ(bytes(vxlanFrame).size() + 4, frame.wireLength);
   EXPECT_EQ(0x020000000001U, frame.destinationMac);
   EXPECT_EQ(0x020000000002U, frame.sourceMac);
   EXPECT_EQ(2, frame.tagCount);
   EXPECT_EQ((VlanTag{tpidService, 100, 5, true}), frame.outerTag);
   EXPECT_EQ((VlanTag{tpidCustomer, 101, 1, false}), frame.innerTag);
   EXPECT_EQ(etherTypeIpv4, frame.etherType);
   EXPECT_EQ(IpVersion::v4, frame.ip.version);
   EXPECT_EQ((std::array<U8, 16>{10, 0, 0, 1}), frame.ip.source);
   EXPECT_EQ((std::array<U8, 16>{10, 0, 0, 2}), frame.ip.destination);
   EXPECT_EQ(0xc000, frame.ip.sourcePort);
   EXPECT_EQ((VxlanHeader{true, true, 0x00abcd, 0x0800000003e8, 0x0800000003e9}), frame.vxlan);
}

TEST(Frame, Ipv6ExtensionHeadersAreWalked) {
   FrameInfo frame = parse(extendedIpv6Frame);
   EXPECT_EQ(IpVersion::v6, frame.ip.version);
   EXPECT_EQ(0x0b, frame.ip.dscp);
   EXPECT_EQ(ipProtocolTcp, frame.ip.protocol);
   ASSERT_TRUE(frame.ip.hasPorts);
   EXPECT_EQ(443, frame.ip.sourcePort);
   EXPECT_EQ(1, frame.ip.source[15]);
   EXPECT_EQ(2, frame.ip.destination[15]);
}

TEST(Frame, MacControlIsReadOnUntaggedFramesOnly) {
   EXPECT_EQ((MacControl{true, macControlPfc, 0x28}), parse(pfcFrame).macControl);
   EXPECT_EQ((MacControl{true, macControlPause, 0}), parse(macs + "8808 0001 ffff").macControl);
   EXPECT_FALSE(parse(macs + "8100 0001 8808 0001 ffff").macControl.present);
   EXPECT_FALSE(parse(macs + "8808 01").macControl.present);
}

TEST(Frame, DestinationKindComesFromAddress) {
   struct {
      const char* octets;
      Destination kind;
   } cases[] = {{"ffffffffffff", Destination::broadcast},
                {"fffffffffffe", Destination::multicast},
                {"01005e000001", Destination::multicast},
                {"feffffffffff", Destination::unicast},
                {"ffffffffff", Destination::multicast},
                {"00ffffff", Destination::unicast},
                {"", Destination::unicast}};
   for (auto& c : cases) {
      EXPECT_EQ(c.kind, parse(c.octets).destination) << c.octets;
   }
}

TEST(Frame, PortsAreReadOnlyWhereThereAreSome) {
   auto v4 = [](const char* head, const char* rest) { return macs + "0800 " + head + ipv4 + rest; };
   auto v6 = [](const char* head, const char* rest) { return macs + "86dd 60000000 " + head + ipv6 + rest; };
   struct {
      const char* what;
      std::string frame;
      bool hasPorts;
   } cases[] = {
        {"plain UDP", v4("4500001c 00000000 4011 0000 ", "0035 0035 0008 0000"), true},
        {"length left 0 by segmentation offload", v4("45000000 00000000 4006 0000 ", "0035 0035"), true},
        {"first fragment", v4("4500001c 00002000 4011 0000 ", "0035 0035"), true},
        {"later fragment", v4("4500001c 00000001 4011 0000 ", "0035 0035"), false},
        {"fragment far from the first", v4("4500001c 00001000 4011 0000 ", "0035 0035"), false},
        {"padding behind the packet", v4("45000014 00000000 4011 0000 ", "0035 0035"), false},
        {"packet shorter than its header", v4("45000004 00000000 4011 0000 ", "0035 0035"), false},
        {"options cut off", v4("4f00003c 00000000 4011 0000 ", "0035 0035"), false},
        {"options", v4("4600001c 00000000 4011 0000 ", "00000000 0035 0035"), true},
        {"header shorter than it can be", v4("4400001c 00000000 4011 0000 ", "0035 0035"), false},
        {"ICMP", v4("4500001c 00000000 4001 0000 ", "0800 0000"), false},
        {"IPv6 first fragment", v6("000c 2c 40 ", "1100 0001 00000000 0035 0035"), true},
        {"IPv6 later fragment", v6("000c 2c 40 ", "1100 0008 00000000 0035 0035"), false},
        {"IPv6 padding behind the packet", v6("0001 11 40 ", "0035 0035"), false},
        {"IPv6 extension longer than the packet", v6("0008 00 40 ", "11ff 000000000000 0035 0035"), false},
        {"IPv4 type, IPv6 packet", v4("60000000 00000000 4011 0000 ", "0035 0035"), false},
   };
   for (auto& c : cases) {
      EXPECT_EQ(c.hasPorts, parse(c.frame).ip.hasPorts) << c.what;
   }
}

TEST(Frame, OnlyUdpToTheTunnelPortWithValidVniIsTunnelled) {
   for (auto [octet, value] : {std::pair<std::size_t, U8>{45, 0xb6}, {50, 0x00}, {31, 6}}) {
      std::vector<U8> octets = bytes(vxlanFrame);
      ASSERT_TRUE(parse(octets).vxlan.present);
      octets[octet] = value;
      EXPECT_FALSE(parse(octets).vxlan.present) << "octet " << octet;
   }
}

// Expects each field of a cut frame to be as in the whole frame, or absent.
void expectPartOf(const FrameInfo& whole, const FrameInfo& part) {
   auto sameOrNone = [](auto expected, auto got) { return got == expected || got == decltype(got){}; };
   EXPECT_EQ(whole.wireLength, part.wireLength);
   EXPECT_TRUE(sameOrNone(whole.destinationMac, part.destinationMac));
   EXPECT_TRUE(sameOrNone(whole.sourceMac, part.sourceMac));
   EXPECT_LE(part.tagCount, whole.tagCount);
   EXPECT_TRUE(sameOrNone(whole.outerTag.tpid, part.outerTag.tpid));
   EXPECT_TRUE(sameOrNone(whole.outerTag.vlanId, part.outerTag.vlanId));
   EXPECT_TRUE(sameOrNone(whole.etherType, part.etherType));
   EXPECT_TRUE(sameOrNone(whole.ip.source, part.ip.source));
   EXPECT_TRUE(sameOrNone(whole.ip.destinationPort, part.ip.destinationPort));
   EXPECT_TRUE(sameOrNone(whole.vxlan.vni, part.vxlan.vni));
   EXPECT_TRUE(sameOrNone(whole.vxlan.innerSourceMac, part.vxlan.innerSourceMac));
   EXPECT_TRUE(sameOrNone(whole.macControl.pfcPriorities, part.macControl.pfcPriorities));
}

TEST(Frame, AFrameCutAnywhereReadsNothingBeyondAndInventsNothing) {
   for (const std::string& hex : {vxlanFrame, extendedIpv6Frame, pfcFrame}) {
      std::vector<U8> octets = bytes(hex);
      FrameInfo whole = parse(octets);
      for (std::size_t length = 0; length <= octets.size(); ++length) {
         SCOPED_TRACE(hex + "cut to " + std::to_string(length));
         // An allocation of just this size, so that AddressSanitizer sees a read beyond it.
         std::vector<U8> cut(octets.begin(), octets.begin() + static_cast<std::ptrdiff_t>(length));
         expectPartOf(whole, parseFrame(cut, static_cast<U32>(octets.size())));
      }
   }
}

} // namespace
} // namespace SoftChip
