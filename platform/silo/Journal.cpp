// The copy of the record that is being written.
#include "silo/Journal.h"

#include <atomic>
#include <cstring>

namespace Silo {

// The fences keep the compiler from moving the slot's stores over the journal's: before, because the slot
// written last has to be closed when this entry goes; after, because this entry has to be complete when the
// slot changes.

void Journal::write(std::size_t slot, const RecordContent& content, std::uint64_t checksum) {
   std::atomic_signal_fence(std::memory_order_seq_cst);
   slot_ = slot + 1;
   seal_ = sealOf(slot, checksum);
   info_ = content.info;
   key_ = content.key.words();
   std::memcpy(this + 1, content.payload, content.size);
   std::atomic_signal_fence(std::memory_order_seq_cst);
}

void Journal::clear() {
   std::atomic_signal_fence(std::memory_order_seq_cst);
   slot_ = 0;
   std::atomic_signal_fence(std::memory_order_seq_cst);
}

std::optional<RecordContent> Journal::contentFor(std::size_t slot, std::size_t payloadSize, Key& key) const {
   if (slot_ != slot + 1) {
      return std::nullopt;
   }
   key = Key(key_);
   RecordContent content{key, info_, this + 1, payloadSize};
   if (!key.isValid() || sealOf(slot, content.checksum()) != seal_) {
      return std::nullopt;
   }
   return content;
}

} // namespace Silo
