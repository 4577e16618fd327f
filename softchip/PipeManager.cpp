// Finds tables by handle and checks calls.
#include "softchip/PipeManager.h"

#include <algorithm>

namespace SoftChip {

using ZlResourceInfo::notFound;

PipeManager::PipeManager(Kiln::Ptr<P4Program> program, unsigned pipes, std::span<U64> hardware)
     : program_(std::move(program)), pipes_(pipes) {
   for (const CounterTableSpec& spec : program_->counterTables()) {
      const std::size_t words = CounterTable::hardwareWords(spec, pipes);
      counterTables_.emplace_back(spec, pipes, hardware.first(words));
      hardware = hardware.subspan(words);
   }
   for (const MatchTableSpec& spec : program_->matchTables()) {
      matchTables_.emplace_back(spec);
   }
}

std::size_t PipeManager::hardwareWords(const P4Program& program, unsigned pipes) {
   std::size_t words = 0;
   for (const CounterTableSpec& spec : program.counterTables()) {
      words += CounterTable::hardwareWords(spec, pipes);
   }
   return words;
}

CounterTable* PipeManager::counterTable(const Kiln::String& name) {
   const U32 id = program_->zlTableCounterIndex(name);
   return id == notFound ? nullptr : &counterTables_[id];
}

MatchTable* PipeManager::matchTable(const Kiln::String& name) {
   const U32 index = program_->zlTableIndex(name);
   return index == notFound ? nullptr : &matchTables_[index];
}

CounterTable* PipeManager::counterTableOf(const MatchTable& table) {
   const U32 id = program_->directCounterOf(static_cast<U32>(&table - matchTables_.data()));
   return id == notFound ? nullptr : &counterTables_[id];
}

const CounterTable* PipeManager::find(Kind kind, U32 tableHandle) const {
   const U32 id = program_->counterTableOfHandle(tableHandle);
   if (id == notFound) {
      return nullptr;
   }
   const CounterTable& table = counterTables_[id];
   return kind == Kind::either || table.spec().direct == (kind == Kind::direct) ? &table : nullptr;
}

void PipeManager::restart() {
   for (U32 index = 0; index < matchTables_.size(); ++index) {
      MatchTable& table = matchTables_[index];
      // The program's own entries have the first handles.
      const auto own = static_cast<S32>(table.spec().rules.size());
      for (S32 handle = table.next(own, allPipes); handle != MatchTable::none;
           handle = table.next(handle, allPipes)) {
         table.entryDel(handle);
         zero(index, handle);
      }
   }
   for (CounterTable& table : counterTables_) {
      table.restart();
   }
}

int PipeManager::initialized(U32 counterHandle, bool* initialized) {
   const U32 id = program_->counterTableOfCounterHandle(counterHandle);
   if (id == notFound) {
      return statusTableNotFound;
   }
   *initialized = counterTables_[id].askInitialized();
   return statusOk;
}

int PipeManager::symmetric(U32 counterHandle, bool* symmetric) {
   const U32 id = program_->counterTableOfCounterHandle(counterHandle);
   if (id == notFound) {
      return statusTableNotFound;
   }
   *symmetric = counterTables_[id].symmetric();
   return statusOk;
}

int PipeManager::setProperty(U32 tableHandle, U32 property, U32 value) {
   const U32 index = program_->matchTableOfHandle(tableHandle);
   if (index == notFound) {
      return statusTableNotFound;
   }
   if (property != PIPE_TBL_PROPERTY_ENTRY_SCOPE) {
      return statusNotSupported;
   }
   if (value != PIPE_ENTRY_SCOPE_ALL_PIPELINES && value != PIPE_ENTRY_SCOPE_SINGLE_PIPELINE) {
      return statusInvalidArguments;
   }
   for (CounterTable& table : counterTables_) {
      if (table.spec().matchTable == matchTables_[index].spec().name) {
         table.symmetricIs(value == PIPE_ENTRY_SCOPE_ALL_PIPELINES);
      }
   }
   return statusOk;
}

int PipeManager::checkSync(Kind kind, U32 tableHandle, U16 pipe) const {
   if (find(kind, tableHandle) == nullptr) {
      return statusTableNotFound;
   }
   return isPipe(pipe) ? statusOk : statusInvalidArguments;
}

void PipeManager::sync(U32 tableHandle, U16 pipe) {
   // Checked when the request was accepted, and tables do not change after that.
   counterTables_[program_->counterTableOfHandle(tableHandle)].sync(pipe);
}

int PipeManager::read(Kind kind, U32 tableHandle, U16 pipe, U32 slot, CounterValue* value) const {
   const CounterTable* const table = find(kind, tableHandle);
   if (table == nullptr) {
      return statusTableNotFound;
   }
   if (!isPipe(pipe) || (pipe == allPipes && !table->symmetric()) || slot >= table->slots()) {
      return statusInvalidArguments;
   }
   *value = table->read(pipe, slot);
   return statusOk;
}

int PipeManager::readAll(Kind kind, U32 tableHandle, U16 pipe, TableValues* values) const {
   CounterValue first;
   // One read makes all the checks. Every table has a slot 0.
   const int status = read(kind, tableHandle, pipe, 0, &first);
   if (status == statusOk) {
      *values = find(kind, tableHandle)->values(pipe);
   }
   return status;
}

int PipeManager::write(Kind kind, U32 tableHandle, U16 pipe, U32 slot, const CounterValue& value) {
   const int status = checkSync(kind, tableHandle, pipe);
   if (status != statusOk) {
      return status;
   }
   CounterTable& table = counterTables_[program_->counterTableOfHandle(tableHandle)];
   if (slot >= table.slots() || (pipe == allPipes && !table.symmetric())) {
      return statusInvalidArguments;
   }
   // A direct table counts per match entry: without one there is nothing to write to.
   if (table.spec().direct &&
       matchTables_[program_->matchTableOfHandle(tableHandle)].rule(static_cast<S32>(slot)) == nullptr) {
      return statusObjectNotFound;
   }
   table.write(pipe, slot, value);
   return statusOk;
}

// In hardware and software copy: handles are used again, and a new entry must not show the old count until the next
// sync.
void PipeManager::zero(U32 matchTable, S32 handle) {
   const U32 id = program_->directCounterOf(matchTable);
   if (id != notFound) {
      counterTables_[id].write(allPipes, static_cast<U32>(handle), {});
   }
}

int PipeManager::entryAdd(U32 tableHandle, U16 pipe, const MatchRule& rule, S32* handle) {
   const U32 index = program_->matchTableOfHandle(tableHandle);
   if (index == notFound) {
      return statusTableNotFound;
   }
   if (!isPipe(pipe)) {
      return statusInvalidArguments;
   }
   *handle = matchTables_[index].entryAdd(rule, pipe);
   if (*handle == MatchTable::none) {
      return statusNotEnoughSpace;
   }
   zero(index, *handle);
   return statusOk;
}

int PipeManager::entryDel(U32 tableHandle, S32 handle) {
   const U32 index = program_->matchTableOfHandle(tableHandle);
   if (index == notFound) {
      return statusTableNotFound;
   }
   if (!matchTables_[index].entryDel(handle)) {
      return statusObjectNotFound;
   }
   zero(index, handle);
   return statusOk;
}

int PipeManager::nextEntries(U32 tableHandle, U16 pipe, S32 handle, int count, int* next) const {
   // Also on errors: callers look for the end, not at the status alone.
   std::fill_n(next, std::max(count, 0), PIPE_MAT_ENT_HDL_NONE);
   const U32 index = program_->matchTableOfHandle(tableHandle);
   if (index == notFound) {
      return statusTableNotFound;
   }
   if (!isPipe(pipe) || count < 1) {
      return statusInvalidArguments;
   }
   for (int i = 0; i < count; ++i) {
      handle = matchTables_[index].next(handle, pipe);
      if (handle == MatchTable::none) {
         break;
      }
      next[i] = handle;
   }
   return next[0] == PIPE_MAT_ENT_HDL_NONE ? statusObjectNotFound : statusOk;
}

Kiln::String PipeManager::entryText(U32 tableHandle, S32 handle) const {
   const U32 index = program_->matchTableOfHandle(tableHandle);
   const MatchRule* const rule = index == notFound ? nullptr : matchTables_[index].rule(handle);
   return rule == nullptr ? Kiln::String() : rule->text();
}

} // namespace SoftChip
