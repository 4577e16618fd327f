// How requests complete: when, on which thread, how often and with which values. Also planned failures.
#include "kiln/ActivityLock.h"
#include "kiln/RingLog.h"
#include "tests/softchip/SoftChipRig.h"
#include "zl/ZelSdk.h"

#include <condition_variable>
#include <gmock/gmock.h>
#include <map>
#include <sys/resource.h>
#include <unistd.h>

namespace SoftChip {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Kind = CompletionMode::Kind;

// Where a test's callbacks record what came. The cookie points to one.
struct Inbox {
   std::mutex mutex;
   std::condition_variable arrived;
   std::vector<U64> values; // of RMON counter 0
   std::vector<bf_dev_port_t> ports;
   std::vector<double> times;
   std::vector<std::thread::id> threads;

   void waitFor(std::size_t count) {
      std::unique_lock lock(mutex);
      arrived.wait(lock, [&] { return values.size() >= count; });
   }
   std::size_t count() {
      const std::lock_guard lock(mutex);
      return values.size();
   }
};

void note(bf_dev_id_t /*dev*/, bf_dev_port_t port, bf_rmon_counter_array_t* counters, void* cookie) {
   const auto activity = Kiln::ActivityLockAnchor::lock();
   auto& inbox = *static_cast<Inbox*>(cookie);
   const std::lock_guard lock(inbox.mutex);
   inbox.values.push_back((*counters)[0]);
   inbox.ports.push_back(port);
   inbox.times.push_back(Kiln::System::currentTime());
   inbox.threads.push_back(std::this_thread::get_id());
   inbox.arrived.notify_all();
}

void noteAndAsk(bf_dev_id_t dev, bf_dev_port_t port, bf_rmon_counter_array_t* counters, void* cookie) {
   note(dev, port, counters, cookie);
   if (static_cast<Inbox*>(cookie)->count() < 4) {
      bf_port_mac_stats_hw_async_get(dev, port, noteAndAsk, cookie);
   }
}

void throwAlways(bf_dev_id_t /*dev*/, bf_dev_port_t /*port*/, bf_rmon_counter_array_t* /*counters*/,
                 void* /*cookie*/) {
   throw std::range_error("no such port index");
}

class SdkCompletions : public ZelTest::SoftChipRig {
 protected:
   SdkCompletions() : chip(addChip()) {
      for (U16 port = 0; port < 4; ++port) {
         chip.portAdd(port);
      }
   }
   // The fleet's end delivers what is outstanding into the inbox, which must still exist.
   ~SdkCompletions() override { fleet = nullptr; }

   bf_status_t ask(bf_dev_port_t port = 0) { return bf_port_mac_stats_hw_async_get(0, port, note, &inbox); }

