// One chip's VLAN counters: programming, full tables, removal and reading.
#include "tests/counters/l3/L3Rig.h"

namespace {

using namespace ZelTest;
using ZelCounter::ZelCountersL3Helper;

class SviStats : public L3Rig {
 protected:
   void makeHelper(const ZelSystem::ChipCapabilities& capabilities) {
      makeChip(0, capabilities);
      helper = ZelCounter::zelCountersL3HelperFactory(0, {typeOf(0)}, system, pd, chip(0).program(),
                                                      chipStatus[0]);
   }
   void removeChip() {
      helper = nullptr;
      fleet.chipDel(0);
   }

   std::string state(U16 number) {
      const VlanId vlan(number);
      return std::string(helper->matchSpec().contains(vlan) ? "programmed" : "") +
             (helper->pendingVlan().contains(vlan) ? "pending" : "") +
             (helper->deferredDel().contains(vlan) ? ", removal deferred" : "");
   }
   struct Counts {
      std::string rx;
      std::string tx;
      std::string snat;
      bool operator==(const Counts&) const = default;
   };
   Counts read(U16 vlan, bool expected = true) {
      sync();
      packets_and_bytes rx{1, 1};
      packets_and_bytes tx{1, 1};
      packets_and_bytes snat{1, 1};
      EXPECT_EQ(helper->getSviStats(VlanId(vlan), &rx, &tx, &snat), expected);
      return {text(rx), text(tx), text(snat)};
   }
   void count(bool isIngress, U16 vlan, U8 decapType, bool snat, U64 packets, U64 bytes) {
      chip(0).l2DomainCountAdd(isIngress, {vlan, decapType, snat}, {packets, bytes});
   }

