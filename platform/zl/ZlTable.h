// What the count-table libraries share: a chip's match tables whose entries exist only to count.
//
// A table keeps, for each match spec, the handle that the chip gave its entry. Activity thread.
#pragma once

#include "kiln/Collections.h"
#include "kiln/Ptr.h"
#include "zl/ZlPd.h"

#include <deque>
#include <optional>
#include <span>
#include <stdexcept>

namespace ZlTable {

// The chip refused an entry, usually because the table is full. The table is unchanged.
class ZlTableException : public std::runtime_error {
 public:
   ZlTableException(const Kiln::String& tableName, U32 status);
   U32 status() const { return status_; } // the SDK's

 private:
   U32 status_;
};

// The place where a table keeps the handle of one match spec's entry.
struct EntrySlot {
   U32 handle = 0; // 0: the table holds no such entry
   explicit operator bool() const { return handle != 0; }
};

// The slots of one table, by the key of the match spec.
class KeyManager : public Kiln::PtrInterface {
 public:
   // A missing slot is made, empty. A slot keeps its address as long as the manager lives, whatever becomes of the
   // entry: callers hold on to it, to save the look-up.
   EntrySlot& slot(U32 key);

 private:
   std::deque<EntrySlot> slots_; // side by side, since a pass reads neighbours one after the other
   Kiln::HashMap<U32, EntrySlot*> slotOfKey_;
};

// How full the tables of one chip are.
class TableStatusManager : public Kiln::PtrInterface {
 public:
   struct TableStatus {
      U32 entries = 0;
      U64 refused = 0; // entries that the chip refused
   };

   // By table name. A missing one is made; it keeps its address.
   TableStatus& tableStatus(const Kiln::String& tableName);

 private:
   Kiln::HashMap<Kiln::String, TableStatus> tables_;
};

// Entries by key. The tables derive from it and add what their match specs look like.
//
// For the callers an entry that they delete is gone. If the chip refuses to delete it, it still takes room and counts:
// the table keeps its handle and tries again, before each addition and whenever it is told to. If the chip says that it
// has no such entry, it is not asked again. An addition that meets a kept entry takes it over.
class CountTable : public Kiln::PtrInterface {
 public:
   // Entries go to one pipe or (65535) to all. No flag is defined; pass 0. Asserts that no pointer is null.
   CountTable(Kiln::Ptr<KeyManager> keyManager, Kiln::Ptr<TableStatusManager> tableStatusManager,
              Kiln::Ptr<ZlPd::ZlPdIntf> pdIntf, U32 flags, U32 session, U32 device, U16 pipe,
              Kiln::String tableName);

   const Kiln::String& tableName() const { return tableName_; }
   U32 size() const { return status_.entries; }

   // Tries again to delete some of what the chip refused to. True if all of these are gone and there are more.
   bool retryDeletions();
   // How many entries a later try has deleted, or found gone: each made room.
   U64 lateDeletions() const { return lateDeletions_; }

 protected:
   const EntrySlot& slot(U32 key) const { return keyManager_->slot(key); }
   // False if the entry was there, and counts on: it was never deleted, or the chip has kept it. Throws
   // ZlTableException.
   bool add(U32 key, std::span<const ZlPd::MatchField> match);
   // Does nothing for an absent entry.
   void remove(U32 key);

 private:
   // True if the entry is gone: the chip deleted it, or has none.
   bool tryDeletion(U32 key, U32 handle);
   std::optional<U32> deletionStatus(U32 handle) const; // none if the interface threw
   // The handle of the key's entry that the chip did not delete.
   std::optional<U32> leftover(U32 key) const;
   void forgetLeftover(U32 key);

   Kiln::Ptr<KeyManager> keyManager_;
   Kiln::Ptr<TableStatusManager> tableStatusManager_;
   Kiln::Ptr<ZlPd::ZlPdIntf> pdIntf_;
   U32 session_;
   U32 device_;
   U16 pipe_;
   Kiln::String tableName_;
   TableStatusManager::TableStatus& status_;
   // The handles, by key, of entries that the chip did not delete. A key is in one of them.
   Kiln::HashMap<U32, U32> refused_;       // tried again; the one that was tried last at the end
   Kiln::HashMap<U32, U32> unknown_;       // the chip says that it has no such entry; not tried again
   Kiln::HashMap<U32, U32> keyOfLeftover_; // the keys of both, by handle
   U64 lateDeletions_ = 0;
};

} // namespace ZlTable
