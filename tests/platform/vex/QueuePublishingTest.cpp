// Queue counters, from a report to a reader in another process.
#include "silo/HistoryReader.h"
#include "tests/platform/vex/PublishingRig.h"
#include "tests/support/NoRoom.h"
#include "vex/History.h"
#include "vex/RecordText.h"

#include <filesystem>

namespace {

using Silo::Interface::IntfQueueCounters;
using Silo::Interface::QueueStatistics;
namespace TableName = Silo::Interface::TableName;

class QueuePublishing : public ZelTest::PublishingRig {
 protected:
   QueuePublishing() {
      intf = addPort("Ethernet1", port);
      start({.ports = 1});
   }

   void report(std::size_t queue, QueueStatistics value) {
      reportAt(Kiln::System::currentTime(), queue, value);
   }
   void reportAt(double sampleTime, std::size_t queue, QueueStatistics value,
                 const Pelt::IntfId* other = nullptr) {
      VexTypes::IntfQueueCounters counters;
      counters.intfQueueStatIs(queue, value);
      counters.sampleTimeIs(sampleTime);
      const auto lock = Kiln::ActivityLockAnchor::lock();
      writer->intfQueueCountersIs(other != nullptr ? *other : intf, counters);
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

TEST_F(QueuePublishing, AClearReachesThoseOfPortsAndThoseThatTheTableHasNoRoomFor) {
   const Pelt::IntfId other = addPort("Ethernet2", port + 1);
   for (const char* const name : {"Ethernet1", "all"}) {
      report(0, {100, 6400, 0});
      reportAt(Kiln::System::currentTime(), 0, {200, 12800, 0}, &other);
      EXPECT_TRUE(sm()->clear(name));
      EXPECT_EQ(queues(TableName::intfClearQueueCounters).totals[0].packets, 100U) << name;
      rig.advance(2.0);
   }
   const auto lock = Kiln::ActivityLockAnchor::lock();
   ports->intfStatusDel(intf); // now there is room for the other one
   Silo::Sample<IntfQueueCounters> sample;
   for (const char* const table : {TableName::intfQueueCounters, TableName::intfClearQueueCounters}) {
      EXPECT_EQ(read(table, "Ethernet1", sample), Silo::ReadResult::absent) << table;
   }
   reportAt(Kiln::System::currentTime(), 0, {205, 13120, 0}, &other);
   EXPECT_EQ(record<IntfQueueCounters>(TableName::intfQueueCounters, "Ethernet2").totals[0].packets, 205U);
   EXPECT_EQ(record<IntfQueueCounters>(TableName::intfClearQueueCounters, "Ethernet2").totals[0].packets,
             200U);
}

TEST_F(QueuePublishing, AQueueThatComesAtAnotherPortCountsFromZero) {
   std::array<bool, 2> isCounted{};
   const auto reportAtPlace = [&](U16 place, std::initializer_list<U64> packets) {
      VexTypes::IntfQueueCounters counters;
      counters.readings().source = {.block = Vex::Source::Block::queue, .place = place, .life = 1};
      counters.readings().isCounted = &isCounted.at(place);
      VexTypes::IntfQueueCounters::Stats readings{};
      counters.readings().stats = &readings;
      std::size_t queue = 0;
      for (const U64 each : packets) {
         counters.intfQueueStatIs(queue, {each, 0, 0});
         readings.at(queue++) = {each, 0, 0};
      }
      const auto lock = Kiln::ActivityLockAnchor::lock();
      writer->intfQueueCountersIs(intf, counters);
   };
   reportAtPlace(0, {7, 100});
   reportAtPlace(1, {5});
   EXPECT_FALSE(queues().has(1));
   reportAtPlace(1, {6, 130});
   EXPECT_EQ(queues().totals[1].packets, 230U);
}

TEST_F(QueuePublishing, TheHistoryHasEachQueueAndTellsOfTooLittleRoomEachTime) {
   using Silo::Interface::IntfQueueHistory;
   const ZelTest::TemporaryFolder place;
   const Silo::Store own = Silo::Store::directory(place.path());
   Vex::History history(own, {.minutes = 1, .ports = 64});
   const auto samplesOf = [&](const char* key) {
      std::vector<Silo::HistorySample> samples;
      Silo::HistoryReader reader(own, TableName::intfQueueHistory, IntfQueueHistory::layout);
      EXPECT_TRUE(reader.read(Silo::Key(key), samples));
      return samples;
   };
   IntfQueueCounters record;
   record.present = 1U << 7U | 1U << 16U;
   record.totals[7] = {1, 2, 3};
   double keptTime = Silo::unknownSampleTime;
   history.queuesAre("Ethernet1", record, 1.0, keptTime);
   ASSERT_EQ(samplesOf("Ethernet1").size(), 1U);
   EXPECT_EQ(samplesOf("Ethernet1")[0].values[IntfQueueHistory::field(7, 2)], 3U);
   EXPECT_EQ(samplesOf("Ethernet1 8").size(), 0U);
   EXPECT_EQ(samplesOf("Ethernet1 16").size(), 1U);

   int ring = 0;
   const auto publish = [&](int upTo) {
      for (; ring < upTo; ++ring) {
         history.portIs(std::to_string(ring), {}, 1.0, {});
      }
   };
   for (const int bank : {16, 32}) {
      publish(bank);
      {
         const ZelTest::NoRoom noRoom(
              std::filesystem::file_size(place.path() + "/" + TableName::intfHistory));
         for (int pass = 0; pass < 2; ++pass) {
            history.mend();
            history.portIs("new", {}, 1.0, {});
         }
         EXPECT_EQ(logged.take().size(), 1U) << bank;
      }
      history.mend();
      publish(bank + 1);
      history.mend();
   }
}

TEST_F(QueuePublishing, QueuesBeyondTheArrayAreRefused) {
   VexTypes::IntfQueueCounters counters;
   EXPECT_THROW(counters.intfQueueStatIs(17, {}), std::out_of_range);
   EXPECT_THROW(tables.allIntfQueueCounters->queueIs(intf, 17, 0.0), std::out_of_range);
}

} // namespace
