// Parses a command and has it routed, or completed.
#include "counters/ZelCountersCli.h"

#include "counters/cli/CommandParser.h"

namespace ZelCounter {

ZelCountersCli::ZelCountersCli(Kiln::Name name, Kiln::String commandType, ManagerAccess* mgr)
     : AgentCommandCallback(name, std::move(commandType)), mgr_(mgr) {}

Agent::CommandResult ZelCountersCli::command(const std::vector<Kiln::String>& words, int fd) {
   if (mgr_ == nullptr) {
      return {"nobody answers any more: try again when the agent is up"};
   }
   const ZelCountersMgrCli mgrCli(mgr_);
   ZelCountersCommand command;
   const Kiln::String error = CommandParser(words, mgrCli).parse(&command);
   if (!error.empty()) {
      return {error};
   }
   return mgrCli.run(command, fd);
}

bool ZelCountersCli::changes(const std::vector<Kiln::String>& words) const {
   if (mgr_ == nullptr) {
      return false;
   }
   const ZelCountersMgrCli mgrCli(mgr_);
   ZelCountersCommand command;
   const bool isRefused = !CommandParser(words, mgrCli).parse(&command).empty();
   // Names are looked up as the command itself will do.
   return !isRefused && command.isClear && mgrCli.areNamesKnown(command);
}

std::vector<Kiln::String> ZelCountersCli::completions(const std::vector<Kiln::String>& words) const {
   if (mgr_ == nullptr) {
      return {};
   }
   const ZelCountersMgrCli mgrCli(mgr_);
   ZelCountersCommand command;
   CommandParser parser(words, mgrCli);
   parser.parse(&command); // its error is of no interest: the beginning of a command is mostly incomplete
   // Nothing may follow what would be refused.
   return mgrCli.areNamesKnown(command) ? parser.next() : std::vector<Kiln::String>();
}

} // namespace ZelCounter
