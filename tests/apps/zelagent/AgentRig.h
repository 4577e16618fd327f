// An agent in simulated time, and commands to it.
#pragma once

#include "apps/zelagent/SwitchAgent.h"
#include "kiln/ActivityLock.h"
#include "tests/support/SimulatedTime.h"

#include <gtest/gtest.h>
#include <optional>

namespace ZelTest {

struct Asked {
   Kiln::String text;
   Kiln::String error;
};

class AgentRig : public testing::Test {
 protected:
   // Starts the agent, with tables of its own, since tests run at the same time.
   ZelAgent::SwitchAgent& start(ZelAgent::SwitchAgentConfig config) {
      config.tablesAreTemporary = true;
      agent_.emplace(config).createdIsKept();
      return *agent_;
   }

   // Runs any command line, as the channel does.
   Asked run(const Kiln::String& line) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      const Agent::CommandSpool spool;
      const Agent::CommandResult result = agent_->commandRunner()->run(line, spool, "the test");
      Kiln::String text(spool.size(), '\0');
      spool.read(0, text.data(), text.size());
      return {text, result.error};
   }
   Asked ask(const Kiln::String& keywords) { return run("counters " + keywords); }

   static void advance(double seconds) { SimulatedTime::advance(seconds); }

   const SimulatedTime time_;
   std::optional<ZelAgent::SwitchAgent> agent_;
};

} // namespace ZelTest
