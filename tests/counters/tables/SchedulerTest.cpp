// A chip's hardware-sync passes, however its requests complete.
#include "kiln/RingLog.h"
#include "tests/support/Random.h"
#include "tests/support/StubSdkRig.h"
#include "zl/ZelSdk.h"

#include <atomic>
#include <thread>

namespace {

using namespace ZelTest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr U32 perPipeHandle = 0xA1;
constexpr U32 allPipesHandle = 0xA2;

class Scheduler : public StubSdkRig {
 protected:
   Scheduler() { refuseQueueSyncs(); }

   // Four pipes; two tables per pipe and one for all pipes: nine requests a pass.
   ZelCounter::ZelCounters& addNineRequestChip(int dev) {
      auto catalogue = makeCatalogue(dev);
      catalogue->add(dev, makeTable("perPipe", perPipeHandle, 4, true, packetsAndBytes, false));
      catalogue->add(dev, makeTable("allPipes", allPipesHandle, 4, false, packetsAndBytes));
      return addChip(dev, 3, catalogue);
   }

   static void deliverOne() {
      const StubSdk::Completion first = StubSdk::sdk().pending.front();
      StubSdk::sdk().pending.erase(StubSdk::sdk().pending.begin());
      first.deliver();
   }
};

TEST_F(Scheduler, DeferredPassEndsWithTheNinthCompletion) {
   auto& chip = addNineRequestChip(0);
   auto& sm = *chip.hwTableCountersSm();
   advance(1.9);
   EXPECT_THAT(takeSyncs(), IsEmpty());
   advance(0.1);
   EXPECT_THAT(takeSyncs(),
               ElementsAre("sync 0 0 D0", "sync 0 1 D0", "sync 0 2 D0", "sync 0 3 D0", "sync 0 0 A1",
                           "sync 0 1 A1", "sync 0 2 A1", "sync 0 3 A1", "sync 0 65535 A2"));
   EXPECT_EQ(sm.pendingCallbacks(), 9U);
   advance(5.0);
   for (int i = 0; i < 8; ++i) {
      deliverOne();
   }
   EXPECT_EQ(sm.pollingTimeMin(), Kiln::never);
   EXPECT_FALSE(chip.firstPollingComplete());
   deliverOne();
   EXPECT_EQ(sm.pollingTimeMin(), 9.0) << "2.0 s after the last completion";
   EXPECT_TRUE(chip.firstPollingComplete());
}

TEST_F(Scheduler, NoTableInitializedMeansEmptyPassesForEver) {
   auto catalogue = makeCatalogue(0);
   StubSdk::sdk().table(0, pdpHandle).checksUntilInitialized = 1000;
   StubSdk::sdk().table(0, queueHandle).checksUntilInitialized = 1000;
   auto& chip = addChip(0, 0, catalogue);
   advance(7.0);
   EXPECT_THAT(takeSyncs(), IsEmpty());
   EXPECT_FALSE(chip.firstPollingComplete());
   EXPECT_EQ(chip.hwTableCountersSm()->pollingTimeMin(), 8.0);
}

TEST_F(Scheduler, ArmedClockKeepsItsTime) {
   auto& chip = addNineRequestChip(0);
   advance(1.0);
   chip.hwTableCountersSm()->scheduleClock();
   EXPECT_EQ(chip.hwTableCountersSm()->pollingTimeMin(), 2.0);
}

struct RefusalCase {
   U32 status;
   U16 pipe;
   std::size_t requestsForTable; // the refused one included
   bool inRingLog;
};

TEST_F(Scheduler, RefusedRequestEndsItsTableForThisPassOnly) {
   for (const RefusalCase& refusal : {RefusalCase{17, 0, 1, false}, RefusalCase{5, 2, 3, true}}) {
      SCOPED_TRACE(refusal.status);
      StubSdk::reset();
      refuseQueueSyncs();
      StubSdk::sdk().statuses[{"counterHwSync", perPipeHandle, refusal.pipe}] = refusal.status;
      Kiln::RingLog::instance().lineDelAll();
      const double start = Kiln::System::currentTime();
      auto& chip = addNineRequestChip(0);
      advance(2.0);
      EXPECT_EQ(takeSyncs().size(), 4 + refusal.requestsForTable + 1);
      EXPECT_EQ(chip.hwTableCountersSm()->pendingCallbacks(), 4 + (refusal.requestsForTable - 1) + 1);
      const std::string line = "Counter hw sync error: " + std::to_string(refusal.status) +
                               " for counter table perPipe pipe: " + std::to_string(refusal.pipe);
      EXPECT_EQ(::testing::Matches(::testing::Contains(::testing::EndsWith(line)))(
                     Kiln::RingLog::instance().lines()),
                refusal.inRingLog);
      StubSdk::sdk().deliverAll();
      EXPECT_TRUE(chip.firstPollingComplete());
      for (U16 pipe = 0; pipe < 4; ++pipe) {
         const ZelCounter::ReadingKey key{ZelCounter::ReadingKey::Kind::tableSync, 2, pipe};
         EXPECT_EQ(chip.readings().reading(key).status, pipe < refusal.pipe ? 0 : int(refusal.status))
              << pipe;
      }
      StubSdk::sdk().statuses.erase({"counterHwSync", perPipeHandle, refusal.pipe});
      advance(2.0);
      EXPECT_EQ(takeSyncs().size(), 9U) << "the next pass tries again";
      EXPECT_EQ(Kiln::System::currentTime(), start + 4.0);
      StubSdk::sdk().deliverAll();
   }
}

TEST_F(Scheduler, ARefusedRequestThatIsAnsweredAllTheSameStallsNothing) {
   StubSdk::sdk().inlineDefault = StubSdk::sdk().answersRefused = true;
   StubSdk::sdk().statuses[{"counterHwSync", allPipesHandle, ZelId::ZelPipeId::allPipes()}] =
        5; // the last one
   auto& chip = addNineRequestChip(0);
   advance(2.0);
   EXPECT_EQ(chip.hwTableCountersSm()->pendingCallbacks(), 0U);
   EXPECT_EQ(chip.hwTableCountersSm()->pollingTimeMin(), 4.0);
}

// The only table is refused, and its accepted requests complete inline: no table was synced whole.
TEST_F(Scheduler, PassWithoutAWholeTableDoesNotCompleteTheFirstPolling) {
   StubSdk::sdk().inlineDefault = true;
   StubSdk::sdk().statuses[{"counterHwSync", pdpHandle, 1}] = 5;
   auto& chip = addChip(0, 1, makeCatalogue(0));
   advance(2.0);
   EXPECT_FALSE(chip.firstPollingComplete());
   EXPECT_EQ(chip.hwTableCountersSm()->pollingTimeMin(), 4.0);
   StubSdk::sdk().statuses.erase({"counterHwSync", pdpHandle, 1});
   advance(2.0);
   EXPECT_TRUE(chip.firstPollingComplete());
}

TEST_F(Scheduler, DuplicateAndForeignCompletionsCountForNothing) {
   auto& chip = addNineRequestChip(0);
   auto& sm = *chip.hwTableCountersSm();
   advance(2.0);
   const StubSdk::Completion one = StubSdk::sdk().pending.front();
   StubSdk::sdk().deliverAll();
   one.deliver();
   EXPECT_EQ(sm.pendingCallbacks(), 0U);
   advance(2.0);
   EXPECT_EQ(sm.pendingCallbacks(), 9U);
   ZelCounter::hwTableCallback(1, one.cookie);
   EXPECT_EQ(sm.pendingCallbacks(), 9U) << "of another device";
}

TEST_F(Scheduler, CleanUpInSimulationLeavesCompletionsUnread) {
   const Environment simulation("SIMULATION_VMID", "1");
   auto catalogue = makeCatalogue(0);
   catalogue->add(0, makeTable("l2DmacClassifyCount", 0xA3, 4, true, packetsOnly));
   auto& chip = addChip(0, 0, catalogue);
   advance(2.0);
   const U32 pending = chip.hwTableCountersSm()->pendingCallbacks();
   chip.zelCountersSm()->doCleanup();
   StubSdk::sdk().pending.front().deliver();
   ZelCounter::hwTableCallback(0, nullptr); // ignored
   EXPECT_EQ(chip.hwTableCountersSm()->pendingCallbacks(), pending);
   smRunning = 1;
   StubSdk::sdk().deliverAll();
   EXPECT_TRUE(chip.firstPollingComplete());
}

TEST_F(Scheduler, NullCookieStopsTheProcess) {
   addChip(0, 0, makeCatalogue(0));
   EXPECT_DEATH(ZelCounter::hwTableCallback(0, nullptr), "\"hwTableSm\" failed in HwTableCountersSm");
}

// Eight threads complete requests, some twice, while the activity thread runs passes, prints, clears, deletes
// and adds chips.
TEST_F(Scheduler, SurvivesAStormOfCompletionsWhileChipsComeAndGo) {
   Kiln::threadSafePtrModeIs(true);
   Random random;
   std::atomic<bool> done{false};
   std::atomic<unsigned> delivered{0};
   std::vector<std::thread> threads;
   for (unsigned t = 0; t < 8; ++t) {
      threads.emplace_back([&] {
         while (!done) {
            StubSdk::Completion one{};
            {
               auto& sdk = StubSdk::sdk();
               const std::lock_guard lock(sdk.mutex);
               if (!sdk.pending.empty()) {
                  one = sdk.pending.back();
                  sdk.pending.pop_back();
               }
            }
            if (one.callback == nullptr) {
               std::this_thread::yield();
               continue;
            }
            one.deliver();
            if (++delivered % 16 == 0) {
               one.deliver();
            }
         }
      });
   }
   for (int dev = 0; dev < 3; ++dev) {
      addNineRequestChip(dev);
   }
   for (int step = 0; delivered < 5000; ++step) {
      advance(0.5);
      const int dev = static_cast<int>(random.below(3));
      const auto lock = Kiln::ActivityLockAnchor::lock();
      printed([&](U32 fd) {
         chips[dev]->showTableCounters(fd, 2 + static_cast<U32>(step % 2), true);
         chips[dev]->clearAllTableCounters(fd);
      });
      if (random.oneIn(8)) {
         deleteChip(dev);
         addNineRequestChip(dev);
      }
      std::this_thread::yield();
   }
   done = true;
   for (std::thread& thread : threads) {
      thread.join();
   }
   StubSdk::sdk().deliverAll();
   // A duplicate may have counted as a completion of its scheduler, but there are never more than requests.
   for (const auto& [dev, chip] : chips) {
      EXPECT_EQ(chip->hwTableCountersSm()->pendingCallbacks(), 0U) << "device " << dev;
      EXPECT_TRUE(chip->hwTableCountersSm()->pollingTimeMin() != Kiln::never) << "device " << dev;
   }
}

} // namespace
