// Where shared tables live: POSIX shared memory, files in a directory, or nowhere that has a name.
#pragma once

#include "silo/Mapping.h"

#include <memory>
#include <string>
#include <sys/types.h>

namespace Silo {

// A table's file that was opened for writing.
struct OpenedTable {
   Mapping mapping;      // locked; empty if the table is new
   std::string replaced; // why what had the name before was removed; empty if nothing was
};

// A value: names a place and holds nothing open, but for temporary tables. A table's name is 1 to 63 letters, digits,
// '.', '_' or '-', not beginning with '.'. Every failure throws TableError, naming the table, its place and what to do.
//
// A writer takes a file only if it is its user's own and nobody else may write to it. Root replaces what others have
// put under a table's name in shared memory; anywhere else such a thing is refused. A reader takes files of its own
// user, of root, and of whoever owns the directory.
class Store {
 public:
   static constexpr mode_t defaultMode = 0644; // every process may read, only the owner may write

   // Shared memory objects "/PREFIX.TABLE". The prefix keeps apart the agents of one machine.
   static Store sharedMemory(const std::string& prefix, mode_t mode = defaultMode);
   // The same with a prefix of this user's own: that name for root, NAME.UID for anybody else.
   static Store sharedMemoryOfUser(const std::string& name, mode_t mode = defaultMode);
   // Where a reader finds that table: this user's if there is one, or else root's. But one with a living writer comes
   // before one without.
   static Store sharedMemoryOfUserOrRoot(const std::string& name, const std::string& table);
   // Mapped files DIRECTORY/TABLE; they outlive a restart of the machine. The directory has to exist.
   static Store directory(const std::string& path, mode_t mode = defaultMode);
   // Memory that only this process can open, by copies of this object. It goes with the last of them, and with the
   // process however that ends. One thread at a time.
   static Store temporary();

   // A read-only mapping; read permission is enough.
   Mapping openForReading(const std::string& table) const;
   // Throws WriterConflict if the table has a writer. A lock of anybody else's does not keep a writer away: the table
   // then goes on in another file. Waits for others that open the table at the same time, but not for ever.
   OpenedTable openForWriting(const std::string& table) const;
   // For a table of that name that is to be replaced by another one, by the holder of its lock. First an empty one beside
   // it, locked and writable; then, once that is whole, its way to the name. A kill leaves the one or the other there.
   Mapping openSuccessor(const std::string& table) const;
   void promoteSuccessor(const std::string& table) const;
   void removeSuccessor(const std::string& table) const;
   // What became of the file of a table that was opened: removed, replaced or cut. Empty: nothing.
   std::string lossOf(const std::string& table, const Mapping& mapping) const;
   // Gives the file of a table that was opened its mode again. What had become of it; empty: nothing.
   std::string restoreMode(Mapping& mapping) const;
   // Whether the name is that of the file that was opened.
   bool isNamed(const std::string& table, const Mapping& mapping) const;
   // Removes the name; whoever has the table open keeps it. An absent table is not an error.
   void remove(const std::string& table) const;

   // The table's name and place, as they stand in messages.
   std::string describe(const std::string& table) const;
   // The user whose tables these are, as "root"; empty unless it was looked for.
   const std::string& foundOwner() const { return foundOwner_; }

 private:
   enum class Kind { sharedMemory, directory, temporary };
   struct TemporaryFiles;
   Store(Kind kind, std::string place, mode_t mode);

   std::string pathOf(const std::string& table) const;
   std::string successorPathOf(const std::string& table) const;
   bool replacesForeign() const;
   int openOrCreate(const std::string& table, std::string& replaced) const;
   Mapping copyOf(const std::string& table, const Mapping& old) const;
   int openTemporary(const std::string& table, int flags) const;
   bool statusOf(const std::string& table, struct stat& status) const;
   [[noreturn]] void fail(const std::string& table, const char* doing, int error) const;

   Kind kind_;
   std::string place_; // the prefix, or the directory
   mode_t mode_;
   std::string foundOwner_;
   std::shared_ptr<TemporaryFiles> temporary_;
};

} // namespace Silo
