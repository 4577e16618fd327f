// The counters of subinterfaces: when they are read, and how they are published.
#include "tests/platform/vex/PublishingRig.h"
#include "tests/support/LockWaiter.h"

#include <functional>
#include <optional>
#include <vector>

namespace {

namespace TableName = Silo::Interface::TableName;
using Silo::Interface::L3IntfCounters;

class SubIntfHelper : public VexHelper::VexHelperSubIntfCountersSm {
 public:
   bool getSubIntfCounters(const Pelt::IntfId& intf, const Kiln::Ptr<VexTypes::L3IntfCounters>& current,
                           const Kiln::Ptr<VexTypes::L3IntfCounters>&) override {
      ++reads;
      if (onRead) {
         onRead(intf);
      }
      current->statisticsIs(hardware);
      return isCounted;
   }

   Interface::L3IntfStatistics hardware{};
   bool isCounted = true;
   int reads = 0;
   std::function<void(const Pelt::IntfId&)> onRead;
};

class L3Publishing : public ZelTest::PublishingRig {
 protected:
   explicit L3Publishing(std::size_t subIntfs = 1) {
      tables = Vex::openSharedTables(store, {.subIntfs = subIntfs});
      directory->hasNotificationActiveIs(true);
      directory->intfStatusIs(intf, true);
      startReactor();
   }
   ~L3Publishing() override { reactor = nullptr; }

   void startReactor() {
      const auto clock = Kiln::activityManagerClock();
      reactor = Kiln::allocate<Vex::SubIntfCountersSm>(Vex::SubIntfCountersSm::Context{
           Kiln::allocate<Oxbow::TimerWheel>(clock, 100U, 20U, 0U, 1024U), directory,
           tables.subIntfCountersDir, tables.subIntfCountersSnapshotDir, 2.0, clock, helper});
      reactor->hasNotificationActiveIs(true);
   }
   void tick(double seconds = 2.0) {
      rig.advance(seconds);
      reactor->updateCounters();
      rig.advance(0.0);
   }
   L3IntfCounters subIntf(const char* table = TableName::subIntfCounters) {
      return record<L3IntfCounters>(table, "Ethernet1.100");
   }

   const Pelt::IntfId intf{"Ethernet1.100"};
   Kiln::Ptr<Interface::SubIntfStatusDir> directory = Kiln::allocate<Interface::SubIntfStatusDir>();
   Kiln::Ptr<SubIntfHelper> helper = Kiln::allocate<SubIntfHelper>();
   Kiln::Ptr<Vex::SubIntfCountersSm> reactor;
};

TEST_F(L3Publishing, ReadsOnceATurnHoweverOftenItIsAsked) {
   reactor->updateCounters();
   reactor->updateCounters();
   EXPECT_EQ(helper->reads, 0);
   rig.advance(0.0);
   EXPECT_EQ(helper->reads, 1);
}

TEST_F(L3Publishing, AFallIsAResetOfItsDirectionAlone) {
   helper->hardware = {1000, 10, 500, 5};
   tick();
   helper->hardware = {1600, 16, 500, 5};
   tick();
   EXPECT_EQ(subIntf().rate(0), 300.0);
   helper->hardware = {400, 14, 700, 7};
   tick();
   EXPECT_EQ(subIntf().totals, (std::array<U64, 4>{2000, 30, 700, 7}));
   EXPECT_EQ(subIntf().discontinuityTime, Kiln::System::currentTime());
   EXPECT_EQ(subIntf().rate(2), 100.0);
   EXPECT_TRUE(reactor->clear("Ethernet1.100"));
   EXPECT_FALSE(reactor->clear("Ethernet1.200"));
   helper->hardware.inOctets += 50;
   tick();
   EXPECT_EQ(subIntf().totals[0] - subIntf(TableName::subIntfClearCounters).totals[0], 50U);
}

TEST_F(L3Publishing, WithoutCountersNothingIsPublished) {
   helper->isCounted = false;
   tick();
   EXPECT_EQ(helper->reads, 1);
   EXPECT_EQ(tables.subIntfCountersDir->table().size(), 0U);
}

TEST_F(L3Publishing, ReadsByItselfIfNobodyAsksForLong) {
   rig.advance(2.5);
   EXPECT_EQ(helper->reads, 0);
   rig.advance(1.0);
   EXPECT_EQ(helper->reads, 1);
   for (int pass = 0; pass < 3; ++pass) {
      tick();
   }
   EXPECT_EQ(helper->reads, 4) << "only those that were asked for";
}

TEST_F(L3Publishing, WhatLeavesTheDirectoryIsGone) {
   helper->hardware = {1000, 10, 500, 5};
   tick();
   reactor->clear("all");
   directory->intfStatusDel(intf);
   tick();
   EXPECT_EQ(helper->reads, 1);
   EXPECT_EQ(tables.subIntfCountersDir->table().size(), 0U);
   EXPECT_EQ(tables.subIntfCountersSnapshotDir->table().size(), 0U);
}

TEST_F(L3Publishing, ClearsWhatAnEarlierAgentCountedAndNobodyHasReadSince) {
   helper->hardware = {1000, 10, 500, 5};
   tick();
   reactor = nullptr;
   directory->intfStatusDel(intf);
   startReactor();
   reactor->clear("all");
   EXPECT_EQ(subIntf(TableName::subIntfClearCounters).totals[0], 1000U);
}

TEST_F(L3Publishing, WhatTheTableHasNoRoomForIsToldEachTimeItComes) {
   tick();
   for (int time = 0; time < 2; ++time) {
      directory->intfStatusIs(Pelt::IntfId("Ethernet1.200"), true);
      tick();
      tick();
      EXPECT_EQ(logged.take().size(), 1U) << time;
      directory->intfStatusDel(Pelt::IntfId("Ethernet1.200"));
   }
}

struct SlicedL3Publishing : L3Publishing {
   SlicedL3Publishing() : L3Publishing(16) {}
   const ZelTest::NoSlices noSlices;
};

TEST_F(SlicedL3Publishing, WhatIsMarkedInAPassIsReadBehindItsLastOnes) {
   const auto name = [](int number) { return Pelt::IntfId(("Ethernet1." + std::to_string(number)).c_str()); };
   for (int number = 101; number < 110; ++number) {
      directory->intfStatusIs(name(number), true);
   }
   std::vector<Pelt::IntfId> read;
   std::optional<ZelTest::LockWaiter> other;
   helper->onRead = [&](const Pelt::IntfId& which) {
      read.push_back(which);
      if (!other) {
         other.emplace([&] { // before the second one is read
            directory->intfStatusDel(name(108));
            directory->intfStatusIs(name(200), true);
            reactor->updateCounters();
         });
      }
   };
   reactor->updateCounters();
   int turns = 0;
   Kiln::ActivityManager::instance()->runUntil([&] { return read.size() == 11 || ++turns == 20; });
   std::vector<Pelt::IntfId> expected;
   for (const int number : {100, 101, 102, 103, 104, 105, 106, 107, 109, 100, 200}) {
      expected.push_back(name(number));
   }
   EXPECT_EQ(read, expected);
   EXPECT_EQ(tables.subIntfCountersDir->table().size(), 10U);
}

} // namespace
