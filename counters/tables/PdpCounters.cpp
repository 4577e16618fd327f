// Reads each pipe's block of the PDP class table, and shows it less the last clear.
#include "counters/tables/PdpCounters.h"

#include "counters/chip/CounterTableNames.h"
#include "counters/chip/IndirectRead.h"
#include "counters/chip/Slices.h"
#include "counters/chip/ZelCountersTrace.h"
#include "kiln/Assert.h"
#include "zl/ZlPortLayout.h"

#include <array>
#include <map>

namespace ZelCounter {

namespace {

using ZelQos::PdpClassId;
using ZelQos::PdpIntfCounter;

// Each pipe's block of the table has an entry for each class of each port slot.
constexpr U32 pdpClasses = PdpIntfCounter::classes;
constexpr U32 pdpCounterMaxEntry = ZlPort::pdpTableSize - 1;

const Kiln::String defaultClassName = "default";

constexpr const char* title = "PDP Class Counters";

constexpr TableView::Column columns[] = {{"Interface", TableView::Holds::text},
                                         {"Class", TableView::Holds::text},
                                         {"Packets", TableView::Holds::counter}};

using Line = std::array<TableView::Cell, std::size(columns)>;

} // namespace

// The interface and its counts, made when the port is new; nulls for an empty slot.
PdpCounters::Counter PdpCounters::counterOf(U32 localPortKey) {
   const auto key = static_cast<U16>(localPortKey);
   const Pelt::IntfId* const intf =
        chip().chipStatus() ? chip().chipStatus()->portToIntfId().find(key) : nullptr;
   if (intf == nullptr) {
      return {};
   }
   const U16* const knownKey = portKey_.find(*intf);
   // While the chip status follows a move, it may list the interface at both slots: it has moved, and is counted at the
   // new one, only when the old one isn't its own any more. What was cleared there says nothing of this one.
   const bool hasMoved = knownKey != nullptr && *knownKey != key;
   if (hasMoved && chip().chipStatus()->portToIntfId(*knownKey) == *intf) {
      return {};
   }
   if (!pdpCountersLast().contains(*intf) || hasMoved) {
      pdpCountersLastIs(*intf, Kiln::allocate<PdpIntfCounter>());
      pdpCountersClearIs(*intf, Kiln::allocate<PdpIntfCounter>());
   }
   if (knownKey == nullptr || hasMoved) {
      portKey_.set(*intf, key);
   }
   return {pdpCountersLast(*intf).ptr(), intf};
}

// After a fall, what the class had is no longer in the subtraction of the clear: modulo 2^64, the clear takes it.
void PdpCounters::handleFall(const Counter& counter, PdpClassId pdpClass) {
   if (!pdpCountersClear().contains(*counter.intf)) {
      pdpCountersClearIs(*counter.intf, Kiln::allocate<PdpIntfCounter>());
   }
   const Kiln::Ptr<PdpIntfCounter> clear = pdpCountersClear(*counter.intf);
   clear->classCountIs(pdpClass, clear->classCount(pdpClass) - counter.last->classCount(pdpClass));
}

// False after a failed read. What was read before it stays in pdpCountersLast, but isn't shown until a fetch succeeds.
bool PdpCounters::fetchPipe(const ZlResourceInfo::ZlTableCounter& info, U16 pipe) {
   IndirectRead read(chip(), pipe, info.tableHandle);
   U32 status = read.start();
   if (status != 0) {
      KILN_TRACE(4, "Indirect start error: " << static_cast<int>(status));
      return false;
   }
   KILN_ASSERT_TEXT(info.size >= pdpCounterMaxEntry + 1, "info->size >= pdpCounterMaxEntry + 1");
   Counter counter;
   for (U32 index = 0; index <= pdpCounterMaxEntry; ++index) {
      p4_pd_counter_value value{};
      status = read.entry(index, &value);
      if (status != 0) {
         KILN_TRACE(4, "Indirect main error: " << static_cast<int>(status));
         return false;
      }
      const U32 pdpClass = index % pdpClasses;
      // One look-up a slot, not one an entry.
      if (pdpClass == 0) {
         counter = counterOf(ZlPort::devicePort(pipe, index / pdpClasses));
      }
      if (counter.last != nullptr) {
         const PdpClassId id(pdpClass);
         if (value.packets < counter.last->classCount(id)) {
            handleFall(counter, id);
         }
         counter.last->classCountIs(id, value.packets);
      }
   }
   status = read.end();
   if (status != 0) {
      KILN_TRACE(4, "Indirect end error: " << static_cast<int>(status));
   }
   return status == 0;
}

void PdpCounters::fetch() {
   const U32 pdpCounterTableId = chip().zlResourceInfoIntf()->zlTableCounterIndex(TableNames::pdpClassCount);
   KILN_ASSERT(pdpCounterTableId != 0xFFFFFFF);
   // Before anything can fail, so that old counts are never shown as if they were of this fetch.
   pdpCountersFetchedIs(false);
   if (!chip().initializedCounter(pdpCounterTableId)) {
      KILN_TRACE(4, "Counters not initialized yet");
      return;
   }
   if (!chip().firstPollingComplete()) {
      KILN_TRACE(4, "First polling still pending");
      return;
   }
   KILN_ASSERT_TEXT(chip().perPipeCounter(pdpCounterTableId), "perPipeCounter( pdpCounterTableId )");
   const ZlResourceInfo::ZlTableCounter* const info =
        chip().zlResourceInfoIntf()->zlTableCounter(pdpCounterTableId);
   KILN_ASSERT(info);
   KILN_ASSERT(!info->direct);
   KILN_ASSERT(info->packets);
   for (const U16 pipe : chip().pipes()) {
      if (!fetchPipe(*info, pipe)) {
         return;
      }
   }
   pdpCountersFetchedIs(true);
   KILN_TRACE(4, "ZelCounters::"
                      << "fetchPdpCounters"
                      << " complete");
}

void PdpCounters::printHeader(ShowOutput& out) {
   out.tableBegin({title, columns, TableLayout::pdpInterface});
}

void PdpCounters::answerNotFetched(ShowOutput& out) {
   out.noTable(title, "PDP counters not fetched yet");
}

bool PdpCounters::printLine(ShowOutput& out, const Kiln::String& intfName, const Kiln::String& className,
                            U64 count, bool headerDisplayed, bool nonZeroOnly) {
   if (nonZeroOnly && count == 0) {
      return headerDisplayed;
   }
   // Without nonZeroOnly the caller prints the header, and the answer deliberately stays as it came.
   const bool owesHeader = nonZeroOnly && !headerDisplayed;
   out.tableBegin({title, columns, TableLayout::pdpInterface,
                   owesHeader ? HeadingTime::withFirstRow : HeadingTime::before});
   out.row(Line{intfName, className, count});
   return headerDisplayed || owesHeader;
}

// Of the interface's pipe, or of all.
std::vector<ToldReading> PdpCounters::toldReadings(const Pelt::IntfId& intf) const {
   const ZlResourceInfo::ZlResourceInfoIntf& catalogue = *chip().zlResourceInfoIntf();
   const auto* const info =
        catalogue.zlTableCounter(catalogue.zlTableCounterIndex(TableNames::pdpClassCount));
   const bool hasPort = !intf.empty() && chip().hasPort(intf);
   std::vector<ToldReading> told;
   for (const U16 pipe :
        chip().pipes(hasPort ? std::optional(chip().systemStatus()->portInfo(intf).pipe()) : std::nullopt)) {
      told.push_back(toldTable(*info, pipe, cleared_));
   }
   return told;
}

void PdpCounters::tellReadings(ShowOutput& out, const std::vector<ToldReading>& readings) {
   for (const ToldReading& told : readings) {
      out.reading(told);
   }
}

bool PdpCounters::show(ShowOutput& out, const Pelt::IntfId& intf, bool headerDisplayed, bool nonZeroOnly,
                       bool footer) {
   if (!pdpCountersFetched()) {
      tellReadings(out, toldReadings());
      answerNotFetched(out);
      return headerDisplayed;
   }
   out.tableBegin({title, columns, TableLayout::pdpInterface,
                   headerDisplayed ? HeadingTime::before : HeadingTime::withFirstRow});
   const bool hasRows = rows(out, intf, countsOf(intf), nonZeroOnly);
   tellReadings(out, toldReadings(intf));
   out.tableEnd(footer);
   return headerDisplayed || hasRows;
}

// As fetched last, since the last clear.
PdpCounters::Counts PdpCounters::countsOf(const Pelt::IntfId& intf) const {
   const Kiln::Ptr<PdpIntfCounter> last = pdpCountersLast(intf);
   KILN_ASSERT(last);
   const Kiln::Ptr<PdpIntfCounter> clear = pdpCountersClear(intf);
   KILN_ASSERT(clear);
   Counts counts = last->classCount();
   for (std::size_t i = 0; i < counts.size(); ++i) {
      counts[i] -= clear->classCount()[i];
   }
   return counts;
}

// True when there were any. "default" is always the last row, also when the mapping lists it; without a mapping it is
// the only one.
bool PdpCounters::rows(ShowOutput& out, const Pelt::IntfId& intf, const Counts& counts,
                       bool nonZeroOnly) const {
   bool hasRows = false;
   const auto addClass = [&](const Kiln::String& className, PdpClassId pdpClass) {
      const U64 count = counts[pdpClass.value()];
      if (!nonZeroOnly || count != 0) {
         out.row(Line{intf.text(), className, count});
         hasRows = true;
      }
   };
   PdpClassId defaultClass;
   if (const auto& mapping = chip().systemStatus()->qosToZelPdpClassMapping()) {
      for (const auto& [className, pdpClass] : mapping->zelPdpClass()) {
         addClass(className, pdpClass);
      }
      defaultClass = mapping->zelPdpClass(defaultClassName);
   }
   addClass(defaultClassName, defaultClass);
   KILN_TRACE(8, "Show pdp intf counters complete");
   return hasRows;
}

void PdpCounters::showAll(ShowOutput& out, bool nonZeroOnly) {
   if (!pdpCountersFetched()) {
      tellReadings(out, toldReadings());
      answerNotFetched(out);
      return;
   }
   Slices slices(chip());
   // Ordered, since the port map is in the order in which the ports came. A port that came after the fetch isn't in it.
   // Copies, so that all counts are of one moment: others may fetch and clear from here on.
   std::map<Pelt::IntfId, Counts> shown;
   if (chip().chipStatus()) {
      for (const auto& [key, intf] : chip().chipStatus()->portToIntfId()) {
         if (pdpCountersLast().contains(intf) && chip().hasPort(intf)) {
            shown.emplace(intf, countsOf(intf));
         }
      }
   }
   const std::vector<ToldReading> told = toldReadings();
   out.tableBegin({title, columns, TableLayout::pdpAll, HeadingTime::withFirstRow});
   for (const auto& [intf, counts] : shown) {
      rows(out, intf, counts, nonZeroOnly);
      if (!out.ok() || !slices.next()) {
         break;
      }
   }
   tellReadings(out, told);
   out.tableEnd();
}

void PdpCounters::clearAll() {
   for (const auto& [intf, last] : pdpCountersLast()) {
      if (!pdpCountersClear().contains(intf)) {
         pdpCountersClearIs(intf, Kiln::allocate<PdpIntfCounter>());
      }
      pdpCountersClear(intf)->classCountsAre(last->classCount());
   }
   cleared_ = Agent::CommandOrigin::current();
}

} // namespace ZelCounter
