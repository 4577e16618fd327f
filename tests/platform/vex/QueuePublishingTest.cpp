// Queue counters, from a report to a reader in another process.
#include "tests/platform/vex/PublishingRig.h"
#include "vex/RecordText.h"

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
      const auto lock = Kiln::ActivityLockAnchor::lock();
      writer->intfQueueCountersIs(intf, counters);
   }
   IntfQueueCounters queues(const char* table = TableName::intfQueueCounters) {
      return record<IntfQueueCounters>(table);
   }

   Pelt::IntfId intf;
};

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
