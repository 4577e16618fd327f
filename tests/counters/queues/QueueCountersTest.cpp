// Queue counters, from the SDK's tables to what is reported to the forwarding layer.
#include "counters/ZelCountersMgr.h"
#include "counters/helper/ZelCountersHelper.h"
#include "silo/TableReader.h"
#include "tests/support/StubSdkRig.h"
#include "zl/ZelSdk.h"

#include <functional>
#include <sstream>

namespace {

using namespace ZelTest;
using ::testing::IsEmpty;
using ZelCounter::QueueCounter;

// The reports that the forwarding layer got, in order.
struct Reports : Vex::Counters::WriterConfig::Notifiee {
   void onIntfQueueCounters(const Pelt::IntfId& intf, const VexTypes::IntfQueueCounters& counters) override {
      all.emplace_back(intf.text(), counters);
      if (onReport) {
         onReport();
      }
   }
   std::function<void()> onReport;
   std::vector<std::pair<std::string, VexTypes::IntfQueueCounters>> all;
};

class QueueCounters : public StubSdkRig {
 protected:
   QueueCounters() {
      mounts->writerConfigIs(Kiln::allocate<Vex::Counters::WriterConfig>());
      reports.notifierIs(mounts->writerConfig());
      const Silo::TableOptions options{4, 2.0, Silo::ClockDomain::monotonic(), {}, false};
      mounts->allIntfQueueCountersIs(
           Kiln::allocate<Silo::Interface::AllIntfQueueCounters>(store, "queues", options));
      systemStatus->hasNotificationActiveIs(true);
      mgr = ZelCounter::zelCountersMgrFactory(systemStatus, mounts, Kiln::allocate<Vex::VexCommonSmData>(),
                                              Kiln::allocate<Agent::AgentCommandRequestDirSm>(), nullptr,
                                              nullptr, nullptr);
      // Only queues are polled.
      for (const U16 pipe : {U16{0}, U16{1}, U16{2}, U16{3}}) {
         StubSdk::sdk().statuses[{"counterHwSync", pdpHandle, pipe}] = 17;
      }
   }
   ~QueueCounters() override {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      mgr = nullptr;
   }

   ZelCounter::ZelCounters& addQueueChip(int dev, U16 highestPipe,
                                         const Kiln::Ptr<StubSdk::Catalogue>& catalogue) {
      auto status = Kiln::allocate<ZelSlice::ChipStatus>();
      status->highestLogicalPipeIdIs(highestPipe);
      const auto lock = Kiln::ActivityLockAnchor::lock();
      mgr->addChip(static_cast<ZelId::ZelDevId>(dev), "Zel" + std::to_string(dev), {"stub"}, 7, nullptr,
                   catalogue, status);
      return *mgr->zelCounters(static_cast<ZelId::ZelDevId>(dev));
   }
   void deleteQueueChip(const char* name) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      mgr->deleteChip(name);
   }
   ZelCounter::ZelCounters& addQueueChip(int dev, U16 highestPipe) {
      return addQueueChip(dev, highestPipe, makeCatalogue(dev));
   }

   static void queueIs(int dev, U16 devicePort, U32 entry, U32 queue, U64 pkts, U64 bytes, U64 drops) {
      StubSdk::sdk().table(dev, queueHandle).values[{static_cast<U16>(devicePort / 128), entry + queue}] = {
           pkts, bytes};
      StubSdk::sdk().drops[devicePort * 32U + queue] = drops;
   }

   QueueCounter stored(const Pelt::IntfId& intf, std::size_t queue) {
      return mgr->zelCounters(systemStatus->portInfo(intf).devId)
           ->intfQueueCounters(intf)
           ->queueCounter(queue);
   }

   // The next poll of every pipe comes and completes.
   static void poll() {
      advance(2.0);
      StubSdk::sdk().deliverAll();
   }

