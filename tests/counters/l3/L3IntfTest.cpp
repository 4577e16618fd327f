// L3 interfaces: which VLANs are counted on which chips, their sums, and the shared NAT records.
#include "counters/l3/ForEachThenThrow.h"
#include "tests/counters/l3/L3Rig.h"
#include "tests/support/Files.h"

#include <cstring>
#include <functional>

namespace {

using namespace ZelTest;

class L3Intf : public L3Rig {
 protected:
   void count(U8 dev, bool isIngress, U16 vlan, bool snat, U64 packets, U64 bytes) {
      chip(dev).l2DomainCountAdd(isIngress, {vlan, 0, snat}, {packets, bytes});
   }
   std::string read(const IntfId& intf) {
      sync();
      packets_and_bytes rx;
      packets_and_bytes tx;
      return sm->getIntfCounter(intf, &rx, &tx) ? text(rx) + " " + text(tx) : "none";
   }
   std::vector<std::string> natKeys() {
      std::vector<std::string> keys;
      for (const Silo::Key& key : nat->table().keys()) {
         keys.emplace_back(key.view());
      }
      std::sort(keys.begin(), keys.end());
      return keys;
   }
   // Overwrites a word of the interface's record without its writer's knowledge.
   void damage(const IntfId& intf) {
      const std::string path = folder.path() + "/nat";
      const std::size_t payload = bytesOf(path).rfind(intf.text() + '\0'); // the payload follows the key
      ASSERT_NE(payload, std::string::npos);
      overwrite(path, payload + offsetof(Silo::Interface::NatCounter, bytes), "garbage!");
   }

