// What an agent publishes of its chips besides ports and queues, as another process reads it.
#include "counters/ZelCounters.h"
#include "silo/TableReader.h"
#include "softchip/PdpClasses.h"
#include "tests/apps/zelagent/AgentRig.h"
#include "tests/support/TemporaryFolder.h"
#include "vex/PublishedChip.h"

#include <gmock/gmock.h>

namespace {

using namespace Silo::Interface;
using ZlDrop::Point;

class ChipRecords : public ZelTest::AgentRig {
 protected:
   // Tables and hardware stay when the agent ends.
   void startAgent() {
      agent_.reset();
      start({.ports = 4,
             .siloFolder = folder_.path() + "/tables",
             .hardwareFile = folder_.path() + "/hardware"});
   }
   template <class Record>
   std::optional<Silo::Sample<Record>> sample(const char* table, const char* key) {
      Silo::TableReader<Record> reader(agent_->tableStore(), table);
      Silo::Sample<Record> sample;
      return reader.read(key, sample) == Silo::ReadResult::ok ? std::optional(sample) : std::nullopt;
   }
   template <class Record>
   Record record(const char* table, const char* key) {
      const auto found = sample<Record>(table, key);
      EXPECT_TRUE(found) << table << " " << key;
      return found ? found->record : Record{};
   }
   IntfDropCounters drops(const char* intf = "Ethernet1") {
      return record<IntfDropCounters>(TableName::intfDropCounters, intf);
   }
   U64 aclDrops(const char* intf = "Ethernet1") { return drops(intf).totals[aclDeny][0]; }
   PipeStageCounters stages() { return record<PipeStageCounters>(TableName::pipeStageCounters, "Zel0:0"); }
   ChipHealth health() { return record<ChipHealth>(TableName::chipHealth, "Zel0"); }

   SoftChip::Chip& chip() { return agent_->chipNamed("Zel0"); }
   // The hardware's count of Ethernet1.
   void aclDropsAre(U64 packets) {
      chip().tableEntryIs("ingressPortDropCount", 0,
                          ZlDrop::entryIndex(0, static_cast<U32>(ZlDrop::IngressReason::aclDeny)),
                          {packets, 0});
   }
   void receive(U64 frames) {
      SoftChip::FrameInfo frame;
      frame.wireLength = 100;
      frame.sourceMac = 0x020000000001;
      frame.destinationMac = 0x020000000002;
      chip().receive(0, frame, frames);
   }
   template <class Do>
   static void locked(Do what) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      what();
   }

   static constexpr unsigned fcsErrors = 7; // by its number among the MAC's counters
   static constexpr std::size_t aclDeny =
        IntfDropCounters::place(Point::ingress, static_cast<U32>(ZlDrop::IngressReason::aclDeny));
   const ZelTest::TemporaryFolder folder_;
};

TEST_F(ChipRecords, HaveWhatTheCommandsShow) {
   startAgent();
   aclDropsAre(7);
   chip().tableEntryIs("pdpClassCount", 0, ZlPort::pdpEntry(0, 3), {11, 0});
   receive(5);
   advance(4.0);

   EXPECT_EQ(aclDrops(), 7U);
   EXPECT_EQ(aclDrops("Ethernet2"), 0U);
   const auto classes = record<IntfPdpCounters>(TableName::intfPdpCounters, "Ethernet1");
   EXPECT_EQ(classes.totals[3][0], 11U);
   EXPECT_STREQ(classes.classNames[0].data(), "default");
   EXPECT_STREQ(classes.classNames[3].data(), SoftChip::pdpClasses[3].name);
   const PipeStageCounters path = stages();
   EXPECT_THAT(path.totals[0], testing::ElementsAre(5U, 5U, 0U));
   const auto pipeDrops = record<PipeDropCounters>(TableName::pipeDropCounters, "Zel0:0");
   const auto manager = record<PipeTmCounters>(TableName::pipeTmCounters, "Zel0:0");
   for (U32 stage = 0; stage < path.totals.size(); ++stage) {
      bf_pipe_path_count_t count{};
      chip().readPath(0, stage, &count);
      EXPECT_THAT(path.totals[stage], testing::ElementsAre(count.in, count.out, count.dropped)) << stage;
      if (path.placeNames[stage] == std::string_view("ingress-deparser")) {
         EXPECT_EQ(pipeDrops.totals[4][0], count.dropped);
      } else if (path.placeNames[stage] == std::string_view("traffic-manager")) {
         EXPECT_THAT(manager.totals[0], testing::ElementsAre(5U, 480U)); // without FCS
         EXPECT_EQ(manager.totals[1][PipeTmCounters::packets], count.out);
      }
   }
   EXPECT_FALSE(sample<PipeTmCounters>(TableName::pipeTmCounters, "Zel0:2"));

   const auto place = record<IntfPlace>(TableName::intfPlaces, "Ethernet3");
   EXPECT_STREQ(place.chip.data(), "Zel0");
   EXPECT_EQ(place.devicePort, 128U);
   EXPECT_EQ(place.speed, SoftChip::Chip::portSpeed);
   const auto agent = record<AgentHealth>(TableName::agentHealth, agentKey);
   EXPECT_STRNE(agent.version.data(), "");
   EXPECT_EQ(agent.startedTime, 0.0);
   EXPECT_THAT(health().isPolled, testing::Each(1U));
   EXPECT_THAT(health().oldestReadTimes, testing::Each(testing::Ge(2.0)));
}