   void clear(const Pelt::IntfId& intf, bool portChanged = false) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      mgr->zelCountersHelper()->doClearIntfQueueCounters(intf, portChanged);
   }

   Silo::Interface::IntfQueueCounters published(const Pelt::IntfId& intf) {
      return mounts->allIntfQueueCounters()->table().sampleOrDefault(Silo::Key(intf.text())).record;
   }

   const Silo::Store store = Silo::Store::temporary();
   Kiln::Ptr<ZelCounter::CountersMounts> mounts = Kiln::allocate<ZelCounter::CountersMounts>();
   Kiln::Ptr<ZelCounter::ZelCountersMgr> mgr;
   Reports reports;
};

struct PortCase {
   U8 pipePort;
   unsigned queues;
   U32 firstEntry;
};

TEST_F(QueueCounters, SentCountsOfEveryPortAreReadBeforeAnyDrops) {
   addQueueChip(0, 0);
   addPort("Ethernet1", 67);
   addPort("Ethernet2", 128 + 5); // in another pipe
   addPort("Ethernet3", 65);
   advance(1.0);
   StubSdk::sdk().calls.clear();
   StubSdk::sdk().deliverAll();
   EXPECT_THAT(StubSdk::sdk().calls,
               ::testing::ElementsAre("query 2174", "query 2175", "query 2088", "query 2089", "query 2090",
                                      "query 2091", "query 2092", "query 2093", "query 2094", "query 2095",
                                      "drops 67 0", "drops 67 1", "drops 65 0", "drops 65 1", "drops 65 2",
                                      "drops 65 3", "drops 65 4", "drops 65 5", "drops 65 6", "drops 65 7"));
}

TEST_F(QueueCounters, UninitializedTableIsRetriedEachSecondWithoutARequest) {
   auto catalogue = makeCatalogue(0);
   StubSdk::sdk().table(0, queueHandle).checksUntilInitialized = 1; // until the second check, at 2.0 s
   auto& chip = addQueueChip(0, 0, catalogue);
   EXPECT_EQ(chip.pipeIntfQueueCounterSm(0)->pollingTimeMin(), 1.0);
   advance(1.0);
   EXPECT_EQ(chip.pipeIntfQueueCounterSm(0)->pollingTimeMin(), 2.0);
   EXPECT_THAT(StubSdk::sdk().calls, ::testing::Not(::testing::Contains("sync 0 0 E0")));
   advance(2.0);
   EXPECT_THAT(StubSdk::sdk().calls, ::testing::Contains("sync 0 0 E0"));
   const StubSdk::Completion sync = StubSdk::sdk().pending.back();
   sync.callback(1, sync.cookie); // of another device
   EXPECT_EQ(chip.pipeIntfQueueCounterSm(0)->pollingTimeMin(), Kiln::never) << "the completion arms it";
   StubSdk::sdk().deliverAll();
   EXPECT_EQ(chip.pipeIntfQueueCounterSm(0)->pollingTimeMin(), 5.0);
}

TEST_F(QueueCounters, ReadersAreToldTheSlowestChipsInterval) {
   addQueueChip(0, 0).intfQueueCountersSdkPollingIntervalIs(5.0);
   addQueueChip(1, 0);
   addPort("Ethernet1", 3);
   poll();
   EXPECT_EQ(mgr->zelCounters(0)->pipeIntfQueueCounterSm(0)->pollingTimeMin(), 7.0);
   Silo::TableReader<Silo::Interface::IntfQueueCounters> reader(store, "queues");
   EXPECT_EQ(reader.state().pollingInterval, 5.0);
}

TEST_F(QueueCounters, RefusedSyncEndsThePollingOfItsPipeOnly) {
   StubSdk::sdk().statuses[{"databaseSync", queueHandle, 1}] = 9;
   StubSdk::sdk().inlineDefault = true;
   auto& chip = addQueueChip(0, 2);
   advance(10.0);
   EXPECT_EQ(chip.pipeIntfQueueCounterSm(1)->pollingTimeMin(), Kiln::never);
   EXPECT_EQ(::testing::Value(StubSdk::sdk().calls, ::testing::Contains("sync 0 1 E0").Times(1)), true);
   EXPECT_EQ(::testing::Value(StubSdk::sdk().calls, ::testing::Contains("sync 0 2 E0").Times(5)), true);
   StubSdk::sdk().statuses.erase({"databaseSync", queueHandle, 1});
   chip.pipeIntfQueueCounterSm(1)->scheduleClock();
   advance(2.0);
   EXPECT_EQ(chip.pipeIntfQueueCounterSm(1)->pollingTimeMin(), 14.0);
}

