// Adds entries to a chip's table, deletes them, and keeps their handles.
#include "zl/ZlTable.h"

#include "kiln/Accessors.h"
#include "kiln/Assert.h"
#include "kiln/Trace.h"

namespace ZlTable {

namespace {

Kiln::TraceHandle traceHandle("ZlTable");

constexpr U32 statusAlreadyExists = 4;
constexpr U32 statusObjectNotFound = 6;

// After so many refusals a round of deletions ends, and the next one goes on where it ended: a chip that refuses
// thousands must not be asked for all of them at each addition.
constexpr unsigned refusalsPerRound = 8;
constexpr std::size_t triesPerRound = 64; // a slice of the lock's time

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

bool CountTable::add(U32 key, std::span<const ZlPd::MatchField> match) {
   EntrySlot& slot = keyManager_->slot(key);
   if (slot) {
      return false;
   }
   retryDeletions();
   // Asked for also when the chip has kept an entry of this key, since only the chip knows whether it has it still.
   U32 handle = 0;
   const U32 status = pdIntf_->entryAdd(session_, device_, pipe_, tableName_, match, &handle);
   if (status == statusAlreadyExists) {
      if (const std::optional<U32> kept = leftover(key)) {
         forgetLeftover(key);
         slot.handle = *kept;
         ++status_.entries;
         KILN_TRACE(1, "table " << tableName_ << ": entry " << *kept << " is taken over");
         return false;
      }
   }
   if (status != 0) {
      // The slot stays empty, so that a later attempt asks the chip again.
      ++status_.refused;
      throw ZlTableException(tableName_, status);
   }
   slot.handle = handle;
   ++status_.entries;
   // A chip that adds an entry, or gives its handle to another one, has deleted it whatever it said.
   forgetLeftover(key);
   if (const U32* const former = keyOfLeftover_.find(handle)) {
      forgetLeftover(*former);
   }
   return true;
}

void CountTable::remove(U32 key) {
   EntrySlot& slot = keyManager_->slot(key);
   if (!slot) {
      return;
   }
   const U32 handle = std::exchange(slot.handle, 0);
   --status_.entries;
   tryDeletion(key, handle);
}

bool CountTable::retryDeletions() {
   unsigned refusals = 0;
   const std::size_t tries = std::min(refused_.size(), triesPerRound);
   for (std::size_t left = tries; left > 0 && refusals < refusalsPerRound; --left) {
      const auto [key, handle] = *refused_.begin();
      forgetLeftover(key);
      if (tryDeletion(key, handle)) {
         ++lateDeletions_;
      } else {
         ++refusals;
      }
   }
   return refusals == 0 && !refused_.empty();
}

bool CountTable::tryDeletion(U32 key, U32 handle) {
   const std::optional<U32> status = deletionStatus(handle);
   if (status == U32{0}) {
      return true;
   }
   const bool isUnknown = status == statusObjectNotFound;
   (isUnknown ? unknown_ : refused_).set(key, handle); // behind the others
   keyOfLeftover_.set(handle, key);
   return isUnknown;
}

// What the interface throws is a refusal like any other: a rollback has to go on, and the entry must not get lost.
std::optional<U32> CountTable::deletionStatus(U32 handle) const {
   try {
      const U32 status = pdIntf_->entryDel(session_, device_, tableName_, handle);
      if (status != 0) {
         KILN_TRACE(1, "table " << tableName_ << ": entry " << handle << " not deleted: status "
                                << static_cast<int>(status));
      }
      return status;
   } catch (const std::exception& error) {
      KILN_TRACE(1, "table " << tableName_ << ": entry " << handle << " not deleted: " << error.what());
      return std::nullopt;
   }
}

std::optional<U32> CountTable::leftover(U32 key) const {
   for (const auto* const leftovers : {&refused_, &unknown_}) {
      if (const U32* const handle = leftovers->find(key)) {
         return *handle;
      }
   }
   return std::nullopt;
}

void CountTable::forgetLeftover(U32 key) {
   if (const std::optional<U32> handle = leftover(key)) {
      keyOfLeftover_.erase(*handle);
      refused_.erase(key);
      unknown_.erase(key);
   }
}

} // namespace ZlTable
