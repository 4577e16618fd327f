// The copy of the record that is being written.
#include "silo/Journal.h"

#include <atomic>

namespace Silo {

// The fences keep the compiler from moving the slot's stores over the journal's: before, because the slot
// written last has to be closed when this entry goes; after, because this entry has to be complete when the
// slot changes.

std::uint64_t Journal::write(std::size_t slot, const RecordContent& content) {
   std::atomic_signal_fence(std::memory_order_seq_cst);
   std::uint64_t checksum = copyWithChecksum(content, this + 1);
   slot_ = slot + 1;
   seal_ = sealOf(slot, checksum);
   info_ = content.info;
   key_ = content.key.words();
   std::atomic_signal_fence(std::memory_order_seq_cst);
   return checksum;
}

void Journal::clear() {
   std::atomic_signal_fence(std::memory_order_seq_cst);
   slot_ = 0;
   std::atomic_signal_fence(std::memory_order_seq_cst);
}

std::optional<std::uint64_t> Journal::take(std::size_t slot, Key& key, RecordInfo& info, void* payload,
                                           std::size_t size) const {
   key = Key(key_);
   info = info_;
   std::uint64_t checksum = copyWithChecksum({key, info, this + 1, size}, payload);
   if (slot_ != slot + 1 || seal_ != sealOf(slot, checksum) || !key.isValid()) {
      return std::nullopt;
   }
   return checksum;
}

} // namespace Silo