TEST_F(QueueCounters, ClearedQueueShowsOnlyWhatCameAfterTheClear) {
   addQueueChip(0, 0);
   const Pelt::IntfId intf = addPort("Ethernet1", 5);
   queueIs(0, 5, 168, 2, 10, 1000, 3);
   poll();
   const std::size_t calls = StubSdk::sdk().calls.size();
   queueIs(0, 5, 168, 2, 12, 1200, 3); // between the sync and the clear
   clear(intf);
   EXPECT_EQ(StubSdk::sdk().calls.size(), calls) << "nothing is asked of the SDK";
   EXPECT_EQ(stored(intf, 2), QueueCounter(2, 0, 0, 0));
   EXPECT_EQ(reports.all.back().second.intfQueueStat(2), Silo::Interface::QueueStatistics{});
   EXPECT_EQ(reports.all.size(), 2U) << "the zeroed record is handed over at once";
   poll();
   EXPECT_EQ(stored(intf, 2), QueueCounter(2, 200, 2, 0));
   clear(intf);
   queueIs(0, 5, 168, 2, 15, 1500, 4);
   poll();
   EXPECT_EQ(stored(intf, 2), QueueCounter(2, 300, 3, 1));
}

// Each counter's hardware block begins anew on its own.
TEST_F(QueueCounters, AFallCountsWholeWhatItsBlockCountedSince) {
   addQueueChip(0, 0);
   const Pelt::IntfId intf = addPort("Ethernet1", 0);
   queueIs(0, 0, 0, 1, 10, 1000, 7);
   poll();
   clear(intf);
   queueIs(0, 0, 0, 1, 11, 900, 9);
   poll();
   EXPECT_EQ(stored(intf, 1), QueueCounter(1, 900, 11, 2));
   queueIs(0, 0, 0, 1, 12, 1100, 5);
   poll();
   EXPECT_EQ(stored(intf, 1), QueueCounter(1, 1100, 12, 7));
}

TEST_F(QueueCounters, PortThatChangedCountsFromItsNextReading) {
   const PortCase cpu{66, 14, 2128};
   const PortCase other{67, 2, 2174};
   const PortCase moves[][2] = {{cpu, other}, {other, cpu}};
   for (const auto& [from, to] : moves) {
      SCOPED_TRACE("from " + std::to_string(from.pipePort));
      StubSdk::sdk().drops.clear();
      addQueueChip(0, 0);
      const U8 fromQueue = static_cast<U8>(from.queues - 1);
      const U8 toQueue = static_cast<U8>(to.queues - 1);
      const Pelt::IntfId intf = addPort("Internal1", from.pipePort);
      queueIs(0, from.pipePort, from.firstEntry, fromQueue, 10, 1000, 7);
      queueIs(0, to.pipePort, to.firstEntry, toQueue, 500, 50000, 3);
      poll();
      EXPECT_EQ(stored(intf, fromQueue), QueueCounter(fromQueue, 1000, 10, 7));
      addPort("Internal1", to.pipePort);
      EXPECT_EQ(stored(intf, fromQueue), QueueCounter(fromQueue, 0, 0, 0));
      poll();
      EXPECT_EQ(stored(intf, toQueue), QueueCounter(toQueue, 0, 0, 0)) << "what the other port had counted";
      queueIs(0, to.pipePort, to.firstEntry, toQueue, 501, 50060, 5);
      poll();
      EXPECT_EQ(stored(intf, toQueue), QueueCounter(toQueue, 60, 1, 2));
      for (U32 q = 0; q < 17; ++q) {
         EXPECT_EQ(reports.all.back().second.has(q), q < to.queues) << q;
      }
      systemStatus->portInfoDel(intf);
   }
}

