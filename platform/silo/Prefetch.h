// Asking for memory before it is needed.
#pragma once

#include "silo/Words.h"

#include <cstddef>

namespace Silo {

// Has the processor fetch the cache lines of these bytes, to be written, while other work goes on. For passes over many
// things of which each is worked on once: every two seconds, when nothing of them is in the caches any more. Any address
// will do, also one where nothing is.
inline void prefetch(const void* address, std::size_t bytes) {
   auto* const first = static_cast<const std::byte*>(address);
   for (std::size_t at = 0; at < bytes; at += cacheLine) {
      __builtin_prefetch(first + at, 1, 2);
   }
   __builtin_prefetch(first + bytes - 1, 1, 2);
}

} // namespace Silo
