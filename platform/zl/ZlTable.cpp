// Adds entries to a chip's table, deletes them, and keeps their handles.
#include "zl/ZlTable.h"

#include "kiln/Assert.h"
#include "kiln/Trace.h"

namespace ZlTable {

namespace {

Kiln::TraceHandle traceHandle("ZlTable");

// Asserts within the initializers, since they follow the pointers before the constructor's body could.
template <class T>
Kiln::Ptr<T> required(Kiln::Ptr<T> pointer) {
   KILN_ASSERT(pointer);
   return pointer;
}

} // namespace

ZlTableException::ZlTableException(const Kiln::String& tableName, U32 status)
     : std::runtime_error("table " + tableName + " takes no entry: status " +
                          std::to_string(static_cast<int>(status))),
       status_(status) {}

EntrySlot& KeyManager::slot(U32 key) {
   if (EntrySlot* const* const present = slotOfKey_.find(key)) {
      return **present;
   }
   slotOfKey_.set(key, &slots_.emplace_back());
   return slots_.back();
}

TableStatusManager::TableStatus& TableStatusManager::tableStatus(const Kiln::String& tableName) {
   if (!tables_.contains(tableName)) {
      tables_.set(tableName, TableStatus());
   }
   return *tables_.find(tableName);
}

CountTable::CountTable(Kiln::Ptr<KeyManager> keyManager, Kiln::Ptr<TableStatusManager> tableStatusManager,
                       Kiln::Ptr<ZlPd::ZlPdIntf> pdIntf, U32 /*flags*/, U32 session, U32 device, U16 pipe,
                       Kiln::String tableName)
     : keyManager_(required(std::move(keyManager))),
       tableStatusManager_(required(std::move(tableStatusManager))), pdIntf_(required(std::move(pdIntf))),
       session_(session), device_(device), pipe_(pipe), tableName_(std::move(tableName)),
       status_(tableStatusManager_->tableStatus(tableName_)) {}

void CountTable::add(U32 key, std::span<const ZlPd::MatchField> match) {
   EntrySlot& slot = keyManager_->slot(key);
   if (slot) {
      return;
   }
   U32 handle = 0;
   const U32 status = pdIntf_->entryAdd(session_, device_, pipe_, tableName_, match, &handle);
   if (status != 0) {
      // The slot stays empty, so that a later attempt asks the chip again.
      ++status_.refused;
      throw ZlTableException(tableName_, status);
   }
   slot.handle = handle;
   ++status_.entries;
}

void CountTable::remove(U32 key) {
   EntrySlot& slot = keyManager_->slot(key);
   if (!slot) {
      return;
   }
   // Forgotten first: an entry that the chip will not delete is of no use here either.
   const U32 handle = std::exchange(slot.handle, 0);
   --status_.entries;
   const U32 status = pdIntf_->entryDel(session_, device_, tableName_, handle);
   if (status != 0) {
      KILN_TRACE(1, "table " << tableName_ << ": entry " << handle << " not deleted: status "
                             << static_cast<int>(status));
   }
}

} // namespace ZlTable
