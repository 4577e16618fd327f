// Queue counters, from a report to a reader in another process.
#include "tests/platform/vex/PublishingRig.h"
#include "vex/RecordText.h"

#include <map>

namespace {

using Silo::Interface::IntfQueueCounters;
using Silo::Interface::QueueStatistics;
namespace TableName = Silo::Interface::TableName;

class QueuePublishing : public ZelTest::PublishingRig {
 protected:
   QueuePublishing() {
      intf = addPort("Ethernet1", port);
      start();
   }

   void report(std::size_t queue, QueueStatistics value) {
      reportAt(Kiln::System::currentTime(), queue, value);
   }
   void reportAt(double sampleTime, std::size_t queue, QueueStatistics value) {
      VexTypes::IntfQueueCounters counters;
      counters.intfQueueStatIs(queue, value);
      counters.sampleTimeIs(sampleTime);
      handOver(counters);
   }
   // The hardware has these values in the first queues of a place, of which `stored` were counted since the clear.
   void reading(const Vex::Source& source, std::vector<QueueStatistics> values, QueueStatistics stored = {}) {
      VexTypes::IntfQueueCounters counters;
      for (std::size_t queue = 0; queue < values.size(); ++queue) {
         counters.intfQueueStatIs(queue, stored);
         counters.readings().stats[queue] = values[queue];
      }
      counters.readings().source = source;
      counters.readings().isCounted = &isCounted[{source.place, source.life}];
      counters.sampleTimeIs(Kiln::System::currentTime());
      handOver(counters);
   }
   void handOver(const VexTypes::IntfQueueCounters& counters) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      writer->intfQueueCountersIs(intf, counters);
   }
   IntfQueueCounters queues(const char* table = TableName::intfQueueCounters) {
      return record<IntfQueueCounters>(table);
   }

   Pelt::IntfId intf;
   std::map<std::pair<U16, U32>, bool> isCounted; // by place and life
};

constexpr Vex::Source place(U16 devicePort, U32 life = 1) {
   return {0, Vex::Source::Block::queue, devicePort, life};
}

TEST_F(QueuePublishing, ReportsAddUpAndAFallCountsWhole) {
   report(3, {100, 6400, 5});
   rig.advance(2.0);
   report(3, {150, 9600, 5});
   report(16, {1, 64, 0}); // a report of one queue leaves the others' totals alone
   EXPECT_EQ(queues().totals[3], (QueueStatistics{150, 9600, 5}));
   report(3, {20, 1280, 1});
   EXPECT_EQ(queues().totals[3], (QueueStatistics{170, 10880, 6}));
   EXPECT_EQ(queues().totals[16], (QueueStatistics{1, 64, 0}));
   EXPECT_TRUE(queues().has(3) && queues().has(16));
   EXPECT_FALSE(queues().has(4));
}

TEST_F(QueuePublishing, AClearedQueueCountsFromZeroAndItsTotalStands) {
   report(0, {100, 6400, 0});
   report(0, {}); // a clear reports zeros
   EXPECT_TRUE(sm()->clear("Ethernet1"));
   report(0, {7, 448, 1});
   EXPECT_EQ(queues().totals[0], (QueueStatistics{107, 6848, 1}));
   EXPECT_EQ(queues(TableName::intfClearQueueCounters).totals[0], (QueueStatistics{100, 6400, 0}));
}

TEST_F(QueuePublishing, RatesAreOverTheTimeBetweenReadingsOfOnePort) {
   report(0, {100, 6400, 0});
   rig.advance(2.0);
   report(0, {300, 19200, 0});
   EXPECT_EQ(queues().interval, 2.0);
   const double read = Kiln::System::currentTime();
   rig.advance(1.5);
   reportAt(read, 0, {}); // by an operator's clear
   EXPECT_EQ(queues().interval, 2.0);
   EXPECT_EQ(queues().deltas[0].packets, 200U);
   rig.advance(0.5);
   report(0, {190, 12160, 0});
   EXPECT_EQ(queues().interval, 2.0);
   EXPECT_EQ(queues().deltas[0].packets, 190U);
}

