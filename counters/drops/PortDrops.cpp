// Reads the three drop tables port by port. They are counter tables like others: what is read is the SDK's software
// copy, at most one sync pass old.
#include "counters/drops/PortDrops.h"

#include "counters/chip/IndirectRead.h"
#include "counters/chip/SdkStatus.h"
#include "counters/chip/Slices.h"
#include "counters/chip/ZelCountersTrace.h"

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <tuple>

namespace ZelCounter {

namespace {

using Holds = TableView::Holds;
using ZlDrop::Point;
using ZlDrop::reasonsPerPort;
using ZlResourceInfo::ZlTableCounter;

// A reason that the program has not named is shown by its number.
Kiln::String reasonText(const ZlDrop::Table& table, U32 reason) {
   return reason < table.reasons.size() ? table.reasons[reason] : "reason " + std::to_string(reason);
}

Kiln::String errorText(U32 status, const ZlTableCounter& info, U32 pipe) {
   return pipeReadErrorText(static_cast<int>(status), pipe) + ", " + info.name;
}

// The greater count comes first; where counts are alike, what comes first in its order.
template <class Place>
bool isWorse(const std::pair<U64, Place>& a, const std::pair<U64, Place>& b) {
   return a.first != b.first ? a.first > b.first : a.second < b.second;
}

// Each once. The ports of a pipe are together.
std::vector<U16> pipesOf(std::span<const ChipAccess::Port> ports) {
   std::vector<U16> pipes;
   for (const ChipAccess::Port& port : ports) {
      const U16 pipe = ZlPort::pipeOf(port.devicePort);
      if (pipes.empty() || pipes.back() != pipe) {
         pipes.push_back(pipe);
      }
   }
   return pipes;
}

// By name, as the points are told apart here: two points never share a table.
std::optional<Point> pointOf(const ZlTableCounter& info) {
   for (std::size_t point = 0; point < ZlDrop::tables.size(); ++point) {
      if (info.name == ZlDrop::tables[point].name) {
         return static_cast<Point>(point);
      }
   }
   return std::nullopt;
}

} // namespace

// In the order of their numbers, which has the ports of a pipe together, as read() needs them.
std::vector<ChipAccess::Port> PortDrops::ports(const Pelt::IntfId& intf) const {
   std::vector<ChipAccess::Port> all = chip().portsByNumber();
   std::erase_if(all, [&](const ChipAccess::Port& port) { return !intf.empty() && port.intf != intf; });
   return all;
}

// What is wrong with the table, or nothing. Each is a note and no assertion: a program need not have drop tables.
Kiln::String PortDrops::tableError(Point point, const ZlTableCounter** info) const {
   const char* const name = ZlDrop::tables[static_cast<std::size_t>(point)].name;
   const U32 id = chip().zlResourceInfoIntf() ? chip().zlResourceInfoIntf()->zlTableCounterIndex(name)
                                              : ZlResourceInfo::notFound;
   if (id == ZlResourceInfo::notFound) {
      return Kiln::String("Chip ") + chip().chipName() + " has no counter table " + name;
   }
   *info = chip().zlResourceInfoIntf()->zlTableCounter(id);
   if ((*info)->direct || (*info)->size < ZlDrop::tableSize) {
      return Kiln::String("Counter table ") + name + " does not have " + std::to_string(ZlDrop::tableSize) +
             " entries of its own";
   }
   if (!chip().initializedCounter(id) || !chip().firstPollingComplete()) {
      return Kiln::String("Counter table ") + name + " not initialized yet";
   }
   return chip().perPipeCounter(id) ? ""
                                    : Kiln::String("Counter table ") + name + " does not tell pipes apart";
}

// The ports are of one pipe. After a failed read the others are not tried; they keep what was read before.
Kiln::String PortDrops::readPipe(Point point, const ZlTableCounter& info,
                                 std::span<const ChipAccess::Port> ports) {
   const U16 pipe = ZlPort::pipeOf(ports.front().devicePort);
   IndirectRead read(chip(), pipe, info.tableHandle);
   U32 status = read.start();
   for (std::size_t i = 0; i < ports.size() && status == 0; ++i) {
      const U16 devicePort = ports[i].devicePort;
      Vex::ShownCounts<1>& atPoint = counts(ports[i])[static_cast<std::size_t>(point)];
      for (U32 reason = 0; reason < reasonsPerPort && status == 0; ++reason) {
         p4_pd_counter_value value{};
         status = read.entry(ZlDrop::entryIndex(ZlPort::slotOf(devicePort), reason), &value);
         if (status == 0) {
            atPoint.read(reason, chip().life(), {value.packets});
         }
      }
   }
   if (status == 0) {
      status = read.end();
   }
   if (status == 0) {
      return "";
   }
   KILN_TRACE(4, errorText(status, info, pipe));
   return errorText(status, info, pipe) + ": shown as last read";
}

std::vector<Kiln::String> PortDrops::read(std::span<const ChipAccess::Port> ports) {
   std::vector<Kiln::String> errors;
   for (const Point point : {Point::ingress, Point::egress, Point::final}) {
      const std::vector<Kiln::String> atPoint = readPoint(point, ports);
      errors.insert(errors.end(), atPoint.begin(), atPoint.end());
   }
   return errors;
}

std::vector<Kiln::String> PortDrops::readPoint(Point point, std::span<const ChipAccess::Port> ports) {
   const ZlTableCounter* info = nullptr;
   const Kiln::String wrong = tableError(point, &info);
   if (!wrong.empty()) {
      return {wrong};
   }
   std::vector<Kiln::String> errors;
   for (auto first = ports.begin(); first != ports.end();) {
      // A read covers one pipe, so the ports go by runs of the same one.
      const auto last = std::find_if(first, ports.end(), [&](const ChipAccess::Port& port) {
         return ZlPort::pipeOf(port.devicePort) != ZlPort::pipeOf(first->devicePort);
      });
      const Kiln::String error = readPipe(point, *info, {first, last});
      if (!error.empty()) {
         errors.push_back(error);
      }
      first = last;
   }
   return errors;
}

// What a port counted at a point for a reason.
struct PortDrops::Drop {
   Kiln::String intf;
   std::size_t point;
   U32 reason;
   TableView::Cell cell;
   U64 packets;
   std::size_t rank = 0; // of the port
};

// What a port dropped in all, the same frames not again by where they were lost in the end; and its drops, of the ports'.
struct PortDrops::PortTotal {
   U64 packets = 0;
   std::size_t first;
   std::size_t last;
};

// The worst first.
PortDrops::PortTotal PortDrops::addDrops(const ChipAccess::Port& port, const DropOptions& options,
                                         std::vector<Drop>* drops) {
   const PortDropCounts& atPoints = counts(port);
   PortTotal total{0, drops->size(), 0};
   for (std::size_t point = 0; point < atPoints.size(); ++point) {
      if (static_cast<Point>(point) == Point::final && !options.isFinalShown) {
         continue; // the same frames again, by where they were lost in the end
      }
      for (U32 reason = 0; reason < reasonsPerPort; ++reason) {
         const U64 packets = atPoints[point].sinceClear(reason);
         if (static_cast<Point>(point) != Point::final) {
            total.packets += std::min(packets, ~total.packets); // stays at the top
         }
         // Reasons without a name are shown only when they count something.
         if (packets != 0 || (!options.nonZeroOnly && reason < ZlDrop::tables[point].reasons.size())) {
            drops->push_back({port.intf.text(), point, reason, cellOf(atPoints[point], reason), packets});
         }
      }
   }
   total.last = drops->size();
   std::sort(drops->begin() + static_cast<std::ptrdiff_t>(total.first), drops->end(),
             [](const Drop& a, const Drop& b) {
                return std::tie(b.packets, a.point, a.reason) < std::tie(a.packets, b.point, b.reason);
             });
   return total;
}

// The worst first, and ports by what they dropped in all. Where they are alike, in the order of ports, points and reasons.
std::vector<PortDrops::Drop> PortDrops::drops(std::span<const ChipAccess::Port> ports,
                                              const DropOptions& options) {
   std::vector<Drop> all;
   std::vector<PortTotal> totals;
   for (const ChipAccess::Port& port : ports) {
      totals.push_back(addDrops(port, options, &all));
   }
   std::ranges::sort(totals, [](const PortTotal& a, const PortTotal& b) {
      return a.packets != b.packets ? a.packets > b.packets : a.first < b.first;
   });
   std::vector<Drop> sorted;
   sorted.reserve(all.size());
   for (std::size_t rank = 0; rank < totals.size(); ++rank) {
      for (std::size_t at = totals[rank].first; at < totals[rank].last; ++at) {
         sorted.push_back(std::move(all[at]));
         sorted.back().rank = rank;
      }
   }
   return sorted;
}

// How much, and why: what all the ports dropped, by reason.
TableView PortDrops::reasonsView(std::span<const Drop> drops, const DropOptions& options) const {
   TableView table{"Drops by reason, chip " + chip().chipName(),
                   {{"Point", Holds::text, 7}, {"Reason", Holds::text, 24}, {"Packets", Holds::counter, 16}}};
   std::map<std::pair<std::size_t, U32>, U64> byReason;
   for (const Drop& drop : drops) {
      if (drop.packets != 0) {
         byReason[{drop.point, drop.reason}] += drop.packets;
      }
   }
   std::vector<std::pair<U64, std::pair<std::size_t, U32>>> worst;
   for (const auto& [which, packets] : byReason) {
      worst.emplace_back(packets, which);
   }
   std::ranges::sort(worst, isWorse<std::pair<std::size_t, U32>>);
   for (std::size_t rank = 0; rank < worst.size() && rank < options.top; ++rank) {
      const auto& [point, reason] = worst[rank].second;
      const ZlDrop::Table& reasons = ZlDrop::tables[point];
      table.rows.push_back(
           {Kiln::String(reasons.point), reasonText(reasons, reason), U64{worst[rank].first}});
   }
   return table;
}

TableView PortDrops::portsView(std::span<const Drop> drops, const DropOptions& options,
                               Slices& slices) const {
   TableView table{"Drops by port, chip " + chip().chipName(),
                   {{"Interface", Holds::text, 16},
                    {"Point", Holds::text, 7},
                    {"Reason", Holds::text, 24},
                    {"Packets", Holds::counter, 16}}};
   for (const Drop& drop : drops) {
      if (drop.rank < options.top) {
         const ZlDrop::Table& reasons = ZlDrop::tables[drop.point];
         table.rows.push_back(
              {drop.intf, Kiln::String(reasons.point), reasonText(reasons, drop.reason), drop.cell});
         slices.next();
      }
   }
   return table;
}

std::vector<ToldReading> PortDrops::toldReadings(std::span<const ChipAccess::Port> ports) const {
   std::vector<ToldReading> told;
   for (const Point point : {Point::ingress, Point::egress, Point::final}) {
      const ZlTableCounter* info = nullptr;
      if (tableError(point, &info).empty()) {
         for (const U16 pipe : pipesOf(ports)) {
            told.push_back(toldTable(*info, pipe, clears().last(static_cast<U32>(point), pipe)));
         }
      }
   }
   return told;
}

void PortDrops::showAll(ShowOutput& out, bool nonZeroOnly) {
   show(out, {.nonZeroOnly = nonZeroOnly});
}

void PortDrops::show(ShowOutput& out, const DropOptions& options) {
   if (answeredUninitialized(out)) {
      return;
   }
   Slices slices(chip());
   const std::vector<ChipAccess::Port> shown = ports(options.intf);
   std::vector<Kiln::String> errors;
   if (!shown.empty() || options.intf.empty()) {
      errors = read(shown);
   } else {
      errors = {"Interface " + options.intf.text() + " has no port on chip " + chip().chipName()};
   }
   const std::vector<ToldReading> told = toldReadings(shown);
   // All counts are of one moment, and copied: ports may come and go from here on.
   const std::vector<Drop> drops = this->drops(shown, options);
   slices.next();
   // Of a single interface both would say the same.
   if (options.intf.empty()) {
      TableView reasons = reasonsView(drops, options);
      reasons.readings = told;
      reasons.isSinceClear = true;
      out.view(reasons);
   }
   TableView byPort = portsView(drops, options, slices);
   byPort.notes = errors;
   byPort.readings = told;
   byPort.isSinceClear = true;
   out.view(byPort);
}

void PortDrops::clearAll(ShowOutput& out) {
   if (answeredUninitialized(out)) {
      return;
   }
   const std::vector<ChipAccess::Port> all = ports({});
   // What was dropped since the last read belongs to the time before the clear.
   tellErrors(out, read(all));
   for (const ChipAccess::Port& port : all) {
      for (Vex::ShownCounts<1>& atPoint : counts(port)) {
         atPoint.clear();
      }
   }
   for (const Point point : {Point::ingress, Point::egress, Point::final}) {
      clears().cleared(static_cast<U32>(point), ZelId::ZelPipeId::allPipes());
   }
}

// Before the first sync there is nothing to read yet, and nothing to tell.
void PortDrops::readOnceMore(ShowOutput& out, const ZlTableCounter& info, ZelId::ZelPipeId pipe) {
   const std::optional<Point> point = pointOf(info);
   const ZlTableCounter* unused = nullptr;
   if (!point || !tableError(*point, &unused).empty()) {
      return;
   }
   std::vector<ChipAccess::Port> atPipe = ports({});
   std::erase_if(atPipe, [&](const ChipAccess::Port& port) {
      return pipe != ZelId::ZelPipeId::allPipes() && ZlPort::pipeOf(port.devicePort) != pipe;
   });
   tellErrors(out, readPoint(*point, atPipe));
}

U32 PortDrops::entriesOf(const ZlTableCounter& info) {
   return pointOf(info) && !info.direct ? ZlDrop::tableSize : 0;
}

void PortDrops::tableWritten(const ZlTableCounter& info, ZelId::ZelPipeId pipe) {
   if (const std::optional<Point> point = pointOf(info)) {
      data_->tableWritten(chip().deviceId(), pipe, *point);
   }
}

} // namespace ZelCounter
