// The way in for the diagnostic counters commands.
//
//    [chip NAME] KEYWORD... [OPERAND] [OPTION]...
//
// Keywords and options may be shortened to any beginning that only one of them has in its place. So may names of
// counter tables; there a word is taken for a whole name first, then for an option, then for the beginning of a name.
// Names of chips are given whole; an interface is one word, which may name several (kiln/NameChoice.h). `intf` and
// `interface` are the same keyword. Options stand last, in any order, each at most once. With `json` a
// show command answers by a document (docs/command-channel.md).
#pragma once

#include "agent/AgentCommand.h"

namespace ZelCounter {

class ManagerAccess;

class ZelCountersCli : public Agent::AgentCommandCallback {
 public:
   // The manager owns this and is held by a raw pointer. Others may hold this longer: once the manager has let go of
   // it, it refuses every command.
   ZelCountersCli(Kiln::Name name, Kiln::String commandType, ManagerAccess* mgr);

   Agent::CommandResult command(const std::vector<Kiln::String>& words, int fd) override;
   bool changes(const std::vector<Kiln::String>& words) const override;
   std::vector<Kiln::String> completions(const std::vector<Kiln::String>& words) const override;
   void mgrDel() { mgr_ = nullptr; }

 private:
   ManagerAccess* mgr_;
};

} // namespace ZelCounter
