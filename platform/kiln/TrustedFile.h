// Files and folders that other users could have put there first: opened only if they are this user's own.
#pragma once

#include "kiln/OwnedFd.h"

#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <utility>

namespace Kiln {

// Something of this name is not what it has to be. The text is one line that names it, says why, and what to do.
class UntrustedFile : public std::runtime_error {
 public:
   UntrustedFile(const std::string& name, std::string why, const std::string& advice)
        : std::runtime_error(name + " " + why + ": " + advice), why_(std::move(why)) {}
   const std::string& why() const { return why_; } // without name and advice

 private:
   std::string why_;
};

struct OpenedFile {
   OwnedFd file;
   bool isNew = false;
};

// Opens a file of this user's for reading and writing, or creates it with this mode, which the umask does not touch.
// What is there has to be a regular file of this user's with one name, which nobody else may write. Follows no link and
// waits at no pipe. Throws UntrustedFile, or std::system_error for what the system refuses.
OpenedFile openOwnFile(const std::string& path, mode_t mode);

// Why an open file is none to read from; empty if it is. It has to be regular and of this user, of root or of `owner`,
// and writable by nobody else.
std::string distrustOfReading(int file, uid_t owner);

// Throws UntrustedFile unless the folder is this user's or root's, and nobody else may write to it; or is sticky, as
// /tmp, where each file's owner decides. An absent folder is no error.
void requireTrustedFolder(const std::string& path);

// The folder that a path lies in.
std::string folderOf(const std::string& path);

// What is to be removed to free a name that another user has taken in a folder of this user's. A folder that cannot be
// removed gets another name. Returns whether the name is free.
bool freeName(const std::string& path);

// How often a name is freed for one that somebody else takes again and again.
constexpr int attemptsAtName = 100;

// openOwnFile, but what another user has put there is taken away, for a folder of this user's. `replaced` is then why.
OwnedFd openInPlaceOfForeign(const std::string& path, mode_t mode, std::string& replaced);

// --- Locks. They belong to the open file, so the kernel drops them however the process ends.

// Takes the one write lock of the file; false if somebody has a lock there. Does not wait.
bool tryLock(int file);

struct LockHolder {
   bool isReader = false; // who has a read lock, as anybody may who can open the file
   pid_t process = 0;     // a living one; 0: not known, or this one
};
// Who keeps tryLock from succeeding.
LockHolder lockHolder(int file);
// Whether somebody has the write lock, through another open file. Needs read permission only.
bool isWriteLocked(int file);

// The text " by process N", or nothing if it is not known.
std::string byProcess(const LockHolder& holder);

// Another process has the lock.
class FileInUse : public std::runtime_error {
 public:
   FileInUse(const std::string& text, const LockHolder& holder) : std::runtime_error(text), holder_(holder) {}
   const LockHolder& holder() const { return holder_; }

 private:
   LockHolder holder_;
};

// A lock for what a path stands for, by a file PATH~lock beside it that only this user can open and that is there only
// while it is held, or after a kill.
class FileLock {
 public:
   enum class Foreign { refused, removed };

   // Waits at most so many seconds. Throws UntrustedFile for a lock file that is not this user's, unless it is to be
   // removed; FileInUse when the time is over; std::system_error for what the system refuses.
   FileLock(const std::string& path, double seconds, Foreign foreign = Foreign::refused);
   ~FileLock();
   FileLock(const FileLock&) = delete;
   FileLock& operator=(const FileLock&) = delete;

   // Long enough for whoever only opens or creates something under the lock.
   static constexpr double patience = 5; // seconds

 private:
   bool tryOnce(Foreign foreign);

   std::string path_;
   OwnedFd file_;
};

} // namespace Kiln
