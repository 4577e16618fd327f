// Looks at files after they were opened, so that nobody can exchange them in between.
#include "kiln/TrustedFile.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace Kiln {

namespace {

using Clock = std::chrono::steady_clock;

constexpr mode_t writableByOthers = S_IWGRP | S_IWOTH;

[[noreturn]] void throwErrno(const std::string& path) {
   throw std::system_error(errno, std::generic_category(), path);
}

std::string userText(uid_t user) {
   return user == 0 ? "root" : "user " + std::to_string(user);
}

std::string modeText(mode_t mode) {
   char text[8];
   std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777U));
   return text;
}

// Why this is no file to call one's own; empty if it is. A file that was just removed is no reason to complain.
std::string distrustOf(const struct stat& status) {
   if (!S_ISREG(status.st_mode)) {
      return "is no regular file";
   }
   if (status.st_uid != geteuid()) {
      return "belongs to " + userText(status.st_uid) + ", not to " + userText(geteuid());
   }
   if ((status.st_mode & writableByOthers) != 0) {
      return "may be written by others (mode " + modeText(status.st_mode) + ")";
   }
   if (status.st_nlink > 1) {
      return "has " + std::to_string(status.st_nlink) + " names (hard links)";
   }
   return "";
}

void requireTrusted(const std::string& path, const struct stat& status) {
   if (const std::string why = distrustOf(status); !why.empty()) {
      throw UntrustedFile(path, why, "remove it, or name another");
   }
}

// The lock of all but one byte says who is the one. It belongs to the open file: another one in the same process
// neither shares it nor drops it by being closed. But the kernel does not tell its process, so that has the last byte
// as well, by a lock of the kind that belongs to a process. Nothing else depends on that.
constexpr off_t nameByte = off_t{1} << 62;

struct flock lockOf(short type, off_t start, off_t length) {
   struct flock request {};
   request.l_type = type;
   request.l_whence = SEEK_SET;
   request.l_start = start;
   request.l_len = length;
   return request;
}

} // namespace

OpenedFile openOwnFile(const std::string& path, mode_t mode) {
   for (;;) {
      OpenedFile opened{OwnedFd(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)), false};
      struct stat status {};
      if (opened.file.isOpen()) {
         if (fstat(opened.file.fd(), &status) != 0) {
            throwErrno(path);
         }
         requireTrusted(path, status);
         return opened;
      }
      const int error = errno;
      if (error != ENOENT) {
         // What it is says more than why it could not be opened.
         if (lstat(path.c_str(), &status) == 0) {
            requireTrusted(path, status);
         }
         errno = error;
         throwErrno(path);
      }
      opened.file = OwnedFd(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
      if (opened.file.isOpen()) {
         opened.isNew = true;
         fchmod(opened.file.fd(), mode);
         return opened;
      }
      if (errno != EEXIST) {
         throwErrno(path);
      }
      // Somebody created it in between: look at that.
   }
}

std::string distrustOfReading(int file, uid_t owner) {
   struct stat status {};
   if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
      return "is no regular file";
   }
   if (status.st_uid != geteuid() && status.st_uid != 0 && status.st_uid != owner) {
      return "belongs to " + userText(status.st_uid) + ", who may write anything there";
   }
   if ((status.st_mode & writableByOthers) != 0) {
      return "may be written by others (mode " + modeText(status.st_mode) + ")";
   }
   return "";
}

void requireTrustedFolder(const std::string& path) {
   struct stat status {};
   if (stat(path.c_str(), &status) != 0) {
      return;
   }
   std::string why;
   if (!S_ISDIR(status.st_mode)) {
      why = "is none";
   } else if (status.st_uid != geteuid() && status.st_uid != 0) {
      why = "belongs to " + userText(status.st_uid) + ", not to " + userText(geteuid());
   } else if ((status.st_mode & writableByOthers) != 0 && (status.st_mode & S_ISVTX) == 0) {
      why = "may be written by others (mode " + modeText(status.st_mode) + ")";
   }
   if (!why.empty()) {
      throw UntrustedFile("the folder " + path, why, "name one that only its owner may write to");
   }
}

