// The file: a page of header, then one place of fixed size per chip, allocated as far as the chip needs it.
#include "softchip/HardwareMemory.h"

#include "kiln/Assert.h"
#include "kiln/RingLog.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <span>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace SoftChip {

namespace {

constexpr U64 fileMagic = 0x3157485f4c455a00; // "\0ZEL_HW1" as it lies in the file
constexpr U32 fileVersion = 2;
constexpr U32 formerVersion = 1; // one checksum for the whole header
constexpr U32 fileByteOrder = 0x01020304;
constexpr double lockPatience = 0.2;      // seconds: an agent that is just ending may still have it
constexpr std::size_t headerBytes = 4096; // a page, since places are mapped one by one

U64 offsetOf(unsigned deviceId) {
   return headerBytes + deviceId * HardwareMemory::regionBytesLimit;
}

// FNV-1a. Only headers are covered: counters change with every frame, and a kill between two of them leaves each as it
// was.
U64 checksumOf(const void* data, std::size_t size) {
   U64 sum = 0xcbf29ce484222325;
   for (const unsigned char byte : std::span(static_cast<const unsigned char*>(data), size)) {
      sum = (sum ^ byte) * 0x100000001b3;
   }
   return sum;
}

// A kill stops the process between two instructions, so only their order has to be kept.
void keepOrder() {
   std::atomic_signal_fence(std::memory_order_seq_cst);
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
      createdDel();
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
   constexpr mode_t ownerOnly = 0600;
   try {
      Kiln::requireTrustedFolder(Kiln::folderOf(path_));
      // Before anything is read: two agents counting in one file would spoil both.
      lock_.emplace(path_, lockPatience);
      Kiln::OpenedFile opened = Kiln::openOwnFile(path_, ownerOnly);
      file_ = std::move(opened.file);
      // The file itself, too, for one whose lock file somebody has removed. A reader's lock says nothing: a file of an
      // earlier release may be open to all.
      if (!Kiln::tryLock(file_.fd())) {
         const Kiln::LockHolder holder = Kiln::lockHolder(file_.fd());
         if (!holder.isReader) {
            throw Kiln::FileInUse(path_, holder);
         }
      }
      isNewFile_ = opened.isNew;
   } catch (const Kiln::FileInUse& error) {
      fail("in use by another agent" +
           (error.holder().process != 0 ? ", process " + std::to_string(error.holder().process) : "") +
           ": give each agent a file of its own");
   } catch (const std::system_error& error) {
      fail(error.code().message());
   } catch (const std::runtime_error& error) {
      fail(error.what());
   }
   checkFile();
}

void HardwareMemory::checkFile() {
   struct stat status {};
   if (fstat(file_.fd(), &status) != 0) {
      fail(std::strerror(errno));
   }
   constexpr const char* foreign = "not a file of hardware counters: name another file, or remove it";
   if (status.st_size == 0 ? ftruncate(file_.fd(), headerBytes) != 0
                           : static_cast<U64>(status.st_size) < headerBytes) {
      fail(status.st_size == 0 ? std::strerror(errno) : foreign);
   }
   void* const mapped = mmap(nullptr, headerBytes, PROT_READ | PROT_WRITE, MAP_SHARED, file_.fd(), 0);
   if (mapped == MAP_FAILED) {
      fail(std::strerror(errno));
   }
   header_ = static_cast<Header*>(mapped);
   headerGuard_ = Kiln::GuardedMapping(mapped, headerBytes);
   if (isUnsealed(static_cast<U64>(status.st_size))) {
      beginFile();
   }
   // Before anything else: a file of another program is to be called that.
   if (header_->magic != fileMagic) {
      fail(foreign);
   }
   if (header_->version == formerVersion && header_->byteOrder == fileByteOrder) {
      upgrade();
   }
   if (header_->version != fileVersion || header_->byteOrder != fileByteOrder) {
      fail("written by another version of the agent, or on another kind of machine: remove it to start anew");
   }
}

// Whether this is what a kill leaves of a file that is being created: a page of zeros, but for what comes before magic.
bool HardwareMemory::isUnsealed(U64 fileSize) const {
   const auto* const bytes = reinterpret_cast<const unsigned char*>(header_);
   return fileSize <= headerBytes && header_->magic == 0 &&
          std::all_of(bytes + offsetof(Header, slots), bytes + headerBytes,
                      [](auto byte) { return byte == 0; });
}

void HardwareMemory::beginFile() {
   header_->version = fileVersion;
   header_->byteOrder = fileByteOrder;
   keepOrder();
   header_->magic = fileMagic;
}

// A file of the last release. A kill on the way leaves one, or one of this.
void HardwareMemory::upgrade() {
   const bool isWhole = header_->formerChecksum == checksumOf(header_, offsetof(Header, formerChecksum));
   for (unsigned id = 0; id < regionLimit; ++id) {
      header_->seals[id] = isWhole && header_->slots[id].words != 0 ? sealOf(id) : 0;
   }
   keepOrder();
   header_->version = fileVersion;
}

U64 HardwareMemory::sealOf(unsigned id) const {
   return checksumOf(&header_->slots[id], sizeof(Slot)) ^ (id + 1);
}

// Whether the chip's place is sealed, and all of it there.
bool HardwareMemory::isHeld(unsigned id) const {
   const U64 words = header_->slots[id].words;
   struct stat status {};
   // A place beyond the end of the file would raise a signal at the first count.
   return words != 0 && header_->seals[id] == sealOf(id) && words <= regionBytesLimit / sizeof(U64) &&
          fstat(file_.fd(), &status) == 0 &&
          offsetOf(id) + words * sizeof(U64) <= static_cast<U64>(status.st_size);
}

// Allocates the place in the file: with a hole there, a full disk would raise a signal at the first count.
void HardwareMemory::claim(U8 deviceId, const Kiln::String& layout, std::size_t words) {
   Slot& slot = header_->slots[deviceId];
   const Kiln::String held(slot.layout.data(), strnlen(slot.layout.data(), slot.layout.size()));
   isNewRegion_[deviceId] = !isHeld(deviceId);
   if (!isNewRegion_[deviceId] && (slot.words != words || layout != held)) {
      fail("holds device " + std::to_string(deviceId) + " with " + held + ", not with " + layout +
           ": start with the same chips, or remove the file");
   }
   const int error = posix_fallocate(file_.fd(), static_cast<off_t>(offsetOf(deviceId)),
                                     static_cast<off_t>(words * sizeof(U64)));
   if (error != 0) {
      fail(std::strerror(error));
   }
   if (isNewRegion_[deviceId]) {
      if (slot.words != 0) {
         KILN_RINGLOG("hardware file " << path_ << ": device " << int(deviceId)
                                       << " was not sealed, and begins anew");
      }
      header_->seals[deviceId] = 0;
      keepOrder();
      slot = Slot{words, {}};
      layout.copy(slot.layout.data(), slot.layout.size() - 1);
   }
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
   regions_[deviceId] = {static_cast<U64*>(mapped), words};
   if (header_ != nullptr && isNewRegion_[deviceId]) {
      // After its space was allocated: a sealed slot must never promise words that the file does not have. What a chip
      // before it has counted there is gone.
      std::fill(regions_[deviceId].begin(), regions_[deviceId].end(), 0);
      keepOrder();
      header_->seals[deviceId] = sealOf(deviceId);
   }
   return regions_[deviceId];
}

Kiln::String HardwareMemory::loss() const {
   struct stat status {};
   if (header_ == nullptr || fstat(file_.fd(), &status) != 0) {
      return "";
   }
   if (status.st_nlink == 0) {
      return "was removed";
   }
   U64 needed = headerBytes;
   bool isCut = headerGuard_.isLost();
   for (unsigned id = 0; id < regionLimit; ++id) {
      if (!regions_[id].empty()) {
         needed = std::max<U64>(needed, offsetOf(id) + regions_[id].size_bytes());
         isCut |= guards_[id].isLost();
      }
   }
   // The size first: beyond the end of a file that was cut, a load would raise a signal.
   if (isCut || static_cast<U64>(status.st_size) < needed) {
      return "was cut";
   }
   bool isIntact = header_->magic == fileMagic && header_->version == fileVersion;
   for (unsigned id = 0; id < regionLimit; ++id) {
      isIntact &= regions_[id].empty() || header_->seals[id] == sealOf(id);
   }
   return isIntact ? "" : "was overwritten";
}

void HardwareMemory::regionDel(U8 deviceId) {
   const std::span<U64> region = std::exchange(regions_[deviceId], {});
   if (region.empty()) {
      return;
   }
   if (header_ != nullptr) {
      // The space stays in the file.
      header_->seals[deviceId] = 0;
      keepOrder();
      header_->slots[deviceId] = Slot{};
   }
   guards_[deviceId] = {};
   munmap(region.data(), region.size_bytes());
}

void HardwareMemory::createdDel() {
   if (isNewFile_) {
      unlink(path_.c_str());
   }
   for (unsigned id = 0; header_ != nullptr && id < regionLimit; ++id) {
      if (isNewRegion_[id]) {
         header_->seals[id] = 0;
         keepOrder();
         header_->slots[id] = Slot{};
      }
   }
}

} // namespace SoftChip
