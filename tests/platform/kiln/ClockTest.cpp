// Clocks, the loop in real and in simulated time, and the timer wheel.
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "kiln/RingLog.h"
#include "kiln/TimerWheel.h"
#include "tests/support/LockWaiter.h"
#include "tests/support/Pipe.h"
#include "tests/support/Random.h"

#include <chrono>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <numeric>
#include <optional>
#include <thread>
#include <unistd.h>

namespace {

using Kiln::never;
using Kiln::Ptr;
using testing::ElementsAre;

struct Alarm : Kiln::Clock::Notifiee {
   Alarm(const Ptr<Kiln::Clock>& clock, std::function<void()> handler)
        : Notifiee(clock), then(std::move(handler)) {}
   void onTime() override { then(); }
   std::function<void()> then;
};

// Simulated time, with an activity manager of its own.
struct Clock : testing::Test {
   Clock() { Kiln::System::timeSourceIs(time); }
   ~Clock() override { Kiln::System::timeSourceIs(Kiln::allocate<Kiln::RealTime>()); }

   std::function<void()> note(int what) {
      return [this, what] {
         fired.push_back(what);
         times.push_back(Kiln::System::currentTime());
      };
   }

   Ptr<Kiln::SimulatedTime> time = Kiln::allocate<Kiln::SimulatedTime>();
   Ptr<Kiln::ActivityManager> manager = Kiln::allocate<Kiln::ActivityManager>();
   std::vector<int> fired;
   std::vector<double> times;
};

TEST_F(Clock, AHandlerMayRearmThrowDestroyItselfOrTakeAnotherAway) {
   Alarm periodic(manager->clock(), [&] {
      fired.push_back(1);
      periodic.timeMinIs(Kiln::System::currentTime() + 2.0);
      throw std::runtime_error("handler in trouble");
   });
   std::optional<Alarm> victim(std::in_place, manager->clock(), note(2));
   std::optional<Alarm> suicide;
   suicide.emplace(manager->clock(), [&] {
      fired.push_back(3);
      victim.reset();
      suicide.reset();
   });
   periodic.timeMinIs(2.0);
   suicide->timeMinIs(3.0);
   victim->timeMinIs(3.0);
   Kiln::RingLog::instance().lineDelAll();
   manager->advance(6.0);
   EXPECT_THAT(fired, ElementsAre(1, 3, 1, 1));
   EXPECT_THROW(periodic.timeMinIs(std::nan("")), std::invalid_argument);
   EXPECT_EQ(periodic.timeMin(), 8.0);
   EXPECT_THAT(Kiln::RingLog::instance().lines(),
               testing::Contains("2.000000 clock handler failed: handler in trouble"));
}

TEST_F(Clock, ChargedTimeDelaysTheNextAndArmingForThePastFiresWithoutRunningBack) {
   Alarm slow(manager->clock(), [&] {
      note(1)();
      time->charge(0.5);
      slow.timeMinIs(Kiln::System::currentTime() + 2.0);
   });
   Alarm late(manager->clock(), note(2));
   Alarm past(manager->clock(), note(3));
   slow.timeMinIs(2.0);
   late.timeMinIs(2.25);
   manager->advance(3.0);
   EXPECT_THAT(times, ElementsAre(2.0, 2.5));
   past.timeMinIs(-1.0);
   manager->advance(1.5);
   EXPECT_THAT(fired, ElementsAre(1, 2, 3, 1));
   EXPECT_THAT(times, ElementsAre(2.0, 2.5, 3.0, 4.5));
   EXPECT_EQ(past.timeMin(), never);
   EXPECT_EQ(time->now(), 5.0); // 4.5 plus the charge
}

// The oracle is a multimap, which keeps entries of the same time in the order of their arming.
TEST_F(Clock, AgreesWithAnOracleOnRandomArming) {
   ZelTest::Random random;
   std::multimap<double, int> oracle;
   std::vector<std::unique_ptr<Alarm>> alarms;
   for (int i = 0; i < 40; ++i) {
      alarms.push_back(std::make_unique<Alarm>(manager->clock(), note(i)));
   }
   for (int round = 0; round < 300; ++round) {
      for (int i = 0; i < 10; ++i) {
         const int which = static_cast<int>(random.below(alarms.size()));
         std::erase_if(oracle, [&](const auto& entry) { return entry.second == which; });
         const auto delay = static_cast<double>(random.below(8));
         if (delay == 7) {
            alarms[static_cast<std::size_t>(which)]->timeMinIs(never);
         } else {
            alarms[static_cast<std::size_t>(which)]->timeMinIs(time->now() + delay);
            oracle.emplace(time->now() + delay, which);
         }
      }
      std::vector<int> expected;
      while (!oracle.empty() && oracle.begin()->first <= time->now() + 1.0) {
         expected.push_back(oracle.begin()->second);
         oracle.erase(oracle.begin());
      }
      fired.clear();
      manager->advance(1.0);
      ASSERT_EQ(fired, expected) << "round " << round;
   }
}

// In real time. Each test waits only until its wake-up arrives.
struct ActivityManager : testing::Test {
   Ptr<Kiln::ActivityManager> manager = Kiln::allocate<Kiln::ActivityManager>();
};

// Each arming comes when the loop sleeps without a limit, or is about to, so that a lost wake-up shows.
TEST_F(ActivityManager, ArmingFromAnotherThreadWakesTheSleepingLoop) {
   constexpr int rounds = 2000;
   std::atomic<int> count{0};
   Alarm alarm(manager->clock(), [&] { ++count; });
   std::thread other([&] {
      for (int i = 0; i < rounds; ++i) {
         alarm.timeMinIs(0.0);
         while (count.load() <= i) {
            std::this_thread::yield();
         }
      }
      manager->stop();
   });
   manager->run();
   other.join();
   EXPECT_EQ(count.load(), rounds);
}

TEST_F(ActivityManager, TheLoopOutlivesItsHandlersAndEndsAtOnceWhenStopped) {
   std::vector<int> fired;
   Alarm bad(manager->clock(), [&] {
      fired.push_back(1);
      throw 5; // not derived from std::exception
   });
   Alarm stopper(manager->clock(), [&] {
      fired.push_back(2);
      EXPECT_TRUE(Kiln::ActivityLockAnchor::isHeldByThisThread());
      manager->stop();
   });
   Alarm after(manager->clock(), [&] { fired.push_back(3); });
   bad.timeMinIs(0.0);
   stopper.timeMinIs(0.0);
   after.timeMinIs(0.0);
   manager->run();
   EXPECT_THAT(fired, ElementsAre(1, 2));
   EXPECT_FALSE(Kiln::ActivityLockAnchor::isHeldByThisThread());
}

struct Reader : Kiln::ActivityManager::Descriptor {
   Reader(const Ptr<Kiln::ActivityManager>& manager, int fd, std::function<void()> handler)
        : Descriptor(manager, fd), then(std::move(handler)) {
      wantsIs(true, false);
   }
   void onReady(bool readable, bool writable) override {
      EXPECT_TRUE(readable && !writable);
      then();
   }
   std::function<void()> then;
};

TEST_F(ActivityManager, AClockThatAlwaysRearmsForNowLeavesDescriptorsTheirTurn) {
   const ZelTest::Pipe pipe;
   bool isServed = false;
   Alarm busy(manager->clock(), [&] { busy.timeMinIs(0.0); });
   busy.timeMinIs(0.0);
   const Reader reader(manager, pipe.reader.fd(), [&] {
      isServed = true;
      manager->stop();
   });
   ASSERT_EQ(write(pipe.writer.fd(), "x", 1), 1);
   manager->run();
   EXPECT_TRUE(isServed);
}

// Or one that never ends would hold up the clocks without bound.
TEST_F(ActivityManager, WhatIsServedWithinAHandlerGetsAsMuchTimeAsThatHadAndALittleMore) {
   const ZelTest::NoSlices atEachPiece;
   const ZelTest::Pipe pipe;
   bool isWithin = false;
   int servedWithin = 0;
   Reader reader(manager, pipe.reader.fd(), [&] {
      if (!isWithin) {
         manager->stop();
         return;
      }
      ++servedWithin;
      std::this_thread::sleep_for(std::chrono::milliseconds(500));
   });
   reader.servedMeanwhileIs(true);
   ASSERT_EQ(write(pipe.writer.fd(), "x", 1), 1); // stays readable
   Alarm busy(manager->clock(), [&] {
      isWithin = true;
      for (int piece = 0; piece < 20; ++piece) {
         Kiln::ActivityLockAnchor::giveWay("busy");
      }
      isWithin = false;
   });
   busy.timeMinIs(0.0);
   manager->run();
   EXPECT_EQ(servedWithin, 1) << "half a second is more than the handler and what is always granted";
}

TEST_F(ActivityManager, AReadyDescriptorThatAnotherDestroyedOrSilencedIsNotServed) {
   ZelTest::Pipe pipe;
   pipe.writer = {}; // the hang-up makes all three ready
   const ZelTest::Pipe quiet;
   int served = 0;
   std::optional<Reader> second;
   std::optional<Reader> third;
   std::optional<Reader> first;
   first.emplace(manager, pipe.reader.fd(), [&] {
      ++served;
      second.reset();
      second.emplace(manager, quiet.reader.fd(), [&] { ++served; }); // at the same address
      third->wantsIs(false, false);
      manager->stop();
      first.reset(); // ends this handler too
   });
   second.emplace(manager, pipe.reader.fd(), [&] { ++served; });
   third.emplace(manager, pipe.reader.fd(), [&] { ++served; });
   manager->run();
   EXPECT_EQ(served, 1);
}

struct WheelTimer : Oxbow::TimerWheel::Timer {
   WheelTimer(const Ptr<Oxbow::TimerWheel>& wheel, std::function<void()> handler)
        : Timer(wheel), then(std::move(handler)) {}
   void onTime() override { then(); }
   std::function<void()> then;
};

struct TimerWheel : Clock {
   Ptr<Oxbow::TimerWheel> wheel =
        Kiln::allocate<Oxbow::TimerWheel>(Ptr<const Kiln::Clock>(manager->clock()), 100U, 20U, 0U, 1024U);
};

TEST_F(TimerWheel, ServesAtMostTwentyTimersATickInOrderAndLosesNone) {
   std::vector<std::unique_ptr<WheelTimer>> timers;
   std::map<double, int> served;
   for (int i = 0; i < 50; ++i) {
      timers.push_back(std::make_unique<WheelTimer>(wheel, [&, i] {
         fired.push_back(i);
         ++served[Kiln::System::currentTime()];
      }));
      timers.back()->delayIs(1.0);
   }
   manager->advance(2.0);
   std::vector<int> inOrder(50);
   std::iota(inOrder.begin(), inOrder.end(), 0);
   EXPECT_EQ(fired, inOrder);
   EXPECT_THAT(served, ElementsAre(std::pair(1.0, 20), std::pair(1.1, 20), std::pair(1.2, 10)));
}

TEST_F(TimerWheel, APeriodicTimerKeepsItsPeriodThoughTicksComeLate) {
   WheelTimer periodic(wheel, [&] {
      times.push_back(Kiln::System::currentTime());
      time->charge(0.03); // the handler takes this long
      periodic.delayIs(2.0);
   });
   periodic.delayIs(2.0);
   manager->advance(200.0);
   ASSERT_EQ(times.size(), 100U);
   EXPECT_EQ(times.back(), 200.0);
}

TEST_F(TimerWheel, CatchesUpAfterAStallWithinTheBound) {
   Alarm stall(manager->clock(), [&] { time->charge(500.0); });
   std::vector<std::unique_ptr<WheelTimer>> timers;
   for (int i = 0; i < 30; ++i) {
      timers.push_back(std::make_unique<WheelTimer>(wheel, note(i)));
      timers.back()->delayIs(1.0 + i);
   }
   stall.timeMinIs(0.5);
   manager->advance(0.5); // to 500.5
   manager->advance(0.0);
   EXPECT_TRUE(fired.empty() || fired.size() == 20);
   manager->advance(0.2);
   EXPECT_EQ(fired.size(), 30U);
   EXPECT_TRUE(std::is_sorted(fired.begin(), fired.end()));
}

TEST_F(TimerWheel, AHandlerMayDisarmMoveOrDestroyTimersAndThrow) {
   std::optional<WheelTimer> self;
   std::optional<WheelTimer> victim(std::in_place, wheel, note(8));
   WheelTimer moved(wheel, note(2));
   WheelTimer disarmed(wheel, note(9));
   WheelTimer last(wheel, note(3));
   self.emplace(wheel, [&] {
      note(1)();
      victim.reset();
      disarmed.disarm();
      moved.delayIs(0.5);
      self.reset();
      throw std::runtime_error("timer in trouble");
   });
   for (WheelTimer* timer : {&*self, &*victim, &moved, &disarmed, &last}) {
      timer->delayIs(0.3);
   }
   manager->advance(3.0);
   EXPECT_THAT(fired, ElementsAre(1, 3, 2));
   EXPECT_THAT(times, ElementsAre(0.3, 0.4, 0.8)); // the throw ended its tick
   EXPECT_EQ(manager->clock()->earliestExpiry(), never);
}

TEST_F(TimerWheel, TheWheelMayEndInItsLastTimersHandler) {
   std::optional<WheelTimer> only;
   only.emplace(wheel, [&] {
      note(1)();
      only.reset();
   });
   only->delayIs(0.1);
   EXPECT_THROW(only->delayIs(std::nan("")), std::invalid_argument);
   wheel = nullptr;
   manager->advance(1.0);
   EXPECT_THAT(fired, ElementsAre(1));
}

} // namespace
