// A port's counters, from the chip to another process's reader.
#include "kiln/MappedFault.h"
#include "tests/platform/vex/PublishingRig.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/Random.h"
#include "tests/support/Slowdown.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

namespace {

using Silo::Interface::IntfCounters;
using ZelTest::inOctets;
namespace TableName = Silo::Interface::TableName;

constexpr auto octets = BF_RMON_OCTETS_RECEIVED_GOOD;
constexpr auto errors = BF_RMON_FRAMES_RECEIVED_WITH_ERRORS;

class PortPublishing : public ZelTest::PublishingRig {
 protected:
   PortPublishing() { intf = addPort("Ethernet1", port); }

   const std::string tablePath = folder.path() + "/" + TableName::intfCounters;
   Pelt::IntfId intf;
};

TEST_F(PortPublishing, WithoutElapsedTimeThereIsNoRate) {
   start();
   poll(octets, 1000);
   poll(octets, 2000);
   const auto lock = Kiln::ActivityLockAnchor::lock();
   sm()->updateCounters(VexTypes::CounterType::port, intf);
   EXPECT_EQ(published().rate(inOctets), std::nullopt);
   EXPECT_EQ(published().totals[inOctets], 2000U);
}

TEST_F(PortPublishing, UnknownInterfacesAndMissingReadingsPublishNothing) {
   start();
   const auto lock = Kiln::ActivityLockAnchor::lock();
   for (const Pelt::IntfId& other : {Pelt::IntfId(), Pelt::IntfId("Ethernet99"), intf}) {
      sm()->updateCounters(VexTypes::CounterType::port, other);
   }
   EXPECT_EQ(tables.allIntfCounters->table().size(), 0U);
   for (const std::string& name : {std::string(), std::string("Ethernet99"), std::string(64, 'x')}) {
      EXPECT_FALSE(sm()->clear(name)) << name;
   }
}

TEST_F(PortPublishing, LostTablesComeBackWithTotalsAndClears) {
   Kiln::surviveMappedFaults();
   start();
   poll(octets, 1000);
   EXPECT_TRUE(sm()->clear("Ethernet1"));
   poll(octets, 1300);
   const double created = published().createdUnixTime;
   for (const char* const name : {TableName::intfCounters, TableName::intfClearCounters}) {
      std::filesystem::resize_file(folder.path() + "/" + name, 0);
   }
   poll(octets, 1700);
   EXPECT_EQ(published().totals[inOctets], 1700U);
   EXPECT_EQ(published().rate(inOctets), 200.0);
   EXPECT_EQ(published().createdUnixTime, created);
   EXPECT_EQ(record(TableName::intfClearCounters).totals[inOctets], 1000U);
   EXPECT_EQ(record(TableName::intfClearCounters).createdUnixTime, created);
   poll(octets, 1800);
   EXPECT_EQ(published().totals[inOctets], 1800U);
   EXPECT_THAT(
        logged.take(),
        testing::ElementsAre(testing::HasSubstr("VEX_COUNTERS_TABLE_LOST Shared counters table IntfCounters"),
                             testing::HasSubstr("table IntfClearCounters was cut to 0 of")));
   std::signal(SIGBUS, SIG_DFL);
}

TEST_F(PortPublishing, AnAgentKilledAnywhereGoesOnWithoutAJump) {
   constexpr int kills = 200 / ZelTest::slowdown;
   ZelTest::Random random;
   start();
   poll(octets, 1);
   stop();
   Silo::TableReader<IntfCounters> reader(store, TableName::intfCounters);
   U64 last = 1;
   for (int kill = 0; kill < kills; ++kill) {
      const pid_t agent = ZelTest::spawn([&]() -> int {
         start();
         for (U64 value = last;; value += 7) {
            poll(octets, value);
         }
      });
      const U64 until = last + 7 + random.below(700);
      Silo::Sample<IntfCounters> sample;
      while (reader.read("Ethernet1", sample) != Silo::ReadResult::ok ||
             sample.record.reading.inOctets < until) {
         ASSERT_EQ(waitpid(agent, nullptr, WNOHANG), 0) << "the agent ended by itself";
         std::this_thread::yield();
      }
      ::kill(agent, SIGKILL);
      ASSERT_EQ(ZelTest::statusOf(agent), -SIGKILL);
      const auto asked = std::chrono::steady_clock::now();
      const Silo::ReadResult result = reader.read("Ethernet1", sample);
      ASSERT_LT(std::chrono::steady_clock::now() - asked, std::chrono::milliseconds(100));
      ASSERT_TRUE(result == Silo::ReadResult::ok || result == Silo::ReadResult::torn) << text(result);

      start();
      const IntfCounters seeded = published();
      ASSERT_GE(seeded.reading.inOctets, until);
      ASSERT_EQ(seeded.totals[inOctets], seeded.reading.inOctets);
      last = seeded.reading.inOctets + 5; // the hardware has counted on meanwhile
      poll(octets, last);
      ASSERT_EQ(published().totals[inOctets], last);
      stop();
   }
}

TEST_F(PortPublishing, AClearRecordNeverStandsAheadOfItsRecord) {
   start();
   poll(octets, 1000);
   sm()->clear("all");
   EXPECT_EQ(record(TableName::intfClearCounters).deltas[inOctets], 0U);
   EXPECT_EQ(record(TableName::intfClearCounters).interval, 0.0);
   stop();
   start();
   EXPECT_EQ(record(TableName::intfClearCounters).totals[inOctets], 1000U);
   stop();
   std::filesystem::remove(tablePath);
   rig.chip(0).rmonIs(port, octets, 10);
   start();
   Silo::Sample<IntfCounters> sample;
   EXPECT_EQ(read(TableName::intfClearCounters, "Ethernet1", sample), Silo::ReadResult::absent);
}

TEST_F(PortPublishing, PortsThatAreGoneAfterARestartAreForgottenWhenAsked) {
   addPort("Ethernet2", 6);
   start();
   rig.advance(2.0);
   tables.allIntfQueueCounters->queueIs(Pelt::IntfId("Ethernet2"), 0, 1.0);
   sm()->clear("all");
   stop();
   ports->intfStatusDel(Pelt::IntfId("Ethernet2"));
   rig.status->portInfoDel(Pelt::IntfId("Ethernet2"));
   start();
   EXPECT_EQ(tables.allIntfCounters->table().size(), 2U);
   rig.mgr->forgetAbsentInterfaces();
   EXPECT_FALSE(tables.allIntfQueueCounters->table().has("Ethernet2"));
   EXPECT_EQ(tables.allIntfCounters->table().size(), 1U);
   EXPECT_EQ(tables.allIntfClearCounters->table().size(), 1U);
   EXPECT_EQ(published().reading.inErrors, 0U);
}

TEST_F(PortPublishing, ADamagedRecordBeginsAnewAndIsReported) {
   constexpr U64 mark = 0x112233445566;
   start();
   poll(octets, mark);
   stop();
   // Damages the value wherever it is stored, including the journal.
   const std::string bytes = ZelTest::bytesOf(tablePath);
   for (std::size_t at = 0; at + sizeof mark <= bytes.size(); at += sizeof mark) {
      if (std::memcmp(bytes.data() + at, &mark, sizeof mark) == 0) {
         ZelTest::overwrite(tablePath, at, "!");
      }
   }
   Silo::Sample<IntfCounters> sample;
   EXPECT_EQ(read(TableName::intfCounters, "Ethernet1", sample), Silo::ReadResult::corrupt);

   start();
   const auto messages = logged.take();
   ASSERT_EQ(messages.size(), 1U);
   EXPECT_THAT(messages[0], testing::StartsWith("VEX_COUNTERS_TABLE_CORRUPT Shared counters table "
                                                "IntfCounters, record Ethernet1: "));
   poll(octets, mark + 1);
   EXPECT_EQ(published().totals[inOctets], mark + 1);
   EXPECT_EQ(published().rate(inOctets), std::nullopt);
   EXPECT_EQ(published().discontinuityTime, 2.0); // tells readers not to continue from their last value
}

struct SuspectCase {
   const char* name;
   U64 octetStep;
   U64 speed; // bit/s; 0 if unknown
   U64 suspects;
};

TEST_F(PortPublishing, AStepThatThePortsSpeedDoesNotAllowIsSuspect) {
   // In two seconds: 250 MB at 1 Gbit/s, and a tenth more for the clocks' inaccuracy.
   const SuspectCase cases[] = {{"allowed", 275'000'000, 1'000'000'000, 0},
                                {"too much", 275'000'001, 1'000'000'000, 1},
                                {"allowed by default", 27'500'000'000, 0, 0},
                                {"too much by default", 27'500'000'001, 0, 1}};
   start();
   U64 reading = 1;
   U64 suspects = 0;
   poll(octets, reading += U64{1} << 40); // the first step after the seed has no time to be judged by
   EXPECT_EQ(published().suspects, 0U);
   for (const SuspectCase& each : cases) {
      each.speed != 0 ? ports->speedIs(intf, each.speed) : ports->speedDel(intf);
      suspects += each.suspects;
      poll(octets, reading += each.octetStep);
      EXPECT_EQ(published().suspects, suspects) << each.name;
      EXPECT_EQ(published().totals[inOctets], reading) << each.name;
   }
   rig.chip(0).rmonIs(port, errors, U64{1} << 50);
   poll(octets, reading += U64{1} << 40); // beside an upset, a step is not judged
   EXPECT_EQ(published().suspects, suspects);
}

TEST_F(PortPublishing, AFullTableIsToldOnceAndTheOthersGoOn) {
   addPort("Ethernet2", port + 1);
   start({.ports = 1});
   poll(octets, 1000);
   poll(octets, 2000);
   EXPECT_EQ(published().totals[inOctets], 2000U);
   const auto messages = logged.take();
   ASSERT_EQ(messages.size(), 1U);
   EXPECT_THAT(messages[0], testing::StartsWith("VEX_COUNTERS_PUBLISH_ERROR Counters of interface Ethernet2 "
                                                "are not published: "));
   EXPECT_THAT(messages[0], testing::HasSubstr("IntfCounters"));

   const std::string noKey(64, 'x');
   for (int time = 0; time < 2; ++time) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      ports->intfStatusIs(Pelt::IntfId(noKey.c_str()), true);
      EXPECT_EQ(logged.take().size(), 1U) << time;
      ports->intfStatusDel(Pelt::IntfId(noKey.c_str()));
   }
}

TEST_F(PortPublishing, TheTablesOfAStartThatSucceededStay) {
   const ZelTest::TemporaryFolder place;
   Vex::keepSharedTables(
        Vex::openSharedTables(Silo::Store::directory(place.path()), {.areProvisional = true}));
   for (const char* const name : TableName::all) {
      EXPECT_TRUE(std::filesystem::exists(place.path() + "/" + name)) << name;
   }
}

} // namespace