std::string folderOf(const std::string& path) {
   const std::size_t slash = path.rfind('/');
   return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

bool freeName(const std::string& path) {
   if (unlink(path.c_str()) == 0 || errno == ENOENT) {
      return true;
   }
   // A folder that is not empty cannot be removed, and what is in it is not looked at.
   const std::string aside = path + "~" + std::to_string(Clock::now().time_since_epoch().count());
   return rmdir(path.c_str()) == 0 || rename(path.c_str(), aside.c_str()) == 0;
}

// At once, so that nobody has the time to take the name again.
OwnedFd openInPlaceOfForeign(const std::string& path, mode_t mode, std::string& replaced) {
   for (int attempt = 1;; ++attempt) {
      try {
         return openOwnFile(path, mode).file;
      } catch (const UntrustedFile& error) {
         if (attempt == attemptsAtName || !freeName(path)) {
            throw;
         }
         replaced = error.why();
      }
   }
}

bool tryLock(int file) {
   struct flock request = lockOf(F_WRLCK, 0, nameByte);
   if (fcntl(file, F_OFD_SETLK, &request) == 0) {
      request = lockOf(F_WRLCK, nameByte, 1);
      fcntl(file, F_SETLK, &request);
      return true;
   }
   if (errno != EAGAIN && errno != EACCES) {
      throwErrno("lock");
   }
   return false;
}

LockHolder lockHolder(int file) {
   LockHolder holder;
   struct flock request = lockOf(F_WRLCK, 0, nameByte);
   holder.isReader = fcntl(file, F_OFD_GETLK, &request) == 0 && request.l_type == F_RDLCK;
   request = lockOf(F_WRLCK, nameByte, 1);
   if (fcntl(file, F_GETLK, &request) == 0 && request.l_type == F_WRLCK && request.l_pid > 0) {
      holder.process = request.l_pid;
   }
   return holder;
}

bool isWriteLocked(int file) {
   // As for a read lock, which other readers' do not stand against.
   struct flock request = lockOf(F_RDLCK, 0, 0);
   if (fcntl(file, F_OFD_GETLK, &request) != 0) {
      throwErrno("lock query");
   }
   return request.l_type != F_UNLCK;
}

std::string byProcess(const LockHolder& holder) {
   return holder.process == 0 ? "" : " by process " + std::to_string(holder.process);
}

FileLock::FileLock(const std::string& path, double seconds, Foreign foreign) : path_(path + "~lock") {
   const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
   while (!tryOnce(foreign)) {
      if (Clock::now() >= deadline) {
         const LockHolder holder = file_.isOpen() ? lockHolder(file_.fd()) : LockHolder();
         throw FileInUse(path + " is in use" + byProcess(holder) + " (" + path_ + " is locked)", holder);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
   }
}

// Whoever has the lock removes the file before it lets go. So a lock counts only if the file still has its name.
bool FileLock::tryOnce(Foreign foreign) {
   constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;
   std::string replaced;
   file_ = foreign == Foreign::removed ? openInPlaceOfForeign(path_, ownerOnly, replaced)
                                       : openOwnFile(path_, ownerOnly).file;
   struct stat status {};
   if (fstat(file_.fd(), &status) == 0 && (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
      unlink(path_.c_str()); // others could lock it, and no agent makes such a file
      return false;
   }
   return tryLock(file_.fd()) && fstat(file_.fd(), &status) == 0 && status.st_nlink != 0;
}

// Only its own file: somebody may have removed that, and another process have made and locked a new one.
FileLock::~FileLock() {
   struct stat own {};
   struct stat named {};
   if (fstat(file_.fd(), &own) == 0 && lstat(path_.c_str(), &named) == 0 && own.st_ino == named.st_ino &&
       own.st_dev == named.st_dev) {
      unlink(path_.c_str());
   }
}

} // namespace Kiln
