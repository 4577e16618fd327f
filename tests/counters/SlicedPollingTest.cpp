// What becomes of polling passes, and of the manager's end, when others get in between slices.
#include "counters/l3/ZelCountersL3Intf.h"
#include "kiln/Timer.h"
#include "tests/support/CountersRig.h"
#include "tests/support/LockWaiter.h"
#include "tests/support/TemporaryFolder.h"
#include "vex/SharedTables.h"
#include "vex/VexL3Intf.h"

#include <gtest/gtest.h>
#include <optional>

namespace {

using namespace ZelTest;

// Starts threads that wait for the lock, just before something else is due.
struct Disturbance {
   Disturbance(double time, std::vector<std::function<void()>> them)
        : works(std::move(them)), clock(Kiln::activityManagerClock(), this, &Disturbance::begin) {
      clock.timeMinIs(time);
   }
   void begin() { waiters.emplace(std::move(works)); }

   std::vector<std::function<void()>> works;
   std::optional<LockWaiters> waiters;
   Kiln::Timer<Disturbance> clock;
};

class SlicedPolling : public testing::Test {
 protected:
   SlicedPolling() {
      const Vex::SharedTables tables = Vex::openSharedTables(Silo::Store::directory(folder.path()),
                                                             {.ports = 4, .vlanIntfs = 4, .subIntfs = 4});
      ports->hasNotificationActiveIs(true);
      vlans->hasNotificationActiveIs(true);
      rig.mounts->ethPhyIntfStatusDirIs(ports);
      rig.mounts->vlanIntfStatusDirIs(vlans);
      rig.mounts->writerConfigIs(Kiln::allocate<Vex::Counters::WriterConfig>());
      rig.mounts->allIntfCountersIs(tables.allIntfCounters);
      rig.mounts->allIntfClearCountersIs(tables.allIntfClearCounters);
      rig.mounts->allIntfQueueCountersIs(tables.allIntfQueueCounters);
      rig.mounts->allIntfClearQueueCountersIs(tables.allIntfClearQueueCounters);
      rig.mounts->allVlanIntfCountersIs(tables.allVlanIntfCounters);
      rig.mounts->subIntfCountersDirIs(tables.subIntfCountersDir);
      rig.mounts->subIntfCountersSnapshotDirIs(tables.subIntfCountersSnapshotDir);
      rig.mounts->intfAllNatCounterDirIs(tables.intfAllNatCounterDir);
      rig.mounts->historyIs(tables.history);
      rig.mounts->eventsIs(tables.events);
      rig.mounts->chipTablesIs(tables.chipTables);
      for (int vlan = 1; vlan <= 130; ++vlan) { // marked in three slices a chip
         vlans->intfStatusIs(Pelt::IntfId(("Vlan" + std::to_string(vlan)).c_str()), true);
      }
   }

   void begin() {
      rig.makeManager();
      rig.addChip(0, "Zel0");
      rig.addChip(1, "Zel1");
      rig.addPort("Ethernet1", 0, 5);
      rig.addPort("Ethernet2", 1, 5);
      ports->intfStatusIs(ethernet1, true);
      rig.advance(0.5);
   }
   void end() {
      rig.deleteManager();
      rig.status->portInfoDel(ethernet1);
      rig.status->portInfoDel(ethernet2);
      const auto lock = Kiln::ActivityLockAnchor::lock();
      for (const U8 dev : {U8{0}, U8{1}, U8{2}}) {
         if (rig.fleet.chip(dev) != nullptr) {
            rig.fleet.chipDel(dev);
         }
      }
   }

   // In a first manager's first pass another thread gets in at the first opportunity, in a second one's at the second, and
   // so on; then, if the manager is there still, it polls once more, and is asked how it fares. How many there were.
   template <class Work, class Check>
   int atEachOpportunity(Work work, Check check) {
      bool isAmid = true;
      for (int opportunity = 0;; ++opportunity) {
         begin();
         const auto mgrSm = rig.mgr->countersMgrSm();
         std::vector<std::function<void()>> works(static_cast<std::size_t>(opportunity), [] {});
         works.emplace_back([&] {
            isAmid = mgrSm->intfCounterPollingTimeMin() == Kiln::never;
            work();
         });
         Disturbance disturbance(mgrSm->intfCounterPollingTimeMin() - 1e-3, std::move(works));
         rig.advance(mgrSm->intfCounterPollingTimeMin() - rig.time.now());
         disturbance.waiters.reset();
         if (rig.mgr) {
            rig.advance(2.0);
         }
         check();
         end();
         if (!isAmid) {
            return opportunity;
         }
      }
   }

