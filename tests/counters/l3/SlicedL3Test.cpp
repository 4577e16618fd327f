// What becomes of the long work on VLANs when others get in between its slices: it ends as it would without them.
#include "tests/counters/l3/L3Rig.h"
#include "tests/support/LockWaiter.h"

#include <functional>
#include <map>

namespace {

using namespace ZelTest;
using ZelCounter::ZelCountersL3Helper;

class SlicedL3 : public L3Rig {
 protected:
   using Works = std::vector<std::function<void()>>;

   static IntfId intf(U32 vlan) { return IntfId(("Vlan" + std::to_string(vlan)).c_str()); }
   void add(U32 vlan) { l3Table->intfIdToL3IdIs(intf(vlan), vlan); }
   void addAll(U32 first, U32 last) {
      for (U32 vlan = first; vlan <= last; ++vlan) {
         add(vlan);
      }
   }
   void remove(U32 vlan) { l3Table->intfIdToL3IdDel(intf(vlan)); }

   // Does the long work, and at each of its opportunities one of the others.
   static void amid(const std::function<void()>& work, Works others) {
      auto lock = Kiln::ActivityLockAnchor::lock();
      const LockWaiters waiters(std::move(others));
      work();
      lock.giveUp();
   }

   // The chip counts the VLANs of the interfaces that are there, with three ingress entries each, and no others.
   void expectPresentOnly(U8 dev) {
      const auto& helper = sm->helper(dev);
      ASSERT_TRUE(helper);
      EXPECT_EQ(helper->matchSpec().size(), sm->l3IntfToVid().size());
      for (const auto& [intf, vlan] : sm->l3IntfToVid()) {
         EXPECT_TRUE(helper->matchSpec().contains(vlan)) << intf;
      }
      EXPECT_EQ(ingress(dev), 3 * sm->l3IntfToVid().size());
   }

