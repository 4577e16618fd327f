// Routes a parsed diagnostic command to the chips that it is for, after looking up every name in it.
#pragma once

#include "agent/AgentCommand.h"
#include "counters/ZelCounters.h"

#include <optional>

namespace ZelCounter {

class ManagerAccess;

// A command's operands, looked up for the chip that it runs on.
struct ChipArguments {
   Pelt::IntfId intf;               // empty when the command names none
   std::optional<U32> tableId = {}; // one that the chip has; without it, every table
   std::optional<U16> pipe = {};    // one that the chip has; without it, every pipe
   U32 stage = 0;                   // of the pipeline
   bool nonZeroOnly = false;
   bool isFinalShown = false;          // of drops
   std::optional<U32> top = {};        // so many rows, the worst first
   const ManagerAccess* mgr = nullptr; // for what is not the chip's own
   bool isFirst = true;                // of the chips that the command goes to
};

// Carries a command out on one chip.
using ChipOperation = void (*)(ZelCounters& chip, ShowOutput& out, const ChipArguments& arguments);

// A command whose form is right and whose names are still text.
struct ZelCountersCommand {
   ChipOperation operation = nullptr;
   bool isClear = false;
   Kiln::String text;                 // as it was typed
   std::optional<Kiln::String> chip;  // without it, every chip
   std::optional<Kiln::String> intf;  // one or several, as kiln/NameChoice.h reads it
   std::optional<Kiln::String> table; // id or name; without it, every table
   std::optional<Kiln::String> pipe;  // without it, every pipe
   U32 stage = 0;                     // of the pipeline
   bool needsTables = false;          // the operation is about counter tables
   bool nonZeroOnly = false;
   bool isFinalShown = false; // of drops
   std::optional<U32> top;    // so many of them, the worst first
   bool json = false;         // of a show operation: one document instead of text
};

// Made for one command, on the thread that runs it, under the activity lock. Once the command has given way, the manager
// may be gone: from then on only its chips are asked, which say so.
class ZelCountersMgrCli {
 public:
   explicit ZelCountersMgrCli(const ManagerAccess* mgr) : mgr_(mgr) {}

   // Runs the command on the named chip, else on those that have the interfaces, else on every chip that has the table
   // and the pipe, in device order. Runs nothing when a name is unknown everywhere. A chip that is not initialized says
   // so, and so does one that went, or whose ports changed, as the command gave way to others.
   Agent::CommandResult run(const ZelCountersCommand& command, int fd) const;

   // False when the command would be refused, since a name in it is unknown everywhere.
   bool areNamesKnown(const ZelCountersCommand& command) const;
   // What may be typed for the named chip, or, without a name, for any.
   std::vector<Kiln::String> chipNames() const;
   std::vector<Kiln::String> interfaceNames(const std::optional<Kiln::String>& chip) const;
   std::vector<Kiln::String> tableNames(const std::optional<Kiln::String>& chip, bool toClear) const;
   std::vector<Kiln::String> pipeNumbers(const std::optional<Kiln::String>& chip) const;
   // The end of an error about a chip's name: "expected Zel0 or Zel1", or that no chip is up.
   Kiln::String chipChoices() const;
   // Whether a chip has a counter table of exactly this name.
   bool isTableName(const Kiln::String& name) const;

 private:
   using Chips = std::vector<Kiln::Ptr<ZelCounters>>;

   // A chip, and the operands as they are on it: the operation is run for each interface.
   struct Target {
      Kiln::Ptr<ZelCounters> chip;
      ChipArguments arguments;
      std::vector<Pelt::IntfId> intfs;
   };

   Chips chipsInDeviceOrder() const;
   Chips chipsOf(const std::optional<Kiln::String>& name) const;
   std::vector<Pelt::IntfId> knownInterfaces() const;
   bool isKnown(const Pelt::IntfId& intf) const;
   Kiln::String selectInterfaces(const ZelCountersCommand& command, const Chips& chips,
                                 const ChipArguments& arguments, std::vector<Target>* targets) const;
   Chips ownersOf(const Pelt::IntfId& intf) const;
   Kiln::String ownerError(const Pelt::IntfId& intf, const ZelCounters* named, const Chips& owners) const;
   static Kiln::String selectOperands(const ZelCountersCommand& command, std::vector<Target>* targets);
   static Kiln::String clearError(const std::vector<Target>& targets);
   Kiln::String select(const ZelCountersCommand& command, std::vector<Target>* targets) const;
   static void runOn(Target& target, const ZelCountersCommand& command, ShowOutput& out);

   const ManagerAccess* mgr_;
};

} // namespace ZelCounter