   const IntfId vlan20{"Vlan20"};
   const IntfId routed{"Ethernet3"};
};

TEST_F(L3Intf, AnInterfaceBeforeItsChipHasARecordAtOnceAndCountersLater) {
   makeChip(0, fullChip);
   makeSm();
   advance(7.5);
   l3Table->intfIdToL3IdIs(vlan20, 0x50014); // VLAN 20 in the low half
   const auto record = nat->counter(vlan20);
   EXPECT_STREQ(record.intfId.data(), "Vlan20");
   EXPECT_EQ(record.creationTime, 7);
   EXPECT_EQ(record.lastUpdate, 0.0);
   EXPECT_EQ(read(vlan20), "0/0 0/0");
   addDevice(0);
   count(0, true, 20, false, 4, 400);
   EXPECT_EQ(read(vlan20), "4/400 0/0");
}

TEST_F(L3Intf, AnInterfaceThatGoesTakesItsEntriesAndItsRecord) {
   makeChip(0, plainChip);
   makeSm();
   addDevice(0);
   l3Table->intfIdToL3IdIs(vlan20, 20);
   l3Table->intfIdToL3IdIs(vlan20, 21); // already known: it keeps its VLAN
   EXPECT_EQ(sm->l3IntfToVid(vlan20).value(), 20);
   l3Table->intfIdToL3IdIs(routed, 20); // the same VLAN
   EXPECT_EQ(ingress(), 1U);
   EXPECT_EQ(natKeys(), (std::vector<std::string>{"Ethernet3", "Vlan20"}));
   l3Table->intfIdToL3IdDel(vlan20);
   EXPECT_EQ(ingress(), 0U); // the first interface to go takes the VLAN's entries along
   EXPECT_EQ(natKeys(), std::vector<std::string>{"Ethernet3"});
   sm->handleIntfL3Index(vlan20); // it no longer exists
   EXPECT_EQ(natKeys(), std::vector<std::string>{"Ethernet3"});
   packets_and_bytes rx{7, 7};
   packets_and_bytes tx{7, 7};
   EXPECT_FALSE(sm->getIntfCounter(vlan20, &rx, &tx));
   EXPECT_EQ(text(rx) + text(tx), "7/77/7");
}

TEST_F(L3Intf, RefusesAnInvalidVlanAndAddsTheOthers) {
   const U32 bad[] = {0x10000, 4095, 0xFFFF, 0x21000};
   l3Table->intfIdToL3IdIs(vlan20, 20);
   for (const U32 value : bad) {
      l3Table->intfIdToL3IdIs(IntfId(("Bad" + std::to_string(value)).c_str()), value);
   }
   l3Table->intfIdToL3IdIs(routed, 4094);
   makeSm();
   EXPECT_EQ(sm->l3IntfToVid().keys(), (std::vector<IntfId>{vlan20, routed}));
   EXPECT_EQ(natKeys(), (std::vector<std::string>{"Ethernet3", "Vlan20"}));
   for (const U32 value : bad) {
      const IntfId intf(("Bad" + std::to_string(value)).c_str());
      EXPECT_THAT([&] { sm->handleIntfL3Index(intf); },
                  testing::ThrowsMessage<std::range_error>("VlanId::value < 1 or > 4094 not allowed"))
           << value;
   }
   EXPECT_THROW(l3Table->intfIdToL3IdIs(IntfId(std::string(64, 'x').c_str()), 30), std::invalid_argument);
   EXPECT_EQ(sm->l3IntfToVid().size(), 2U);
}

TEST_F(L3Intf, AChipThatThrowsKeepsNoOtherFromCounting) {
   makeChip(0, plainChip);
   makeChip(1, plainChip);
   makeSm();
   addDevice(0);
   addDevice(1);
   pd->throwAt = 1;
   EXPECT_THROW(l3Table->intfIdToL3IdIs(vlan20, 20), std::runtime_error);
   EXPECT_EQ(ingress(0), 0U);
   EXPECT_EQ(ingress(1), 1U);
   EXPECT_EQ(natKeys(), std::vector<std::string>{"Vlan20"});

   // In the pass over all interfaces too, the exception reaches the caller only after the others were added.
   sm->l3IntfToVidDelAll();
   l3Table->hasNotificationActiveIs(false);
   l3Table->intfIdToL3IdIs(routed, 30);
   pd->throwAt = 1;
   EXPECT_THROW(sm->handleIntfL3Index(), std::runtime_error);
   const auto throwIt = [](const char* what) { throw std::runtime_error(what); };
   EXPECT_THAT(
        [&] {
           ZelCounter::forEachThenThrow(std::array{"first", "second"}, throwIt);
        },
        testing::ThrowsMessage<std::runtime_error>("first"));
   EXPECT_EQ(natKeys(), (std::vector<std::string>{"Ethernet3", "Vlan20"}));
}

TEST_F(L3Intf, APassTriesRefusedDeletionsAgainAndAnEntryThatStaysIsABaseline) {
   makeChip(0, fullChip);
   makeSm();
   addDevice(0);
   for (const bool stays : {false, true}) {
      l3Table->intfIdToL3IdIs(vlan20, 20);
      count(0, true, 20, true, 5, 500);
      sync();
      advance(1.0);
      EXPECT_EQ(nat->counter(vlan20).totalPackets, 5U);
      fleet.faults().failNext("pdEntryDel", 5, stays ? 100 : 5);
      l3Table->intfIdToL3IdDel(vlan20);
      EXPECT_EQ(ingress() + egress(), 5U);
      advance(1.0);
      EXPECT_EQ(ingress() + egress(), stays ? 5U : 0U);
   }
   l3Table->intfIdToL3IdIs(vlan20, 20);
   advance(1.0);
   EXPECT_EQ(nat->counter(vlan20).totalPackets, 0U);
   count(0, true, 20, true, 2, 200);
   sync();
   advance(1.0);
   EXPECT_EQ(nat->counter(vlan20).totalPackets, 2U);
}

TEST_F(L3Intf, AShortageEndsWithTheInterfaceOrTheChipThatHadIt) {
   makeChip(0, plainChip);
   makeSm();
   chip(0).capacityIs("ingL2DomainCount", 0);
   l3Table->intfIdToL3IdIs(vlan20, 20);
   addDevice(0);
   const auto held = sm->helper(0); // whoever keeps the helper keeps no shortage
   const std::function<void()> ends[] = {
        [&] { sm->deleteDevice(0); },
        [&] { l3Table->intfIdToL3IdDel(vlan20); },
        [&] {
           system->chipCapabilitiesIs(typeOf(0), {});
           addDevice(0);
        },
        [&] { sm = nullptr; },
   };
   for (const auto& end : ends) {
      EXPECT_EQ(messages(), std::vector<std::string>{"FULL 20"});
      end();
      EXPECT_EQ(messages(), std::vector<std::string>{"NORMAL 20"});
      if (sm) {
         system->chipCapabilitiesIs(typeOf(0), plainChip);
         sm->deleteDevice(0);
         l3Table->intfIdToL3IdIs(vlan20, 20);
         addDevice(0);
      }
   }
   EXPECT_FALSE(held->retrySm());
}

TEST_F(L3Intf, AHelperThatIsReplacedOrDeletedIsStopped) {
   makeChip(0, plainChip);
   makeSm();
   chip(0).capacityIs("ingL2DomainCount", 0);
   l3Table->intfIdToL3IdIs(vlan20, 20);
   addDevice(0);
   const auto first = sm->helper(0);
   const auto second = sm->helperIs(0, {typeOf(0)}, system, pd, chip(0).program(), chipStatus[0]);
   EXPECT_EQ(messages(), (std::vector<std::string>{"FULL 20", "NORMAL 20"}));
   EXPECT_FALSE(first->retrySm());
   EXPECT_TRUE(second->retrySm());
   EXPECT_EQ(sm->helper(0).ptr(), second.ptr());
   sm->helperDel(0);
   EXPECT_FALSE(second->retrySm());
   EXPECT_TRUE(sm->helper().empty());
}

TEST_F(L3Intf, RecordsAreRefreshedOneSecondAfterTheEndOfAPass) {
   makeChip(0, fullChip);
   l3Table->intfIdToL3IdIs(vlan20, 20);
   makeSm();
   addDevice(0);
   count(0, true, 20, true, 5, 500);
   sync();
   fleet.faults().costIs("counterReadDirect", 0.0625); // each VLAN has five entries
   advance(0.9375);
   EXPECT_EQ(nat->counter(vlan20).packets, 0U);
   advance(0.0625);
   auto record = nat->counter(vlan20);
   EXPECT_EQ(text({record.packets, record.bytes}), "5/500");
   EXPECT_EQ(record.lastUpdate, 1.3125);
   EXPECT_EQ(record.creationTime, 0);
   advance(1.0 - 0.0625);
   EXPECT_EQ(nat->counter(vlan20).lastUpdate, 1.3125);
   advance(0.0625);
   EXPECT_EQ(nat->counter(vlan20).lastUpdate, 2.625);
   sm->routedPortCounterSm()->routedPortTimerDelayIs(0.5);
   fleet.faults().clear();
   advance(1.0);
   advance(0.5);
   EXPECT_EQ(nat->counter(vlan20).lastUpdate, 4.125);
   fleet.faults().failNext("counterReadDirect", 6);
   sm->readAllOnceMore();
   EXPECT_EQ(nat->counter(vlan20).packets, 5U) << "a last read that fails changes nothing";
}

TEST_F(L3Intf, ALastReadMayTakeAnotherInterfaceAway) {
   makeChip(0, plainChip);
   makeSm();
   addDevice(0);
   l3Table->intfIdToL3IdIs(vlan20, 20);
   l3Table->intfIdToL3IdIs(routed, 3);
   sm->readOnceMoreIs([&](const IntfId& intf) {
      if (intf == vlan20) {
         l3Table->intfIdToL3IdDel(routed); // after its own last read
         fleet.faults().failNext("counterReadDirect", 6);
         EXPECT_EQ(read(vlan20), "none") << "as in any last read: otherwise that fails an assertion";
      }
   });
   sm->readAllOnceMore();
   EXPECT_EQ(natKeys(), std::vector<std::string>{"Vlan20"});
}

TEST_F(L3Intf, ACorruptRecordIsToldOnceAndMadeWholeUnderItsOwnName) {
   makeSm();
   l3Table->intfIdToL3IdIs(vlan20, 20);
   damage(vlan20);
   advance(3.0);
   EXPECT_EQ(corrupt, std::vector<std::string>{"Vlan20"});
   EXPECT_EQ(natKeys(), std::vector<std::string>{"Vlan20"});
   EXPECT_STREQ(nat->counter(vlan20).intfId.data(), "Vlan20");
   EXPECT_EQ(nat->counter(vlan20).lastUpdate, 3.0);
   EXPECT_EQ(corrupt.size(), 1U);
}

TEST_F(L3Intf, TotalsOfAnEarlierStartGoOnAndWhatIsNotThereIsRemoved) {
   openNatTable();
   for (const char* name : {"Vlan20", "Vlan99"}) {
      Silo::Interface::NatCounter old;
      std::strcpy(old.intfId.data(), name);
      old.packets = old.totalPackets = 9;
      old.createdTime = 5;
      nat->counterIs(old, 0.0);
   }
   openNatTable();
   l3Table->intfIdToL3IdIs(vlan20, 20);
   makeSm();
   EXPECT_EQ(nat->counter(vlan20).packets, 0U);
   EXPECT_EQ(nat->counter(vlan20).totalPackets, 9U);
   EXPECT_EQ(nat->counter(vlan20).createdTime, 5.0);
   EXPECT_EQ(natKeys().size(), 2U);
   sm->forgetAbsentInterfaces();
   EXPECT_EQ(natKeys(), std::vector<std::string>{"Vlan20"});
}

TEST_F(L3Intf, AFullNatTableCostsOneRecordOnly) {
   makeChip(0, fullChip);
   openNatTable(1);
   makeSm();
   addDevice(0);
   l3Table->intfIdToL3IdIs(routed, 19);
   l3Table->intfIdToL3IdIs(vlan20, 20);
   count(0, true, 20, false, 1, 100);
   EXPECT_EQ(read(vlan20), "1/100 0/0");
   advance(5);
   EXPECT_EQ(nat->counter(routed).lastUpdate, 5.0);
   EXPECT_EQ(logged.take().size(), 1U);
   l3Table->intfIdToL3IdDel(routed);
   advance(1);
   EXPECT_EQ(nat->counter(vlan20).lastUpdate, 6.0);
}

TEST(VlanIntf, FollowsTheStatusDirectory) {
   const auto common = Kiln::allocate<Vex::VexCommonSmData>();
   const auto makeDir = [](std::initializer_list<const char*> names) {
      auto dir = Kiln::allocate<Interface::VlanIntfStatusDir>();
      dir->hasNotificationActiveIs(true);
      for (const char* name : names) {
         dir->intfStatusIs(IntfId(name), true);
      }
      return dir;
   };
   const auto first = makeDir({"Vlan10"});
   common->vlanIntfIs(IntfId("Vlan9"), true); // somebody else's
   const auto sm = Kiln::allocate<ZelCounter::ZelVlanIntfSm>(common, first);
   sm->hasNotificationActiveIs(true);
   EXPECT_TRUE(common->vlanIntf(IntfId("Vlan10"))); // it existed before
   first->intfStatusIs(IntfId("Vlan11"), true);
   first->intfStatusDel(IntfId("Vlan10"));
   sm->handleVlanIntf();
   EXPECT_EQ(common->vlanIntf().keys(), (std::vector<IntfId>{IntfId("Vlan9"), IntfId("Vlan11")}));

   const auto second = makeDir({"Vlan12"});
   sm->vlanIntfStatusDirIs(second);
   EXPECT_EQ(common->vlanIntf().keys(), std::vector<IntfId>{IntfId("Vlan12")}) << "what went included";
   first->intfStatusIs(IntfId("Vlan13"), true); // not watched any more
   EXPECT_FALSE(common->vlanIntf(IntfId("Vlan13")));
}

} // namespace
