// Reads the three drop tables port by port. They are counter tables like others: what is read is the SDK's software
// copy, at most one sync pass old.
#include "counters/drops/PortDrops.h"

#include "counters/chip/IndirectRead.h"
#include "counters/chip/SdkStatus.h"
#include "counters/chip/ZelCountersTrace.h"

#include <algorithm>
#include <string>

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

TableView PortDrops::view(const Pelt::IntfId& intf, bool nonZeroOnly) {
   TableView table{"Drops by port since the last clear, chip " + chip().chipName(),
                   {{"Interface", Holds::text, 16},
                    {"Point", Holds::text, 7},
                    {"Reason", Holds::text, 24},
                    {"Packets", Holds::counter, 16}}};
   const std::vector<ChipAccess::Port> shown = ports(intf);
   if (shown.empty() && !intf.empty()) {
      table.notes.push_back("Interface " + intf.text() + " has no port on chip " + chip().chipName());
      return table;
   }
   table.notes = read(shown);
   for (const ChipAccess::Port& port : shown) {
      const PortDropCounts& drops = counts(port);
      for (std::size_t point = 0; point < drops.size(); ++point) {
         const ZlDrop::Table& reasons = ZlDrop::tables[point];
         for (U32 reason = 0; reason < reasonsPerPort; ++reason) {
            const U64 packets = drops[point].sinceClear(reason);
            // Reasons without a name are shown only when they count something.
            const bool isShown = packets != 0 || (!nonZeroOnly && reason < reasons.reasons.size());
            if (isShown) {
               table.rows.push_back({port.intf.text(), Kiln::String(reasons.point),
                                     reasonText(reasons, reason), cellOf(drops[point], reason)});
            }
         }
      }
   }
   return table;
}

void PortDrops::showAll(ShowOutput& out, bool nonZeroOnly) {
   show(out, {}, nonZeroOnly);
}

void PortDrops::show(ShowOutput& out, const Pelt::IntfId& intf, bool nonZeroOnly) {
   if (!answeredUninitialized(out)) {
      out.view(view(intf, nonZeroOnly));
   }
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

void PortDrops::tableWritten(const ZlTableCounter& info, ZelId::ZelPipeId pipe) {
   if (const std::optional<Point> point = pointOf(info)) {
      data_->tableWritten(chip().deviceId(), pipe, *point);
   }
}

} // namespace ZelCounter
