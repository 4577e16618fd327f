// Keeps the two snapshots of each interface, and shows the latest less the cleared.
#include "counters/mac/MacCounters.h"

#include "counters/chip/Slices.h"
#include "counters/chip/ZelCountersTrace.h"
#include "kiln/Assert.h"
#include "kiln/RingLog.h"
#include "sdk/bf_port.h"
#include "silo/Prefetch.h"

#include <array>

namespace ZelCounter {

namespace {

constexpr TableView::Column columns[] = {{"Counter", TableView::Holds::text},
                                         {"Value", TableView::Holds::counter}};

} // namespace

void MacCounters::updateCounters(const Pelt::IntfId& intf, const bf_rmon_counter_array_t& counters) {
   const ZelSystem::PortRecord* const record = chip().systemStatus()->portInfo().findInPass(intf);
   if (record == nullptr) {
      // The port went while its read was under way. Storing it would make the interface known to commands again.
      KILN_RINGLOG_TRACE(4, " intfId missing in systemStatus::portInfo[] for " << intf);
      return;
   }
   KILN_TRACE(4, "updateCounters"
                      << ", intf: " << intf << ", portId: " << record->devicePort);
   // Raw from here on: this runs for every port on every pass, and a counted pointer costs more than the lookup.
   const Kiln::Ptr<IntfCounters>* const known = macCountersLast().findInPass(intf);
   IntfCounters* last = known != nullptr ? known->ptr() : nullptr;
   if (last != nullptr && last->devicePort() != record->devicePort) {
      handlePort(intf);
      last = nullptr;
   }
   if (last == nullptr) {
      KILN_RINGLOG_TRACE(4, "Initialize counters for intf " << intf);
      const Kiln::Ptr<IntfCounters> cl = intfCountersFactory(intf);
      KILN_ASSERT(cl);
      cl->devicePortIs(record->devicePort);
      macCountersLastIs(intf, cl);
      last = cl.ptr();
   }
   // A new clear snapshot reads 0 throughout: until the first clear, shows have the hardware's totals.
   if (macCountersClear().findInPass(intf) == nullptr) {
      KILN_RINGLOG_TRACE(4, "Initialize clear counters for intf " << intf);
      const Kiln::Ptr<IntfCounters> cc = intfCountersFactory(intf);
      KILN_ASSERT(cc);
      macCountersClearIs(intf, cc);
   }
   if (const Kiln::Ptr<IntfCounters>* const next = macCountersLast().nextInPass()) {
      Silo::prefetch(next->ptr(), sizeof(IntfCounters));
   }
   last->countersAre(counters);
}

void MacCounters::handlePort(const Pelt::IntfId& intf) {
   const ZelSystem::PortRecord* const port = chip().systemStatus()->portInfo().find(intf);
   const Kiln::Ptr<IntfCounters> last = macCountersLast(intf);
   if (port != nullptr && last &&
       (port->devId != chip().deviceId() || port->devicePort != last->devicePort())) {
      // Another interface may have been read at the place that this one left long ago.
      if (chip()
               .systemStatus()
               ->portToIntfId(chip().deviceId(), ZelId::PortIndex(last->devicePort()))
               .empty()) {
         chip().readings().forget({ReadingKey::Kind::mac, last->devicePort()});
      }
      macCountersLastDel(intf);
      macCountersClearDel(intf);
      cleared_.erase(intf);
   }
}

void MacCounters::show(ShowOutput& out, const Pelt::IntfId& intf, bool nonZeroOnly) {
   KILN_TRACE(8, "ZelCounters::"
                      << "showMacCounters"
                      << ", intf: " << intf << ", nonZeroOnly: " << nonZeroOnly);
   if (answeredUninitialized(out)) {
      return;
   }
   const Kiln::Ptr<IntfCounters> last = macCountersLast(intf);
   const Kiln::Ptr<IntfCounters> clear = macCountersClear(intf);
   const ZelSystem::PortRecord& port = chip().systemStatus()->portInfo(intf);
   if (!last || !clear) {
      if (port.devId == chip().deviceId()) {
         out.reading(told(intf.text(), {ReadingKey::Kind::mac, port.devicePort}), false);
      }
      return; // never read: nothing at all is shown, not even a heading
   }
   // 456 for an interface that was read and has lost its port since.
   const U16 devicePort = port.devicePort;
   out.tableBegin({"Intf " + intf.text() + " (" + std::to_string(devicePort) + ")", columns, TableLayout::mac,
                   HeadingTime::withFirstRow});
   for (std::size_t i = 0; i < BF_NUM_RMON_COUNTERS; ++i) {
      if (clear->counters(i) > last->counters(i)) {
         // The hardware counted backwards, as after a port reset: from here on the raw totals are shown. All 89, since
         // a reset spares none; rows that were written before this one stay as they are.
         KILN_TRACE(8, "showMacCounters"
                            << ", clearing macCountersClear for intf " << intf);
         clear->countersAre(bf_rmon_counter_array_t{});
         cleared_.erase(intf);
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
   const Agent::CommandOrigin* const cleared = cleared_.find(intf);
   out.reading(told(intf.text(), {ReadingKey::Kind::mac, last->devicePort()},
                    cleared != nullptr ? Cleared(*cleared) : std::nullopt));
   out.tableEnd();
}

void MacCounters::showAll(ShowOutput& out, bool nonZeroOnly) {
   KILN_TRACE(8, "ZelCounters::"
                      << "showAllMacCounters");
   if (answeredUninitialized(out)) {
      return;
   }
   Slices slices(chip());
   for (const ChipAccess::Port& port : chip().portsByNumber()) {
      if (!out.ok() || !slices.next()) {
         return;
      }
      if (chip().hasPort(port.intf)) { // it may have gone meanwhile
         show(out, port.intf, nonZeroOnly);
      }
   }
   out.blankLine();
}

void MacCounters::clear(ShowOutput& out, const Pelt::IntfId& intf) {
   KILN_TRACE(8, "ZelCounters::"
                      << "clearMacCounters"
                      << ", intf: " << intf);
   if (answeredUninitialized(out)) {
      return;
   }
   const Kiln::Ptr<IntfCounters> last = macCountersLast(intf);
   const Kiln::Ptr<IntfCounters> clear = macCountersClear(intf);
   if (last && clear) {
      for (std::size_t i = 0; i < BF_NUM_RMON_COUNTERS; ++i) {
         clear->countersIs(i, last->counters(i));
      }
      cleared_.set(intf, Agent::CommandOrigin::current());
   }
}

void MacCounters::clearAll(ShowOutput& out) {
   // By the snapshots, not by the ports: an interface that has lost its port can still be shown, so it is cleared as
   // well.
   Slices slices(chip());
   for (const Pelt::IntfId& intf : macCountersClear().keys()) {
      if (!slices.next()) {
         return;
      }
      clear(out, intf);
   }
}

} // namespace ZelCounter
