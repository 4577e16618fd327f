// Replaces operator new and delete by counting ones.
#include "bench/AllocationCount.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<U64> allocationCount{0};
std::atomic<U64> allocatedBytes{0};

} // namespace

Bench::Allocations Bench::allocations() noexcept {
   return {allocationCount.load(std::memory_order_relaxed), allocatedBytes.load(std::memory_order_relaxed)};
}

void* operator new(std::size_t size) {
   allocationCount.fetch_add(1, std::memory_order_relaxed);
   allocatedBytes.fetch_add(size, std::memory_order_relaxed);
   if (void* memory = std::malloc(size)) {
      return memory;
   }
   throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
   std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
   std::free(memory);
}
