// Finds the chips that a command runs on. What is wrong with a command is a text, empty when nothing is; whatever gets
// past here exists, so that the operations behind it may assert.
#include "counters/ZelCountersMgrCli.h"

#include "counters/chip/ManagerAccess.h"
#include "kiln/ActivityLock.h"
#include "kiln/Choices.h"
#include "kiln/EventLog.h"
#include "kiln/NameChoice.h"
#include "kiln/Numbers.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>

namespace ZelCounter {

ZelCountersMgrCli::Chips ZelCountersMgrCli::chipsInDeviceOrder() const {
   Chips chips;
   for (const auto& [devId, chip] : mgr_->zelCounters()) {
      chips.push_back(chip);
   }
   std::ranges::sort(chips, {}, [](const auto& chip) { return chip->deviceId(); });
   return chips;
}

// The chips of that name, or all, in device order.
ZelCountersMgrCli::Chips ZelCountersMgrCli::chipsOf(const std::optional<Kiln::String>& name) const {
   Chips chips = chipsInDeviceOrder();
   std::erase_if(chips, [&](const auto& chip) { return name && chip->chipName() != *name; });
   return chips;
}

std::vector<Kiln::String> ZelCountersMgrCli::chipNames() const {
   std::vector<Kiln::String> names;
   for (const auto& chip : chipsInDeviceOrder()) {
      names.push_back(chip->chipName());
   }
   return names;
}

Kiln::String ZelCountersMgrCli::chipChoices() const {
   const std::vector<Kiln::String> names = chipNames();
   return names.empty() ? "no chip is up yet" : "expected " + Kiln::choices(names);
}

// The interfaces that commands take: those with a port, and those that lost it and still have counts. Each once, in natural
// order.
std::vector<Pelt::IntfId> ZelCountersMgrCli::knownInterfaces() const {
   const auto& ports = mgr_->systemStatus()->portInfo();
   std::set<Pelt::IntfId> known;
   for (const auto& [intf, record] : ports) {
      known.insert(known.end(), intf); // they mostly come in order
   }
   for (const auto& [devId, chip] : mgr_->zelCounters()) {
      for (const auto& [intf, counters] : chip->macCountersLast()) {
         if (!ports.contains(intf)) {
            known.insert(intf);
         }
      }
   }
   return {known.begin(), known.end()};
}

bool ZelCountersMgrCli::isKnown(const Pelt::IntfId& intf) const {
   return mgr_->systemStatus()->portInfo().contains(intf) ||
          std::ranges::any_of(chipsInDeviceOrder(),
                              [&](const auto& chip) { return chip->macCountersLast().contains(intf); });
}

std::vector<Kiln::String> ZelCountersMgrCli::interfaceNames(const std::optional<Kiln::String>& chip) const {
   const Chips chips = chipsOf(chip);
   const ZelCounters* const named = chip && !chips.empty() ? chips.front().ptr() : nullptr;
   std::vector<Kiln::String> names;
   for (const Pelt::IntfId& intf : knownInterfaces()) {
      if (ownerError(intf, named, ownersOf(intf)).empty()) {
         names.push_back(intf.text());
      }
   }
   return names;
}

std::vector<Kiln::String> ZelCountersMgrCli::tableNames(const std::optional<Kiln::String>& chip,
                                                        bool toClear) const {
   std::map<Kiln::String, bool> isTaken; // false once a chip refuses it: so would the command on all
   for (const auto& one : chipsOf(chip)) {
      for (U32 id = 0; id < one->tablesNum(); ++id) {
         const auto& info = *one->zlResourceInfoIntf()->zlTableCounter(id);
         const auto entry = isTaken.emplace(info.name, true).first;
         entry->second = entry->second && !(toClear && one->tables().otherClear(info) != nullptr);
      }
   }
   std::vector<Kiln::String> names;
   for (const auto& [name, taken] : isTaken) {
      if (taken) {
         names.push_back(name);
      }
   }
   return names;
}

std::vector<Kiln::String> ZelCountersMgrCli::pipeNumbers(const std::optional<Kiln::String>& chip) const {
   U32 pipes = 0;
   for (const auto& one : chipsOf(chip)) {
      pipes = std::max(pipes, U32{one->highestPipe()} + 1);
   }
   std::vector<Kiln::String> numbers;
   for (U32 pipe = 0; pipe < pipes; ++pipe) {
      numbers.push_back(std::to_string(pipe));
   }
   return numbers;
}

// The chip that has the port; an interface without a port is where it was last read.
ZelCountersMgrCli::Chips ZelCountersMgrCli::ownersOf(const Pelt::IntfId& intf) const {
   if (const auto& chip = mgr_->zelCounters(mgr_->systemStatus()->portInfo(intf).devId)) {
      return {chip};
   }
   Chips owners = chipsInDeviceOrder();
   std::erase_if(owners, [&](const auto& chip) { return !chip->macCountersLast().contains(intf); });
   return owners;
}

// A target for each chip that has some of the interfaces, or for the chip that the command names.
Kiln::String ZelCountersMgrCli::selectInterfaces(const ZelCountersCommand& command, const Chips& chips,
                                                 const ChipArguments& arguments,
                                                 std::vector<Target>* targets) const {
   // Making an interface id of what is typed, which may be anything, would intern it for ever. A whole name is that interface,
   // whatever the others are called.
   const Pelt::IntfId named{Kiln::Name::known(*command.intf)};
   const std::vector<Pelt::IntfId> known =
        isKnown(named) ? std::vector<Pelt::IntfId>{named} : knownInterfaces();
   std::vector<Kiln::String> names;
   std::ranges::transform(known, std::back_inserter(names), &Pelt::IntfId::text);
   const Kiln::NameChoice choice = Kiln::chooseNames(*command.intf, names);
   if (!choice.error.empty()) {
      return choice.error;
   }
   for (const Kiln::String& name : choice.names) {
      const Pelt::IntfId& intf = *std::ranges::find(known, name, &Pelt::IntfId::text);
      const Chips owners = ownersOf(intf);
      Kiln::String error = ownerError(intf, command.chip ? chips.front().ptr() : nullptr, owners);
      if (!error.empty()) {
         return error;
      }
      for (const auto& chip : command.chip ? chips : owners) {
         auto target = std::ranges::find(*targets, chip, &Target::chip);
         if (target == targets->end()) {
            target = targets->insert(target, {chip, arguments, {}});
         }
         target->intfs.push_back(intf);
      }
   }
   std::ranges::sort(*targets, {}, [](const Target& target) { return target.chip->deviceId(); });
   return "";
}

// What is wrong with asking the named chip for the interface, or, when none is named, its owners. A chip that the
// interface has left may be asked while it still has its counts.
Kiln::String ZelCountersMgrCli::ownerError(const Pelt::IntfId& intf, const ZelCounters* named,
                                           const Chips& owners) const {
   if (owners.empty()) {
      return "the chip of interface " + intf.text() + " is not up: device " +
             std::to_string(mgr_->systemStatus()->portInfo(intf).devId);
   }
   if (named != nullptr && owners.front()->deviceId() != named->deviceId() &&
       !named->macCountersLast().contains(intf)) {
      return "interface " + intf.text() + " is not on chip " + named->chipName() + ": expected chip " +
             owners.front()->chipName();
   }
   return "";
}

bool ZelCountersMgrCli::isTableName(const Kiln::String& name) const {
   return std::ranges::any_of(chipsInDeviceOrder(), [&](const auto& chip) {
      return chip->zlResourceInfoIntf() &&
             chip->zlResourceInfoIntf()->zlTableCounterIndex(name) != ZlResourceInfo::notFound;
   });
}

namespace {

// Finds the id that a word stands for, or what is wrong with it. A whole name comes before the beginning of one, which
// comes before an id: a table may be called "1".
Kiln::String resolveTable(const ZlResourceInfo::ZlResourceInfoIntf& catalogue, const Kiln::String& word,
                          std::optional<U32>* tableId) {
   const U32 tables = catalogue.zlTableCountersNum();
   std::vector<Kiln::String> meant;
   for (U32 id = 0; id < tables; ++id) {
      const Kiln::String& name = catalogue.zlTableCounter(id)->name;
      if (name == word) {
         *tableId = id;
         return "";
      }
      if (name.starts_with(word)) {
         *tableId = id;
         meant.push_back(name);
      }
   }
   if (meant.size() == 1) {
      return "";
   }
   *tableId = tables > 0 ? Kiln::parseNumber<U32>(word, 0, tables - 1) : std::nullopt;
   if (*tableId) {
      return "";
   }
   if (!meant.empty()) {
      return "table " + Kiln::quoted(word) + " is ambiguous: expected " + Kiln::choices(meant);
   }
   std::vector<Kiln::String> names;
   for (U32 id = 0; id < tables; ++id) {
      names.push_back(catalogue.zlTableCounter(id)->name);
   }
   return "unknown table " + Kiln::quoted(word) + ": " +
          Kiln::meantOrExpected(word, names,
                                "an id below " + std::to_string(tables) +
                                     " or a name, as 'show info' lists them");
}

Kiln::String resolveOnChip(const ZelCounters& chip, const ZelCountersCommand& command,
                           ChipArguments* arguments) {
   if (command.needsTables && !chip.zlResourceInfoIntf()) {
      return "chip " + chip.chipName() + " has no counter tables";
   }
   if (command.table) {
      Kiln::String error = resolveTable(*chip.zlResourceInfoIntf(), *command.table, &arguments->tableId);
      if (!error.empty()) {
         return error;
      }
   }
   if (command.pipe) {
      arguments->pipe = Kiln::parseNumber<U16>(*command.pipe, 0, chip.highestPipe());
      if (!arguments->pipe) {
         return "unknown pipe " + Kiln::quoted(*command.pipe) + ": expected 0 to " +
                std::to_string(chip.highestPipe());
      }
   }
   return "";
}

} // namespace

// Chips may run different programs: the command goes to those that have what it names, and is wrong only when none has.
// The catalogue of a chip that is not initialized is not asked; the chip stays, so that it can say what it is.
Kiln::String ZelCountersMgrCli::selectOperands(const ZelCountersCommand& command,
                                               std::vector<Target>* targets) {
   Kiln::String firstError;
   std::vector<Target> able;
   for (Target& target : *targets) {
      const Kiln::String error = target.chip->initialized()
                                      ? resolveOnChip(*target.chip, command, &target.arguments)
                                      : Kiln::String();
      if (error.empty()) {
         able.push_back(target);
      } else if (firstError.empty()) {
         firstError = error;
      }
   }
   targets->swap(able);
   return targets->empty() ? firstError : "";
}

// The operation skips such tables in silence, which would pass for success with one that was named.
Kiln::String ZelCountersMgrCli::clearError(const std::vector<Target>& targets) {
   for (const Target& target : targets) {
      if (target.arguments.tableId) {
         const auto& info = *target.chip->zlResourceInfoIntf()->zlTableCounter(*target.arguments.tableId);
         if (const char* const other = target.chip->tables().otherClear(info)) {
            return "table " + info.name + " is not cleared here: use " + other;
         }
      }
   }
   return "";
}

// The chips that the command goes to, or what is wrong with it.
Kiln::String ZelCountersMgrCli::select(const ZelCountersCommand& command,
                                       std::vector<Target>* targets) const {
   const Chips chips = chipsOf(command.chip);
   ChipArguments arguments;
   arguments.stage = command.stage;
   arguments.nonZeroOnly = command.nonZeroOnly;
   arguments.isFinalShown = command.isFinalShown;
   arguments.top = command.top;
   Kiln::String error;
   if (command.chip && chips.empty()) {
      error = "unknown chip " + Kiln::quoted(*command.chip) + ": " + chipChoices();
   }
   if (error.empty() && command.intf) {
      error = selectInterfaces(command, chips, arguments, targets);
   } else {
      for (const auto& chip : chips) {
         targets->push_back({chip, arguments, {{}}});
      }
   }
   if (error.empty() && (command.needsTables || command.pipe)) {
      error = selectOperands(command, targets);
   }
   if (error.empty() && command.isClear) {
      error = clearError(*targets);
   }
   return error;
}

bool ZelCountersMgrCli::areNamesKnown(const ZelCountersCommand& command) const {
   std::vector<Target> targets;
   return select(command, &targets).empty();
}

// In slices, between which any target may go, and the manager, too. So of a chip that is gone nothing is asked, nor of the
// manager for it: a manager that goes stops its chips.
void ZelCountersMgrCli::runOn(Target& target, const ZelCountersCommand& command, ShowOutput& out) {
   ZelCounters& chip = *target.chip;
   if (!chip.initialized()) {
      out.uninitialized();
      return;
   }
   const auto ports = [&] { return chip.isStopped() ? std::vector<ChipAccess::Port>() : chip.ports(); };
   const std::vector<ChipAccess::Port> before = ports();
   for (std::size_t i = 0; i < target.intfs.size() && !chip.isStopped(); ++i) {
      target.arguments.intf = target.intfs[i];
      command.operation(chip, out, target.arguments);
      Kiln::ActivityLockAnchor::giveWay("run");
   }
   const Kiln::String whileDone = command.isClear ? " while this was cleared" : " while this was shown";
   if (chip.isStopped()) {
      out.changed("Chip " + chip.chipName() + " went" + whileDone);
   } else if (ports() != before) {
      out.changed("Ports of chip " + chip.chipName() + " changed" + whileDone);
   }
   out.tellReadings(chip.chipName());
}

Agent::CommandResult ZelCountersMgrCli::run(const ZelCountersCommand& command, int fd) const {
   std::vector<Target> targets;
   const Kiln::String error = select(command, &targets);
   if (!error.empty()) {
      return {error};
   }
   const std::unique_ptr<ShowOutput> out = answerTo(static_cast<U32>(fd), command.json);
   if (targets.empty() && !command.json) { // a document says so by its empty list of chips
      out->noTable("", "No chip is up");
   }
   for (Target& target : targets) {
      target.arguments.mgr = mgr_;
      target.arguments.isFirst = &target == targets.data();
      out->chipBegin(target.chip->chipName(), targets.size() > 1);
      runOn(target, command, *out);
      out->chipEnd();
      Kiln::ActivityLockAnchor::giveWay("run");
   }
   out->documentEnd();
   if (command.isClear) {
      Kiln::EventLog::instance().record({.kind = Kiln::EventKind::clear,
                                         .where = command.intf.value_or(command.chip.value_or("")),
                                         .what = Agent::CommandOrigin::current().who,
                                         .text = command.text});
   }
   return {};
}

} // namespace ZelCounter
