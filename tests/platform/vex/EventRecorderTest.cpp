// Which events stand by themselves, which are counted, and what is told over restarts and kills.
#include "vex/EventRecorder.h"

#include "kiln/EventLog.h"
#include "kiln/Time.h"
#include "silo/TableReader.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SimulatedTime.h"
#include "tests/support/TemporaryFolder.h"
#include "vex/BreakEvents.h"

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using Kiln::EventLog;
namespace EventKind = Kiln::EventKind;

class Events : public testing::Test {
 protected:
   using Record = Silo::Interface::Event;

   Kiln::Ptr<Vex::EventRecorder> start(double lastSign = Silo::unknownSampleTime) {
      auto recorder = Kiln::allocate<Vex::EventRecorder>(store_, 2.0, true);
      recorder->started(lastSign);
      return recorder;
   }
   // As "kind where what others count", oldest first.
   std::vector<std::string> told() {
      std::vector<std::string> lines;
      for (const Record& event : records()) {
         std::string line = event.kind.data();
         for (const char* part : {event.where.data(), event.what.data()}) {
            line += std::string(" ") + (*part == '\0' ? "-" : part);
         }
         lines.push_back(line + " " + std::to_string(event.others) + " " + std::to_string(event.count));
      }
      return lines;
   }
   std::vector<Record> records() {
      Silo::TableReader<Record> reader(store_, Silo::Interface::TableName::events);
      std::vector<Silo::Entry<Record>> entries;
      EXPECT_TRUE(reader.snapshot(entries)) << reader.problem();
      std::vector<Record> found;
      for (const auto& entry : entries) {
         EXPECT_EQ(entry.result, Silo::ReadResult::ok);
         found.push_back(entry.sample.record);
      }
      std::ranges::sort(found, {}, &Record::number);
      return found;
   }
   static void wrap(const char* where, U64 before) {
      EventLog::instance().record({.kind = EventKind::wrap,
                                   .where = where,
                                   .what = "in-octets",
                                   .hasValues = true,
                                   .before = before});
   }
   static std::string pid() { return "pid " + std::to_string(getpid()); }

   ZelTest::TemporaryFolder folder_;
   Silo::Store store_ = Silo::Store::directory(folder_.path());
   ZelTest::SimulatedTime time_;
};

using Lines = std::vector<std::string>;

TEST_F(Events, ThatRepeatAreCountedAndThoseWithOtherValuesFromTheFifthOn) {
   const auto recorder = start();
   for (U64 i = 0; i < 7; ++i) {
      wrap("Ethernet1", 5);
      wrap("Ethernet2", i);
      time_.advance(20);
   }
   time_.advance(60);
   wrap("Ethernet1", 5);
   EXPECT_EQ(told(), (Lines{"agent-started - " + pid() + " 0 1", "wrap Ethernet1 in-octets 0 7",
                            "wrap Ethernet2 in-octets 0 1", "wrap Ethernet2 in-octets 0 1",
                            "wrap Ethernet2 in-octets 0 1", "wrap Ethernet2 in-octets 0 4",
                            "wrap Ethernet1 in-octets 0 1"}));
   const Record last = records().at(5);
   EXPECT_EQ(last.before, 6U) << "the values of the last one";
   EXPECT_EQ(last.lastTime - last.time, 60);
}

TEST_F(Events, OfACrowdAreOneAndAFloodDoesNotPushOutTheRest) {
   const auto recorder = start();
   for (int port = 1; port <= 200; ++port) {
      const std::string name = "Ethernet" + std::to_string(port);
      EventLog::instance().record({.kind = EventKind::portCame, .where = name});
      EventLog::instance().record(
           {.kind = EventKind::discontinuity, .where = name, .text = port % 2 == 0 ? "even" : "odd"});
      wrap(name.c_str(), 1);
   }
   time_.advance(2);
   EventLog::instance().record({.kind = EventKind::portCame, .where = "Ethernet201"});
   const Lines lines = told();
   ASSERT_EQ(lines.size(), 1U + 1 + 2 + 64 + 1);
   EXPECT_EQ(lines[1], "port-came Ethernet1 Ethernet200 199 1");
   EXPECT_EQ(lines[2], "discontinuity Ethernet1 Ethernet199 99 1");
   EXPECT_EQ(lines[67], "wrap Ethernet64 in-octets 136 1");
   EXPECT_EQ(lines[68], "port-came Ethernet201 - 0 1");
}