   const Pelt::IntfId ethernet1{"Ethernet1"};
   const Pelt::IntfId ethernet2{"Ethernet2"};
   const TemporaryFolder folder;
   CountersRig rig;
   const NoSlices noSlices;
   const Kiln::Ptr<Interface::EthPhyIntfStatusDir> ports = Kiln::allocate<Interface::EthPhyIntfStatusDir>();
   const Kiln::Ptr<Interface::VlanIntfStatusDir> vlans = Kiln::allocate<Interface::VlanIntfStatusDir>();
};

TEST_F(SlicedPolling, APassGoesOnWithTheChipsAndPortsThatAreThere) {
   constexpr int least = 11 + 2 + 2 + 2 * 2; // tables, healths, chips, and their VLANs
   U64 reading = 0;
   EXPECT_GE(atEachOpportunity(
                  [&] {
                     rig.mgr->deleteChip("Zel1");
                     rig.addChip(0, "Zel0b"); // in the place of Zel0
                     rig.addChip(2, "Zel2");
                     rig.status->portInfoDel(ethernet2);
                     rig.addPort("Ethernet2", 2, 7);
                     rig.status->portInfoIs(ethernet1, {0, 6});
                     rig.chip(0).portAdd(6);
                     rig.chip(0).rmonIs(6, 0, ++reading);
                     rig.chip(2).rmonIs(7, 0, ++reading);
                  },
                  [&] {
                     ASSERT_EQ(rig.mgr->zelCounters().keys(), (std::vector<ZelId::ZelDevId>{0, 2}));
                     EXPECT_EQ(rig.counters(0)->chipName(), "Zel0b");
                     EXPECT_EQ(rig.last(0, ethernet1, 0), reading - 1);
                     EXPECT_EQ(rig.last(2, ethernet2, 0), reading);
                     EXPECT_EQ(rig.mgr->countersMgrSm()->intfCounterPollingTimeMin(), rig.time.now() + 2.0);
                  }),
             least);
}

TEST_F(SlicedPolling, NothingIsDoneForAManagerThatHasGone) {
   const auto armed = [] { return Kiln::activityManagerClock()->armedCount(); };
   const std::size_t before = armed();
   EXPECT_GE(atEachOpportunity([&] { rig.deleteManager(); },
                               [&] {
                                  rig.advance(0.5); // the wheel stops with its next tick
                                  EXPECT_EQ(armed(), before);
                               }),
             19);
   begin();
   const auto chip = rig.counters(1);
   {
      auto lock = Kiln::ActivityLockAnchor::lock();
      const LockWaiters waiters({[&] { rig.deleteManager(); }});
      rig.mgr->requestHwCountersPolling();
      EXPECT_TRUE(chip->isStopped());
      lock.giveUp();
   }
}

// The last to let go doesn't hold the lock, and another thread comes right behind it.
TEST_F(SlicedPolling, TheManagersEndIsWholeWhoeverEndsIt) {
   rig.makeManager();
   const auto l3IntfSm = rig.mgr->zelCountersL3IntfSm();
   const auto l3Table = rig.mgr->vexL3IntfData()->vexL3IntfTable();
   std::size_t left = 0;
   std::optional<LockWaiter> behind;
   auto lock = Kiln::ActivityLockAnchor::lock();
   for (U32 vlan = 1; vlan < 4; ++vlan) {
      l3Table->intfIdToL3IdIs(Pelt::IntfId(("Vlan" + std::to_string(vlan)).c_str()), vlan);
   }
   const LockWaiter before([&, ender = gettid()] {
      LockWaiter::awaitSleep(ender);
      behind.emplace([&] { left = l3IntfSm->l3IntfToVid().size(); });
   });
   left = l3IntfSm->l3IntfToVid().size();
   EXPECT_EQ(left, 3U);
   lock.giveUp();
   rig.mgr = nullptr;
   behind.reset();
   EXPECT_EQ(left, 0U);
}

} // namespace
