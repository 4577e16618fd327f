// Events that repeat, that come in a crowd, and that a killed agent leaves.
#include "vex/EventRecorder.h"

#include "silo/TableReader.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SimulatedTime.h"
#include "tests/support/TemporaryFolder.h"

#include <array>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using Kiln::EventKind::agentKilled;
using Kiln::EventKind::portCame;

class EventRecorder : public testing::Test {
 protected:
   static void tell(const char* kind, const char* where) {
      Kiln::EventLog::instance().record({.kind = kind, .where = where});
   }
   // Those of a kind as another process reads them: "Ethernet1 to Ethernet3, 1 others, 2 times".
   std::vector<std::string> told(std::string_view kind) {
      Silo::TableReader<Silo::Interface::Event> reader(store_, Silo::Interface::TableName::events);
      std::vector<std::string> texts;
      for (unsigned number = 1; number < Silo::Interface::eventLimit; ++number) {
         Silo::Sample<Silo::Interface::Event> sample;
         if (reader.read(Silo::Key(std::to_string(number)), sample) == Silo::ReadResult::ok &&
             sample.record.kind.data() == kind) {
            const Silo::Interface::Event& event = sample.record;
            texts.push_back(std::string(event.where.data()) + " to " + event.what.data() + ", " +
                            std::to_string(event.others) + " others, " + std::to_string(event.count) +
                            " times");
         }
      }
      return texts;
   }

   ZelTest::TemporaryFolder folder_;
   Silo::Store store_ = Silo::Store::directory(folder_.path());
   const ZelTest::SimulatedTime time_;
};

using testing::ElementsAre;

TEST_F(EventRecorder, TellsOfPortsThatComeTogetherAndOfOneThatComesAgainAndAgain) {
   Vex::EventRecorder recorder(store_, 2, false);
   recorder.started(0);
   tell(portCame, "Ethernet1");
   time_.advance(10);
   tell(portCame, "Ethernet2");
   time_.advance(10);
   tell(portCame, "Ethernet1");
   tell(portCame, "Ethernet3"); // with Ethernet1, and not with the one that came last before
   EXPECT_THAT(told(portCame),
               ElementsAre("Ethernet1 to Ethernet3, 1 others, 2 times", "Ethernet2 to , 0 others, 1 times"));
   time_.advance(2);
   for (int i = 0; i < 10; ++i) {
      time_.advance(0.9);
      tell(portCame, "Ethernet4");
   }
   EXPECT_EQ(told(portCame).back(), "Ethernet4 to , 0 others, 10 times") << "that is no crowd";
}

TEST_F(EventRecorder, EndsACrowdAfterASecond) {
   Vex::EventRecorder recorder(store_, 2, false);
   recorder.started(0);
   for (int i = 0; i < 100; ++i) {
      time_.advance(0.9);
      tell(Kiln::EventKind::wrap, ("Ethernet" + std::to_string(i)).c_str());
   }
   EXPECT_EQ(told(Kiln::EventKind::wrap).size(), 100U) << "each at a moment of its own";
}

TEST_F(EventRecorder, TellsOfAKilledAgentAlsoAfterAStartThatFailed) {
   std::array<int, 2> ready{};
   ASSERT_EQ(pipe(ready.data()), 0);
   const pid_t child = ZelTest::spawn([&] {
      Vex::EventRecorder recorder(store_, 2, true);
      recorder.started(0);
      EXPECT_EQ(write(ready[1], "!", 1), 1);
      return pause();
   });
   char byte = 0;
   EXPECT_EQ(read(ready[0], &byte, 1), 1);
   kill(child, SIGKILL);
   EXPECT_EQ(ZelTest::statusOf(child), -SIGKILL);
   { const Vex::EventRecorder failing(store_, 2, true); }
   Vex::EventRecorder recorder(store_, 2, true);
   recorder.started(0);
   EXPECT_EQ(told(agentKilled).size(), 1U);
}

} // namespace
