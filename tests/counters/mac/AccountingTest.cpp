// How a step of a MAC counter is judged, and how the previous record is rewritten.
#include "kiln/EventLog.h"
#include "tests/support/CountersRig.h"
#include "tests/support/LoggedMessages.h"
#include "tests/support/Manual.h"

#include <gmock/gmock.h>
#include <map>

namespace {

using namespace ZelTest;

using Interface::EthIntfStatistics;

constexpr auto fieldCount = EthIntfStatistics::fieldCount;
constexpr std::size_t inOctets = offsetof(EthIntfStatistics, inOctets) / sizeof(U64);
constexpr std::size_t outOctets = offsetof(EthIntfStatistics, outOctets) / sizeof(U64);
constexpr std::size_t inErrors = offsetof(EthIntfStatistics, inErrors) / sizeof(U64);

class Accounting : public testing::Test {
 protected:
   Accounting() {
      ZelCounter::ZelCounters::Context context{};
      context.systemStatus = rig_.status;
      chip = ZelCounter::zelCountersFactory(std::move(context));
   }

   void step(std::size_t field, U64 oldValue, U64 newValue) {
      EthIntfStatistics reading = record->statistics();
      EthIntfStatistics before = previous->statistics();
      Interface::wordIs(reading, field, newValue);
      Interface::wordIs(before, field, oldValue);
      record->statisticsIs(reading);
      previous->statisticsIs(before);
   }
   void check() { chip->checkMacCountersOverflow(intf, record, previous); }

   CountersRig rig_;
   LoggedMessages logged_;
   Kiln::ActivityLockAnchor::Guard lock_ = Kiln::ActivityLockAnchor::lock();
   Pelt::IntfId intf{"Ethernet1"};
   Kiln::Ptr<ZelCounter::ZelCounters> chip;
   Kiln::Ptr<VexTypes::IntfCounters> record = Kiln::allocate<VexTypes::IntfCounters>();
   Kiln::Ptr<VexTypes::IntfCounters> previous = Kiln::allocate<VexTypes::IntfCounters>();
};

TEST_F(Accounting, OneReadingMayWrapAndBeUpsetAndLogsOnce) {
   step(inOctets, 0xFFFFFFFFFFFFFFF0, 16);
   step(outOctets, 0xFFFFFFFFFFFFFFF0, 32);
   step(inErrors, 9, 3);
   check();
   EXPECT_EQ(chip->overflowCount(), 2U);
   EXPECT_EQ(chip->seuCount(), 1U);
   EXPECT_THAT(logged_.take(),
               testing::ElementsAre("ZEL_COUNTERS_OVERFLOW_ERROR "
                                    "Received wrong hardware counter value for interface Ethernet1."));
}

TEST_F(Accounting, FallsAreAResetUnlessSomethingWentOn) {
   std::vector<std::string> kinds;
   auto before =
        Kiln::EventLog::instance().sinkIs([&](const Kiln::Event& event) { kinds.emplace_back(event.kind); });
   step(inErrors, 9, 3);
   check();
   step(inErrors, 9, 3);
   step(outOctets, 5, 7);
   check();
   Kiln::EventLog::instance().sinkIs(std::move(before));
   EXPECT_THAT(kinds, testing::ElementsAre("reset", "upset"));
}

TEST_F(Accounting, FieldsAreFilledAsTheDocumentSays) {
   bf_rmon_counter_array_t raw;
   for (U64 i = 0; i < BF_NUM_RMON_COUNTERS; ++i) {
      raw[i] = 1000 + i;
   }
   rig_.status->portInfoIs(intf, {0, 1});
   chip->updateCounters(intf, raw);
   chip->getMacCounters(intf, record, previous);

   std::map<std::string, U64> documented;
   const auto manual = manualRows("rmon-counters.md", "# RMON counters");
   ASSERT_EQ(manual.size(), std::size_t{BF_NUM_RMON_COUNTERS});
   for (std::size_t index = 0; index < manual.size(); ++index) {
      if (const std::string& name = manual[index].back(); name != "-") {
         documented[name] = raw[index];
      }
   }
   std::map<std::string, U64> filled;
   for (std::size_t i = 0; i < fieldCount; ++i) {
      filled[Interface::ethIntfFields[i].name] = Interface::word(record->statistics(), i);
   }
   EXPECT_EQ(filled, documented);
}

TEST_F(Accounting, CountersThatTheSnapshotLacksReadZero) {
   const auto snapshot = ZelCounter::intfCountersFactory(intf);
   constexpr auto lastHeld = static_cast<std::size_t>(Interface::ethIntfFields[inErrors].rmonIndex);
   snapshot->countersIs(lastHeld, 7);
   chip->macCountersLastIs(intf, snapshot);
   step(outOctets, 0, 6);
   chip->getMacCounters(intf, record, previous);
   EthIntfStatistics expected{};
   Interface::wordIs(expected, inErrors, 7);
   EXPECT_EQ(std::memcmp(&record->statistics(), &expected, sizeof expected), 0);
}

TEST_F(Accounting, WithoutASnapshotTheRecordIsLeftAlone) {
   step(inOctets, 1, 2);
   record->isFilledIs(false);
   chip->getMacCounters(Pelt::IntfId("Ethernet9"), record, previous);
   EXPECT_FALSE(record->isFilled());
   EXPECT_EQ(Interface::word(record->statistics(), inOctets), 2U);
}

} // namespace
