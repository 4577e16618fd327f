// The port drop counters of a chip: what was dropped of which interface's frames, and why.
#include "counters/ZelCounters.h"
#include "counters/chip/PortSorter.h"
#include "counters/chip/SdkStatus.h"
#include "counters/chip/ZelCountersTrace.h"
#include "counters/drops/CliPortDropData.h"
#include "counters/show/TextShow.h"
#include "zl/ZelCountersIntf.h"

#include <algorithm>
#include <string>

namespace ZelCounter {

namespace {

using Holds = TableView::Holds;
using ZlDrop::Point;
using ZlDrop::reasonsPerPort;
using ZlResourceInfo::ZlTableCounter;

// A number that the program has given no meaning is shown as such.
Kiln::String reasonText(const ZlDrop::Table& table, U32 reason) {
   return reason < table.reasons.size() ? table.reasons[reason] : "reason " + std::to_string(reason);
}

Kiln::String errorText(U32 status, const ZlTableCounter& info, U32 pipe) {
   return pipeReadErrorText(static_cast<int>(status), pipe) + ", " + info.name;
}

} // namespace

// The ports in the order of their numbers.
std::vector<ZelCounters::DropPort> ZelCounters::dropPorts(const Pelt::IntfId& intf) const {
   PortSorter sorter;
   for (const auto& [known, record] : systemStatus()->portInfo()) {
      if (record.devId == deviceId() && (intf.empty() || known == intf)) {
         sorter.entryIdIs(record.devicePort, known);
      }
   }
   std::vector<DropPort> ports;
   for (const auto& [port, known] : sorter.entryId()) {
      ports.push_back({known, static_cast<U16>(port)});
   }
   return ports;
}

// What is wrong with the table, or nothing.
Kiln::String ZelCounters::dropTableError(Point point, const ZlTableCounter** info) const {
   const char* const name = ZlDrop::tables[static_cast<std::size_t>(point)].name;
   const U32 id =
        zlResourceInfoIntf() ? zlResourceInfoIntf()->zlTableCounterIndex(name) : ZlResourceInfo::notFound;
   if (id == ZlResourceInfo::notFound) {
      return Kiln::String("Chip ") + chipName() + " has no counter table " + name;
   }
   *info = zlResourceInfoIntf()->zlTableCounter(id);
   if ((*info)->direct || (*info)->size < ZlDrop::tableSize) {
      return Kiln::String("Counter table ") + name + " does not have " + std::to_string(ZlDrop::tableSize) +
             " entries of its own";
   }
   if (!initializedCounter(id) || !firstPollingComplete()) {
      return Kiln::String("Counter table ") + name + " not initialized yet";
   }
   return perPipeCounter(id) ? "" : Kiln::String("Counter table ") + name + " does not tell pipes apart";
}

// The ports are of one pipe.
Kiln::String ZelCounters::readPortDrops(Point point, const ZlTableCounter& info,
                                        std::span<const DropPort> ports) {
   const auto pipe = ZlPort::pipeOf(ports.front().devicePort);
   ZelCountersIntf::ReadBuffer buffer;
   U32 status =
        ZelCountersIntf::counterReadIndirectStart(sessionId(), deviceId(), pipe, info.tableHandle, &buffer);
   for (std::size_t i = 0; i < ports.size() && status == 0; ++i) {
      const U16 devicePort = ports[i].devicePort;
      ClearableCounts& counts =
           context_.cliPortDropData->portDropsIs(deviceId(), devicePort)[static_cast<std::size_t>(point)];
      for (U32 reason = 0; reason < reasonsPerPort && status == 0; ++reason) {
         p4_pd_counter_value value{};
         status = ZelCountersIntf::counterReadIndirectMain(
              sessionId(), deviceId(), pipe, info.tableHandle,
              ZlDrop::entryIndex(ZlPort::slotOf(devicePort), reason), &buffer, &value);
         if (status == 0) {
            counts.lastIs(reason, value.packets);
         }
      }
   }
   if (status == 0) {
      status = ZelCountersIntf::counterReadIndirectEnd(sessionId());
   }
   if (status == 0) {
      return "";
   }
   KILN_TRACE(4, errorText(status, info, pipe));
   return errorText(status, info, pipe) + ": shown as last read";
}

std::vector<Kiln::String> ZelCounters::readDrops(std::span<const DropPort> ports) {
   std::vector<Kiln::String> errors;
   for (const Point point : {Point::ingress, Point::egress, Point::final}) {
      const ZlTableCounter* info = nullptr;
      const Kiln::String tableError = dropTableError(point, &info);
      if (!tableError.empty()) {
         errors.push_back(tableError);
         continue;
      }
      for (auto first = ports.begin(); first != ports.end();) {
         const auto last = std::find_if(first, ports.end(), [&](const DropPort& port) {
            return ZlPort::pipeOf(port.devicePort) != ZlPort::pipeOf(first->devicePort);
         });
         const Kiln::String error = readPortDrops(point, *info, {first, last});
         if (!error.empty()) {
            errors.push_back(error);
         }
         first = last;
      }
   }
   return errors;
}

TableView ZelCounters::dropView(const Pelt::IntfId& intf, bool nonZeroOnly) {
   TableView view{"Drops by port since the last clear, chip " + chipName(),
                  {{"Interface", Holds::text, 16},
                   {"Point", Holds::text, 7},
                   {"Reason", Holds::text, 24},
                   {"Packets", Holds::counter, 16}}};
   const std::vector<DropPort> ports = dropPorts(intf);
   if (ports.empty() && !intf.empty()) {
      view.notes.push_back("Interface " + intf.text() + " has no port on chip " + chipName());
      return view;
   }
   view.notes = readDrops(ports);
   for (const DropPort& port : ports) {
      const PortDrops& drops = context_.cliPortDropData->portDropsIs(deviceId(), port.devicePort);
      for (std::size_t point = 0; point < drops.size(); ++point) {
         const ZlDrop::Table& table = ZlDrop::tables[point];
         for (U32 reason = 0; reason < reasonsPerPort; ++reason) {
            const U64 packets = drops[point].sinceClear(reason);
            const bool isShown = packets != 0 || (!nonZeroOnly && reason < table.reasons.size());
            if (isShown) {
               view.rows.push_back({port.intf.text(), Kiln::String(table.point), reasonText(table, reason),
                                    drops[point].cell(reason)});
            }
         }
      }
   }
   return view;
}

void ZelCounters::showAllDropCounters(U32 fd, bool nonZeroOnly) {
   TextShow out(fd, echo());
   showAllDropCounters(out, nonZeroOnly);
}

void ZelCounters::showAllDropCounters(ShowOutput& out, bool nonZeroOnly) {
   showView(out, [&] { return dropView({}, nonZeroOnly); });
}

void ZelCounters::showDropCounters(U32 fd, const Pelt::IntfId& intf, bool nonZeroOnly) {
   TextShow out(fd, echo());
   showDropCounters(out, intf, nonZeroOnly);
}

void ZelCounters::showDropCounters(ShowOutput& out, const Pelt::IntfId& intf, bool nonZeroOnly) {
   showView(out, [&] { return dropView(intf, nonZeroOnly); });
}

void ZelCounters::clearAllDropCounters(U32 fd) {
   clearWith(fd, [this] {
      const std::vector<DropPort> ports = dropPorts({});
      readDrops(ports);
      for (const DropPort& port : ports) {
         for (ClearableCounts& counts : context_.cliPortDropData->portDropsIs(deviceId(), port.devicePort)) {
            counts.clear();
         }
      }
   });
}

void ZelCounters::dropTableWritten(const ZlTableCounter& info, ZelId::ZelPipeId pipe) {
   for (std::size_t point = 0; point < ZlDrop::tables.size(); ++point) {
      if (info.name == ZlDrop::tables[point].name) {
         context_.cliPortDropData->tableWritten(deviceId(), pipe, static_cast<Point>(point));
      }
   }
}

} // namespace ZelCounter
