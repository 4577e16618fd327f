// Records as named numbers.
#include "vex/RecordText.h"

#include <gmock/gmock.h>

namespace {

using Silo::Interface::IntfQueueCounters;
using Silo::Interface::L3IntfCounters;
using testing::ElementsAre;

constexpr U64 most = 0xffffffffffffffff;

TEST(RecordText, CountsSinceAClearComeFromTheRecordsOwnClearOnly) {
   L3IntfCounters record;
   record.totals = {100, 10, 200, most};
   record.createdTime = 5;
   L3IntfCounters clear = record;
   clear.totals = {100, 4, 0, 1};
   const auto sinceClear = [&] { return Vex::sinceClear(Vex::textOf(record), Vex::textOf(clear)); };
   EXPECT_THAT(sinceClear(), ElementsAre(0, 6, 200, most - 1));
   clear.totals[1] = 11;
   EXPECT_THAT(sinceClear(), ElementsAre(100, 10, 200, most)) << "one total is below its clear";
   clear.totals[1] = 4;
   clear.createdTime = 4;
   EXPECT_THAT(sinceClear(), ElementsAre(100, 10, 200, most)) << "the clear of an earlier record";
}

TEST(RecordText, AQueueMayComeAfterTheClearAndHasNoRateWhereItsStepWasAbsorbed) {
   IntfQueueCounters clear;
   clear.present = 0b001;
   clear.createdTime = 1.5;
   clear.totals[0] = {1, 2, 3};
   IntfQueueCounters record = clear;
   record.present = 0b101;
   record.totals[2] = {7, 8, 9};
   record.deltas[0] = record.deltas[2] = {4, 4, 4};
   record.interval = 2;
   record.absorbed = 0b001;
   record.discontinuityTime = 3.5;
   Vex::RecordText text = Vex::textOf(record);
   EXPECT_THAT(Vex::sinceClear(text, Vex::textOf(clear)), ElementsAre(0, 0, 0, 7, 8, 9));
   ASSERT_EQ(text.counters.size(), 6U);
   EXPECT_FALSE(text.counters[0].rate);
   EXPECT_EQ(text.counters[3].rate, 2.0);
   text.counters.erase(text.counters.begin(), text.counters.begin() + 5);
   EXPECT_EQ(Vex::linesOf(text, {1, Silo::unknownSampleTime}, nullptr),
             "queue.2.drops 9\nrate.queue.2.drops 2\ndiscontinuity-time-ms 3500\ncreated-time-ms 1500\n"
             "interval-ms 2000\nsample-time-ms 0\ngeneration 1\n");
}

TEST(RecordText, APortsSpeedIsPrintedIfItIsKnown) {
   Silo::Interface::IntfCounters record;
   const auto hasSpeed = [&] {
      return Vex::linesOf(Vex::textOf(record), {}, nullptr).find("\nspeed 25000000000\n") !=
             Kiln::String::npos;
   };
   EXPECT_FALSE(hasSpeed());
   record.speed = 25'000'000'000;
   EXPECT_TRUE(hasSpeed());
}

TEST(RecordText, NatCountsAreTotalsBesideTheReadings) {
   Silo::Interface::NatCounter record;
   record.packets = 3;
   record.totalPackets = 10;
   const Kiln::String lines = Vex::linesOf(Vex::textOf(record), {}, nullptr);
   EXPECT_THAT(lines, testing::StartsWith("packets 3\nbytes 0\ntotal.packets 10\ntotal.bytes 0\n"));
}

// Each has the time of its own reading. One without a name is there only if it counts; a level has no total.
TEST(RecordText, PlacesHaveTheirKindNameAndValues) {
   Silo::Interface::IntfDropCounters drops;
   const auto unnamed = drops.place(ZlDrop::Point::egress, 12);
   EXPECT_EQ(Vex::textOf(drops).counters.size(), 9U + 4U + 4U);
   EXPECT_FALSE(Vex::textOf(drops).counters[0].isRead);
   drops.totals[unnamed] = {5};
   drops.readTimes[unnamed] = 2.5;
   const Vex::NamedCounter named = Vex::textOf(drops).counters.at(9 + 4);
   EXPECT_EQ(Vex::textOf(drops).counters[5].name, "drops.ingress ACL denied.packets");
   EXPECT_EQ(named.name + " " + std::to_string(named.total), "drops.egress reason 12.packets 5");
   EXPECT_EQ(named.readTime, 2.5);

   Silo::Interface::IntfPdpCounters classes;
   classes.classNames[4] = {'a', '.', 'b'};
   EXPECT_EQ(Vex::textOf(classes).counters.at(0).name, "class.a.b.packets");
   Silo::Interface::PipeTmCounters manager;
   manager.readings[5] = {7, 0};
   const Vex::NamedCounter cells = Vex::textOf(manager).counters.at(10);
   EXPECT_EQ(cells.name + " " + std::to_string(cells.total), "tm.cells in use.cells 7");
   Silo::Interface::ChipHealth health;
   health.verdict = static_cast<Silo::Interface::ChipHealth::Verdict>(9);
   EXPECT_EQ(Vex::textOf(health).word("verdict"), "unknown");
}

} // namespace
