// Process-wide state of the reference-counted pointers.
#include "kiln/Ptr.h"

namespace Kiln {

namespace detail {
std::atomic<bool> threadSafePointers{false};
std::atomic<U64> trackedObjects{0};
} // namespace detail

void threadSafePtrModeIs(bool on) noexcept {
   detail::threadSafePointers.store(on, std::memory_order_relaxed);
}

U64 trackedObjectCount() noexcept {
   return detail::trackedObjects.load(std::memory_order_relaxed);
}

void PtrInterface::destroy() const noexcept {
   if (tracked_) {
      detail::trackedObjects.fetch_sub(1, std::memory_order_relaxed);
   }
   delete this;
}

} // namespace Kiln
