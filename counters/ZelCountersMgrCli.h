// Routes a parsed diagnostic command to the chips that it concerns, once every name in it is known.
#pragma once

#include "ZelCounters.h"
#include "agent/AgentCommand.h"

#include <optional>

namespace ZelCounter {

class ZelCountersMgr;

// What a command says of the chip that it runs on.
struct ChipArguments {
   Pelt::IntfId intf; // empty when the command names none
   bool nonZeroOnly = false;
};

// Carries a command out on one chip and writes its text to fd.
using ChipOperation = void (*)(ZelCounters& chip, U32 fd, const ChipArguments& arguments);

// A command whose form is right and whose names are still text.
struct ZelCountersCommand {
   ChipOperation operation = nullptr;
   std::optional<Kiln::String> chip; // none: every chip
   std::optional<Kiln::String> intf;
   bool nonZeroOnly = false;
};

// Activity thread. Made for one command; the manager outlives it.
class ZelCountersMgrCli {
 public:
   explicit ZelCountersMgrCli(const ZelCountersMgr* mgr) : mgr_(mgr) {}

   // Runs on the named chip, else on the one that has the interface, else on every chip in device order.
   // Nothing runs when a name is unknown. A chip that is not initialized answers so itself.
   Agent::CommandResult run(const ZelCountersCommand& command, int fd) const;

   // What may stand for a chip, for an error that lists the choices.
   Kiln::String chipChoices() const;

 private:
   using Chips = std::vector<Kiln::Ptr<ZelCounters>>;

   Chips chipsInDeviceOrder() const;
   std::vector<Pelt::IntfId> knownInterfaces() const;
   Kiln::String selectChip(const Kiln::String& name, Chips* chips) const;
   Kiln::String selectInterface(const ZelCountersCommand& command, Chips* chips, Pelt::IntfId* intf) const;
   Chips ownersOf(const Pelt::IntfId& intf) const;

   const ZelCountersMgr* mgr_;
};

// A word of a command as errors show it: in quotes, a long one cut short.
Kiln::String quoted(std::string_view word);

// "a", "a or b", "a, b or c".
Kiln::String choices(const std::vector<Kiln::String>& all);

} // namespace ZelCounter
