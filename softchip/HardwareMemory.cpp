// The file: a page of header, then one place of fixed size per chip, allocated as far as the chip needs it.
#include "softchip/HardwareMemory.h"

#include "kiln/Assert.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace SoftChip {

namespace {

constexpr U64 fileMagic = 0x3157485f4c455a00; // "\0ZEL_HW1" as it lies in the file
constexpr U32 fileVersion = 1;
constexpr U32 fileByteOrder = 0x01020304;
constexpr std::size_t headerBytes = 4096; // a page, since places are mapped one by one

U64 offsetOf(unsigned deviceId) {
   return headerBytes + deviceId * HardwareMemory::regionBytesLimit;
}

} // namespace

HardwareMemory::HardwareMemory(const Kiln::String& path) : path_(path) {
   static_assert(sizeof(Header) <= headerBytes);
   try {
      if (!path_.empty()) {
         openFile();
      }
   } catch (...) {
      // No destructor runs for a constructor that throws.
      unmap();
      throw;
   }
}

HardwareMemory::~HardwareMemory() {
   unmap();
}

void HardwareMemory::unmap() {
   guards_ = {};
   headerGuard_ = {};
   for (const auto& region : regions_) {
      if (!region.empty()) {
         munmap(region.data(), region.size_bytes());
      }
   }
   if (header_ != nullptr) {
      munmap(header_, headerBytes);
   }
}

void HardwareMemory::fail(const Kiln::String& what) const {
   throw std::runtime_error("hardware file " + path_ + ": " + what);
}

void HardwareMemory::openFile() {
   constexpr const char* foreign = "not a file of hardware counters: name another file, or remove it";
   file_ = Kiln::OwnedFd(open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
   if (!file_.isOpen()) {
      fail(std::strerror(errno));
   }
   // Before anything is read: two agents counting in one file would spoil both.
   if (flock(file_.fd(), LOCK_EX | LOCK_NB) != 0) {
      fail("in use by another agent: give each agent a file of its own");
   }
   struct stat status {};
   if (fstat(file_.fd(), &status) != 0 || !S_ISREG(status.st_mode)) {
      fail("not a regular file");
   }
   const bool isNew = status.st_size == 0;
   if (isNew ? ftruncate(file_.fd(), headerBytes) != 0 : static_cast<U64>(status.st_size) < headerBytes) {
      fail(isNew ? std::strerror(errno) : foreign);
   }
   void* const mapped = mmap(nullptr, headerBytes, PROT_READ | PROT_WRITE, MAP_SHARED, file_.fd(), 0);
   if (mapped == MAP_FAILED) {
      fail(std::strerror(errno));
   }
   header_ = static_cast<Header*>(mapped);
   headerGuard_ = Kiln::GuardedMapping(mapped, headerBytes);
   if (isNew) {
      *header_ = Header{fileMagic, fileVersion, fileByteOrder, {}, 0};
      header_->checksum = checksumOf(*header_);
   }
   // Before version and checksum: a file of another program is to be called that, and not damaged.
   if (header_->magic != fileMagic) {
      fail(foreign);
   }
   checkHeader(static_cast<U64>(status.st_size));
}

void HardwareMemory::checkHeader(U64 fileSize) const {
   if (header_->version != fileVersion || header_->byteOrder != fileByteOrder) {
      fail("written by another version of the agent, or on another kind of machine: remove it to start anew");
   }
   bool fits = header_->checksum == checksumOf(*header_);
   for (unsigned id = 0; fits && id < regionLimit; ++id) {
      const U64 words = header_->slots[id].words;
      // A place beyond the end of the file would raise a signal at the first count.
      fits = words == 0 ||
             (words <= regionBytesLimit / sizeof(U64) && offsetOf(id) + words * sizeof(U64) <= fileSize);
   }
   if (!fits) {
      fail("damaged: remove it to start anew");
   }
}

// FNV-1a over everything before the checksum. Only the header is covered: counters change with every frame, and a kill
// between two of them leaves each as it was.
U64 HardwareMemory::checksumOf(const Header& header) {
   const auto* byte = reinterpret_cast<const unsigned char*>(&header);
   U64 sum = 0xcbf29ce484222325;
   for (std::size_t i = 0; i < offsetof(Header, checksum); ++i) {
      sum = (sum ^ byte[i]) * 0x100000001b3;
   }
   return sum;
}

// Allocates the place in the file: with a hole there, a full disk would raise a signal at the first count.
void HardwareMemory::claim(U8 deviceId, const Kiln::String& layout, std::size_t words) {
   Slot& slot = header_->slots[deviceId];
   const Kiln::String held(slot.layout.data(), strnlen(slot.layout.data(), slot.layout.size()));
   if (slot.words != 0 && (slot.words != words || layout != held)) {
      fail("holds device " + std::to_string(deviceId) + " with " + held + ", not with " + layout +
           ": start with the same chips, or remove the file");
   }
   const int error = posix_fallocate(file_.fd(), static_cast<off_t>(offsetOf(deviceId)),
                                     static_cast<off_t>(words * sizeof(U64)));
   if (error != 0) {
      fail(std::strerror(error));
   }
   // After its space was allocated: a slot must never promise words that the file does not have.
   slot.words = words;
   slot.layout.fill('\0');
   layout.copy(slot.layout.data(), slot.layout.size() - 1);
   header_->checksum = checksumOf(*header_);
}

// Without a file the memory is mapped too: it begins as zeros, like a new file, and is released in the same way.
std::span<U64> HardwareMemory::regionIs(U8 deviceId, const Kiln::String& layout, std::size_t words) {
   KILN_ASSERT(deviceId < regionLimit && words > 0 && regions_[deviceId].empty());
   const std::size_t bytes = words * sizeof(U64);
   if (bytes > regionBytesLimit) {
      throw std::runtime_error("a chip's counters take more than 64 MiB");
   }
   if (header_ != nullptr) {
      claim(deviceId, layout, words);
   }
   void* const mapped =
        header_ != nullptr ? mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file_.fd(),
                                  static_cast<off_t>(offsetOf(deviceId)))
                           : mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
   if (mapped == MAP_FAILED) {
      throw std::runtime_error(Kiln::String("no memory for a chip's counters: ") + std::strerror(errno));
   }
   if (header_ != nullptr) {
      guards_[deviceId] = Kiln::GuardedMapping(mapped, bytes);
   }
   return regions_[deviceId] = {static_cast<U64*>(mapped), words};
}

void HardwareMemory::regionDel(U8 deviceId) {
   const std::span<U64> region = std::exchange(regions_[deviceId], {});
   if (region.empty()) {
      return;
   }
   if (header_ != nullptr) {
      // The space stays in the file, and the next chip of this id must not find these counts there.
      std::fill(region.begin(), region.end(), 0);
      header_->slots[deviceId] = Slot{};
      header_->checksum = checksumOf(*header_);
   }
   guards_[deviceId] = {};
   munmap(region.data(), region.size_bytes());
}

} // namespace SoftChip
