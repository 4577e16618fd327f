// A file mapped into memory, with the lock that makes its holder the one writer.
#pragma once

#include <cstddef>
#include <utility>

namespace Silo {

// Owns the descriptor and the mapping; the lock goes with the descriptor, so that the kernel frees it however
// the process ends. Failures of the system are std::system_error.
class Mapping {
 public:
   Mapping() = default;
   // Takes the descriptor over. An empty file gives an empty mapping.
   Mapping(int descriptor, bool isWritable);
   ~Mapping();
   Mapping(Mapping&& other) noexcept { swap(other); }
   Mapping& operator=(Mapping&& other) noexcept {
      Mapping(std::move(other)).swap(*this);
      return *this;
   }

   std::byte* data() const { return data_; }
   std::size_t size() const { return size_; }

   // Takes the writer's lock; false if another holds it.
   bool lock();
   // Whether somebody holds the writer's lock through another descriptor, in any process.
   bool isLockedByAnother() const;
   // Whether the file was removed, or cut shorter than the mapping, since it was opened.
   bool isStale() const;
   // Makes the file longer, with zeros, and maps it anew: pointers into it are void. The space is allocated
   // here, so that a full disk is an error now and not a signal later.
   void grow(std::size_t size);

 private:
   void swap(Mapping& other) noexcept;
   void map(std::size_t size);
   void unmap();

   int descriptor_ = -1;
   bool isWritable_ = false;
   std::byte* data_ = nullptr;
   std::size_t size_ = 0;
};

} // namespace Silo