TEST_F(QueueCounters, AnInternalPortThatIsToldAgainCountsOn) {
   addQueueChip(0, 0);
   const Pelt::IntfId intf = addPort("Internal1", 66);
   for (const U64 reading : {10U, 15U, 17U}) {
      queueIs(0, 66, 2128, 0, reading, reading * 100, 0);
      clear(intf, true);
      poll();
      EXPECT_EQ(published(intf).totals[0].packets, reading);
   }
   EXPECT_EQ(stored(intf, 0), QueueCounter(0, 200, 2, 0));
}

TEST_F(QueueCounters, FrontPanelPortThatCameBackElsewhereHasNothingOfItsOldPort) {
   auto& chip = addQueueChip(0, 1);
   const Pelt::IntfId intf = addPort("Ethernet1", 5);
   queueIs(0, 5, 168, 7, 10, 1000, 7);
   queueIs(0, 128 + 67, 2174, 1, 500, 50000, 3);
   poll();
   systemStatus->portInfoDel(intf);
   addPort("Ethernet1", 5);
   poll();
   EXPECT_EQ(stored(intf, 7), QueueCounter(7, 0, 0, 0)) << "whoever was there meanwhile";
   systemStatus->portInfoDel(intf);
   addPort("Ethernet1", 5);
   const std::size_t reported = reports.all.size();
   clear(intf);
   EXPECT_EQ(reports.all.size(), reported) << "what was read before it left is not handed over again";
   systemStatus->portInfoDel(intf);
   poll();
   EXPECT_FALSE(chip.intfQueueCounters(intf)) << "it took its queues along";
   addPort("Ethernet1", 128 + 67);
   poll();
   EXPECT_EQ(stored(intf, 1), QueueCounter(1, 50000, 500, 3));
   EXPECT_FALSE(chip.intfQueueCounters(intf)->has(7));
   const Vex::Source& source = reports.all.back().second.readings().source;
   EXPECT_EQ(source.place, 128 + 67);
   EXPECT_EQ(source.life, chip.life());
   systemStatus->portInfoDel(intf);
   addPort("Ethernet1", 128 + 67);
   deleteQueueChip("Zel0");
   EXPECT_EQ(reports.all.back().second.intfQueueStat(1).packets, 500U)
        << "nor is it read again by the last read";
}

TEST_F(QueueCounters, AWatcherMayTakeTheChipAwayOrThrow) {
   auto& chip = addQueueChip(0, 0);
   addPort("Ethernet1", 3);
   addPort("Ethernet2", 4);
   poll();
   reports.onReport = [] { throw std::runtime_error("no room"); };
   EXPECT_NO_THROW(poll());
   EXPECT_EQ(chip.pipeIntfQueueCounterSm(0)->pollingTimeMin(), Kiln::System::currentTime() + 2.0);
   reports.onReport = [&] { deleteQueueChip("Zel0"); };
   poll(); // amid the stores of a completion
   EXPECT_TRUE(mgr->zelCounters().empty());
   reports.onReport = nullptr;
   addQueueChip(0, 0);
   poll();
   reports.onReport = [&] { deleteQueueChip("Zel0"); };
   deleteQueueChip("Zel0"); // amid its last reads
   EXPECT_TRUE(mgr->zelCounters().empty());
   reports.onReport = nullptr;
}

TEST_F(QueueCounters, ALastReadThatIsRefusedReportsNothing) {
   addPort("Ethernet1", 3);
   using Call = std::tuple<std::string, U32, U16>;
   for (const Call& refused : {Call{"query", queueHandle, 0}, Call{"drops", 0, 0}}) {
      addQueueChip(0, 0);
      poll();
      const std::size_t reported = reports.all.size();
      StubSdk::sdk().statuses[refused] = 5;
      deleteQueueChip("Zel0");
      EXPECT_EQ(reports.all.size(), reported);
      StubSdk::sdk().statuses.erase(refused);
   }
}

