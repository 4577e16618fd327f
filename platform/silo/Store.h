// Where shared tables live: POSIX shared memory, or files in a directory.
#pragma once

#include "silo/Mapping.h"

#include <string>
#include <sys/types.h>

namespace Silo {

// A value: names a place and holds nothing open. A table's name is 1 to 63 letters, digits, '.', '_' or '-', not
// beginning with '.'. Every failure throws TableError, naming the table, its place and what to do.
class Store {
 public:
   static constexpr mode_t defaultMode = 0644; // every process may read, only the owner may write

   // Shared memory objects "/PREFIX.TABLE". The prefix keeps apart the agents of one machine.
   static Store sharedMemory(const std::string& prefix, mode_t mode = defaultMode);
   // Mapped files DIRECTORY/TABLE; they outlive a restart of the machine. The directory has to exist.
   static Store directory(const std::string& path, mode_t mode = defaultMode);

   // A read-only mapping; read permission is enough.
   Mapping openForReading(const std::string& table) const;
   // A locked, writable mapping, empty if the table is new. Throws WriterConflict if the table has a writer.
   Mapping openForWriting(const std::string& table) const;
   // For a table of that name that is to be replaced by another one, by the holder of its lock. First an empty one beside
   // it, locked and writable; then, once that is whole, its way to the name. A kill leaves the one or the other there.
   Mapping openSuccessor(const std::string& table) const;
   void promoteSuccessor(const std::string& table) const;
   void removeSuccessor(const std::string& table) const;
   // What became of the file of a table that was opened: removed, replaced or cut. Empty: nothing.
   std::string lossOf(const std::string& table, const Mapping& mapping) const;
   // Whether the name is that of the file that was opened.
   bool isNamed(const std::string& table, const Mapping& mapping) const;
   // Removes the name; whoever has the table open keeps it. An absent table is not an error.
   void remove(const std::string& table) const;

   // The table's name and place, as they stand in messages.
   std::string describe(const std::string& table) const;

 private:
   enum class Kind { sharedMemory, directory };
   Store(Kind kind, std::string place, mode_t mode) : kind_(kind), place_(std::move(place)), mode_(mode) {}

   std::string pathOf(const std::string& table) const;
   std::string successorPathOf(const std::string& table) const;
   std::string fileOf(const std::string& path) const;
   bool statusOf(const std::string& table, struct stat& status) const;
   int open(const std::string& path, int flags) const;
   int create(const std::string& path) const;
   int unlink(const std::string& path) const;
   int openOrCreate(const std::string& table) const;
   [[noreturn]] void fail(const std::string& table, const char* doing, int error) const;

   Kind kind_;
   std::string place_; // the prefix, or the directory
   mode_t mode_;
};

} // namespace Silo
