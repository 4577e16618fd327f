// The MAC counter commands of a chip.
#include "counters/ZelCounters.h"
#include "counters/chip/PortSorter.h"
#include "counters/chip/ZelCountersTrace.h"
#include "counters/show/TextShow.h"
#include "kiln/Assert.h"

#include <array>
#include <string>

namespace ZelCounter {

namespace {

constexpr TableView::Column columns[] = {{"Counter", TableView::Holds::text},
                                         {"Value", TableView::Holds::counter}};

} // namespace

void ZelCounters::showMacCounters(U32 fd, const Pelt::IntfId& intf, bool nonZeroOnly) {
   TextShow out(fd, echo());
   showMacCounters(out, intf, nonZeroOnly);
}

void ZelCounters::showMacCounters(ShowOutput& out, const Pelt::IntfId& intf, bool nonZeroOnly) {
   KILN_TRACE(8, "ZelCounters::"
                      << "showMacCounters"
                      << ", intf: " << intf << ", nonZeroOnly: " << nonZeroOnly);
   if (answeredUninitialized(out)) {
      return;
   }
   const Kiln::Ptr<IntfCounters> last = macCountersLast(intf);
   const Kiln::Ptr<IntfCounters> clear = macCountersClear(intf);
   if (!last || !clear) {
      return;
   }
   out.tableBegin(
        {"Intf " + intf.text() + " (" + std::to_string(systemStatus()->portInfo(intf).devicePort) + ")",
         columns, TableLayout::mac, HeadingTime::withFirstRow});
   for (std::size_t i = 0; i < BF_NUM_RMON_COUNTERS; ++i) {
      if (clear->counters(i) > last->counters(i)) {
         // The hardware counted backwards, as after a port reset: from here on the raw totals are shown.
         KILN_TRACE(8, "showMacCounters"
                            << ", clearing macCountersClear for intf " << intf);
         clear->countersAre(bf_rmon_counter_array_t{});
      }
      const U64 value = last->counters(i) - clear->counters(i);
      if (nonZeroOnly && value == 0) {
         continue;
      }
      const char* name = nullptr;
      const bf_status_t rc = bf_port_rmon_counter_to_str(static_cast<int>(i), &name);
      KILN_ASSERT(rc == BF_SUCCESS);
      out.row(std::array<TableView::Cell, 2>{Kiln::String(name), value});
   }
   out.tableEnd();
}

void ZelCounters::showAllMacCounters(U32 fd, bool nonZeroOnly) {
   TextShow out(fd, echo());
   showAllMacCounters(out, nonZeroOnly);
}

void ZelCounters::showAllMacCounters(ShowOutput& out, bool nonZeroOnly) {
   KILN_TRACE(8, "ZelCounters::"
                      << "showAllMacCounters");
   if (answeredUninitialized(out)) {
      return;
   }
   PortSorter sorter;
   for (const auto& [intf, record] : systemStatus()->portInfo()) {
      if (record.devId == deviceId()) {
         sorter.entryIdIs(record.devicePort, intf);
      }
   }
   for (const auto& [port, intf] : sorter.entryId()) {
      showMacCounters(out, intf, nonZeroOnly);
   }
   out.blankLine();
}

void ZelCounters::clearMacCounters(U32 fd, const Pelt::IntfId& intf) {
   KILN_TRACE(8, "ZelCounters::"
                      << "clearMacCounters"
                      << ", intf: " << intf);
   TextShow out(fd, echo());
   if (answeredUninitialized(out)) {
      return;
   }
   const Kiln::Ptr<IntfCounters> last = macCountersLast(intf);
   const Kiln::Ptr<IntfCounters> clear = macCountersClear(intf);
   if (last && clear) {
      for (std::size_t i = 0; i < BF_NUM_RMON_COUNTERS; ++i) {
         clear->countersIs(i, last->counters(i));
      }
   }
}

void ZelCounters::clearAllMacCounters(U32 fd) {
   for (const Pelt::IntfId& intf : macCountersClear().keys()) {
      clearMacCounters(fd, intf);
   }
}

} // namespace ZelCounter
