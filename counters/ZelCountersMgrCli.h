// Routes a parsed diagnostic command to the chips that it concerns, once every name in it is known.
#pragma once

#include "ZelCounters.h"
#include "agent/AgentCommand.h"

#include <optional>

namespace ZelCounter {

class ZelCountersMgr;

// What a command says of the chip that it runs on.
struct ChipArguments {
   Pelt::IntfId intf;               // empty when the command names none
   std::optional<U32> tableId = {}; // one that the chip has; none: every table
   std::optional<U16> pipe = {};    // one that the chip has; none: every pipe
   U32 stage = 0;                   // of the pipeline
   bool nonZeroOnly = false;
};

// Carries a command out on one chip and writes its text to fd.
using ChipOperation = void (*)(ZelCounters& chip, U32 fd, const ChipArguments& arguments);

// A command whose form is right and whose names are still text.
struct ZelCountersCommand {
   ChipOperation operation = nullptr;
   std::optional<Kiln::String> chip; // none: every chip
   std::optional<Kiln::String> intf;
   std::optional<Kiln::String> table; // id or name; none: every table
   std::optional<Kiln::String> pipe;  // none: every pipe
   U32 stage = 0;                     // of the pipeline
   bool needsTables = false;          // the operation is about counter tables
   bool nonZeroOnly = false;
};

// Activity thread. Made for one command; the manager outlives it.
class ZelCountersMgrCli {
 public:
   explicit ZelCountersMgrCli(const ZelCountersMgr* mgr) : mgr_(mgr) {}

   // Runs on the named chip, else on the one that has the interface, else on every chip that has the table and
   // the pipe, in device order. Nothing runs when a name is unknown everywhere. A chip that is not initialized
   // answers so.
   Agent::CommandResult run(const ZelCountersCommand& command, int fd) const;

   // What may stand for a chip, for an error that lists the choices.
   Kiln::String chipChoices() const;
   // Whether a chip has a counter table of exactly this name.
   bool isTableName(const Kiln::String& name) const;

 private:
   using Chips = std::vector<Kiln::Ptr<ZelCounters>>;

   // A chip and what the command says of it.
   struct Target {
      Kiln::Ptr<ZelCounters> chip;
      ChipArguments arguments;
   };

   Chips chipsInDeviceOrder() const;
   std::vector<Pelt::IntfId> knownInterfaces() const;
   Kiln::String selectChip(const Kiln::String& name, Chips* chips) const;
   Kiln::String selectInterface(const ZelCountersCommand& command, Chips* chips, Pelt::IntfId* intf) const;
   Chips ownersOf(const Pelt::IntfId& intf) const;
   static Kiln::String selectOperands(const ZelCountersCommand& command, std::vector<Target>* targets);

   const ZelCountersMgr* mgr_;
};

} // namespace ZelCounter