   Chip& chip;
   Inbox inbox;
};

TEST_F(SdkCompletions, DeferredCompletesInOrderAtTheSameInstantWithTheValuesOfThen) {
   ASSERT_EQ(ask(1), 0);
   ASSERT_EQ(ask(0), 0);
   EXPECT_EQ(inbox.count(), 0U);
   chip.rmonIs(1, 0, 11);
   chip.rmonIs(0, 0, 10);
   advance(0);
   EXPECT_THAT(inbox.ports, ElementsAre(1, 0));
   EXPECT_THAT(inbox.values, ElementsAre(11, 10));
   EXPECT_THAT(inbox.times, ElementsAre(0.0, 0.0));
   advance(10);
   EXPECT_EQ(inbox.count(), 2U);
}

TEST_F(SdkCompletions, ACallbackThatAsksAgainLetsOthersHaveTheirTurn) {
   struct Other {
      void handle() { inbox.ports.push_back(-1); }
      Inbox& inbox;
      Kiln::Timer<Other> timer{Kiln::activityManagerClock(), this, &Other::handle};
   } other{inbox};
   ASSERT_EQ(bf_port_mac_stats_hw_async_get(0, 0, noteAndAsk, &inbox), 0);
   other.timer.timeMinIs(0);
   advance(0);
   EXPECT_THAT(inbox.ports, ElementsAre(0, -1, 0, 0, 0));
}

TEST_F(SdkCompletions, LateCompletionsComeInTheOrderOfTheirTimes) {
   fleet->completions().modeIs({Kind::late, 3.0});
   ASSERT_EQ(ask(0), 0);
   fleet->completions().modeIs({Kind::late, 1.5});
   ASSERT_EQ(ask(1), 0);
   advance(1.4);
   EXPECT_EQ(inbox.count(), 0U);
   advance(5);
   EXPECT_THAT(inbox.ports, ElementsAre(1, 0));
   EXPECT_THAT(inbox.times, ElementsAre(1.5, 3.0));
}

TEST_F(SdkCompletions, TheDeliveryThreadAnswersEachRequestOnceAndSurvivesAnException) {
   constexpr std::size_t requests = 2000;
   fleet->completions().modeIs({Kind::thread});
   Kiln::RingLog::instance().lineDelAll();
   ASSERT_EQ(bf_port_mac_stats_hw_async_get(0, 0, throwAlways, nullptr), 0);
   for (std::size_t i = 0; i < requests; ++i) {
      const auto activity = Kiln::ActivityLockAnchor::lock();
      chip.receive(0, frame(broadcastMac, 1));
      ASSERT_EQ(ask(static_cast<int>(i % 4)), 0);
   }
   inbox.waitFor(requests);
   std::map<bf_dev_port_t, std::size_t> byPort;
   for (const bf_dev_port_t port : inbox.ports) {
      ++byPort[port];
   }
   EXPECT_EQ(byPort, (std::map<bf_dev_port_t, std::size_t>{{0, 500}, {1, 500}, {2, 500}, {3, 500}}));
   EXPECT_NE(inbox.threads.front(), std::this_thread::get_id());
   ASSERT_FALSE(Kiln::RingLog::instance().lines().empty());
   EXPECT_THAT(Kiln::RingLog::instance().lines().front(), HasSubstr("no such port index"));
   fleet = nullptr;
   EXPECT_EQ(inbox.count(), requests);
}

TEST_F(SdkCompletions, OutstandingCompletionsAreDeliveredWhenTheFleetEnds) {
   for (const Kind kind : {Kind::deferred, Kind::held, Kind::thread}) {
      fleet->completions().nextModeIs({kind});
      ASSERT_EQ(ask(), 0);
   }
   fleet->completions().nextModeIs({Kind::late, 1000.0});
   ASSERT_EQ(bf_port_mac_stats_hw_async_get(0, 0, noteAndAsk, &inbox), 0);
   fleet->completions().nextModeIs({Kind::inlined}, 10);
   fleet = nullptr;
   EXPECT_EQ(inbox.count(), 4U) << "what is asked for now is lost";
   EXPECT_EQ(ask(), 3) << "no fleet, no device";
}

TEST_F(SdkCompletions, AChipThatGoesAwayAnswersWithZerosAndItsSuccessorIsNotReadForIt) {
   chip.rmonIs(0, 0, 5);
   ASSERT_EQ(ask(), 0);
   fleet->chipDel(0);
   EXPECT_EQ(ask(), 3);
   Chip& successor = addChip();
   successor.portAdd(0);
   successor.rmonIs(0, 0, 6);
   ASSERT_EQ(ask(), 0);
   advance(0);
   EXPECT_THAT(inbox.values, ElementsAre(0, 6));
}

TEST_F(SdkCompletions, AChipThatRestartsAnswersEarlierRequestsWithZeros) {
   chip.rmonIs(0, 0, 5);
   ASSERT_EQ(ask(), 0);
   fleet->chipRestart(0, true);
   ASSERT_EQ(ask(), 0);
   advance(0);
   EXPECT_THAT(inbox.values, ElementsAre(0, 5));
}

TEST_F(SdkCompletions, NothingCompletesAfterAnErrorStatus) {
   fleet->completions().modeIs({Kind::inlined});
   EXPECT_EQ(bf_port_mac_stats_hw_async_get(7, 0, note, &inbox), 3) << "no such device";
   EXPECT_EQ(bf_port_mac_stats_hw_async_get(-1, 0, note, &inbox), 3);
   EXPECT_EQ(ask(1000), 3) << "no such port";
   EXPECT_EQ(ask(4), 6) << "a port that is not there";
   fleet->faults().failNext("bf_port_mac_stats_hw_async_get", 0, 1);
   fleet->faults().failNext("bf_port_mac_stats_hw_async_get", 26, 2);
   fleet->faults().failNext("bf_port_mac_stats_hw_async_get", -1);
   std::vector<int> statuses;
   for (int i = 0; i < 5; ++i) {
      statuses.push_back(ask());
   }
   EXPECT_THAT(statuses, ElementsAre(0, 26, 26, -1, 0));
   EXPECT_EQ(inbox.count(), 2U);
   fleet->faults().failNext("bf_port_mac_stats_hw_async_get", 26);
   fleet->faults().clear();
   fleet->faults().failNext("bf_tm_q_drop_get", 5);
   EXPECT_EQ(ask(), 0) << "what was planned before";
}

TEST_F(SdkCompletions, CallsCostSimulatedTimeAndBadPlansAreRefused) {
   fleet->faults().costIs("bf_port_mac_stats_hw_async_get", 0.25);
   ask(0);
   ask(1);
   EXPECT_EQ(time.now(), 0.5);
   EXPECT_THROW(fleet->faults().failNext("bf_port_mac", 1), std::invalid_argument);
   EXPECT_THROW(fleet->faults().costIs("bf_port_mac_stats_hw_async_get", -1), std::invalid_argument);
   EXPECT_THROW(fleet->completions().modeIs({Kind::late, -1.0}), std::invalid_argument);
}

// The limit does not hold for root.
TEST(CompletionsDeathTest, SaysSoIfNoThreadMayBeStarted) {
   const auto tryThread = [] {
      const rlimit none{0, 0};
      if (setrlimit(RLIMIT_NPROC, &none) != 0 || (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0)) {
         std::fprintf(stderr, "cannot limit the threads\n");
         _exit(1);
      }
      try {
         Completions([](const Completion&) {}).modeIs({Kind::thread});
      } catch (const std::runtime_error& error) {
         std::fprintf(stderr, "%s\n", error.what());
         _exit(0);
      }
      _exit(2);
   };
   EXPECT_EXIT(tryThread(), testing::ExitedWithCode(0),
               "cannot start the thread that delivers completions: Resource temporarily unavailable; allow");
}

} // namespace
} // namespace SoftChip
