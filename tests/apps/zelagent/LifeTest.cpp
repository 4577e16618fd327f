// Chips and agents that come and go, some of them in the middle of what they asked for.
#include "counters/ZelCounters.h"
#include "counters/tables/HwTableCountersSm.h"
#include "kiln/RingLog.h"
#include "tests/apps/zelagent/AgentRig.h"
#include "tests/support/LoggedMessages.h"
#include "tests/support/Random.h"
#include "tests/support/Slowdown.h"
#include "tests/support/TemporaryFolder.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <malloc.h>

namespace {

using namespace ZelTest;
using Kind = SoftChip::CompletionMode::Kind;

std::size_t entriesOf(const char* folder) {
   namespace fs = std::filesystem;
   return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

// What a process has that a chip could leave behind. Sanitizers' allocators tell of no memory.
struct Holdings {
   U64 objects = Kiln::trackedObjectCount();
   std::size_t clocks = Kiln::activityManagerClock()->armedCount();
   std::size_t descriptors = entriesOf("/proc/self/fd");
   std::size_t threads = entriesOf("/proc/self/task");
   std::size_t memory = mallinfo2().uordblks;
   std::size_t deadChips = ZelCounter::CookieRegistry<ZelCounter::ZelCounters>::instance().retiredCount();
   std::size_t deadSchedulers =
        ZelCounter::CookieRegistry<ZelCounter::HwTableCountersSm>::instance().retiredCount();
};

class Life : public AgentRig {
 protected:
   // Brings Zel1 up, lets it poll, and takes it away or puts another in its place.
   void cycle(Random& random) {
      auto& completions = agent_->fleet().completions();
      {
         const auto lock = Kiln::ActivityLockAnchor::lock();
         completions.modeIs({random.oneOf(std::array{Kind::inlined, Kind::deferred, Kind::late, Kind::held}),
                             static_cast<double>(random.below(60)), 1U + random.oneIn(3)});
         agent_->chipAdd("Zel1");
         if (random.oneIn(4)) {
            completions.nextModeIs({Kind::lost}, 1 + static_cast<U32>(random.below(6)));
         }
      }
      advance(static_cast<double>(random.below(5)));
      const auto lock = Kiln::ActivityLockAnchor::lock();
      if (random.oneIn(16)) {
         completions.deliverAllHeld(); // most of them to chips that are gone
      }
      if (random.oneIn(3)) {
         agent_->chipRestart("Zel1", random.oneIn(2));
      }
      if (random.oneIn(2)) {
         agent_->chipDel("Zel1");
      }
   }
   // Everything that was asked for has been answered, or is lost.
   void settle() {
      {
         const auto lock = Kiln::ActivityLockAnchor::lock();
         agent_->chipDel("Zel1");
         agent_->fleet().completions().modeIs({});
         agent_->fleet().completions().deliverAllHeld();
      }
      advance(61.0);
      Kiln::RingLog::instance().lineDelAll();
   }
};

// ZEL_CHIPS sets the number, of which a sanitizer takes a tenth.
TEST_F(Life, TenThousandChipsLeaveNothingBehind) {
   const U64 chips = numberFromEnvironment("ZEL_CHIPS", slowdown > 1 ? 1000 : 10000);
   auto& agent = start({.chips = 1, .pipes = 2, .ports = 4});
   Random random;
   for (int warmUp = 0; warmUp < 200; ++warmUp) {
      cycle(random);
   }
   settle();
   const Holdings before;
   const U64 lostBefore = agent.fleet().completions().lostCount();
   for (U64 chip = 0; chip < chips; ++chip) {
      cycle(random);
   }
   settle();
   const Holdings after;
   const std::size_t deadChips = after.deadChips - before.deadChips;
   const std::size_t deadSchedulers = after.deadSchedulers - before.deadSchedulers;
   EXPECT_EQ(after.objects, before.objects);
   EXPECT_LE(after.clocks, before.clocks); // some are armed only now and then
   EXPECT_EQ(after.descriptors, before.descriptors);
   EXPECT_EQ(after.threads, before.threads);
   EXPECT_GT(deadChips + deadSchedulers, 0U);
   EXPECT_LE(deadChips + deadSchedulers, agent.fleet().completions().lostCount() - lostBefore);
   constexpr std::size_t upkeep = 128; // of one dead object
   EXPECT_LE(after.memory, before.memory + 65536 + deadChips * (sizeof(ZelCounter::ZelCounters) + upkeep) +
                                deadSchedulers * (sizeof(ZelCounter::HwTableCountersSm) + upkeep));
}

TEST_F(Life, AChipsOwnNameMayBeGiven) {
   auto& agent = start({.chips = 2, .pipes = 1, .ports = 1});
   const auto lock = Kiln::ActivityLockAnchor::lock();
   agent.chipAdd(agent.countersMgr().zelCounters(1)->chipName());
   agent.chipAdd(agent.chipNamed("Zel1").name());
   agent.chipDel(agent.countersMgr().zelCounters(1)->chipName());
   EXPECT_EQ(agent.countersMgr().zelCounters().size(), 1U);
}

// Each in a process that goes on to make the next.
TEST_F(Life, AStartThatFailsSaysWhyAndLeavesNothingBehind) {
   const TemporaryFolder folder;
   const std::string hardware = folder.path() + "/hardware";
   start({.chips = 2, .pipes = 4, .ports = 4, .hardwareFile = hardware});
   agent_.reset();
   const U64 objects = Kiln::trackedObjectCount();
   EXPECT_THAT([&] { start({.chips = 2, .pipes = 2, .ports = 4, .hardwareFile = hardware}); },
               testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr("pipes")));
   EXPECT_FALSE(Kiln::ActivityLockAnchor::isHeldByThisThread());
   EXPECT_EQ(Kiln::trackedObjectCount(), objects);
   start({.chips = 2, .pipes = 4, .ports = 4, .hardwareFile = hardware});
   advance(4.0);
   EXPECT_EQ(agent_->countersMgr().zelCounters().size(), 2U);
}

TEST_F(Life, EveryTableThatIsRemovedIsThereAgainAfterAPollingPass) {
   const TemporaryFolder folder;
   const auto fileOf = [&](const Kiln::String& table) { return folder.path() + "/" + table; };
   start({.siloFolder = folder.path()});
   advance(4.0);
   LoggedMessages logged;
   std::vector<testing::Matcher<std::string>> expected;
   for (const Kiln::String table : Silo::Interface::TableName::all) {
      ASSERT_TRUE(std::filesystem::remove(fileOf(table))) << table;
      expected.push_back(
           testing::HasSubstr("VEX_COUNTERS_TABLE_LOST Shared counters table " + table + " was removed"));
   }
   advance(4.0);
   EXPECT_THAT(logged.take(), testing::UnorderedElementsAreArray(expected));
   for (const Kiln::String table : Silo::Interface::TableName::all) {
      EXPECT_TRUE(std::filesystem::exists(fileOf(table))) << table;
   }
   agent_.reset(); // before the folder
}

} // namespace
