// Reads tables through the SDK's three steps (start, main for each entry, end), and writes them entry by entry. Rows are
// read in blocks: the lock is given up only when a block's read has ended, and its values are copied.
#include "counters/tables/TableCounters.h"

#include "counters/chip/CounterTableNames.h"
#include "counters/chip/IndirectRead.h"
#include "counters/chip/SdkStatus.h"
#include "counters/chip/Slices.h"
#include "counters/chip/ZelCountersTrace.h"
#include "counters/tables/MatchEntries.h"
#include "kiln/Assert.h"
#include "kiln/Time.h"
#include "zl/ZelCountersIntf.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

namespace ZelCounter {

namespace {

using ZlResourceInfo::ZlCounterFieldId;
using ZlResourceInfo::ZlTableCounter;

constexpr U32 printedIndexMask = 0x3FFFFFFF; // the layout shows the low 30 bits of an index

constexpr std::size_t entriesPerBlock = 4096; // at most
// Rows, entries or writes between two looks at the clock.
constexpr std::size_t rowsPerLook = 16;

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

// For what the fixed text leaves to the trace. JSON has it as a note: there an empty table must not pass for one
// without entries.
void traceError(ShowOutput& out, const char* what, U32 status) {
   const auto number = static_cast<int>(status);
   KILN_TRACE(8, what << number);
   out.unprintedNote(what + std::to_string(number));
}

// Says when a block ends: with its slice, but it is read for half as long as its start took at least. An SDK may copy the
// whole table at each start.
class BlockTime {
 public:
   void handleStarted() { startedTime_ = Kiln::System::monotonicTime(); }
   bool isOver(std::size_t entries) const {
      return entries == entriesPerBlock ||
             (entries != 0 && entries % rowsPerLook == 0 && Slices::isOver() && isWorthItsStart());
   }

 private:
   // In simulated time a run must not depend on how fast the machine is.
   bool isWorthItsStart() const {
      return Kiln::System::timeSource()->isSimulated() ||
             Kiln::System::monotonicTime() - startedTime_ >= (startedTime_ - begunTime_) / 2;
   }

   double begunTime_ = Kiln::System::monotonicTime();
   double startedTime_ = begunTime_;
};

} // namespace

// While a table is being cleared, however that ends.
class TableCounters::WritingScope {
 public:
   explicit WritingScope(Writing& writing) : writing_(writing) {
      ++writing_.begun;
      ++writing_.running;
   }
   WritingScope(const WritingScope&) = delete;
   WritingScope& operator=(const WritingScope&) = delete;
   ~WritingScope() { --writing_.running; }

 private:
   Writing& writing_;
};

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
   Slices slices(chip());
   // Once the output takes no more, reading on would be for nobody.
   for (U32 id = 0; id < chip().tablesNum() && out.ok() && slices.next(); ++id) {
      show(out, id, nonZeroOnly);
   }
}

void TableCounters::show(ShowOutput& out, U32 tableId, bool nonZeroOnly) {
   if (!chip().initializedCounter(tableId)) {
      // Once, and not once a pipe: whether the table is read per pipe is not known yet.
      showUninitialized(out, tableId, ZelId::ZelPipeId::allPipes());
      return;
   }
   Slices slices(chip());
   for (const U16 pipe : chip().tablePipes(tableId)) {
      if (!out.ok() || !slices.next()) {
         return;
      }
      showPipe(out, tableId, pipe, nonZeroOnly);
      out.blankLine();
   }
}

void TableCounters::showPipe(ShowOutput& out, U32 tableId, ZelId::ZelPipeId pipeId, bool nonZeroOnly) {
   Slices slices(chip());
   if (!slices.next()) {
      return;
   }
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
      showDirectTable(out, info, pipeId, nonZeroOnly, slices);
   } else {
      showIndirectTable(out, *info, pipeId, nonZeroOnly, slices);
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
                                    bool nonZeroOnly, Slices& slices) {
   if (!info->packets) {
      KILN_ASSERT(info->bytes);
   }
   const std::vector<TableView::Column> columns = directColumns(*info);
   out.tableBegin({tableTitle(*info, pipeId), columns, TableLayout::directTable});
   const Shown shown = directRows(out, *info, pipeId, nonZeroOnly, slices);
   out.reading(shown.told);
   out.tableEnd(shown.status == 0);
}

// Block after block; the rows of one are copies. Who gets in while they are written may clear: what is told is of the moment
// of the last read.
template <class Read, class WriteRow>
TableCounters::Shown TableCounters::rows(ShowOutput& out, const ZlTableCounter& info, ZelId::ZelPipeId pipeId,
                                         bool nonZeroOnly, Slices& slices, Read read,
                                         WriteRow writeRow) const {
   const Moment first = momentOf(info, pipeId);
   Block block;
   ToldReading told;
   do {
      read(&block);
      told = toldTable(info, pipeId, clears_.last(info.tableHandle, pipeId));
      tellChanges(out, info, pipeId, first);
      for (std::size_t i = 0; i < block.values.size() && out.ok(); ++i) {
         if (!nonZeroOnly || !isZero(info, block.values[i])) {
            writeRow(block, i);
         }
         if (i % rowsPerLook == 0) {
            slices.next();
         }
      }
      tellError(out, block);
   } while (!block.isLast && block.status == 0 && out.ok() && slices.next());
   return {block.status, told};
}

