// Opens, creates and removes tables by name, and explains what the system refuses.
#include "silo/Store.h"

#include "kiln/TrustedFile.h"
#include "silo/Errors.h"
#include "silo/TableHeader.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Silo {

namespace {

constexpr std::size_t maxNameLength = 63;
// Where Linux has shared memory objects, as files.
constexpr const char* sharedMemoryFolder = "/dev/shm/";
constexpr mode_t ownerOnly = 0600;

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

struct Store::TemporaryFiles {
   std::map<std::string, Kiln::OwnedFd> files; // by table
};

Store::Store(Kind kind, std::string place, mode_t mode)
     : kind_(kind), place_(std::move(place)), mode_(mode) {}

Store Store::sharedMemory(const std::string& prefix, mode_t mode) {
   requireName("shared memory prefix", prefix);
   return {Kind::sharedMemory, prefix, mode};
}

Store Store::sharedMemoryOfUser(const std::string& name, mode_t mode) {
   const uid_t user = geteuid();
   return sharedMemory(user == 0 ? name : name + "." + std::to_string(user), mode);
}

Store Store::sharedMemoryOfUserOrRoot(const std::string& name, const std::string& table) {
   Store own = sharedMemoryOfUser(name);
   Store roots = sharedMemory(name);
   if (geteuid() == 0) {
      return roots;
   }
   own.foundOwner_ = "user " + std::to_string(geteuid());
   roots.foundOwner_ = "root";
   const Store* found = nullptr;
   for (const Store* one : {&own, &roots}) {
      try {
         if (one->openForReading(table).isLockedByAnother()) {
            return *one;
         }
         found = found == nullptr ? one : found;
      } catch (const std::exception&) { // not there, or none to trust
      }
   }
   return found != nullptr ? *found : own;
}

Store Store::directory(const std::string& path, mode_t mode) {
   struct stat status {};
   if (stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
      throw TableError("\"" + path +
                       "\" is no directory for shared tables: create it first, or name another");
   }
   return {Kind::directory, path, mode};
}

Store Store::temporary() {
   Store store(Kind::temporary, "", ownerOnly);
   store.temporary_ = std::make_shared<TemporaryFiles>();
   return store;
}

Mapping Store::openForReading(const std::string& table) const {
   if (kind_ == Kind::temporary) {
      return {openTemporary(table, O_RDONLY), false, Mapping::Names::none};
   }
   // O_NONBLOCK, because opening a FIFO of that name would otherwise block the reader. A link is not followed, since
   // anybody could have put it there.
   Kiln::OwnedFd file(open(pathOf(table).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
   if (!file.isOpen()) {
      fail(table, "open", errno);
   }
   struct stat folder {};
   if (kind_ == Kind::directory && stat(place_.c_str(), &folder) != 0) {
      fail(table, "open", errno);
   }
   if (const std::string why = Kiln::distrustOfReading(file.fd(), folder.st_uid); !why.empty()) {
      throw TableError(describe(table) + " " + why + ": no table to read from");
   }
   try {
      return {file.release(), false};
   } catch (const std::system_error& error) {
      fail(table, "map", error.code().value());
   }
}

OpenedTable Store::openForWriting(const std::string& table) const {
   if (kind_ == Kind::temporary) {
      Mapping mapping(openTemporary(table, O_RDWR), true, Mapping::Names::none);
      if (!mapping.lock()) {
         throw WriterConflict(describe(table) + " already has a writer", getpid());
      }
      return {std::move(mapping), ""};
   }
   try {
      if (kind_ == Kind::directory) {
         Kiln::requireTrustedFolder(place_);
      }
      // Whoever creates or replaces the file does so alone.
      const Kiln::FileLock opening(pathOf(table), Kiln::FileLock::patience,
                                   replacesForeign() ? Kiln::FileLock::Foreign::removed
                                                     : Kiln::FileLock::Foreign::refused);
      OpenedTable opened;
      do {
         opened.mapping = Mapping(openOrCreate(table, opened.replaced), true);
         if (!opened.mapping.lock()) {
            const Kiln::LockHolder holder = opened.mapping.lockHolder();
            if (!holder.isReader) {
               throw WriterConflict(
                    describe(table) + " already has a writer" +
                         (holder.process != 0 ? ", process " + std::to_string(holder.process) : "") +
                         ": stop that one first, or use another place for the tables",
                    holder.process);
            }
            opened.mapping = copyOf(table, opened.mapping);
         }
         // Stale if it was removed after it was opened and before it was locked.
      } while (opened.mapping.isStale());
      // Only now may readers open it: nobody can lock it any more. This overrides the umask, too.
      opened.mapping.modeIs(mode_);
      removeSuccessor(table); // which only a killed writer leaves
      return opened;
   } catch (const std::system_error& error) {
      fail(table, "lock or map", error.code().value());
   } catch (const TableError&) {
      throw;
   } catch (const std::runtime_error& error) { // what Kiln has to say of files and locks
      throw TableError("table " + table + ": " + error.what());
   }
}

Mapping Store::openSuccessor(const std::string& table) const {
   if (kind_ == Kind::temporary) {
      temporary_->files.erase(table);
      return openForWriting(table).mapping;
   }
   const std::string path = successorPathOf(table);
   int descriptor = -1;
   for (int attempt = 0; descriptor < 0 && attempt < Kiln::attemptsAtName; ++attempt) {
      removeSuccessor(table); // a killed writer may have left one, or another user have put something there
      descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, ownerOnly);
      if (descriptor < 0 && errno != EEXIST) {
         break;
      }
   }
   if (descriptor < 0) {
      fail(table, "create a successor of", errno);
   }
   try {
      Mapping mapping(descriptor, true);
      mapping.lock(); // nobody else has it open
      mapping.modeIs(mode_);
      return mapping;
   } catch (const std::system_error& error) {
      fail(table, "lock or map a successor of", error.code().value());
   }
}

void Store::promoteSuccessor(const std::string& table) const {
   if (kind_ != Kind::temporary && std::rename(successorPathOf(table).c_str(), pathOf(table).c_str()) != 0) {
      fail(table, "replace", errno);
   }
}

void Store::removeSuccessor(const std::string& table) const {
   if (replacesForeign()) {
      Kiln::freeName(successorPathOf(table));
   } else if (kind_ != Kind::temporary) {
      unlink(successorPathOf(table).c_str());
   }
}

std::string Store::lossOf(const std::string& table, const Mapping& mapping) const {
   struct stat status {};
   if (kind_ == Kind::temporary) {
      return ""; // nobody else has it
   }
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

std::string Store::restoreMode(Mapping& mapping) const {
   const mode_t mode = mapping.mode();
   if (kind_ == Kind::temporary || mode == mode_) {
      return "";
   }
   mapping.modeIs(mode_);
   char text[8];
   std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode));
   return std::string("had its mode changed to ") + text;
}

bool Store::isNamed(const std::string& table, const Mapping& mapping) const {
   struct stat status {};
   return kind_ == Kind::temporary || (statusOf(table, status) && mapping.isOf(status));
}

bool Store::statusOf(const std::string& table, struct stat& status) const {
   return lstat(pathOf(table).c_str(), &status) == 0;
}

void Store::remove(const std::string& table) const {
   if (kind_ == Kind::temporary) {
      temporary_->files.erase(table);
      return;
   }
   removeSuccessor(table); // which only a killed writer leaves
   if (unlink(pathOf(table).c_str()) != 0 && errno != ENOENT) {
      fail(table, "remove", errno);
   }
}

std::string Store::describe(const std::string& table) const {
   return "table " + table + " (" + (kind_ == Kind::temporary ? "temporary" : pathOf(table)) + ")";
}

std::string Store::pathOf(const std::string& table) const {
   requireName("table name", table);
   return kind_ == Kind::sharedMemory ? sharedMemoryFolder + place_ + "." + table : place_ + "/" + table;
}

// No table's name has this character.
std::string Store::successorPathOf(const std::string& table) const {
   return pathOf(table) + "~";
}

// The folder of shared memory is root's, so root may remove what is in it.
bool Store::replacesForeign() const {
   return kind_ == Kind::sharedMemory && geteuid() == 0;
}

// A file of this user's. Created for the owner only, so that nobody else has it open when it is locked.
int Store::openOrCreate(const std::string& table, std::string& replaced) const {
   const std::string path = pathOf(table);
   return replacesForeign() ? Kiln::openInPlaceOfForeign(path, ownerOnly, replaced).release()
                            : Kiln::openOwnFile(path, ownerOnly).file.release();
}

// The same table in a file that nobody else has open. Under the lock for opening, and nobody writes to the old one: who
// has a read lock keeps everybody else's write lock away.
Mapping Store::copyOf(const std::string& table, const Mapping& old) const {
   Mapping copy = openSuccessor(table);
   if (old.size() != 0) {
      copy.grow(old.size());
      std::memcpy(copy.data(), old.data(), old.size());
      copy.sync();
   }
   promoteSuccessor(table);
   if (old.size() >= sizeof(TableHeader)) {
      reinterpret_cast<TableHeader*>(old.data())->retire(); // sends readers to the copy
   }
   return copy;
}

// Opened anew each time, since a lock belongs to what was opened.
int Store::openTemporary(const std::string& table, int flags) const {
   requireName("table name", table);
   Kiln::OwnedFd& file = temporary_->files[table];
   if (!file.isOpen() && flags == O_RDWR) {
      file = Kiln::OwnedFd(memfd_create(table.c_str(), MFD_CLOEXEC));
   }
   const std::string path = "/proc/self/fd/" + std::to_string(file.fd());
   const int opened = file.isOpen() ? open(path.c_str(), flags | O_CLOEXEC) : -1;
   if (opened < 0) {
      fail(table, "open", file.isOpen() ? errno : ENOENT);
   }
   return opened;
}

void Store::fail(const std::string& table, const char* doing, int error) const {
   throw TableError(std::string("can't ") + doing + " " + describe(table) + ": " +
                    std::generic_category().message(error) + hintFor(error));
}

} // namespace Silo
