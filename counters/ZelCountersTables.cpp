// The table counter commands of a chip.
#include "CounterTableNames.h"
#include "ZelCounters.h"
#include "ZelCountersTrace.h"
#include "kiln/Assert.h"
#include "sdk/pipe_mgr.h"
#include "zl/ZelCountersIntf.h"

#include <string>

namespace ZelCounter {

namespace {

using ZlResourceInfo::ZlCounterFieldId;
using ZlResourceInfo::ZlTableCounter;

constexpr U32 statusNotSupported = 17;
constexpr U32 printedIndexMask = 0x3FFFFFFF;

Kiln::String ruler(std::size_t width) {
   return Kiln::String(width, '=') + '\n';
}

const Kiln::String catalogueRuler = ruler(96);
const Kiln::String directRuler = ruler(80);
const Kiln::String indirectRuler = ruler(58);

constexpr const char* directHeaderBoth =
     " Details                                        Packets         Bytes\n";
constexpr const char* directHeaderPackets =
     " Details                                                        Packets\n";
constexpr const char* directHeaderBytes =
     " Details                                                        Bytes\n";

// A table's place in the SDK: what its reads and writes are addressed by.
struct TableTarget {
   U32 session;
   U32 device;
   U16 pipe;
   U32 handle;
};

// Calls visit for each match entry until it returns false.
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

// Whether what the table shows of a value is all zero.
bool isZero(const ZlTableCounter& info, const p4_pd_counter_value& value) {
   return (!info.packets || value.packets == 0) && ((info.packets && !info.bytes) || value.bytes == 0);
}

void padded(Kiln::TextOutput& out, std::string_view text, std::size_t width) {
   out.write(text);
   if (text.size() < width) {
      out.write(Kiln::String(width - text.size(), ' '));
   }
}

void printDirectLine(Kiln::TextOutput& out, const ZlTableCounter& info, const Kiln::String& details,
                     const p4_pd_counter_value& value) {
   const bool both = info.packets && info.bytes;
   padded(out, details, both ? 46 : 64);
   out.write("  ");
   if (both) {
      out.number(value.packets, 14);
      out.write("  ");
      out.number(value.bytes, 14);
   } else {
      out.number(info.packets ? value.packets : value.bytes, 14);
   }
   out.write("\n");
}

// A line of a big table: no formatted print, there are tens of thousands of them.
void printIndirectLine(Kiln::TextOutput& out, const ZlTableCounter& info, U32 index,
                       const p4_pd_counter_value& value) {
   out.number(U64{index & printedIndexMask}, 14);
   // The blanks stand apart from the numbers, so that columns never run together.
   if (info.packets) {
      out.write("     ");
      out.number(static_cast<S64>(value.packets), 14);
   } else {
      out.write("                N/A");
   }
   if (info.bytes || !info.packets) {
      out.write("     ");
      out.number(static_cast<S64>(value.bytes), 14);
   } else {
      out.write("                N/A");
   }
   out.write("\n");
}

void printUninitialized(Kiln::TextOutput& out, U32 tableId) {
   out.print("Counter table %d not initialized yet\n", static_cast<int>(tableId));
}

} // namespace

U32 ZelCounters::countersNum() const {
   return zlResourceInfoIntf() ? zlResourceInfoIntf()->zlTableCountersNum() : 0;
}

ZelCounters::PipeRange ZelCounters::tablePipes(U32 tableId) const {
   constexpr U32 all = ZelId::ZelPipeId::allPipes();
   return perPipeCounter(tableId) ? PipeRange{0, highestPipe()} : PipeRange{all, all};
}

void ZelCounters::showCountersInfo(U32 fd) {
   Kiln::TextOutput out(static_cast<int>(fd), echo());
   out.write(catalogueRuler);
   out.write(
        " Id                              Counter         Handle     Size      Type  Per-pipe Pkts/Bytes\n");
   out.write(catalogueRuler);
   const std::vector<ZlTableCounter>* const zlCounters =
        zlResourceInfoIntf() ? zlResourceInfoIntf()->zlTableCounters() : nullptr;
   KILN_ASSERT(zlCounters);
   for (U32 id = 0; id < countersNum(); ++id) {
      const ZlTableCounter& info = (*zlCounters)[id];
      out.print("%3d %40s %10X %8d   %2sdirect       %c     %c/%c \n", static_cast<int>(id),
                info.name.c_str(), info.tableHandle, static_cast<int>(info.size), info.direct ? "  " : "in",
                perPipeCounter(id) ? 'Y' : 'N', info.packets ? 'Y' : 'N', info.bytes ? 'Y' : 'N');
   }
}

void ZelCounters::showTableCounters(U32 fd, U32 tableId, bool nonZeroOnly) {
   Kiln::TextOutput out(static_cast<int>(fd), echo());
   printTable(out, tableId, nonZeroOnly);
}

void ZelCounters::showTableCountersPipe(U32 fd, U32 tableId, ZelId::ZelPipeId pipeId, bool nonZeroOnly) {
   Kiln::TextOutput out(static_cast<int>(fd), echo());
   printTablePipe(out, tableId, pipeId, nonZeroOnly);
}

void ZelCounters::showAllTableCounters(U32 fd, bool nonZeroOnly) {
   Kiln::TextOutput out(static_cast<int>(fd), echo());
   for (U32 id = 0; id < countersNum() && out.ok(); ++id) {
      printTable(out, id, nonZeroOnly);
   }
}

void ZelCounters::printTable(Kiln::TextOutput& out, U32 tableId, bool nonZeroOnly) {
   if (!initializedCounter(tableId)) {
      printUninitialized(out, tableId);
      return;
   }
   const PipeRange range = tablePipes(tableId);
   for (U32 pipe = range.first; pipe <= range.last && out.ok(); ++pipe) {
      printTablePipe(out, tableId, static_cast<U16>(pipe), nonZeroOnly);
      out.write("\n");
   }
}

void ZelCounters::printTablePipe(Kiln::TextOutput& out, U32 tableId, ZelId::ZelPipeId pipeId,
                                 bool nonZeroOnly) {
   if (!initializedCounter(tableId)) {
      KILN_TRACE(8, "Counters not initialized yet");
      printUninitialized(out, tableId);
      return;
   }
   if (!firstPollingComplete()) {
      KILN_TRACE(8, "First polling still pending");
      printUninitialized(out, tableId);
      return;
   }
   KILN_ASSERT_TEXT(tableId < countersNum(), "tableId < countersNum");
   if (perPipeCounter(tableId)) {
      KILN_ASSERT(pipeId != ZelId::ZelPipeId::allPipes());
   } else if (pipeId < ZelId::ZelPipeId::allPipes()) {
      out.write("Symmetric counters cannot have a pipe option\n");
      return;
   }
   const ZlTableCounter* const info = zlResourceInfoIntf()->zlTableCounter(tableId);
   KILN_ASSERT(info);
   if (info->direct) {
      printDirectTable(out, info, pipeId, nonZeroOnly);
   } else {
      printIndirectTable(out, *info, pipeId, nonZeroOnly);
   }
}

Kiln::String ZelCounters::entryDetails(U32 tableHandle, S32 entry) const {
   return context_.zlPdIntf
               ? context_.zlPdIntf->counterDecodeMatch(sessionId(), deviceId(), tableHandle, entry)
               : Kiln::String();
}

void ZelCounters::printDirectTable(Kiln::TextOutput& out, const ZlTableCounter* info, ZelId::ZelPipeId pipeId,
                                   bool nonZeroOnly) {
   out.print("Table: %s, DevId: %d, PipeId: %X\n", info->name.c_str(), deviceId(), unsigned{pipeId});
   out.write(directRuler);
   if (info->packets) {
      out.write(info->bytes ? directHeaderBoth : directHeaderPackets);
   } else {
      KILN_ASSERT(info->bytes);
      out.write(directHeaderBytes);
   }
   out.write(directRuler);

   const TableTarget table{sessionId(), deviceId(), pipeId, info->tableHandle};
   ZelCountersIntf::ReadBuffer buffer;
   U32 count = 0;
   U32 status = ZelCountersIntf::counterReadDirectStart(table.session, table.device, table.pipe, table.handle,
                                                        &buffer, &count);
   if (status != 0) {
      KILN_TRACE(8, "Direct start error: " << status);
      return;
   }
   forEachMatchEntry(table, [&](int entry) {
      KILN_TRACE(8, "Read counters, entry " << entry);
      p4_pd_counter_value value{};
      status = ZelCountersIntf::counterReadDirectMain(table.session, table.device, table.pipe, table.handle,
                                                      entry, count, &buffer, &value);
      if (status != 0) {
         out.print("Got error %d retrieving the counters\n", static_cast<int>(status));
      } else if (!nonZeroOnly || !isZero(*info, value)) {
         printDirectLine(out, *info, entryDetails(table.handle, entry), value);
      }
      return status == 0 && out.ok();
   });
   if (status != 0) {
      return;
   }
   status = ZelCountersIntf::counterReadDirectEnd(table.session);
   if (status == 0) {
      out.write(directRuler);
   } else {
      KILN_TRACE(8, "Direct end error: " << status);
   }
}

void ZelCounters::printIndirectTable(Kiln::TextOutput& out, const ZlTableCounter& info,
                                     ZelId::ZelPipeId pipeId, bool nonZeroOnly) {
   out.print("Counter: %s, DevId: %d, PipeId: %X\n", info.name.c_str(), deviceId(), unsigned{pipeId});
   out.write(indirectRuler);
   out.write("         Index            Packets              Bytes      \n");
   out.write(indirectRuler);

   const TableTarget table{sessionId(), deviceId(), pipeId, info.tableHandle};
   ZelCountersIntf::ReadBuffer buffer;
   U32 status = ZelCountersIntf::counterReadIndirectStart(table.session, table.device, table.pipe,
                                                          table.handle, &buffer);
   if (status != 0) {
      KILN_TRACE(8, "Indirect start error: " << status);
      return;
   }
   for (U32 index = 0; index < info.size && out.ok(); ++index) {
      p4_pd_counter_value value{};
      status = ZelCountersIntf::counterReadIndirectMain(table.session, table.device, table.pipe, table.handle,
                                                        index, &buffer, &value);
      if (status != 0) {
         out.print("Got error %d retrieving the counters\n", static_cast<int>(status));
         return;
      }
      if (!nonZeroOnly || !isZero(info, value)) {
         printIndirectLine(out, info, index, value);
      }
   }
   status = ZelCountersIntf::counterReadIndirectEnd(table.session);
   if (status != 0) {
      KILN_TRACE(8, "Indirect end error: " << status);
   }
   KILN_TRACE(8, "Show table counters complete");
}

bool ZelCounters::isProtected(const ZlTableCounter& info) const {
   const auto handleOf = [this](const Kiln::String& name) {
      return zlResourceInfoIntf()->zlTableCounterField(name, ZlCounterFieldId::tableHandle);
   };
   const auto isWherePresent = [&](const Kiln::String& name) {
      return zlResourceInfoIntf()->zlTableCounterIndex(name) != ZlResourceInfo::notFound &&
             handleOf(name) == info.tableHandle;
   };
   return info.tableHandle == handleOf(TableNames::egressPortQueueCount) ||
          info.tableHandle == handleOf(TableNames::pdpClassCount) ||
          isWherePresent(TableNames::ingL2DomainCounters) || isWherePresent(TableNames::egrL2DomainCounters);
}

void ZelCounters::clearTableCounters(U32, U32 tableId, ZelId::ZelPipeId pipeId) {
   KILN_ASSERT(zlResourceInfoIntf());
   KILN_ASSERT(tableId < (U32)zlResourceInfoIntf()->zlTableCountersNum());
   const ZlTableCounter* const info = zlResourceInfoIntf()->zlTableCounter(tableId);
   KILN_ASSERT(info);
   if (isProtected(*info)) {
      KILN_TRACE(8, "Counter: " << info->name << " skipping clear command");
      return;
   }
   dropTableWritten(*info, pipeId);
   KILN_TRACE(8, "Counter: " << info->name << ", handle: " << info->tableHandle << ", size: " << info->size
                             << ", direct: " << info->direct << ", pkts/bytes: " << info->packets << "/"
                             << info->bytes);
   const TableTarget table{sessionId(), deviceId(), pipeId, info->tableHandle};
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
   if (status != 0 && status != statusNotSupported) {
      KILN_TRACE(8, "Counter set result: " << status);
      KILN_ASSERT(status == 0);
   }
}

void ZelCounters::clearAllTableCounters(U32 fd) {
   for (U32 id = 0; id < countersNum(); ++id) {
      const PipeRange range = tablePipes(id);
      for (U32 pipe = range.first; pipe <= range.last; ++pipe) {
         clearTableCounters(fd, id, static_cast<U16>(pipe));
      }
   }
}

} // namespace ZelCounter
