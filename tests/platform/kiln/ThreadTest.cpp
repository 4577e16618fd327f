// Between threads: the activity lock, pointers in thread-safe mode, names, and lock files.
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "kiln/Name.h"
#include "kiln/Ptr.h"
#include "kiln/TrustedFile.h"
#include "tests/support/LockWaiter.h"
#include "tests/support/TemporaryFolder.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <thread>

namespace {

using Kiln::ActivityLockAnchor;
using Kiln::Ptr;
using ZelTest::NoSlices;

TEST(ActivityLock, IsRecursiveAndHeldUntilItsFirstGuardEnds) {
   EXPECT_FALSE(ActivityLockAnchor::isHeldByThisThread());
   {
      const auto outer = ActivityLockAnchor::lock();
      { const auto inner = ActivityLockAnchor::lock(); }
      EXPECT_TRUE(ActivityLockAnchor::isHeldByThisThread());
      bool heldByOther = true;
      std::thread([&] { heldByOther = ActivityLockAnchor::isHeldByThisThread(); }).join();
      EXPECT_FALSE(heldByOther);
   }
   EXPECT_FALSE(ActivityLockAnchor::isHeldByThisThread());
}

// The counter is a plain variable: without exclusion its count falls short, and ThreadSanitizer reports a race.
TEST(ActivityLock, IsGivenUpByAGuardEarlyAndOnce) {
   const auto outer = ActivityLockAnchor::lock();
   {
      auto inner = ActivityLockAnchor::lock();
      inner.giveUp();
      inner.giveUp(); // and again at the end of its scope: a second release would take the outer hold
   }
   EXPECT_TRUE(ActivityLockAnchor::isHeldByThisThread());
}

TEST(ActivityLock, FollowsAGuardThatMoves) {
   std::optional<ActivityLockAnchor::Guard> kept;
   {
      auto lock = ActivityLockAnchor::lock();
      kept.emplace(std::move(lock));
   }
   EXPECT_TRUE(ActivityLockAnchor::isHeldByThisThread());
   kept->giveUp();
   EXPECT_FALSE(ActivityLockAnchor::isHeldByThisThread());
}

TEST(ActivityLockDeathTest, RefusesAGuardThatEndsOnAnotherThread) {
   const auto endElsewhere = [] {
      auto lock = ActivityLockAnchor::lock();
      std::thread([moved = std::move(lock)]() mutable { moved.giveUp(); }).join();
   };
   EXPECT_DEATH(endElsewhere(), "depthOfThisThread != 0");
}

TEST(ActivityLock, KeepsThreadsApartEvenWhenTakenTwice) {
   constexpr int rounds = 20000;
   int count = 0;
   const auto work = [&] {
      for (int i = 0; i < rounds; ++i) {
         const auto lock = ActivityLockAnchor::lock();
         const int before = count;
         const auto again = ActivityLockAnchor::lock();
         count = before + 1;
      }
   };
   std::thread other(work);
   work();
   other.join();
   EXPECT_EQ(count, 2 * rounds);
}

TEST(ActivityLock, IsGivenUpWhileYieldingAndTakenBackEvenByAnException) {
   const auto lock = ActivityLockAnchor::lock();
   bool entered = false;
   const auto letIn = [&] {
      std::thread([&] {
         const auto others = ActivityLockAnchor::lock();
         entered = true;
      }).join();
      throw std::runtime_error("interrupted");
   };
   EXPECT_THROW(ActivityLockAnchor::yieldWhile(letIn), std::runtime_error);
   EXPECT_TRUE(entered);
   EXPECT_TRUE(ActivityLockAnchor::isHeldByThisThread());
}

TEST(ActivityLock, GivesWayToWhoWaitsAndSaysSo) {
   const NoSlices noSlices;
   const auto lock = ActivityLockAnchor::lock();
   EXPECT_FALSE(ActivityLockAnchor::giveWay()) << "nobody waits";
   bool entered = false;
   std::thread other([&] {
      const auto others = ActivityLockAnchor::lock();
      entered = true;
   });
   while (!ActivityLockAnchor::giveWay()) {
   }
   EXPECT_TRUE(entered);
   EXPECT_TRUE(ActivityLockAnchor::isHeldByThisThread());
   other.join();
}

TEST(ActivityLock, ComesToThreadsInTheOrderInWhichTheyCameForIt) {
   const NoSlices noSlices;
   std::string order;
   auto lock = ActivityLockAnchor::lock();
   {
      const ZelTest::LockWaiter first([&] { order += '1'; });
      const ZelTest::LockWaiter second([&] { order += '2'; });
      const ZelTest::LockWaiter third([&] { order += '3'; });
      EXPECT_TRUE(ActivityLockAnchor::giveWay());
      order += '0';
      lock.giveUp();
   }
   EXPECT_EQ(order, "1230");
}

TEST(ActivityLock, GivesWayOnlyWhereItsOneHolderExpectsIt) {
   const NoSlices noSlices;
   EXPECT_FALSE(ActivityLockAnchor::isSliceOver()) << "without the lock";
   const auto outer = ActivityLockAnchor::lock();
   EXPECT_TRUE(ActivityLockAnchor::isSliceOver());
   const U64 holds = ActivityLockAnchor::statistics().holds[0];
   const auto inner = ActivityLockAnchor::lock();
   EXPECT_FALSE(ActivityLockAnchor::isSliceOver()) << "under a nested hold";
   EXPECT_FALSE(ActivityLockAnchor::giveWay());
   EXPECT_EQ(ActivityLockAnchor::statistics().holds[0], holds);
}

TEST(ActivityLock, CountsItsHoldsByTheirLength) {
   const auto before = ActivityLockAnchor::statistics();
   { const auto lock = ActivityLockAnchor::lock(); }
   const auto after = ActivityLockAnchor::statistics();
   U64 holds = 0;
   for (std::size_t i = 0; i < after.holds.size(); ++i) {
      holds += after.holds[i] - before.holds[i];
   }
   EXPECT_EQ(holds, 1U);
   EXPECT_GT(after.held, before.held);
}

// Runs something in the loop.
struct Alarm : Kiln::Clock::Notifiee {
   Alarm(const Ptr<Kiln::ActivityManager>& manager, double delay, std::function<void()> handler)
        : Notifiee(manager->clock()), then(std::move(handler)) {
      timeMinIs(Kiln::System::currentTime() + delay);
   }
   void onTime() override { then(); }
   const std::function<void()> then;
};

TEST(ActivityLock, TheSleepingLoopLetsOthersIn) {
   const auto manager = Kiln::allocate<Kiln::ActivityManager>();
   std::atomic<bool> isRunning{false};
   bool wasLetIn = false;
   const Alarm beginning(manager, 0.0, [&] { isRunning = true; });
   const Alarm deadline(manager, 20.0, [&] { manager->stop(); });
   std::thread other([&] {
      while (!isRunning) {
         std::this_thread::yield();
      }
      const auto lock = ActivityLockAnchor::lock();
      wasLetIn = !manager->isStopping();
      manager->stop();
   });
   manager->run();
   other.join();
   EXPECT_TRUE(wasLetIn) << "the loop held the lock while it slept";
}

TEST(ActivityLock, AnEntryWithoutTheLockStops) {
   EXPECT_DEATH(ActivityLockAnchor::assertHeld(),
                "assertion \"isHeldByThisThread\\(\\)\" failed in ActivityLock");
   EXPECT_DEATH(
        {
           const auto outer = ActivityLockAnchor::lock();
           const auto inner = ActivityLockAnchor::lock();
           ActivityLockAnchor::yieldWhile([] {});
        },
        "heldDepth\\(\\) == 1");
}

struct Thing : Kiln::PtrInterface {
   Thing() = default;
   explicit Thing(bool bad) {
      if (bad) {
         throw std::runtime_error("no thing");
      }
   }
};
struct SpecialThing : Thing {};

struct PtrInEitherMode : testing::TestWithParam<bool> {
   PtrInEitherMode() { Kiln::threadSafePtrModeIs(GetParam()); }
   ~PtrInEitherMode() override { Kiln::threadSafePtrModeIs(false); }
   U64 before = Kiln::trackedObjectCount();
};

TEST_P(PtrInEitherMode, AnObjectLivesExactlyAsLongAsItsPointers) {
   Ptr<const Thing> base;
   {
      Ptr<SpecialThing> special = Kiln::allocate<SpecialThing>();
      base = special;
      EXPECT_TRUE(base == special);
      Ptr<SpecialThing> moved(std::move(special));
      EXPECT_EQ(special, nullptr); // NOLINT(bugprone-use-after-move): this is what is tested
      EXPECT_EQ(moved->refCount(), 2U);
      const Ptr<SpecialThing>& alias = moved;
      moved = alias;
      EXPECT_EQ(base->refCount(), 2U);
   }
   EXPECT_EQ(Kiln::trackedObjectCount(), before + 1);
   Kiln::threadSafePtrModeIs(!GetParam()); // the reference count survives a change of mode
   base = nullptr;
   EXPECT_EQ(Kiln::trackedObjectCount(), before);
   EXPECT_THROW(Kiln::allocate<Thing>(true), std::runtime_error);
   EXPECT_EQ(Kiln::trackedObjectCount(), before);
}

INSTANTIATE_TEST_SUITE_P(Modes, PtrInEitherMode, testing::Values(false, true));

TEST(ThreadSafePtr, TwoThreadsMayShareAndDropOneObject) {
   Kiln::threadSafePtrModeIs(true);
   const U64 before = Kiln::trackedObjectCount();
   for (int round = 0; round < 200; ++round) {
      Ptr<Thing> shared = Kiln::allocate<Thing>();
      const auto work = [](Ptr<Thing> mine) {
         for (int i = 0; i < 200; ++i) {
            Ptr<const Thing> copy(mine);
            Ptr<const Thing> other(copy);
            copy = nullptr;
         }
      };
      std::thread one(work, shared);
      std::thread two(work, std::move(shared)); // whoever drops it last destroys it
      one.join();
      two.join();
   }
   EXPECT_EQ(Kiln::trackedObjectCount(), before);
   Kiln::threadSafePtrModeIs(false);
}

TEST(FileLock, EndsWithoutTheFileOfWhoeverHasTheNameSince) {
   const ZelTest::TemporaryFolder folder;
   const std::string path = folder.path() + "/thing";
   std::optional<Kiln::FileLock> first;
   first.emplace(path, 0.0);
   EXPECT_THROW(Kiln::FileLock(path, 0.0), Kiln::FileInUse);
   std::filesystem::rename(path + "~lock", path + "~moved");
   {
      const Kiln::FileLock second(path, 0.0);
      first.reset();
      EXPECT_TRUE(std::filesystem::exists(path + "~lock"));
   }
   EXPECT_FALSE(std::filesystem::exists(path + "~lock"));
}

TEST(FileLock, IsHeldByOneAtATimeThoughItsFileComesAndGoes) {
   const ZelTest::TemporaryFolder folder;
   std::atomic<int> inside{0};
   const auto take = [&] {
      const Kiln::FileLock lock(folder.path() + "/thing", Kiln::FileLock::patience);
      EXPECT_EQ(++inside, 1);
      std::this_thread::yield();
      --inside;
   };
   std::atomic<bool> isOver{false};
   std::vector<std::thread> others;
   for (int i = 0; i < 3; ++i) {
      others.emplace_back([&] {
         while (!isOver) {
            take();
         }
      });
   }
   for (int time = 0; time < 20000 && !testing::Test::HasFailure(); ++time) {
      take();
   }
   isOver = true;
   for (std::thread& other : others) {
      other.join();
   }
}

TEST(Name, OneTextIsOneNameInEveryThread) {
   std::vector<Kiln::Name> mine;
   std::vector<Kiln::Name> theirs;
   const auto intern = [](std::vector<Kiln::Name>* names) {
      for (int i = 0; i < 500; ++i) {
         names->push_back(Kiln::Name("an interned text " + std::to_string(i)));
      }
   };
   std::thread other(intern, &theirs);
   intern(&mine);
   other.join();
   EXPECT_EQ(mine, theirs);
   EXPECT_EQ(mine[499].text(), "an interned text 499");
   EXPECT_NE(mine[0].id(), mine[1].id());
   EXPECT_EQ(Kiln::Name(""), Kiln::Name());
}

TEST(Name, NaturalOrderIsATotalOrder) {
   const std::vector<const char*> ordered{"",
                                          "0",
                                          "00",
                                          "1",
                                          "Ethernet1",
                                          "Ethernet2",
                                          "Ethernet02",
                                          "Ethernet2.9",
                                          "Ethernet2.10",
                                          "Ethernet10",
                                          "Ethernet18446744073709551616",
                                          "Vlan1a01b1",
                                          "Vlan1a1b01",
                                          "Vlan1a1b2",
                                          "\xc3\xa4"};
   for (std::size_t i = 0; i < ordered.size(); ++i) {
      for (std::size_t j = 0; j < ordered.size(); ++j) {
         const int order = Kiln::naturalCompare(ordered[i], ordered[j]);
         EXPECT_EQ(order < 0, i < j) << ordered[i] << " and " << ordered[j];
         EXPECT_EQ(order == 0, i == j) << ordered[i] << " and " << ordered[j];
      }
   }
}

} // namespace