TEST_F(QueuePublishing, OnlyTheBlockThatWasResetCountsWhole) {
   reading(place(5), {{1000000, 64000000, 100}});
   EXPECT_TRUE(sm()->clear("Ethernet1"));
   rig.advance(2.0);
   reading(place(5), {{1000001, 64000064, 5}});
   EXPECT_EQ(queues().totals[0], (QueueStatistics{1000001, 64000064, 105}));
   EXPECT_EQ(queues(TableName::intfClearQueueCounters).totals[0], (QueueStatistics{1000000, 64000000, 100}));
   EXPECT_EQ(queues().discontinuityTime, Kiln::System::currentTime());
   rig.advance(2.0);
   reading(place(5),
           {{U64{1} << 50, 64000064, 5}}); // packets and bytes fall together, but an upset is one value's
   EXPECT_EQ(queues().totals[0], (QueueStatistics{1000001, 64000064, 105}));
   EXPECT_EQ(queues().absorbed, 1U);
   rig.advance(2.0);
   reading(place(5), {{1000003, 64000192, 6}}); // mended
   EXPECT_EQ(queues().totals[0], (QueueStatistics{1000003, 64000192, 106}));
   EXPECT_EQ(queues().absorbed, 0U);
}

TEST_F(QueuePublishing, AnotherPlaceIsABaselineAndTakesItsQueuesOnly) {
   reading(place(5), {{100, 6400, 0}, {7, 448, 1}});
   EXPECT_TRUE(sm()->clear("Ethernet1"));
   rig.advance(2.0);
   reading(place(6), {{5000, 320000, 9}});
   EXPECT_EQ(queues().interval, 0.0);
   EXPECT_EQ(queues().totals[0], (QueueStatistics{100, 6400, 0}));
   EXPECT_FALSE(queues().has(1));
   EXPECT_EQ(queues(TableName::intfClearQueueCounters).totals[1], QueueStatistics{});
   EXPECT_EQ(queues().discontinuityTime, 2.0);
   rig.advance(2.0);
   reading(place(6), {{5002, 320128, 9}});
   EXPECT_EQ(queues().interval, 2.0);
   EXPECT_EQ(queues().totals[0], (QueueStatistics{102, 6528, 0}));
   rig.advance(2.0);
   reading(place(6, 2), {{5005, 320320, 9}}); // the chip's next life, its hardware kept
   EXPECT_EQ(queues().totals[0], (QueueStatistics{105, 6720, 0}));
   reading(place(5), {{200, 12800, 0}, {8, 512, 1}}); // back, where this interface was counted
   EXPECT_EQ(queues().totals[0], (QueueStatistics{105, 6720, 0}));
   EXPECT_EQ(queues().totals[1], QueueStatistics{});
}

TEST_F(QueuePublishing, AnInterfaceIsClearedBeforeItsFirstReport) {
   report(0, {100, 6400, 0});
   stop();
   start();
   EXPECT_TRUE(sm()->clear("Ethernet1"));
   EXPECT_EQ(queues(TableName::intfClearQueueCounters).totals[0], (QueueStatistics{100, 6400, 0}));
   EXPECT_FALSE(sm()->clear("Ethernet2"));
   EXPECT_FALSE(sm()->clear(""));
   EXPECT_FALSE(sm()->clear(std::string(64, 'x')));
}

TEST_F(QueuePublishing, AfterARestartTheFirstReportIsTheFirstPreviousOne) {
   report(0, {100, 6400, 0});
   {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      tables.allIntfQueueCounters->queueIs(intf, 1, 0.0); // created, but never reported
   }
   stop();
   start();
   report(0, {5000, 320000, 0});
   EXPECT_EQ(queues().totals[0], (QueueStatistics{100, 6400, 0}));
   report(0, {5001, 320064, 0});
   EXPECT_EQ(queues().totals[0], (QueueStatistics{101, 6464, 0}));
   report(1, {9, 576, 0});
   EXPECT_EQ(queues().totals[1], (QueueStatistics{9, 576, 0}));
}

TEST_F(QueuePublishing, QueuesBeyondTheArrayAreRefused) {
   VexTypes::IntfQueueCounters counters;
   EXPECT_THROW(counters.intfQueueStatIs(17, {}), std::out_of_range);
   EXPECT_THROW(tables.allIntfQueueCounters->queueIs(intf, 17, 0.0), std::out_of_range);
}

} // namespace
