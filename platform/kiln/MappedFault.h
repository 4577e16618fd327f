// Outlives a mapped file that somebody else cuts short: touching what is gone raises SIGBUS, which ends a process.
#pragma once

#include <cstddef>
#include <utility>

namespace Kiln {

// Tells the handler of a mapping, for as long as this lives; it has to end before the mapping does. Any thread.
class GuardedMapping {
 public:
   GuardedMapping() = default; // of nothing
   GuardedMapping(const void* data, std::size_t size);
   ~GuardedMapping();
   GuardedMapping(GuardedMapping&& other) noexcept : entry_(std::exchange(other.entry_, nullptr)) {}
   GuardedMapping& operator=(GuardedMapping&& other) noexcept {
      std::swap(entry_, other.entry_);
      return *this;
   }

   // Whether a part that the file no longer has was touched. All of the memory reads as zeros then, and what is written to
   // it goes nowhere.
   bool isLost() const;

   struct Entry;

 private:
   Entry* entry_ = nullptr;
};

// Installs the handler of SIGBUS: a mapping that was announced is lost from then on, and the process goes on. Any other
// SIGBUS ends the process as ever. For programs; a library leaves signals to the program that it is part of.
void surviveMappedFaults();

} // namespace Kiln