TEST_F(ChipRecords, AreMovedByNoClearNotEvenOneThatWritesTheHardware) {
   startAgent();
   aclDropsAre(7);
   receive(5);
   advance(4.0);
   const PipeStageCounters before = stages();
   for (const char* clear : {"clear", "clear drop", "clear pipeline", "clear mau-deparser-drop",
                             "clear traffic-manager", "clear pdp", "clear table ingressPortDropCount"}) {
      EXPECT_EQ(ask(clear).error, "") << clear;
      EXPECT_EQ(aclDrops(), 7U) << clear;
   }
   EXPECT_EQ(chip().tableEntry("ingressPortDropCount", 0, 5).packets, 0U);
   EXPECT_EQ(drops().readings[aclDeny][0], 0U);
   EXPECT_EQ(drops().discontinuityTime, 4.0) << "what came since the last sync is gone";
   aclDropsAre(9); // more than before the clear
   advance(2.0);
   EXPECT_EQ(aclDrops(), 16U);
   EXPECT_EQ(stages().totals, before.totals);
   EXPECT_EQ(stages().discontinuityTime, before.discontinuityTime);
}

TEST_F(ChipRecords, GoOnOverAgentsAndChips) {
   startAgent();
   aclDropsAre(7);
   receive(5);
   advance(4.0);
   chip().rmonFlip(0, fcsErrors, 60);
   advance(4.0);
   const PipeStageCounters before = stages();
   const U64 upsets = health().totals[ChipHealth::upsets][0];
   EXPECT_EQ(upsets, 1U);

   startAgent();
   EXPECT_EQ(stages().totals, before.totals);
   aclDropsAre(10);
   receive(2);
   advance(4.0);
   EXPECT_EQ(aclDrops(), 10U);
   EXPECT_EQ(stages().totals[0][0], 7U);
   EXPECT_EQ(stages().createdUnixTime, before.createdUnixTime);
   EXPECT_EQ(stages().discontinuityTime, before.discontinuityTime);
   EXPECT_EQ(health().totals[ChipHealth::upsets][0], upsets);
   EXPECT_EQ(health().readings[ChipHealth::upsets][0], 0U);

   locked([&] { agent_->chipRestart("Zel0", false); });
   EXPECT_TRUE(sample<PipeStageCounters>(TableName::pipeStageCounters, "Zel0:0"));
   receive(1);
   advance(4.0);
   EXPECT_EQ(stages().totals[0][0], 8U);
   EXPECT_GT(stages().discontinuityTime, before.discontinuityTime);

   const U64 later = health().totals[ChipHealth::upsets][0]; // some counters of ports fell, too
   EXPECT_GE(later, upsets);

   // After health was published last, and before the chip goes.
   chip().rmonFlip(0, fcsErrors, 60);
   advance(2.0);
   EXPECT_EQ(health().totals[ChipHealth::upsets][0], later);
   receive(1);
   locked([&] { agent_->chipDel("Zel0"); });
   EXPECT_FALSE(sample<PipeStageCounters>(TableName::pipeStageCounters, "Zel0:0"));
   EXPECT_FALSE(sample<PipeDropCounters>(TableName::pipeDropCounters, "Zel0:1"));
   EXPECT_FALSE(sample<PipeTmCounters>(TableName::pipeTmCounters, "Zel0:1"));
   EXPECT_FALSE(sample<ChipHealth>(TableName::chipHealth, "Zel0"));
   EXPECT_FALSE(sample<IntfDropCounters>(TableName::intfDropCounters, "Ethernet1"));
   EXPECT_FALSE(sample<IntfPdpCounters>(TableName::intfPdpCounters, "Ethernet1"));
   EXPECT_FALSE(sample<IntfPlace>(TableName::intfPlaces, "Ethernet1"));
   locked([&] { agent_->chipAdd("Zel0"); });
   advance(4.0);
   EXPECT_EQ(stages().totals[0][0], 9U);
   EXPECT_EQ(stages().createdUnixTime, before.createdUnixTime);
   EXPECT_EQ(health().totals[ChipHealth::upsets][0], later + 1);
   EXPECT_GT(drops().createdTime, 0.0) << "its interfaces went with it";

   using SoftChip::CompletionMode;
   agent_->fleet().completions().modeIs({CompletionMode::Kind::late, 3.0, 1});
   advance(2.0);
   locked([&] { agent_->chipRestart("Zel0", true); });
   agent_->fleet().completions().modeIs({CompletionMode::Kind::deferred, 0.0, 1});
   advance(8.0);
   const U64 late = health().totals[ChipHealth::late][0];
   EXPECT_GT(late, 0U);
   locked([&] { agent_->chipRestart("Zel0", true); });
   advance(4.0);
   EXPECT_EQ(health().totals[ChipHealth::late][0], late) << "each counts in one life of the chip";
}

