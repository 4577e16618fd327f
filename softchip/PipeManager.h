// A chip's tables as the SDK sees them: addressed by handle, and answering with statuses.
#pragma once

#include "sdk/pipe_mgr.h"
#include "softchip/CounterTable.h"
#include "softchip/MatchTable.h"

namespace SoftChip {

// The SDK statuses that the soft chip returns.
constexpr int statusOk = 0;
constexpr int statusInvalidArguments = 3;
constexpr int statusAlreadyExists = 4;
constexpr int statusObjectNotFound = 6;
constexpr int statusSessionNotFound = 8;
constexpr int statusNotEnoughSpace = 9;
constexpr int statusNotSupported = 17;
constexpr int statusTableNotFound = 23;

// Owned by the chip, under the SDK's lock. A pipe is one of the chip's, or 65535 for all; an asymmetric table cannot be
// read or written for all pipes together. Calls say which kind of table they mean; one of another kind is not found.
class PipeManager {
 public:
   enum class Kind : U8 { direct, indirect, either };

   // `hardware` holds hardwareWords().
   PipeManager(Kiln::Ptr<P4Program> program, unsigned pipes, std::span<U64> hardware);

   static std::size_t hardwareWords(const P4Program& program, unsigned pipes);

   // Null if there is none.
   CounterTable* counterTable(const Kiln::String& name);
   MatchTable* matchTable(const Kiln::String& name);
   CounterTable* counterTableOf(const MatchTable& table);
   std::vector<MatchTable>& matchTables() { return matchTables_; }

   // The SDK begins anew: of the entries only the program's own are left, and software copies are empty. The hardware
   // keeps its counts, but those of entries that are gone.
   void restart();

   int initialized(U32 counterHandle, bool* initialized);
   int symmetric(U32 counterHandle, bool* symmetric);
   // The entry scope of a match table sets the mode of all of its counter tables.
   int setProperty(U32 tableHandle, U32 property, U32 value);

   int checkSync(Kind kind, U32 tableHandle, U16 pipe) const;
   void sync(U32 tableHandle, U16 pipe);
   int read(Kind kind, U32 tableHandle, U16 pipe, U32 slot, CounterValue* value) const;
   int readAll(Kind kind, U32 tableHandle, U16 pipe, TableValues* values) const;
   int write(Kind kind, U32 tableHandle, U16 pipe, U32 slot, const CounterValue& value);

   // An entry's counter starts from zero, and is set to zero when the entry is deleted.
   int entryAdd(U32 tableHandle, U16 pipe, const MatchRule& rule, S32* handle);
   int entryDel(U32 tableHandle, S32 handle);
   // Up to `count` entries after one (0 or none: from the first), then PIPE_MAT_ENT_HDL_NONE.
   int nextEntries(U32 tableHandle, U16 pipe, S32 handle, int count, int* next) const;
   // The text of an entry's rule; empty if there is no such entry.
   Kiln::String entryText(U32 tableHandle, S32 handle) const;

 private:
   bool isPipe(U16 pipe) const { return pipe < pipes_ || pipe == allPipes; }
   const CounterTable* find(Kind kind, U32 tableHandle) const;
   void zero(U32 matchTable, S32 handle);

   Kiln::Ptr<P4Program> program_;
   unsigned pipes_;
   // Neither grows after the constructor: pipeline, drop counts and L2 domains keep pointers into them.
   std::vector<CounterTable> counterTables_; // by id
   std::vector<MatchTable> matchTables_;     // by index
};

} // namespace SoftChip
