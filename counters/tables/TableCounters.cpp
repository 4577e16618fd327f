// Reads tables through the SDK's three steps (start, main for each entry, end), and writes them entry by entry.
#include "counters/tables/TableCounters.h"

#include "counters/chip/CounterTableNames.h"
#include "counters/chip/IndirectRead.h"
#include "counters/chip/SdkStatus.h"
#include "counters/chip/ZelCountersTrace.h"
#include "kiln/Assert.h"
#include "sdk/pipe_mgr.h"
#include "zl/ZelCountersIntf.h"

#include <array>
#include <cstdio>
#include <string>

namespace ZelCounter {

namespace {

using ZlResourceInfo::ZlCounterFieldId;
using ZlResourceInfo::ZlTableCounter;

constexpr U32 printedIndexMask = 0x3FFFFFFF; // the layout shows the low 30 bits of an index

using Holds = TableView::Holds;

constexpr TableView::Column catalogueColumns[] = {
     {"Id", Holds::number}, {"Counter", Holds::text},  {"Handle", Holds::text},    {"Size", Holds::number},
     {"Type", Holds::text}, {"Per-pipe", Holds::text}, {"Pkts/Bytes", Holds::text}};
constexpr TableView::Column indirectColumns[] = {
     {"Index", Holds::number}, {"Packets", Holds::counter}, {"Bytes", Holds::counter}};
constexpr TableView::Column detailsColumn{"Details", Holds::text};
constexpr TableView::Column packetsColumn{"Packets", Holds::counter};
constexpr TableView::Column bytesColumn{"Bytes", Holds::counter};

// A direct table has columns for what it counts only; an indirect one always has both, with N/A.
std::vector<TableView::Column> directColumns(const ZlTableCounter& info) {
   if (info.packets && info.bytes) {
      return {detailsColumn, packetsColumn, bytesColumn};
   }
   return {detailsColumn, info.packets ? packetsColumn : bytesColumn};
}

Kiln::String hexText(U32 number) {
   char digits[16];
   std::snprintf(digits, sizeof digits, "%X", number);
   return digits;
}

Kiln::String yesNo(bool truth) {
   return truth ? "Y" : "N";
}

// What the SDK's reads and writes of a table are addressed by.
struct TableTarget {
   U32 session;
   U32 device;
   U16 pipe;
   U32 handle;
};

// Calls visit for each match entry until it returns false. A step that fails ends the walk as the last entry does:
// there is no entry to go on from.
template <class Visit>
void forEachMatchEntry(const TableTarget& table, Visit visit) {
   const dev_target_t target{static_cast<bf_dev_id_t>(table.device), table.pipe};
   int entry = PIPE_MAT_ENT_HDL_NONE;
   pipe_status_t status = pipe_mgr_get_first_entry_handle(table.session, table.handle, target, &entry);
   while (status == 0 && entry != PIPE_MAT_ENT_HDL_NONE && visit(entry)) {
      int next = PIPE_MAT_ENT_HDL_NONE;
      status = pipe_mgr_get_next_entry_handles(table.session, table.handle, target, entry, 1, &next);
      entry = next;
   }
}

// Whether all that the table shows of a value is zero. What it doesn't count may hold anything.
bool isZero(const ZlTableCounter& info, const p4_pd_counter_value& value) {
   return (!info.packets || value.packets == 0) && ((info.packets && !info.bytes) || value.bytes == 0);
}

std::vector<TableView::Cell> directCells(const ZlTableCounter& info, const Kiln::String& details,
                                         const p4_pd_counter_value& value) {
   std::vector<TableView::Cell> cells{details};
   if (info.packets) {
      cells.emplace_back(U64{value.packets});
   }
   if (info.bytes) {
      cells.emplace_back(U64{value.bytes});
   }
   return cells;
}

Kiln::String tableNumber(U32 tableId) {
   return "Counter table " + std::to_string(static_cast<int>(tableId));
}

Kiln::String readError(U32 status) {
   return "Got error " + std::to_string(static_cast<int>(status)) + " retrieving the counters";
}

// For what the fixed text leaves to the trace. JSON has it as a note: there an empty table must not pass for one
// without entries.
void traceError(ShowOutput& out, const char* what, U32 status) {
   const auto number = static_cast<int>(status);
   KILN_TRACE(8, what << number);
   out.unprintedNote(what + std::to_string(number));
}

} // namespace

void TableCounters::showInfo(ShowOutput& out) const {
   out.tableBegin({"Counter tables", catalogueColumns, TableLayout::catalogue});
   const std::vector<ZlTableCounter>* const zlCounters =
        chip().zlResourceInfoIntf() ? chip().zlResourceInfoIntf()->zlTableCounters() : nullptr;
   KILN_ASSERT(zlCounters);
   for (U32 id = 0; id < chip().tablesNum(); ++id) {
      const ZlTableCounter& info = (*zlCounters)[id];
      out.row(std::array<TableView::Cell, std::size(catalogueColumns)>{
           U64{id}, info.name, hexText(info.tableHandle), U64{info.size}, info.direct ? "direct" : "indirect",
           yesNo(chip().perPipeCounter(id)), yesNo(info.packets) + "/" + yesNo(info.bytes)});
   }
   out.tableEnd();
}

void TableCounters::showAll(ShowOutput& out, bool nonZeroOnly) {
   // Once the output takes no more, reading on would be for nobody.
   for (U32 id = 0; id < chip().tablesNum() && out.ok(); ++id) {
      show(out, id, nonZeroOnly);
   }
}

void TableCounters::show(ShowOutput& out, U32 tableId, bool nonZeroOnly) {
   if (!chip().initializedCounter(tableId)) {
      // Once, and not once a pipe: whether the table is read per pipe is not known yet.
      showUninitialized(out, tableId, ZelId::ZelPipeId::allPipes());
      return;
   }
   for (const U16 pipe : chip().tablePipes(tableId)) {
      if (!out.ok()) {
         return;
      }
      showPipe(out, tableId, pipe, nonZeroOnly);
      out.blankLine();
   }
}

void TableCounters::showPipe(ShowOutput& out, U32 tableId, ZelId::ZelPipeId pipeId, bool nonZeroOnly) {
   if (!chip().initializedCounter(tableId)) {
      KILN_TRACE(8, "Counters not initialized yet");
      showUninitialized(out, tableId, pipeId);
      return;
   }
   // Before the first pass has landed, the SDK's copy has no counts of the hardware yet.
   if (!chip().firstPollingComplete()) {
      KILN_TRACE(8, "First polling still pending");
      showUninitialized(out, tableId, pipeId);
      return;
   }
   KILN_ASSERT_TEXT(tableId < chip().tablesNum(), "tableId < countersNum");
   const ZlTableCounter* const info = chip().zlResourceInfoIntf()->zlTableCounter(tableId);
   KILN_ASSERT(info);
   if (chip().perPipeCounter(tableId)) {
      KILN_ASSERT(pipeId != ZelId::ZelPipeId::allPipes());
   } else if (pipeId < ZelId::ZelPipeId::allPipes()) {
      out.noTable(tableTitle(*info, pipeId), symmetricText);
      return;
   }
   if (info->direct) {
      showDirectTable(out, info, pipeId, nonZeroOnly);
   } else {
      showIndirectTable(out, *info, pipeId, nonZeroOnly);
   }
}

Kiln::String TableCounters::tableTitle(const ZlTableCounter& info, ZelId::ZelPipeId pipeId) const {
   return (info.direct ? "Table: " : "Counter: ") + info.name +
          ", DevId: " + std::to_string(chip().deviceId()) + ", PipeId: " + hexText(pipeId);
}

void TableCounters::showUninitialized(ShowOutput& out, U32 tableId, ZelId::ZelPipeId pipeId) const {
   const ZlTableCounter* const info =
        tableId < chip().tablesNum() ? chip().zlResourceInfoIntf()->zlTableCounter(tableId) : nullptr;
   out.noTable(info != nullptr ? tableTitle(*info, pipeId) : tableNumber(tableId),
               uninitializedText(tableId));
}

Kiln::String TableCounters::uninitializedText(U32 tableId) {
   return tableNumber(tableId) + " not initialized yet";
}

// Empty without a PD interface: the counts are still worth showing.
Kiln::String TableCounters::entryDetails(U32 tableHandle, S32 entry) const {
   return chip().zlPdIntf() ? chip().zlPdIntf()->counterDecodeMatch(chip().sessionId(), chip().deviceId(),
                                                                    tableHandle, entry)
                            : Kiln::String();
}

// A pointer, and nested ifs, for the assertion's text, which is fixed.
void TableCounters::showDirectTable(ShowOutput& out, const ZlTableCounter* info, ZelId::ZelPipeId pipeId,
                                    bool nonZeroOnly) {
   if (!info->packets) {
      KILN_ASSERT(info->bytes);
   }
   const std::vector<TableView::Column> columns = directColumns(*info);
   out.tableBegin({tableTitle(*info, pipeId), columns, TableLayout::directTable});
   const U32 status = directRows(out, *info, pipeId, nonZeroOnly);
   chip().readings().attempted({ReadingKey::Kind::tableCopy, info->tableHandle, pipeId},
                               static_cast<int>(status));
   out.reading(toldTable(*info, pipeId, clears_.last(info->tableHandle, pipeId)));
   out.tableEnd(status == 0);
}

// The status of the last step.
U32 TableCounters::directRows(ShowOutput& out, const ZlTableCounter& info, ZelId::ZelPipeId pipeId,
                              bool nonZeroOnly) const {
   const TableTarget table{chip().sessionId(), chip().deviceId(), pipeId, info.tableHandle};
   ZelCountersIntf::ReadBuffer buffer;
   U32 count = 0;
   U32 status = ZelCountersIntf::counterReadDirectStart(table.session, table.device, table.pipe, table.handle,
                                                        &buffer, &count);
   if (status != 0) {
      traceError(out, "Direct start error: ", status);
      return status;
   }
   forEachMatchEntry(table, [&](int entry) {
      KILN_TRACE(8, "Read counters, entry " << entry);
      p4_pd_counter_value value{};
      status = ZelCountersIntf::counterReadDirectMain(table.session, table.device, table.pipe, table.handle,
                                                      entry, count, &buffer, &value);
      if (status != 0) {
         out.note(readError(status));
      } else if (!nonZeroOnly || !isZero(info, value)) {
         out.row(directCells(info, entryDetails(table.handle, entry), value));
      }
      return status == 0 && out.ok();
   });
   if (status != 0) {
      return status;
   }
   status = ZelCountersIntf::counterReadDirectEnd(table.session);
   if (status != 0) {
      traceError(out, "Direct end error: ", status);
   }
   return status;
}

void TableCounters::showIndirectTable(ShowOutput& out, const ZlTableCounter& info, ZelId::ZelPipeId pipeId,
                                      bool nonZeroOnly) {
   out.tableBegin({tableTitle(info, pipeId), indirectColumns, TableLayout::indirectTable});
   indirectRows(out, info, pipeId, nonZeroOnly);
   out.reading(toldTable(info, pipeId, clears_.last(info.tableHandle, pipeId)));
   out.tableEnd();
}

void TableCounters::indirectRows(ShowOutput& out, const ZlTableCounter& info, ZelId::ZelPipeId pipeId,
                                 bool nonZeroOnly) const {
   IndirectRead read(chip(), pipeId, info.tableHandle);
   U32 status = read.start();
   if (status != 0) {
      traceError(out, "Indirect start error: ", status);
      return;
   }
   constexpr TableView::Unsupported notCounted;
   // One for all rows, since there may be tens of thousands: a column that isn't counted stays as it is.
   std::array<TableView::Cell, std::size(indirectColumns)> cells{U64{0}, notCounted, notCounted};
   for (U32 index = 0; index < info.size && out.ok(); ++index) {
      p4_pd_counter_value value{};
      status = read.entry(index, &value);
      if (status != 0) {
         out.note(readError(status));
         return;
      }
      if (nonZeroOnly && isZero(info, value)) {
         continue;
      }
      cells[0] = U64{index & printedIndexMask};
      if (info.packets) {
         cells[1] = U64{value.packets};
      }
      if (info.bytes || !info.packets) { // a table without either is taken for one of bytes
         cells[2] = U64{value.bytes};
      }
      out.row(cells);
   }
   status = read.end();
   if (status != 0) {
      traceError(out, "Indirect end error: ", status);
   }
   KILN_TRACE(8, "Show table counters complete");
}

// By handle, not by name: what counts is which hardware table a clear would write. The first two tables are
// taken to be in every program. The VLAN tables may be missing, and then their handles mean nothing.
const char* TableCounters::otherClear(const ZlTableCounter& info) const {
   const auto handleOf = [this](const Kiln::String& name) {
      return chip().zlResourceInfoIntf()->zlTableCounterField(name, ZlCounterFieldId::tableHandle);
   };
   const auto isWherePresent = [&](const Kiln::String& name) {
      return chip().zlResourceInfoIntf()->zlTableCounterIndex(name) != ZlResourceInfo::notFound &&
             handleOf(name) == info.tableHandle;
   };
   if (info.tableHandle == handleOf(TableNames::egressPortQueueCount)) {
      return "'clear INTF' at the agent's console, for an interface's queues";
   }
   if (info.tableHandle == handleOf(TableNames::pdpClassCount)) {
      return "'clear pdp'";
   }
   if (isWherePresent(TableNames::ingL2DomainCounters) || isWherePresent(TableNames::egrL2DomainCounters)) {
      return "'clear INTF' at the agent's console, for a VLAN interface";
   }
   return nullptr;
}

void TableCounters::clear(ShowOutput& out, U32 tableId, ZelId::ZelPipeId pipeId) {
   KILN_ASSERT_TEXT(chip().zlResourceInfoIntf(), "zlResourceInfoIntf()");
   KILN_ASSERT_TEXT(tableId < chip().tablesNum(),
                    "tableId < (U32)zlResourceInfoIntf()->zlTableCountersNum()");
   const ZlTableCounter* const info = chip().zlResourceInfoIntf()->zlTableCounter(tableId);
   KILN_ASSERT(info);
   if (otherClear(*info) != nullptr) {
      KILN_TRACE(8, "Counter: " << info->name << " skipping clear command");
      return;
   }
   onClear_(out, *info, pipeId, ClearStage::before);
   KILN_TRACE(8, "Counter: " << info->name << ", handle: " << info->tableHandle << ", size: " << info->size
                             << ", direct: " << info->direct << ", pkts/bytes: " << info->packets << "/"
                             << info->bytes);
   const TableTarget table{chip().sessionId(), chip().deviceId(), pipeId, info->tableHandle};
   U32 status = 0;
   const p4_pd_counter_value zero{};
   if (info->direct) {
      forEachMatchEntry(table, [&](int entry) {
         status = ZelCountersIntf::counterWriteDirect(table.session, table.device, table.pipe, table.handle,
                                                      entry, zero);
         return status == 0;
      });
   } else {
      for (U32 index = 0; index < info->size && status == 0; ++index) {
         status = ZelCountersIntf::counterWriteIndirect(table.session, table.device, table.pipe, table.handle,
                                                        index, zero);
      }
   }
   // Of a table that the SDK can't clear at all, the first entry says it for all, and that is no fault. Any other
   // refusal would leave the table half cleared.
   if (status != 0 && status != sdkNotSupported) {
      KILN_TRACE(8, "Counter set result: " << static_cast<int>(status));
      KILN_ASSERT(status == 0);
   }
   if (status == 0) {
      onClear_(out, *info, pipeId, ClearStage::done);
      clears_.cleared(info->tableHandle, pipeId);
   }
}

void TableCounters::clearAll(ShowOutput& out) {
   for (U32 id = 0; id < chip().tablesNum(); ++id) {
      for (const U16 pipe : chip().tablePipes(id)) {
         clear(out, id, pipe);
      }
   }
}

} // namespace ZelCounter
