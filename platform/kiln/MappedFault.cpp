// The list of mappings, which a signal handler can read at any moment, and the handler.
#include "kiln/MappedFault.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <mutex>
#include <sys/mman.h>

namespace Kiln {

// An entry is never freed, only used again: the handler may be looking at it.
struct GuardedMapping::Entry {
   std::atomic<std::uintptr_t> begin{0}; // 0: not in use
   std::atomic<std::size_t> size{0};
   std::atomic<bool> isLost{false};
   Entry* next = nullptr;
};

namespace {

using Entry = GuardedMapping::Entry;
static_assert(std::atomic<std::uintptr_t>::is_always_lock_free && std::atomic<Entry*>::is_always_lock_free);

std::mutex mutex; // of those who take and return entries
std::atomic<Entry*> first{nullptr};

Entry* freeEntry() {
   for (Entry* entry = first.load(); entry != nullptr; entry = entry->next) {
      if (entry->begin.load() == 0) {
         return entry;
      }
   }
   auto* const entry = new Entry;
   entry->next = first.load();
   first.store(entry);
   return entry;
}

// Zeros take the place of the whole mapping, since half a table helps nobody. mmap is not on the list of what a handler
// may call, but on Linux it is the bare system call.
bool replaceMappingAt(std::uintptr_t address) {
   for (Entry* entry = first.load(); entry != nullptr; entry = entry->next) {
      const std::uintptr_t begin = entry->begin.load();
      const std::size_t size = entry->size.load();
      if (begin != 0 && address >= begin && address - begin < size) {
         // Before the zeros, so that whoever sees them finds the mapping lost.
         entry->isLost.store(true);
         // NOLINTNEXTLINE(performance-no-int-to-ptr): the address is the entry's.
         return mmap(reinterpret_cast<void*>(begin), size, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED;
      }
   }
   return false;
}

void handleFault(int signal, siginfo_t* info, void* /*context*/) {
   const int error = errno;
   // Above 0: from the kernel, and so about an address.
   if (info->si_code <= 0 || !replaceMappingAt(reinterpret_cast<std::uintptr_t>(info->si_addr))) {
      std::signal(signal, SIG_DFL);
      std::raise(signal);
   }
   errno = error;
}

} // namespace

GuardedMapping::GuardedMapping(const void* data, std::size_t size) {
   const std::lock_guard lock(mutex);
   entry_ = freeEntry();
   entry_->size.store(size);
   entry_->isLost.store(false);
   entry_->begin.store(reinterpret_cast<std::uintptr_t>(data));
}

GuardedMapping::~GuardedMapping() {
   if (entry_ != nullptr) {
      const std::lock_guard lock(mutex);
      entry_->begin.store(0);
   }
}

bool GuardedMapping::isLost() const {
   return entry_ != nullptr && entry_->isLost.load();
}

void surviveMappedFaults() {
   struct sigaction action {};
   action.sa_sigaction = handleFault;
   action.sa_flags = SA_SIGINFO;
   sigaction(SIGBUS, &action, nullptr);
}

} // namespace Kiln
