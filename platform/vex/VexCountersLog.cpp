// The catalogue of the forwarding layer's messages.
#include "vex/VexCountersLog.h"

#include "agent/CommandOrigin.h"
#include "kiln/EventLog.h"
#include "kiln/RingLog.h"
#include "kiln/Trace.h"

#include <array>
#include <stdexcept>

namespace Vex {

namespace {

Kiln::TraceHandle traceHandle("VexCounters");

const char* remedyText(Silo::Corruption::Remedy remedy) {
   using Remedy = Silo::Corruption::Remedy;
   switch (remedy) {
   case Remedy::none:
      return "the default is used until the next write";
   case Remedy::kept:
      return "the record was whole and is kept";
   case Remedy::finished:
      return "completed from the journal";
   case Remedy::restarted:
      return "the record began anew";
   case Remedy::freed:
      return "the record was dropped";
   case Remedy::headerMended:
      return "the header was mended";
   case Remedy::takenOver:
      return "they were taken over";
   case Remedy::recreated:
      return "the table was created anew";
   case Remedy::modeMended:
      return "it is as before again";
   case Remedy::remade:
      return "it was made anew";
   case Remedy::lost:
      return "the next polling pass tries again";
   }
   return "unknown";
}

} // namespace

const Kiln::LogMessage VEX_COUNTERS_PUBLISH_ERROR{
     "VEX_COUNTERS_PUBLISH_ERROR",
     Kiln::Severity::error,
     "Counters of interface %s are not published: %s",
     "The shared table that other processes read counters from did not take the interface's record. Readers "
     "see no record, or an old one.",
     "Remove interfaces that are not needed, or start the agent with larger tables.",
     Kiln::EventKind::message,
     ""};

const Kiln::LogMessage VEX_COUNTERS_HISTORY_ERROR{
     "VEX_COUNTERS_HISTORY_ERROR", Kiln::Severity::warning, "No history is kept of some interfaces: %s",
     "There was no room for the history of an interface. Its counters are published all the same.",
     "Give shared memory more room, or start the agent with a shorter --history."};

const Kiln::LogMessage VEX_COUNTERS_TABLE_CORRUPT{
     "VEX_COUNTERS_TABLE_CORRUPT",
     Kiln::Severity::warning,
     "Shared counters table %s, record %s: %s; %s",
     "A record was found damaged: the agent was stopped while it wrote, or another process wrote into the "
     "table. What began anew counts from zero.",
     "None if the agent was just restarted. Otherwise find the process that writes into the table.",
     Kiln::EventKind::tableMended,
     ""};

const Kiln::LogMessage VEX_COUNTERS_TABLE_TAKEN_OVER{"VEX_COUNTERS_TABLE_TAKEN_OVER",
                                                     Kiln::Severity::notice,
                                                     "Shared counters table %s %s; %s",
                                                     "The agent was upgraded, and the table had the layout "
                                                     "of the release before. Totals, clears and times stay.",
                                                     "None.",
                                                     Kiln::EventKind::tableRemade,
                                                     ""};

const Kiln::LogMessage VEX_COUNTERS_TABLE_LOST{
     "VEX_COUNTERS_TABLE_LOST",
     Kiln::Severity::error,
     "Shared counters table %s %s; %s",
     "Somebody removed, replaced, cut or overwrote the table's file, or changed who may open it, while the "
     "agent was "
     "running. Once the "
     "table is made "
     "anew, readers find it by themselves, and totals, clears and times go on.",
     "Find who does so. If the table could not be made anew, do away with the reason that is given.",
     Kiln::EventKind::tableRemade,
     ""};

namespace {

const Kiln::LogMessage* messageOfTable(Silo::Corruption::Remedy remedy) {
   using Remedy = Silo::Corruption::Remedy;
   return remedy == Remedy::takenOver ? &VEX_COUNTERS_TABLE_TAKEN_OVER
          : remedy == Remedy::remade || remedy == Remedy::lost || remedy == Remedy::modeMended
               ? &VEX_COUNTERS_TABLE_LOST
               : nullptr;
}

} // namespace

void logCorruption(const Silo::Corruption& corruption) {
   using Remedy = Silo::Corruption::Remedy;
   if (const Kiln::LogMessage* const message = messageOfTable(corruption.remedy)) {
      const std::array<Kiln::String, 3> arguments{corruption.table, corruption.text,
                                                  remedyText(corruption.remedy)};
      Kiln::OperatorLog::instance().log(*message, arguments,
                                        corruption.remedy == Remedy::modeMended ? Kiln::EventKind::tableMended
                                                                                : nullptr);
      return;
   }
   const std::array<Kiln::String, 4> arguments{corruption.table,
                                               corruption.key.empty() ? "(none)" : corruption.key,
                                               corruption.text, remedyText(corruption.remedy)};
   Kiln::OperatorLog::instance().log(VEX_COUNTERS_TABLE_CORRUPT, arguments,
                                     corruption.remedy == Remedy::recreated ? Kiln::EventKind::tableRemade
                                                                            : nullptr);
}

void tellPublishedClear(const Kiln::String& name) {
   Kiln::EventLog::instance().record({.kind = Kiln::EventKind::clear,
                                      .where = name == "all" ? "" : name,
                                      .what = Agent::CommandOrigin::current().who,
                                      .text = Kiln::String(publishedClear) + name});
}

namespace {

// Interfaces whose names are no keys, whoever found it out first.
Kiln::HashMap<Pelt::IntfId, bool>& refusedNames() {
   static auto* const names = new Kiln::HashMap<Pelt::IntfId, bool>;
   return *names;
}

} // namespace

PublishErrors::~PublishErrors() {
   for (const auto& [intf, isLogged] : logged_) {
      refusedNames().erase(intf);
   }
}

void PublishErrors::log(const Pelt::IntfId& intf, const std::exception& error) {
   KILN_RINGLOG_TRACE(4, "publishing counters of " << intf << ": " << error.what());
   const bool isOfName = dynamic_cast<const std::invalid_argument*>(&error) != nullptr;
   // Once, until the interface is published again: every polling pass tries, and would fill the log.
   if (logged_.set(intf, true) && (!isOfName || refusedNames().set(intf, true))) {
      const std::array<Kiln::String, 2> arguments{intf.text(), error.what()};
      const bool isFull = dynamic_cast<const Silo::CapacityError*>(&error) != nullptr;
      Kiln::OperatorLog::instance().log(VEX_COUNTERS_PUBLISH_ERROR, arguments,
                                        isFull ? Kiln::EventKind::tableFull : nullptr);
   }
}

void PublishErrors::forget(const Pelt::IntfId& intf) {
   if (logged_.erase(intf)) {
      refusedNames().erase(intf);
   }
}

} // namespace Vex
