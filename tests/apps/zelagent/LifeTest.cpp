// Chips, agents and tables that come and go.
#include "counters/ZelCounters.h"
#include "tests/apps/zelagent/AgentRig.h"
#include "tests/support/LoggedMessages.h"
#include "tests/support/TemporaryFolder.h"

#include <filesystem>
#include <gmock/gmock.h>

namespace {

using namespace ZelTest;

class Life : public AgentRig {};

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