TableCounters::Shown TableCounters::directRows(ShowOutput& out, const ZlTableCounter& info,
                                               ZelId::ZelPipeId pipeId, bool nonZeroOnly,
                                               Slices& slices) const {
   MatchEntries entries(chip(), pipeId, info.tableHandle);
   Shown shown = rows(
        out, info, pipeId, nonZeroOnly, slices,
        [&](Block* block) {
           if (slices.wasAway()) {
              entries.handleAway();
           }
           readDirect(entries, info, pipeId, block);
           chip().readings().attempted({ReadingKey::Kind::tableCopy, info.tableHandle, pipeId},
                                       static_cast<int>(block->status));
        },
        [&](const Block& block, std::size_t i) {
           out.row(directCells(info, block.details[i], block.values[i]));
        });
   if (entries.hasLost()) {
      out.changed("Entries of " + tableText(info, pipeId) + " went while it was shown");
   }
   return shown;
}

// With what the entries match: later they may be gone, and their handles used again.
void TableCounters::readDirect(MatchEntries& entries, const ZlTableCounter& info, ZelId::ZelPipeId pipeId,
                               Block* block) const {
   *block = {.failedStep = "Direct start error: "};
   BlockTime time;
   ZelCountersIntf::ReadBuffer buffer;
   U32 count = 0;
   block->status = ZelCountersIntf::counterReadDirectStart(chip().sessionId(), chip().deviceId(), pipeId,
                                                           info.tableHandle, &buffer, &count);
   if (block->status != 0) {
      return;
   }
   time.handleStarted();
   block->failedStep = nullptr;
   while (!block->isLast && !time.isOver(block->values.size())) {
      const std::optional<int> entry = entries.next();
      block->isLast = !entry;
      if (!entry) {
         break;
      }
      KILN_TRACE(8, "Read counters, entry " << *entry);
      p4_pd_counter_value value{};
      block->status = ZelCountersIntf::counterReadDirectMain(
           chip().sessionId(), chip().deviceId(), pipeId, info.tableHandle, *entry, count, &buffer, &value);
      if (block->status != 0) {
         return;
      }
      block->values.push_back(value);
      block->details.push_back(entryDetails(info.tableHandle, *entry));
   }
   block->failedStep = "Direct end error: ";
   block->status = ZelCountersIntf::counterReadDirectEnd(chip().sessionId());
}

void TableCounters::showIndirectTable(ShowOutput& out, const ZlTableCounter& info, ZelId::ZelPipeId pipeId,
                                      bool nonZeroOnly, Slices& slices) {
   out.tableBegin({tableTitle(info, pipeId), indirectColumns, TableLayout::indirectTable});
   out.reading(indirectRows(out, info, pipeId, nonZeroOnly, slices).told);
   out.tableEnd();
}

TableCounters::Shown TableCounters::indirectRows(ShowOutput& out, const ZlTableCounter& info,
                                                 ZelId::ZelPipeId pipeId, bool nonZeroOnly,
                                                 Slices& slices) const {
   constexpr TableView::Unsupported notCounted;
   // One for all rows, since there may be tens of thousands: a column that isn't counted stays as it is.
   std::array<TableView::Cell, std::size(indirectColumns)> cells{U64{0}, notCounted, notCounted};
   U32 next = 0;
   Shown shown = rows(
        out, info, pipeId, nonZeroOnly, slices,
        [&](Block* block) {
           readIndirect(info, pipeId, next, block);
           next += static_cast<U32>(block->values.size());
        },
        [&](const Block& block, std::size_t i) {
           cells[0] = U64{(block.first + static_cast<U32>(i)) & printedIndexMask};
           if (info.packets) {
              cells[1] = U64{block.values[i].packets};
           }
           if (info.bytes || !info.packets) { // a table without either is taken for one of bytes
              cells[2] = U64{block.values[i].bytes};
           }
           out.row(cells);
        });
   KILN_TRACE(8, "Show table counters complete");
   return shown;
}

void TableCounters::readIndirect(const ZlTableCounter& info, ZelId::ZelPipeId pipeId, U32 first,
                                 Block* block) const {
   *block = {.first = first, .failedStep = "Indirect start error: "};
   BlockTime time;
   IndirectRead read(chip(), pipeId, info.tableHandle);
   block->status = read.start();
   if (block->status != 0) {
      return;
   }
   time.handleStarted();
   block->failedStep = nullptr;
   U32 index = first;
   while (index < info.size && !time.isOver(block->values.size())) {
      p4_pd_counter_value value{};
      block->status = read.entry(index++, &value);
      if (block->status != 0) {
         return;
      }
      block->values.push_back(value);
   }
   block->isLast = index == info.size;
   block->failedStep = "Indirect end error: ";
   block->status = read.end();
}