   const NoSlices noSlices;
};

TEST_F(SlicedL3, AChipThatComesCountsWhatIsThereInTheEnd) {
   makeChip(0, fullChip);
   makeSm();
   addAll(10, 24);
   U32 enabled = 0; // when the chip goes
   amid([&] { addDevice(0); }, {[&] { remove(10); }, [&] { remove(20); }, [&] { add(30); },
                                [&] { // another VLAN
                                   remove(21);
                                   l3Table->intfIdToL3IdIs(intf(21), 40);
                                },
                                [&] {
                                   remove(11);
                                   add(11);
                                }});
   expectPresentOnly(0);
   EXPECT_EQ(sm->l3IntfToVid().size(), 14U);
   fleet.chipRestart(0, false);
   amid([&] { addDevice(0); }, {[&] { remove(30); },
                                [&] { // another chip in its place
                                   enabled = ingress();
                                   fleet.chipRestart(0, false);
                                   addDevice(0);
                                },
                                [&] { remove(12); }});
   EXPECT_LT(enabled, 3 * sm->l3IntfToVid().size()) << "in the middle";
   expectPresentOnly(0);
   fleet.chipRestart(0, false);
   amid([&] { addDevice(0); }, {[&] {
           sm->deleteDevice(0);
           enabled = ingress();
        }});
   EXPECT_EQ(ingress(), enabled);
}

TEST_F(SlicedL3, ARetryLeavesAloneWhatWasDecidedMeanwhile) {
   makeChip(0, fullChip);
   chip(0).capacityIs("ingL2DomainCount", 3);
   makeSm();
   addDevice(0);
   addAll(10, 20);
   const auto helper = sm->helper(0);
   EXPECT_EQ(helper->pendingVlan().size(), 10U);
   chip(0).capacityIs("ingL2DomainCount", 100);
   amid([&] { helper->retryPendingVlan(); },
        {[&] { remove(11); }, [&] { remove(18); }, [&] { helper->enableSviStats(VlanId(19)); },
         [&] { helper->retryPendingVlan(); }, [&] { add(30); }, [&] { remove(19); }});
   expectPresentOnly(0);
   EXPECT_TRUE(helper->pendingVlan().empty());
   std::map<std::string, int> told; // each VLAN's shortage has begun and ended once
   for (const std::string& message : messages()) {
      ++told[message];
   }
   EXPECT_EQ(told.size(), 20U);
   for (const auto& [message, count] : told) {
      EXPECT_EQ(count, 1) << message;
   }
}

TEST_F(SlicedL3, RemovalsWhenAChipComesUpGoByWhatHoldsInTheEnd) {
   makeChip(0, fullChip);
   makeSm();
   addDevice(0);
   addAll(10, 20);
   chipStatus[0]->stateIs(5);
   for (U32 vlan = 10; vlan < 20; ++vlan) {
      remove(vlan);
   }
   EXPECT_EQ(ingress(), 33U);
   U32 leftWhenDown = 0;
   amid([&] { chipStatus[0]->stateIs(ZelSlice::chipStateUp); }, {[&] { add(17); },
                                                                 [&] {
                                                                    chipStatus[0]->stateIs(5);
                                                                    leftWhenDown = ingress();
                                                                 },
                                                                 [&] { add(10); }, [&] { remove(20); }});
   const auto helper = sm->helper(0);
   EXPECT_EQ(ingress(), leftWhenDown + 3) << "VLAN 10, which came back, and no other went";
   EXPECT_GT(leftWhenDown, 6U);
   EXPECT_FALSE(helper->deferredDel(VlanId(17)));
   amid([&] { chipStatus[0]->stateIs(ZelSlice::chipStateUp); },
        {[&] { chipStatus[0]->stateIs(5); }, [&] { chipStatus[0]->stateIs(ZelSlice::chipStateUp); },
         [&] { add(12); }});
   expectPresentOnly(0);
   EXPECT_TRUE(helper->deferredDel().empty());
}

TEST_F(SlicedL3, APassReadsWhatIsThereAndCountsNothingTwice) {
   makeChip(0, fullChip);
   makeChip(1, fullChip);
   makeSm();
   addDevice(0);
   addDevice(1);
   addAll(10, 24);
   const auto count = [&](U8 dev, U16 vlan, U64 packets) {
      chip(dev).l2DomainCountAdd(true, {vlan, 0, true}, {packets, packets * 100});
   };
   for (U16 vlan = 10; vlan <= 24; ++vlan) {
      count(0, vlan, 1);
      count(1, vlan, 10);
   }
   sync();
   const auto pass = sm->routedPortCounterSm();
   amid([&] { pass->updateRoutedPortCounters(); }, {[&] { remove(10); }, [&] { remove(24); },
                                                    [&] { // another VLAN
                                                       remove(23);
                                                       l3Table->intfIdToL3IdIs(intf(23), 40);
                                                       count(0, 40, 5);
                                                       sync();
                                                    },
                                                    [&] { pass->updateRoutedPortCounters(); },
                                                    [&] {
                                                       sm->readAllOnceMore();
                                                       sm->deleteDevice(1);
                                                    },
                                                    [&] {
                                                       fleet.chipRestart(1, false);
                                                       addDevice(1);
                                                       count(1, 22, 100);
                                                       sync();
                                                    },
                                                    [&] { add(30); }});
   advance(1.0);
   EXPECT_EQ(nat->table().size(), sm->l3IntfToVid().size());
   for (const auto& [intf, vlan] : sm->l3IntfToVid()) {
      const U64 expected = vlan == VlanId(30) ? 0 : vlan == VlanId(40) ? 5 : vlan == VlanId(22) ? 111 : 11;
      EXPECT_EQ(nat->counter(intf).totalPackets, expected) << intf;
      EXPECT_EQ(nat->counter(intf).totalBytes, 100 * expected) << intf;
   }
   EXPECT_EQ(nat->counter(intf(11)).lastUpdate, 1.0);
}

// Whoever did the work may be gone with it.
TEST_F(SlicedL3, WhatGoesInTheMiddleAsksForNothingMore) {
   for (std::size_t at = 0; at < 4; ++at) {
      makeChip(0, fullChip);
      chip(0).capacityIs("ingL2DomainCount", 6);
      makeSm();
      addDevice(0);
      addAll(10, 14);
      for (const U32 vlan : {10U, 11U}) { // deferred
         chipStatus[0]->stateIs(5);
         remove(vlan);
      }
      chip(0).capacityIs("ingL2DomainCount", 100);
      ZelCountersL3Helper* const helper = sm->helper(0).ptr();
      const std::function<void()> works[] = {
           [&] { addDevice(0); },
           [&] { helper->retrySm()->retryPendingVlan(); },
           [&] { chipStatus[0]->stateIs(ZelSlice::chipStateUp); },
           [&] { sm->routedPortCounterSm()->updateRoutedPortCounters(); },
      };
      U32 entriesThen = 0;
      amid(works[at], {[&] {
              sm->stop();
              sm = nullptr;
              entriesThen = ingress();
           }});
      EXPECT_FALSE(sm);
      EXPECT_EQ(ingress(), entriesThen) << at;
      EXPECT_EQ(Kiln::activityManagerClock()->armedCount(), 0U);
      l3Table = Kiln::allocate<VexL3Intf::Table>("l3");
      l3Table->hasNotificationActiveIs(true);
      fleet.chipDel(0);
   }
}

} // namespace
