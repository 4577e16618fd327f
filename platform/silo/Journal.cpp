// Writes and takes back the journalled record.
#include "silo/Journal.h"

#include <atomic>

namespace Silo {

// The fences bind the compiler only, which is all that a kill needs: they keep the slot's stores and the journal's
// apart. The first: the slot written last has to be closed before its journal entry is overwritten. The second: this
// entry has to be complete before its slot changes.

RecordChecksums Journal::write(std::size_t slot, const RecordContent& content) {
   std::atomic_signal_fence(std::memory_order_seq_cst);
   // A kill from here on leaves a journal that does not match its seal, so take() rejects it. But every slot is whole
   // then: the one written last is closed, and the next one is untouched.
   const RecordChecksums checksums = copyWithChecksum(content, this + 1);
   slot_ = slot + 1;
   seal_ = sealOf(slot, checksums.first);
   info_ = content.info;
   key_ = content.key.words();
   std::atomic_signal_fence(std::memory_order_seq_cst);
   return checksums;
}

void Journal::clear() {
   std::atomic_signal_fence(std::memory_order_seq_cst);
   slot_ = 0;
   std::atomic_signal_fence(std::memory_order_seq_cst);
}

std::optional<RecordChecksums> Journal::take(std::size_t slot, Key& key, RecordInfo& info, void* payload,
                                             std::size_t size) const {
   key = Key(key_);
   info = info_;
   // Summed while it is copied out; the key takes part by its hash. So one comparison covers all that was journalled.
   const RecordChecksums checksums = copyWithChecksum({key, info, this + 1, size}, payload);
   if (slot_ != slot + 1 || seal_ != sealOf(slot, checksums.first) || !key.isValid()) {
      return std::nullopt;
   }
   return checksums;
}

} // namespace Silo