TEST_F(QueueCounters, PollerThatOutlivesItsChipStaysIdle) {
   auto& chip = addQueueChip(0, 1);
   addPort("Ethernet1", 3);
   std::vector<Kiln::Ptr<ZelCounter::PipeIntfQueueCounterSm>> pollers{chip.pipeIntfQueueCounterSm(0),
                                                                      chip.pipeIntfQueueCounterSm(1)};
   chip.pipeIntfQueueCounterSmDel(1);
   deleteQueueChip("Zel0");
   StubSdk::sdk().deliverAll();
   StubSdk::sdk().calls.clear();
   for (const auto& poller : pollers) {
      poller->pollingClockExpired();
      poller->syncCompleted();
      poller->scheduleClock();
      EXPECT_EQ(poller->pollingTimeMin(), Kiln::never);
   }
   EXPECT_THAT(StubSdk::sdk().calls, IsEmpty());
   EXPECT_THAT(reports.all, IsEmpty());
   addQueueChip(0, 1);
   advance(1.0);
   pollers.clear();
   StubSdk::sdk().deliverAll();
   EXPECT_EQ(reports.all.size(), 1U) << "its end takes nothing from its successor";
}

TEST_F(QueueCounters, CleanUpInSimulationLeavesCompletionsUnread) {
   const Environment simulation("SIMULATION_VMID", "1");
   auto catalogue = makeCatalogue(0);
   catalogue->add(0, makeTable("l2DmacClassifyCount", 0xA3, 4, true, packetsOnly));
   auto& chip = addQueueChip(0, 0, catalogue);
   addPort("Ethernet1", 3);
   advance(1.0);
   chip.zelCountersSm()->doCleanup();
   StubSdk::sdk().deliverAll();
   EXPECT_THAT(reports.all, IsEmpty());
   smRunning = 1;
}

TEST_F(QueueCounters, HelperAnswersWithWhatIsStored) {
   auto& helper = *mgr->zelCountersHelper();
   VexTypes::IntfQueueCounters filled;
   filled.intfQueueStatIs(3, {1, 1, 1});
   const Pelt::IntfId intf = addPort("Ethernet1", 5);
   EXPECT_FALSE(helper.getIntfQueueCounters(intf, filled).has(3)) << "no chip";
   EXPECT_FALSE(helper.getIntfQueueCounters(Pelt::IntfId("Ethernet9"), filled).has(3)) << "no port";
   addQueueChip(0, 0);
   EXPECT_DEATH(helper.getIntfQueueCounters(intf, {}), "\"intfQueueCounters\" failed in ZelCountersHelper");
   queueIs(0, 5, 168, 7, 4, 400, 1);
   poll();
   const auto record = helper.getIntfQueueCounters(intf, filled);
   EXPECT_EQ(record.intfQueueStat(7), (Silo::Interface::QueueStatistics{4, 400, 1}));
   EXPECT_EQ(record.intfQueueStat(3), Silo::Interface::QueueStatistics{});
   EXPECT_EQ(helper.getIntfAclDropCounters(intf), 0U) << "the chip has none";
}

TEST_F(QueueCounters, AnOperatorsClearIsForTheNamedInterfaceOrForAll) {
   addQueueChip(0, 0);
   Kiln::Ptr<ZelCounter::ZelCountersHelper> helper = mgr->zelCountersHelper();
   const Pelt::IntfId intfs[] = {addPort("Ethernet1", 67), addPort("Ethernet2", 5), addPort("Ethernet3", 66)};
   const U32 entries[] = {2174, 168, 2128};
   const struct {
      const char* name;
      bool isCleared[3];
   } clears[] = {{"Ethernet9", {false, false, false}},
                 {"Ethernet2", {false, true, false}},
                 {"all", {true, true, true}}};
   U64 reading = 0;
   for (const auto& c : clears) {
      auto& table = mounts->allIntfQueueCounters()->table();
      reading += 5;
      for (std::size_t i = 0; i < std::size(intfs); ++i) {
         queueIs(0, systemStatus->portInfo(intfs[i]).devicePort, entries[i], 1, reading, 0, 0);
      }
      poll();
      if (c.name == std::string("all")) {
         // The table holds four records. These two take the room of Ethernet2's, which the clear of all must survive.
         table.recordDel(Silo::Key("Ethernet2"));
         table.recordIs(Silo::Key("Other1"), {}, 0.0);
         table.recordIs(Silo::Key("Other2"), {}, 0.0);
      }
      const auto lock = Kiln::ActivityLockAnchor::lock();
      EXPECT_NO_THROW(helper->doClearCounters(c.name));
      for (std::size_t i = 0; i < std::size(intfs); ++i) {
         EXPECT_EQ(stored(intfs[i], 1).pkts == 0, c.isCleared[i]) << c.name << " " << intfs[i];
      }
   }
}