   Kiln::Ptr<ZelCountersL3Helper> helper;
};

TEST_F(SviStats, AVlanHasTheEntriesThatTheChipIsCapableOf) {
   using Texts = std::vector<std::string>;
   const struct {
      ZelSystem::ChipCapabilities capabilities;
      Texts ingress;
      Texts egress;
   } cases[] = {
        {plainChip, {"vlan 20, decapType 0"}, {"vlan 20, decapType 0"}},
        {{.vlanCounters = true, .vxlan = true},
         {"vlan 20, decapType 0", "vlan 20, decapType 1"},
         {"vlan 20, decapType 0", "vlan 20, decapType 1"}},
        {{.vlanCounters = true, .vrfNat = true},
         {"vlan 20, decapType 0, snatHit 0", "vlan 20, decapType 0, snatHit 1"},
         {"vlan 20, decapType 0"}},
        {fullChip,
         {"vlan 20, decapType 0, snatHit 0", "vlan 20, decapType 1, snatHit 0",
          "vlan 20, decapType 0, snatHit 1"},
         {"vlan 20, decapType 0", "vlan 20, decapType 1"}},
   };
   for (const auto& c : cases) {
      makeHelper(c.capabilities);
      helper->enableSviStats(VlanId(20));
      helper->enableSviStats(VlanId(20));
      const auto texts = [&](const char* table) {
         Texts all;
         for (U32 entry = 1; entry <= entries(0, table); ++entry) {
            all.push_back(chip(0).entryText(handleOf(chip(0), table), static_cast<S32>(entry)));
         }
         return all;
      };
      EXPECT_EQ(texts("ingL2DomainCount"), c.ingress);
      EXPECT_EQ(texts("egrL2DomainCount"), c.egress);
      removeChip();
   }
}

TEST_F(SviStats, AFullTableOnEitherSideLeavesNoEntryAndTellsOnce) {
   const struct {
      const char* table;
      U32 capacity; // enough for one VLAN, but not for two
   } cases[] = {{"ingL2DomainCount", 5}, {"egrL2DomainCount", 3}, {"ingL2DomainCount", 3}};
   for (const auto& c : cases) {
      makeHelper(fullChip);
      chip(0).capacityIs(c.table, c.capacity);
      helper->enableSviStats(VlanId(10));
      for (int attempt = 0; attempt < 3; ++attempt) {
         helper->enableSviStats(VlanId(11));
      }
      EXPECT_EQ(state(10), "programmed");
      EXPECT_EQ(state(11), "pending");
      EXPECT_EQ(ingress(), 3U);
      EXPECT_EQ(egress(), 2U);
      EXPECT_EQ(messages(), std::vector<std::string>{"FULL 11"});

      chip(0).capacityIs(c.table, 10);
      helper->enableSviStats(VlanId(11));
      EXPECT_EQ(state(11), "programmed");
      EXPECT_EQ(messages(), std::vector<std::string>{"NORMAL 11"});
      removeChip();
   }
}

TEST_F(SviStats, AnyOtherExceptionRollsBackAndGoesOnToTheCaller) {
   makeHelper(fullChip);
   for (const bool pending : {false, true}) {
      if (pending) {
         chip(0).capacityIs("ingL2DomainCount", 0);
         helper->enableSviStats(VlanId(10));
         chip(0).capacityIs("ingL2DomainCount", 9);
      }
      for (const unsigned at : {1U, 3U, 5U}) {
         pd->throwAt = at;
         EXPECT_THROW(helper->enableSviStats(VlanId(10)), std::runtime_error);
         EXPECT_EQ(state(10), pending ? "pending" : "");
         EXPECT_EQ(ingress() + egress(), 0U);
      }
   }
}

TEST_F(SviStats, ANewRetryReactorTakesTheFormersPlace) {
   makeHelper(plainChip);
   chip(0).capacityIs("ingL2DomainCount", 0);
   helper->enableSviStats(VlanId(10));
   const auto former = helper->retrySm();
   former->startTimer();
   helper->retrySmIs();
   helper->retrySm()->retryDelayIs(0.25);
   EXPECT_EQ(former->timeMin(), Kiln::never);
   chip(0).capacityIs("ingL2DomainCount", 1);
   chipStatus[0]->stateIs(5);
   chipStatus[0]->stateIs(8);
   EXPECT_EQ(former->timeMin(), Kiln::never);
   advance(0.25);
   EXPECT_EQ(state(10), "programmed");
}

TEST_F(SviStats, AVlanThatComesBackWhileOthersAreRemovedKeepsItsEntries) {
   makeHelper(plainChip);
   for (const U16 vlan : {U16{10}, U16{11}, U16{12}}) {
      helper->enableSviStats(VlanId(vlan));
   }
   chipStatus[0]->stateIs(5);
   for (const U16 vlan : {U16{10}, U16{11}, U16{12}}) {
      helper->disableSviStats(VlanId(vlan));
   }
   helper->beforeRemovalIs([this](VlanId vlan) {
      if (vlan == VlanId(10)) {
         helper->enableSviStats(VlanId(11));
         chipStatus[0]->stateIs(5);
      }
   });
   chipStatus[0]->stateIs(8);
   EXPECT_EQ(state(10), "");
   EXPECT_EQ(state(11), "programmed");
   EXPECT_EQ(state(12), "programmed, removal deferred") << "the chip went down again";
   EXPECT_EQ(ingress(), 2U);
}

TEST_F(SviStats, ARefusedDeletionIsTriedAgainBeforeTheNextEntry) {
   makeHelper(plainChip);
   chip(0).capacityIs("ingL2DomainCount", 1);
   helper->enableSviStats(VlanId(10));
   fleet.faults().failNext("pdEntryDel", 5, 2);
   helper->disableSviStats(VlanId(10));
   EXPECT_EQ(state(10), "");
   EXPECT_EQ(helper->ingL2DomainCountTable()->size(), 0U);
   EXPECT_EQ(read(10, false), (Counts{"0/0", "0/0", "0/0"}));
   EXPECT_EQ(ingress(), 1U);

   helper->enableSviStats(VlanId(11));
   EXPECT_EQ(state(11), "programmed");
   EXPECT_EQ(ingress(), 1U);
   EXPECT_EQ(egress(), 1U);
   EXPECT_EQ(messages(), std::vector<std::string>{});
}

TEST_F(SviStats, AnEntryThatStaysIsTakenOverWhenItsVlanComesBack) {
   for (const int status : {5, 6}) {
      makeHelper(fullChip);
      helper->enableSviStats(VlanId(10));
      count(true, 10, 0, true, 3, 300);
      fleet.faults().failNext("pdEntryDel", status, 100);
      helper->disableSviStats(VlanId(10));
      helper->enableSviStats(VlanId(10));
      EXPECT_EQ(state(10), "programmed");
      EXPECT_TRUE(helper->matchSpec(VlanId(10))->isResumed) << "what it has counted is a baseline";
      EXPECT_EQ(read(10).snat, "3/300");
      fleet.faults().clear();
      helper->retryDeletions();
      EXPECT_EQ(ingress() + egress(), 5U);
      helper->disableSviStats(VlanId(10));
      EXPECT_EQ(ingress() + egress(), 0U);
      removeChip();
   }
}

TEST_F(SviStats, ARollbackThatFailsHalfWayIsFinishedLater) {
   makeHelper(fullChip);
   chip(0).capacityIs("egrL2DomainCount", 1);
   fleet.faults().failNext("pdEntryDel", 0);
   fleet.faults().failNext("pdEntryDel", 5, 2);
   helper->enableSviStats(VlanId(10));
   EXPECT_EQ(state(10), "pending");
   EXPECT_EQ(ingress(), 2U);
   chip(0).capacityIs("egrL2DomainCount", 2);
   chipStatus[0]->stateIs(5);
   helper->retryDeletions();
   EXPECT_EQ(ingress(), 2U) << "the chip is not up";
   chipStatus[0]->stateIs(8);
   advance(1.0); // a chip that comes up is an occasion to try again
   EXPECT_EQ(state(10), "programmed");
   EXPECT_FALSE(helper->matchSpec(VlanId(10))->isResumed);
   EXPECT_EQ(ingress() + egress(), 5U);

   pd->deletionThrows = true; // which is a refusal, too
   helper->disableSviStats(VlanId(10));
   EXPECT_EQ(state(10), "");
   pd->deletionThrows = false;
   helper->retryDeletions();
   EXPECT_EQ(ingress() + egress(), 0U);
}

TEST_F(SviStats, RoomThatALateDeletionMakesIsTakenByWhoWaits) {
   for (const bool isIngress : {true, false}) {
      makeHelper(plainChip);
      chip(0).capacityIs(isIngress ? "ingL2DomainCount" : "egrL2DomainCount", 1);
      helper->enableSviStats(VlanId(10));
      for (const int status : {isIngress ? 5 : 0, isIngress ? 0 : 5, 5}) { // each side, and once more
         fleet.faults().failNext("pdEntryDel", status);
      }
      helper->disableSviStats(VlanId(10));
      advance(10); // the removal's own retry
      helper->enableSviStats(VlanId(11));
      EXPECT_EQ(state(11), "pending");
      helper->retryDeletions();
      advance(1);
      EXPECT_EQ(state(11), "programmed");
      removeChip();
   }
}

TEST_F(SviStats, RemovalsDoNotPutOffTheRetry) {
   makeHelper(plainChip);
   chip(0).capacityIs("ingL2DomainCount", 2);
   for (const U32 vlan : {10U, 11U, 12U}) {
      helper->enableSviStats(VlanId(vlan));
   }
   helper->disableSviStats(VlanId(10));
   advance(0.75);
   helper->disableSviStats(VlanId(11));
   advance(0.25);
   EXPECT_EQ(state(12), "programmed");
}

TEST_F(SviStats, AnEntryThatIsGoneAfterAllIsNotDeletedUnderItsNextOwner) {
   for (const U32 next : {11U, 10U}) {
      makeHelper(plainChip);
      helper->enableSviStats(VlanId(10));
      pd->deletionAnswer = 5; // but the chip has deleted it
      helper->disableSviStats(VlanId(10));
      pd->deletionAnswer = std::nullopt;
      helper->enableSviStats(VlanId(next)); // with the same handles
      EXPECT_FALSE(helper->matchSpec(VlanId(next))->isResumed);
      helper->retryDeletions();
      EXPECT_EQ(ingress() + egress(), 2U);
      removeChip();
   }
}

// The last of ten is behind a whole round of others, so nobody has asked for its deletion again.
TEST_F(SviStats, AnEntryThatIsGoneAfterAllIsAddedAnewHoweverManyOthersAreLeft) {
   makeHelper(plainChip);
   for (U32 vlan = 10; vlan < 20; ++vlan) {
      helper->enableSviStats(VlanId(vlan));
   }
   pd->deletionAnswer = 5; // but the chip has deleted it
   for (U32 vlan = 10; vlan < 20; ++vlan) {
      helper->disableSviStats(VlanId(vlan));
   }
   for (const std::optional<U32> later : {std::optional<U32>(5), std::optional<U32>()}) {
      pd->deletionAnswer = later;
      helper->enableSviStats(VlanId(19));
      EXPECT_FALSE(helper->matchSpec(VlanId(19))->isResumed);
      EXPECT_EQ(ingress() + egress(), 2U);
      EXPECT_EQ(read(19), (Counts{"0/0", "0/0", "0/0"}));
      pd->deletionAnswer = 5;
      helper->disableSviStats(VlanId(19));
   }
   helper->enableSviStats(VlanId(50)); // with handles that others had
   pd->deletionAnswer = std::nullopt;
   for (int round = 0; round < 3; ++round) {
      helper->retryDeletions();
   }
   EXPECT_EQ(ingress() + egress(), 2U);
}

TEST_F(SviStats, AChipThatHasLostItsEntriesIsNotAskedToDeleteThemAgain) {
   makeHelper(plainChip);
   for (U32 vlan = 10; vlan < 40; ++vlan) {
      helper->enableSviStats(VlanId(vlan));
   }
   chipStatus[0]->stateIs(5);
   for (U32 vlan = 10; vlan < 40; ++vlan) {
      helper->disableSviStats(VlanId(vlan));
   }
   const auto lost = pd->deletions;
   pd->deletionAnswer = 6;
   chipStatus[0]->stateIs(8);
   EXPECT_EQ(pd->deletions, lost + 60);
   helper->retryDeletions();
   EXPECT_EQ(pd->deletions, lost + 60);
   pd->deletionAnswer = std::nullopt;
   fleet.faults().failNext("pdEntryDel", 5, 2);
   helper->enableSviStats(VlanId(40)); // whose refused deletion is not kept waiting by those
   helper->disableSviStats(VlanId(40));
   EXPECT_EQ(ingress() + egress(), 2U);
   helper->retryDeletions();
   EXPECT_EQ(ingress() + egress(), 0U);
}

TEST_F(SviStats, AChipThatRefusesMuchIsAskedForLittleAtATime) {
   makeHelper(plainChip);
   for (U32 vlan = 10; vlan < 40; ++vlan) {
      helper->enableSviStats(VlanId(vlan));
   }
   fleet.faults().failNext("pdEntryDel", 5, 60 + 3 * 16);
   for (U32 vlan = 10; vlan < 40; ++vlan) {
      helper->disableSviStats(VlanId(vlan));
   }
   pd->deletions = 0;
   for (int round = 0; round < 3; ++round) {
      helper->retryDeletions();
   }
   EXPECT_EQ(pd->deletions, 3U * 16);
   EXPECT_EQ(ingress() + egress(), 60U);
   helper->retryDeletions();
   EXPECT_EQ(ingress() + egress(), 0U);
}

TEST_F(SviStats, ReadAddsUpWhatTheEntriesCount) {
   const std::string half = std::to_string(U64{0} - 400); // 10 packets take 500 bytes off the 100 counted
   const struct {
      ZelSystem::ChipCapabilities capabilities;
      std::vector<std::array<U64, 5>> counted; // ingress, decapType, snat, packets, bytes
      Counts expected;
   } cases[] = {
        {plainChip, {{1, 0, 0, 4, 400}, {0, 0, 0, 5, 600}}, {"4/400", "5/600", "0/0"}},
        {fullChip, {{1, 1, 0, 10, 1500}, {0, 1, 0, 2, 300}}, {"10/1000", "2/200", "0/0"}},
        {fullChip, {{1, 0, 1, 3, 300}, {1, 0, 0, 1, 100}}, {"4/400", "0/0", "3/300"}},
        {fullChip, {{1, 1, 0, 10, 100}}, {"10/" + half, "0/0", "0/0"}},
   };
   for (const auto& c : cases) {
      makeHelper(c.capabilities);
      helper->enableSviStats(VlanId(19));
      helper->enableSviStats(VlanId(20));
      for (const auto& [isIngress, decapType, snat, packets, bytes] : c.counted) {
         count(isIngress != 0, 20, static_cast<U8>(decapType), snat != 0, packets, bytes);
      }
      EXPECT_EQ(read(20), c.expected);
      EXPECT_EQ(read(19), (Counts{"0/0", "0/0", "0/0"}));
      EXPECT_EQ(read(21, false), (Counts{"0/0", "0/0", "0/0"}));
      removeChip();
   }
}

TEST_F(SviStats, TheAdjustmentHasASign) {
   makeHelper(plainChip);
   helper->enableSviStats(VlanId(20));
   count(true, 20, 0, false, 10, 1000);
   sync();
   const U32 handle = helper->matchSpec(VlanId(20))->ingress.ordinary->handle;
   const struct {
      S16 adjust;
      U64 bytes;
   } cases[] = {{-50, 1500}, {32767, U64{1000} - 327670}, {-32768, 1000 + 327680}};
   for (const auto& c : cases) {
      packets_and_bytes sum{1, 0};
      helper->accumulateStats(helper->ingL2DomainHandle(), handle, c.adjust, &sum);
      EXPECT_EQ(text(sum), "11/" + std::to_string(c.bytes));
   }
}

TEST_F(SviStats, AnEntryThatIsGoneFromTheTableReadsAsNone) {
   makeHelper(plainChip);
   helper->enableSviStats(VlanId(20));
   count(true, 20, 0, false, 10, 1000);
   const auto spec = helper->matchSpec(VlanId(20))->ingL2DomainMatchSpec(ZelCounter::sviOrdinary);
   helper->ingL2DomainCountTable()->entryDel(*spec);
   EXPECT_EQ(read(20).rx, "0/0");
}

TEST_F(SviStats, AMatchSpecWithoutSlotsIsLookedUp) {
   makeHelper(plainChip);
   helper->enableSviStats(VlanId(20));
   count(true, 20, 0, false, 4, 400);
   count(false, 20, 0, false, 5, 600);
   helper->matchSpec(VlanId(20))->ingress = {};
   helper->matchSpec(VlanId(20))->egress = {};
   EXPECT_EQ(read(20), (Counts{"4/400", "5/600", "0/0"}));
}

TEST_F(SviStats, AFaultOfTheProgramOrTheCallerStopsTheProcess) {
   makeHelper(fullChip);
   helper->enableSviStats(VlanId(20));
   packets_and_bytes pair;
   EXPECT_DEATH(helper->getSviStats(VlanId(20), &pair, nullptr, &pair),
                "rxCounter && txCounter && rxSnatCounter");
   helper->matchSpec(VlanId(20))->egrL2DomainMatchSpecDel(ZelCounter::sviDecapsulated);
   EXPECT_DEATH(read(20), "!!egrMspec");
   helper->matchSpec(VlanId(20))->ingL2DomainMatchSpecDel(ZelCounter::sviSourceNat);
   helper->matchSpec(VlanId(20))->ingL2DomainMatchSpecDel(ZelCounter::sviOrdinary);
   EXPECT_DEATH(read(20), "!!ingMspec");
   helper->enableSviStats(VlanId(21));
   fleet.faults().failNext("counterReadDirect", 6);
   EXPECT_DEATH(read(21), "status == 0");
   EXPECT_DEATH(ZelCounter::zelCountersL3HelperFactory(0, {typeOf(0)}, system, pd,
                                                       Kiln::allocate<SoftChip::P4Program>(), chipStatus[0]),
                "tableIndex != 0xFFFFFFF");
}

} // namespace
