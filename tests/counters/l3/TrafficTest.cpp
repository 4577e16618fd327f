// Frames on the wire raise their VLAN's counters, and no other's.
#include "tests/counters/l3/L3Rig.h"

namespace {

using namespace ZelTest;

constexpr U16 port = 5;
constexpr U16 vlans[] = {10, 20, 30, 200};
constexpr U64 station = 0x020000000001;
constexpr U64 stranger = 0x0200000000ff;

class L3Traffic : public L3Rig {
 protected:
   L3Traffic() {
      makeChip(0, fullChip);
      for (const U16 each : {port, U16{7}}) {
         chip(0).portAdd(each);
      }
      chip(0).accessVlanIs(port, 10);
      chip(0).vniIs(100, 20);
      chip(0).snatAdd("10.1.0.0/16");
      chip(0).snatAdd("2001:db8::/33");
      makeSm();
      for (const U16 vlan : vlans) {
         l3Table->intfIdToL3IdIs(intfOf(vlan), vlan);
      }
      addDevice(0);
   }

   static IntfId intfOf(U16 vlan) { return IntfId(("Vlan" + std::to_string(vlan)).c_str()); }
   // "in / out / source-translated of in", each as packets/bytes.
   std::string seen(U16 vlan) {
      sync();
      packets_and_bytes rx;
      packets_and_bytes tx;
      EXPECT_TRUE(sm->getIntfCounter(intfOf(vlan), &rx, &tx));
      const auto record = nat->counter(intfOf(vlan));
      return text(rx) + " " + text(tx) + " " + text({record.packets, record.bytes});
   }
};

// A good IPv4 frame of 104 octets with its FCS.
SoftChip::FrameInfo frame() {
   SoftChip::FrameInfo made;
   made.wireLength = 104;
   made.destinationMac = stranger;
   made.sourceMac = station;
   made.hasEtherType = true;
   made.etherType = SoftChip::etherTypeIpv4;
   made.ip.version = SoftChip::IpVersion::v4;
   made.ip.source = {192, 0, 2, 1};
   return made;
}

TEST_F(L3Traffic, CountsAFrameInItsVlanOnly) {
   auto tagged = frame();
   tagged.outerTag = {SoftChip::tpidCustomer, 30, 0, false};
   auto priorityTagged = frame();
   priorityTagged.outerTag = {SoftChip::tpidCustomer, 0, 5, false};
   auto vxlan = frame();
   vxlan.vxlan.present = true;
   vxlan.vxlan.vni = 100;
   auto otherVxlan = vxlan;
   otherVxlan.vxlan.vni = 101;
   auto translated = frame();
   translated.ip.source = {10, 1, 255, 9};
   auto notQuite = frame();
   notQuite.ip.source = {10, 2, 0, 9};
   auto translatedV6 = frame();
   translatedV6.ip.version = SoftChip::IpVersion::v6;
   translatedV6.ip.source = {0x20, 0x01, 0x0d, 0xb8, 0x7f};
   auto notQuiteV6 = translatedV6;
   notQuiteV6.ip.source[4] = 0x80;
   auto likeV4 = translatedV6;
   likeV4.ip.source = {10, 1, 255, 9};
   auto bad = frame();
   bad.fcsError = true;

   // Two frames of each kind, flooded to the only other port.
   const struct {
      const char* name;
      SoftChip::FrameInfo sent;
      U16 vlan; // 0: none
      std::string expected;
   } cases[] = {
        {"untagged", frame(), 10, "2/200 2/200 0/0"},
        {"tagged", tagged, 30, "2/200 2/200 0/0"},
        {"priority-tagged", priorityTagged, 10, "2/200 2/200 0/0"},
        {"vxlan", vxlan, 20, "2/100 2/100 0/0"},
        {"unknown vxlan", otherVxlan, 10, "2/200 2/200 0/0"},
        {"translated", translated, 10, "2/200 2/200 2/200"},
        {"not translated", notQuite, 10, "2/200 2/200 0/0"},
        {"translated v6", translatedV6, 10, "2/200 2/200 2/200"},
        {"not translated v6", notQuiteV6, 10, "2/200 2/200 0/0"},
        {"v6 that begins like the v4 prefix", likeV4, 10, "2/200 2/200 0/0"},
        {"bad", bad, 0, ""},
   };
   for (const auto& c : cases) {
      for (const IntfId& intf : l3Table->intfIdToL3Id().keys()) { // new entries, which begin at zero
         const U32 vlan = l3Table->intfIdToL3Id(intf);
         l3Table->intfIdToL3IdDel(intf);
         l3Table->intfIdToL3IdIs(intf, vlan);
      }
      chip(0).receive(port, c.sent, 2);
      for (const U16 vlan : vlans) {
         EXPECT_EQ(seen(vlan), vlan == c.vlan ? c.expected : "0/0 0/0 0/0") << c.name << ", VLAN " << vlan;
      }
   }
}

TEST_F(L3Traffic, AChipWithoutNatAndVxlanCountsTheirFramesAsAnyOthers) {
   sm->deleteDevice(0);
   fleet.chipDel(0);
   makeChip(0, plainChip).portAdd(port);
   chip(0).portAdd(7);
   chip(0).accessVlanIs(port, 10);
   chip(0).snatAdd("10.1.0.0/16");
   chip(0).vniIs(100, 20);
   addDevice(0);
   auto translated = frame();
   translated.ip.source = {10, 1, 255, 9};
   chip(0).receive(port, translated);
   EXPECT_EQ(seen(10), "1/100 1/100 0/0");
   auto vxlan = frame();
   vxlan.vxlan.present = true;
   vxlan.vxlan.vni = 100;
   chip(0).receive(port, vxlan);
   EXPECT_EQ(seen(10), "2/200 2/200 0/0");
   EXPECT_EQ(seen(20), "0/0 0/0 0/0");
}

TEST_F(L3Traffic, RefusesInvalidForwardingState) {
   for (const char* prefix : {"", "10.0.0.0", "10.0.0.0/33", "10.0.0.1/24", "10.0/8", "::/129", "10.0.0.0/8x",
                              "2001:db8::1/64", "10.0.0.0/-1"}) {
      EXPECT_THROW(chip(0).snatAdd(prefix), std::invalid_argument) << prefix;
   }
   EXPECT_THROW(chip(0).vniIs(1U << 24, 1), std::invalid_argument);
   EXPECT_THROW(chip(0).vniIs(1, 4095), std::invalid_argument);
   EXPECT_THROW(chip(0).l2DomainCountAdd(true, {40, 0, false}, {1, 1}), std::invalid_argument);
   EXPECT_THROW(chip(0).l2DomainCountAdd(true, {5000, 9, false}, {1, 1}), std::invalid_argument);
}

} // namespace