TEST_F(QueueCounters, OnlyTheFirstEightQueuesAreUnicast) {
   VexTypes::IntfQueueType type;
   mgr->zelCountersHelper()->getIntfQueueType(addPort("Ethernet1", 66), type);
   for (std::size_t queue = 0; queue < VexTypes::IntfQueueCounters::queueCount; ++queue) {
      EXPECT_EQ(type.queueType(queue), queue < 8 ? VexTypes::QueueType::unicast : VexTypes::QueueType::none);
   }
}

TEST_F(QueueCounters, ClearCreatesMissingSharedEntriesEvenWithoutAChip) {
   const Pelt::IntfId intf = addPort("Ethernet1", 66);
   clear(intf);
   EXPECT_TRUE(mounts->allIntfQueueCounters()->has(intf, 13));
   EXPECT_FALSE(mounts->allIntfQueueCounters()->has(intf, 14));
   EXPECT_THAT(reports.all, IsEmpty());
}

TEST_F(QueueCounters, NameTooLongForTheSharedTableIsLeftOut) {
   addQueueChip(0, 0);
   const std::string digits(70, '1');
   for (const std::string& name : {"Internal" + digits, "Ethernet" + digits}) {
      const Pelt::IntfId intf = addPort(name, 5);
      queueIs(0, 5, 168, 0, 4, 400, 0);
      poll();
      clear(intf);
      EXPECT_EQ(stored(intf, 0), QueueCounter(0, 0, 0, 0)) << name;
      systemStatus->portInfoDel(intf);
   }
}

TEST_F(QueueCounters, MisfitsStopTheProcess) {
   EXPECT_DEATH(ZelCounter::ZelIntfQueueCountersCallback(0, nullptr), "\"cookie\"");
   auto& chip = addQueueChip(0, 0);
   addPort("Ethernet1", 0);
   advance(1.0);
   const struct {
      const char* assertion;
      std::function<void()> misfit;
   } misfits[] = {
        {"\"rc == 0\"",
         [] {
            StubSdk::sdk().statuses[{"query", queueHandle, 0}] = 5;
            StubSdk::sdk().deliverAll();
         }},
        {"\"rc == BF_SUCCESS\"",
         [] {
            StubSdk::sdk().statuses[{"drops", 0, 0}] = 5;
            StubSdk::sdk().deliverAll();
         }},
        {"\"false\"",
         [&] {
            addPort("Ethernet2", 68);
            StubSdk::sdk().deliverAll();
         }},
        {"\"false\"", [&] { clear(addPort("Ethernet2", 68)); }},
        {"\"parent\\(\\)->perPipeCounter\\( egressPortQueueCountId \\)\"",
         [&] {
            chip.perPipeCounterDel(1);
            chip.pipeIntfQueueCounterSm(0)->pollingClockExpired();
         }},
        {"\"zelCounters->vexCountersSm\\(\\)->writerConfig\\(\\)\"",
         [&] {
            mgr->vexCountersSm()->writerConfigIs(nullptr);
            StubSdk::sdk().deliverAll();
         }},
   };
   for (const auto& m : misfits) {
      EXPECT_DEATH(m.misfit(), m.assertion);
   }
}

TEST(QueueCounterText, IsTheValueForm) {
   std::ostringstream text;
   text << QueueCounter(7, 2, 3, 4);
   EXPECT_EQ(text.str(), "Value('ZelCounter::QueueCounter', ** {'queueId': 7, 'bytes': 2, 'pkts': 3, "
                         "'pktsDropped': 4})");
}

} // namespace
