// How a step of a MAC counter is judged, and how the previous record is rewritten.
#include "kiln/EventLog.h"
#include "tests/support/CountersRig.h"
#include "tests/support/LoggedMessages.h"
#include "tests/support/Manual.h"
#include "tests/support/Random.h"

#include <gmock/gmock.h>
#include <map>

namespace {

using namespace ZelTest;

using Interface::EthIntfStatistics;
using Interface::FieldGroup;

constexpr auto fieldCount = EthIntfStatistics::fieldCount;
constexpr U64 window = U64{1} << 48;
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

// The oracle: the same rules in arithmetic that can neither wrap nor change sign.
struct Oracle {
   __extension__ typedef unsigned __int128 Wide; // NOLINT(modernize-use-using): __extension__ needs a typedef

   static constexpr Wide two(unsigned power) { return Wide{1} << power; }
   static Wide clamp(FieldGroup group, Wide value) {
      return group == FieldGroup::upsetOnly && value >= two(63) ? 0 : value;
   }

   void step(FieldGroup group, U64& before, U64 reading) {
      const Wide from = clamp(group, before);
      const Wide to = clamp(group, reading);
      if (to >= from && to < from + two(48)) {
         return;
      }
      if (group == FieldGroup::wrapChecked && to < from && from > two(64) - two(48) && to < two(48) - 1) {
         ++wraps;
         return;
      }
      ++upsets;
      before = reading;
   }

   U32 wraps = 0;
   U32 upsets = 0;
};

// Mostly steps of ordinary traffic, but also wraps, flips, resets, and values at the window's edge.
U64 nextReading(Random& random, U64 reading) {
   switch (random.below(16)) {
   case 0:
      return reading ^ (U64{1} << random.below(64));
   case 1:
      return random.below(1000);
   case 2:
      return ~random.below(1000);
   case 3:
      return reading + window - 1 + random.below(3);
   case 4:
      return 0xFFFF000000000000 - 1 + random.below(3);
   case 5:
      return 0xFFFFFFFFFFFF - 1 + random.below(3);
   default:
      return reading + random.below(1'000'000);
   }
}

// Out of four readings, one has small counters only, two have at most one unusual counter, and one has any number.
TEST_F(Accounting, AMillionRandomStepsAgreeWithTheOracle) {
   Random random;
   constexpr std::size_t steps = 1'000'000;
   Oracle oracle;
   EthIntfStatistics expected{};
   bf_rmon_counter_array_t raw{};
   rig_.status->portInfoIs(intf, {0, 1});
   for (std::size_t done = 0; done < steps; done += fieldCount) {
      EthIntfStatistics reading = record->statistics();
      const std::size_t turn = done / fieldCount % 4;
      const std::size_t odd = random.below(fieldCount);
      for (std::size_t i = 0; i < fieldCount; ++i) {
         const U64 last = Interface::word(reading, i);
         const U64 value = turn == 0               ? random.below(1000)
                           : turn == 3 || i == odd ? nextReading(random, last)
                                                   : last + random.below(1'000'000);
         raw[Interface::ethIntfFields[i].rmonIndex] = value;
         U64 before = Interface::word(expected, i);
         oracle.step(Interface::ethIntfFields[i].group, before, value);
         Interface::wordIs(expected, i, before);
         Interface::wordIs(reading, i, value);
      }
      chip->updateCounters(intf, raw);
      chip->getMacCounters(intf, record, previous);
      ASSERT_EQ(std::memcmp(&record->statistics(), &reading, fieldCount * sizeof(U64)), 0);
      ASSERT_EQ(std::memcmp(&previous->statistics(), &expected, fieldCount * sizeof(U64)), 0);
      ASSERT_EQ(chip->overflowCount(), oracle.wraps);
      ASSERT_EQ(chip->seuCount(), oracle.upsets);
      previous->statisticsIs(reading);
      expected = reading;
   }
   EXPECT_GT(oracle.wraps, 1000U);
   EXPECT_GT(oracle.upsets, 1000U);
}

} // namespace
