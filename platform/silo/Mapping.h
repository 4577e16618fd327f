// A file mapped into memory, with the lock that makes its holder the one writer.
#pragma once

#include "kiln/MappedFault.h"

#include <cstddef>
#include <sys/stat.h>
#include <sys/types.h>
#include <utility>

namespace Kiln {
struct LockHolder;
}

namespace Silo {

// Owns the descriptor and the mapping. The lock belongs to the descriptor, so the kernel frees it however the process
// ends. What the system refuses is thrown as std::system_error.
class Mapping {
 public:
   Mapping() = default;
   // Takes over the descriptor. An empty file gives an empty mapping.
   enum class Names { one, none }; // of the file: a temporary one never has a name
   Mapping(int descriptor, bool isWritable, Names names = Names::one);
   ~Mapping();
   Mapping(Mapping&& other) noexcept { swap(other); }
   Mapping& operator=(Mapping&& other) noexcept {
      Mapping(std::move(other)).swap(*this);
      return *this;
   }

   std::byte* data() const { return data_; }
   std::size_t size() const { return size_; }

   // Takes the writer's lock; false if another has a lock, which may be a reader that is up to no good.
   bool lock();
   Kiln::LockHolder lockHolder() const;
   // Whether somebody holds the writer's lock through another descriptor, in any process.
   bool isLockedByAnother() const;
   // Whether the file has been removed, or was cut shorter than the mapping, since it was opened.
   bool isStale() const;
   // Whether a part that the file no longer has was touched: see kiln/MappedFault.h.
   bool isLost() const { return guard_.isLost(); }
   // The size of the file as it is now.
   std::size_t fileSize() const;
   // Whether the status is that of the mapped file.
   bool isOf(const struct stat& status) const;
   // Copies from the file itself, which raises no signal. False: it does not reach that far.
   bool copyFromFile(std::size_t offset, void* to, std::size_t size) const;
   // Makes the file longer, with zeros, and maps it anew: pointers into it become invalid. The space is allocated now,
   // so that a full disk is an error here and not a signal at some later store.
   void grow(std::size_t size);
   // Who may open the file.
   mode_t mode() const;
   void modeIs(mode_t mode);
   // Maps what the file has now: pointers into it become invalid.
   void remap();
   // Brings the content to the disk, if there is one below.
   void sync() const;

 private:
   void swap(Mapping& other) noexcept;
   void map(std::size_t size);
   void unmap();

   int descriptor_ = -1;
   bool isWritable_ = false;
   bool isNamed_ = true;
   std::byte* data_ = nullptr;
   std::size_t size_ = 0;
   std::size_t allocated_ = 0; // by grow(), from the file's begin
   Kiln::GuardedMapping guard_;
};

} // namespace Silo
