// Opens, creates and removes tables by name, and explains what the system refuses.
#include "silo/Store.h"

#include "silo/Errors.h"
#include "silo/TableHeader.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Silo {

namespace {

constexpr std::size_t maxNameLength = 63;

// The names become parts of a path: a slash in one would lead out of the store's place.
void requireName(const std::string& what, const std::string& name) {
   auto isAllowed = [](char c) {
      return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
             c == '_' || c == '-';
   };
   if (name.empty() || name.size() > maxNameLength || name[0] == '.' ||
       !std::all_of(name.begin(), name.end(), isAllowed)) {
      throw TableError("\"" + name + "\" is no " + what + ": expected 1 to " + std::to_string(maxNameLength) +
                       " letters, digits, '.', '_' or '-', not beginning with '.'");
   }
}

std::string hintFor(int error) {
   switch (error) {
   case ENOENT:
      return " (is its writer running, with the same place for its tables?)";
   case EACCES:
   case EPERM:
      return " (another user's? a table needs read permission to read, and its owner to write)";
   case ENOSPC:
      return " (free some space, or lower the table's capacity)";
   case ELOOP:
      return " (a symbolic link is not followed)";
   default:
      return "";
   }
}

} // namespace

Store Store::sharedMemory(const std::string& prefix, mode_t mode) {
   requireName("shared memory prefix", prefix);
   return {Kind::sharedMemory, prefix, mode};
}

Store Store::directory(const std::string& path, mode_t mode) {
   struct stat status {};
   if (stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
      throw TableError("\"" + path +
                       "\" is no directory for shared tables: create it first, or name another");
   }
   return {Kind::directory, path, mode};
}

Mapping Store::openForReading(const std::string& table) const {
   // O_NONBLOCK, because opening a FIFO of that name would otherwise block the reader.
   int descriptor = open(pathOf(table), O_RDONLY | O_NONBLOCK);
   if (descriptor < 0) {
      fail(table, "open", errno);
   }
   try {
      return {descriptor, false};
   } catch (const std::system_error& error) {
      fail(table, "map", error.code().value());
   }
}

Mapping Store::openForWriting(const std::string& table) const {
   try {
      for (;;) {
         Mapping mapping(openOrCreate(table), true);
         if (!mapping.lock()) {
            pid_t holder = writerPidOf(mapping);
            throw WriterConflict(describe(table) + " already has a writer" +
                                      (holder != 0 ? ", process " + std::to_string(holder) : "") +
                                      ": stop that one first, or use another place for the tables",
                                 holder);
         }
         if (!mapping.isStale()) {
            return mapping;
         }
         // Another writer replaced the file after it was opened here and before it was locked: open the new one.
      }
   } catch (const std::system_error& error) {
      fail(table, "lock or map", error.code().value());
   }
}

Mapping Store::openSuccessor(const std::string& table) const {
   const std::string path = successorPathOf(table);
   removeSuccessor(
        table); // a killed writer may have left one; what cannot be removed is an error of the next call
   const int descriptor = create(path);
   if (descriptor < 0) {
      fail(table, "create a successor of", errno);
   }
   try {
      Mapping mapping(descriptor, true);
      mapping.lock(); // nobody else has it open: the lock on the table itself keeps other writers away
      return mapping;
   } catch (const std::system_error& error) {
      fail(table, "lock or map a successor of", error.code().value());
   }
}

void Store::promoteSuccessor(const std::string& table) const {
   if (std::rename(fileOf(successorPathOf(table)).c_str(), fileOf(pathOf(table)).c_str()) != 0) {
      fail(table, "replace", errno);
   }
}

void Store::removeSuccessor(const std::string& table) const {
   unlink(successorPathOf(table));
}

std::string Store::lossOf(const std::string& table, const Mapping& mapping) const {
   struct stat status {};
   if (!statusOf(table, status)) {
      return "was removed";
   }
   if (!mapping.isOf(status)) {
      return "was replaced by another file";
   }
   if (mapping.isLost() || static_cast<std::size_t>(status.st_size) < mapping.size()) {
      return "was cut to " + std::to_string(status.st_size) + " of " + std::to_string(mapping.size()) +
             " bytes";
   }
   return "";
}

bool Store::isNamed(const std::string& table, const Mapping& mapping) const {
   struct stat status {};
   return statusOf(table, status) && mapping.isOf(status);
}

bool Store::statusOf(const std::string& table, struct stat& status) const {
   return lstat(fileOf(pathOf(table)).c_str(), &status) == 0;
}

void Store::remove(const std::string& table) const {
   removeSuccessor(table); // which only a killed writer leaves
   if (unlink(pathOf(table)) != 0 && errno != ENOENT) {
      fail(table, "remove", errno);
   }
}

std::string Store::describe(const std::string& table) const {
   return "table " + table + " (" + (kind_ == Kind::sharedMemory ? "shared memory " : "") + pathOf(table) +
          ")";
}

std::string Store::pathOf(const std::string& table) const {
   requireName("table name", table);
   return kind_ == Kind::sharedMemory ? "/" + place_ + "." + table : place_ + "/" + table;
}

// No table's name has this character.
std::string Store::successorPathOf(const std::string& table) const {
   return pathOf(table) + "~";
}

// Shared memory objects have no call for all that files can do, but on Linux they are files in this folder.
std::string Store::fileOf(const std::string& path) const {
   return (kind_ == Kind::sharedMemory ? "/dev/shm" : "") + path;
}

int Store::open(const std::string& path, int flags) const {
   // A link is not followed, since another user could have put it there and have the writer overwrite any file.
   // shm_open sets both flags itself.
   return kind_ == Kind::sharedMemory ? shm_open(path.c_str(), flags, mode_)
                                      : ::open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, mode_);
}

int Store::create(const std::string& path) const {
   int descriptor = open(path, O_RDWR | O_CREAT | O_EXCL);
   if (descriptor >= 0) {
      fchmod(descriptor, mode_); // overrides the umask: readers run as other users
   }
   return descriptor;
}

int Store::unlink(const std::string& path) const {
   return kind_ == Kind::sharedMemory ? shm_unlink(path.c_str()) : ::unlink(path.c_str());
}

// Opening and creating are two steps, since O_CREAT alone would not tell whether the mode has to be set. Between them
// another process may create or remove the file: then both are tried again.
int Store::openOrCreate(const std::string& table) const {
   const std::string path = pathOf(table);
   for (;;) {
      int descriptor = open(path, O_RDWR | O_NONBLOCK);
      if (descriptor >= 0) {
         return descriptor;
      }
      if (errno != ENOENT) {
         fail(table, "open for writing", errno);
      }
      descriptor = create(path);
      if (descriptor >= 0) {
         return descriptor;
      }
      if (errno != EEXIST) {
         fail(table, "create", errno);
      }
   }
}

void Store::fail(const std::string& table, const char* doing, int error) const {
   throw TableError(std::string("can't ") + doing + " " + describe(table) + ": " +
                    std::generic_category().message(error) + hintFor(error));
}

} // namespace Silo