// The platform may take a port from an interface that its directory still has.
TEST_F(ChipRecords, CountNothingThatAPortCountedWithoutTheirInterface) {
   startAgent();
   const auto countedAre = [&](U64 packets) {
      aclDropsAre(packets);
      chip().tableEntryIs("pdpClassCount", 0, ZlPort::pdpEntry(0, 3), {packets, 0});
      advance(4.0);
   };
   auto& status = const_cast<ZelSystem::SystemStatus&>(agent_->systemStatus());
   const Pelt::IntfId intf("Ethernet1");
   const ZelSystem::PortRecord place = status.portInfo(intf);
   countedAre(7);
   locked([&] { status.portInfoDel(intf); });
   countedAre(9);
   locked([&] { status.portInfoIs(intf, place); });
   advance(4.0);
   countedAre(10);
   EXPECT_EQ(aclDrops(), 8U);
   EXPECT_EQ(record<IntfPdpCounters>(TableName::intfPdpCounters, "Ethernet1").totals[3][0], 8U);
}

TEST_F(ChipRecords, OfWhatIsGoneWithAnEarlierAgentAreRemoved) {
   startAgent();
   locked([&] { agent_->chipAdd("Zel1"); });
   advance(4.0);
   EXPECT_TRUE(sample<PipeDropCounters>(TableName::pipeDropCounters, "Zel1:1"));
   startAgent();
   locked([&] { agent_->countersMgr().forgetAbsentInterfaces(); });
   EXPECT_FALSE(sample<PipeDropCounters>(TableName::pipeDropCounters, "Zel1:1"));
   EXPECT_FALSE(sample<ChipHealth>(TableName::chipHealth, "Zel1"));
   EXPECT_FALSE(sample<IntfDropCounters>(TableName::intfDropCounters, "Ethernet5"));
   EXPECT_FALSE(sample<IntfPlace>(TableName::intfPlaces, "Ethernet5"));
   EXPECT_TRUE(sample<PipeDropCounters>(TableName::pipeDropCounters, "Zel0:1"));
   EXPECT_TRUE(sample<IntfDropCounters>(TableName::intfDropCounters, "Ethernet1"));
}

// Nobody asked for these reads, so neither the chip's health nor a view tells of one that failed.
TEST_F(ChipRecords, KeepTheirTimesOverReadsThatFailAndTheChipsHealthSaysNothing) {
   startAgent();
   aclDropsAre(7);
   advance(4.0);
   const IntfDropCounters before = drops();
   EXPECT_EQ(before.readTimes[aclDeny], 4.0);
   agent_->fleet().faults().failNext("counterReadIndirectMain", 14, 1);
   agent_->fleet().faults().failNext("bf_pipe_path_counter_get", 14, 1);
   aclDropsAre(9);
   advance(2.0);
   EXPECT_EQ(drops().readTimes[aclDeny], 4.0);
   EXPECT_EQ(aclDrops(), 7U);
   EXPECT_EQ(drops().readTimes[IntfDropCounters::place(Point::egress, 0)], 6.0);
   EXPECT_EQ(stages().readTimes[0], 4.0);
   EXPECT_EQ(stages().readTimes[1], 6.0);
   EXPECT_EQ(drops().discontinuityTime, before.discontinuityTime);
   // When a sync is refused, there is still the copy that was not read.
   agent_->fleet().faults().failNext("counterHwSyncIndirect", 14, 1000);
   aclDropsAre(20);
   for (int pass = 0; pass < 2; ++pass) {
      EXPECT_EQ(health().totals[ChipHealth::refused][0], 0U);
      advance(2.0);
      EXPECT_EQ(drops().readTimes[aclDeny], 6.0);
      EXPECT_EQ(aclDrops(), 9U);
   }
   EXPECT_GT(health().totals[ChipHealth::refused][0], 0U) << "of the syncs";
}

} // namespace
