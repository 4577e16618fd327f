// Maps, grows and locks the file.
#include "silo/Mapping.h"

#include "kiln/TrustedFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Silo {

namespace {

[[noreturn]] void throwError(int error, const char* what) {
   throw std::system_error(error, std::generic_category(), what);
}

struct stat statusOf(int descriptor) {
   struct stat status {};
   if (fstat(descriptor, &status) != 0) {
      throwError(errno, "fstat");
   }
   return status;
}

} // namespace

Mapping::Mapping(int descriptor, bool isWritable, Names names)
     : descriptor_(descriptor), isWritable_(isWritable), isNamed_(names == Names::one) {
   try {
      map(static_cast<std::size_t>(statusOf(descriptor_).st_size));
   } catch (...) {
      close(descriptor_);
      throw;
   }
}

Mapping::~Mapping() {
   unmap();
   if (descriptor_ >= 0) {
      close(descriptor_);
   }
}

bool Mapping::lock() {
   return Kiln::tryLock(descriptor_);
}

Kiln::LockHolder Mapping::lockHolder() const {
   return Kiln::lockHolder(descriptor_);
}

bool Mapping::isLockedByAnother() const {
   return Kiln::isWriteLocked(descriptor_);
}

bool Mapping::isStale() const {
   struct stat status = statusOf(descriptor_);
   // Beyond the end of a file that was cut, a load would raise SIGBUS.
   return isLost() || (isNamed_ && status.st_nlink == 0) || static_cast<std::size_t>(status.st_size) < size_;
}

std::size_t Mapping::fileSize() const {
   return static_cast<std::size_t>(statusOf(descriptor_).st_size);
}

bool Mapping::isOf(const struct stat& status) const {
   const struct stat own = statusOf(descriptor_);
   return own.st_dev == status.st_dev && own.st_ino == status.st_ino;
}

bool Mapping::copyFromFile(std::size_t offset, void* to, std::size_t size) const {
   ssize_t copied;
   do {
      copied = pread(descriptor_, to, size, static_cast<off_t>(offset));
   } while (copied < 0 && errno == EINTR);
   return copied == static_cast<ssize_t>(size);
}

void Mapping::grow(std::size_t size) {
   // Only what is missing: the system looks at each page that it is asked for, also at those that are there.
   const std::size_t begin = fileSize() < allocated_ || size <= allocated_ ? 0 : allocated_;
   int error;
   do {
      error = posix_fallocate(descriptor_, static_cast<off_t>(begin), static_cast<off_t>(size - begin));
   } while (error == EINTR);
   if (error != 0) {
      throwError(error, "allocate");
   }
   // The former one goes last: whoever is refused goes on with it.
   std::byte* const former = data_;
   const std::size_t formerSize = size_;
   map(size);
   allocated_ = size;
   if (former != nullptr) {
      munmap(former, formerSize);
   }
}

mode_t Mapping::mode() const {
   constexpr mode_t permissions = 07777;
   return statusOf(descriptor_).st_mode & permissions;
}

void Mapping::modeIs(mode_t mode) {
   if (fchmod(descriptor_, mode) != 0) {
      throwError(errno, "change the mode of");
   }
}

void Mapping::remap() {
   unmap();
   allocated_ = 0;
   map(fileSize());
}

void Mapping::sync() const {
   if (msync(data_, size_, MS_SYNC) != 0) {
      throwError(errno, "write back");
   }
}

void Mapping::swap(Mapping& other) noexcept {
   std::swap(descriptor_, other.descriptor_);
   std::swap(isWritable_, other.isWritable_);
   std::swap(isNamed_, other.isNamed_);
   std::swap(data_, other.data_);
   std::swap(size_, other.size_);
   std::swap(allocated_, other.allocated_);
   std::swap(guard_, other.guard_);
}

void Mapping::map(std::size_t size) {
   // mmap refuses a length of 0, and a file that was just created is empty.
   if (size == 0) {
      return;
   }
   int protection = isWritable_ ? PROT_READ | PROT_WRITE : PROT_READ;
   void* data = mmap(nullptr, size, protection, MAP_SHARED, descriptor_, 0);
   if (data == MAP_FAILED) {
      throwError(errno, "map");
   }
   data_ = static_cast<std::byte*>(data);
   size_ = size;
   guard_ = Kiln::GuardedMapping(data_, size_);
}

void Mapping::unmap() {
   if (data_ != nullptr) {
      guard_ = {};
      munmap(data_, size_);
      data_ = nullptr;
      size_ = 0;
   }
}

} // namespace Silo
