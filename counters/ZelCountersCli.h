// The parser of the diagnostic counters commands.
#pragma once

#include "agent/AgentCommand.h"

namespace ZelCounter {

class ZelCountersMgr;

class ZelCountersCli : public Agent::AgentCommandCallback {
 public:
   // The manager owns this and is not counted.
   ZelCountersCli(Kiln::Name name, Kiln::String commandType, ZelCountersMgr* mgr)
        : AgentCommandCallback(name, std::move(commandType)), mgr_(mgr) {}

   Agent::CommandResult command(const std::vector<Kiln::String>&, int) override { return {"no command yet"}; }

 private:
   ZelCountersMgr* mgr_;
};

} // namespace ZelCounter