void TableCounters::tellError(ShowOutput& out, const Block& block) {
   if (block.status == 0) {
      return;
   }
   if (block.failedStep != nullptr) {
      traceError(out, block.failedStep, block.status);
   } else {
      out.note("Got error " + std::to_string(static_cast<int>(block.status)) + " retrieving the counters");
   }
}

TableCounters::Moment TableCounters::momentOf(const ZlTableCounter& info, ZelId::ZelPipeId pipeId) const {
   const auto writing = writings_.find(info.tableHandle);
   return {chip().tableSyncs(),
           chip().readings().reading({ReadingKey::Kind::queues, 0, pipeId}).readTime, // a sync of its own
           writing != writings_.end() ? writing->second : Writing{}};
}

// What was read is not of the moment of the first block.
void TableCounters::tellChanges(ShowOutput& out, const ZlTableCounter& info, ZelId::ZelPipeId pipeId,
                                const Moment& first) const {
   const Moment now = momentOf(info, pipeId);
   if (now.syncs != first.syncs || (isOfQueues(info) && now.queuesTime != first.queuesTime)) {
      out.changed("Tables of chip " + chip().chipName() + " were synced while " + tableText(info, pipeId) +
                  " was shown: its rows may be from before and after");
   }
   if (now.writing.begun != first.writing.begun || first.writing.running != 0) {
      out.changed(tableText(info, pipeId) +
                  " was cleared while it was shown: its rows may be from before and after");
   }
}

bool TableCounters::isOfQueues(const ZlTableCounter& info) const {
   return info.tableHandle == chip().zlResourceInfoIntf()->zlTableCounterField(
                                   TableNames::egressPortQueueCount, ZlCounterFieldId::tableHandle);
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
   if (isOfQueues(info)) {
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
   Slices slices(chip());
   if (!slices.next()) {
      return;
   }
   KILN_TRACE(8, "Counter: " << info->name << ", handle: " << info->tableHandle << ", size: " << info->size
                             << ", direct: " << info->direct << ", pkts/bytes: " << info->packets << "/"
                             << info->bytes);
   const WritingScope writing(writings_[info->tableHandle]);
   const U32 kept = onClear_(out, *info, pipeId, ClearStage::before);
   const U32 status =
        info->direct ? zeroDirect(*info, pipeId, slices) : zeroIndirect(out, *info, pipeId, kept, slices);
   // Of a table that the SDK can't clear at all, the first entry says it for all, and that is no fault. Any other
   // refusal would leave the table half cleared.
   if (status != 0 && status != sdkNotSupported) {
      KILN_TRACE(8, "Counter set result: " << static_cast<int>(status));
      KILN_ASSERT(status == 0);
   }
   if (status == 0 && !chip().isStopped()) {
      clears_.cleared(info->tableHandle, pipeId);
   }
}

// The status of the last write. Ends when the chip goes.
U32 TableCounters::zeroDirect(const ZlTableCounter& info, ZelId::ZelPipeId pipeId, Slices& slices) const {
   MatchEntries entries(chip(), pipeId, info.tableHandle);
   U32 status = 0;
   for (std::size_t written = 0; status == 0 && (written % rowsPerLook != 0 || slices.next()); ++written) {
      if (slices.wasAway()) {
         entries.handleAway();
      }
      const std::optional<int> entry = entries.next();
      if (!entry) {
         break;
      }
      status = ZelCountersIntf::counterWriteDirect(chip().sessionId(), chip().deviceId(), pipeId,
                                                   info.tableHandle, *entry, {});
   }
   return status;
}

// Those that somebody keeps counts of first, and in one piece: a sync that came between their last reading and their
// zeroes would bring counts that nobody reads, and a reading between the zeroes would take them for a reset.
U32 TableCounters::zeroIndirect(ShowOutput& out, const ZlTableCounter& info, ZelId::ZelPipeId pipeId,
                                U32 kept, Slices& slices) const {
   U32 index = 0;
   U32 status = 0;
   const auto zeroNext = [&] {
      status = ZelCountersIntf::counterWriteIndirect(chip().sessionId(), chip().deviceId(), pipeId,
                                                     info.tableHandle, index++, {});
   };
   while (index < std::min(kept, info.size) && status == 0) {
      zeroNext();
   }
   if (kept != 0 && status == 0) {
      onClear_(out, info, pipeId, ClearStage::done);
   }
   while (index < info.size && status == 0 && (index % rowsPerLook != 0 || slices.next())) {
      zeroNext();
   }
   return status;
}

void TableCounters::clearAll(ShowOutput& out) {
   Slices slices(chip());
   for (U32 id = 0; id < chip().tablesNum() && slices.next(); ++id) {
      for (const U16 pipe : chip().tablePipes(id)) {
         clear(out, id, pipe);
      }
   }
}

} // namespace ZelCounter