TEST_F(Events, OfOnePortThatComesAgainAndAgainAreNoCrowd) {
   const auto recorder = start();
   const auto come = [](const char* port) {
      EventLog::instance().record({.kind = EventKind::portCame, .where = port});
   };
   come("Ethernet1");
   time_.advance(10);
   come("Ethernet2");
   time_.advance(10);
   come("Ethernet1");
   come("Ethernet3"); // with Ethernet1, and not with the one that came last before
   time_.advance(2);
   for (int i = 0; i < 10; ++i) {
      time_.advance(0.9);
      come("Ethernet4");
   }
   Lines lines = told();
   lines.erase(lines.begin());
   EXPECT_EQ(lines, (Lines{"port-came Ethernet1 Ethernet3 1 2", "port-came Ethernet2 - 0 1",
                           "port-came Ethernet4 - 0 10"}));
}

TEST_F(Events, GoOnOverRestartsAndTellOfAKill) {
   const pid_t child = ZelTest::spawn([&]() -> int {
      const auto recorder = start();
      wrap("Ethernet1", 1);
      raise(SIGKILL);
      return 0;
   });
   EXPECT_EQ(ZelTest::statusOf(child), -SIGKILL);
   time_.advance(100);
   {
      const auto failed = Kiln::allocate<Vex::EventRecorder>(store_, 2.0, true);
      wrap("Ethernet3", 1); // of a start that fails: it is as if that had not been
   }
   {
      const auto recorder = Kiln::allocate<Vex::EventRecorder>(store_, 2.0, true);
      wrap("Ethernet2", 1); // waits for the start
      recorder->started(97);
   }
   const std::string first = "pid " + std::to_string(child);
   EXPECT_EQ(told(), (Lines{"agent-started - " + first + " 0 1", "wrap Ethernet1 in-octets 0 1",
                            "agent-killed - " + first + " 0 1", "agent-started - " + pid() + " 0 1",
                            "wrap Ethernet2 in-octets 0 1", "agent-ended - " + pid() + " 0 1"}));
   EXPECT_EQ(records().at(2).time, 97) << "when it published last";
}

// By a clock that goes on over agents.
TEST_F(Events, OfAnAgentKilledBeforeItPublishedTellOfItsLastEvent) {
   Kiln::System::timeSourceIs(Kiln::allocate<Kiln::RealTime>());
   const pid_t child = ZelTest::spawn([&]() -> int {
      const auto recorder = start();
      raise(SIGKILL);
      return 0;
   });
   EXPECT_EQ(ZelTest::statusOf(child), -SIGKILL);
   const double known = Kiln::System::currentTime();
   const auto recorder = start();
   EXPECT_LT(records().at(1).time, known) << "the moment in which its end was noticed says nothing";
}

TEST(FlippedBits, AreNamedUpToFour) {
   EXPECT_EQ(Vex::flippedBits(5, 4), "flipped bit 0");
   EXPECT_EQ(Vex::flippedBits(1, (U64{15} << 60) + 1), "flipped bits 60, 61, 62, 63");
   EXPECT_EQ(Vex::flippedBits(0, 31), "");
}

TEST_F(Events, TurnTheRingOver) {
   const auto recorder = start();
   for (int i = 0; i < 4500; ++i) {
      wrap(("Ethernet" + std::to_string(i)).c_str(), 1);
      time_.advance(0.1);
   }
   const std::vector<Record> found = records();
   ASSERT_EQ(found.size(), 4096U);
   EXPECT_EQ(found.back().number - found.front().number, 4095U);
   EXPECT_STREQ(found.back().where.data(), "Ethernet4499");
}

} // namespace
