// Asks the SDK for entry after entry.
#include "counters/tables/MatchEntries.h"

#include "sdk/pipe_mgr.h"

#include <utility>

namespace ZelCounter {

std::optional<int> MatchEntries::next() {
   int entry = after(visited_.empty() ? std::nullopt : std::optional(visited_.back()));
   if (std::exchange(mayHaveGone_, false) && entry == PIPE_MAT_ENT_HDL_NONE && !visited_.empty()) {
      entry = behindWhatIsLeft();
   }
   if (entry == PIPE_MAT_ENT_HDL_NONE) {
      return std::nullopt;
   }
   visited_.push_back(entry);
   return entry;
}

// Without an entry, the first.
int MatchEntries::after(std::optional<int> entry) const {
   const dev_target_t target{static_cast<bf_dev_id_t>(chip_.deviceId()), pipe_};
   int next = PIPE_MAT_ENT_HDL_NONE;
   const pipe_status_t status =
        entry ? pipe_mgr_get_next_entry_handles(chip_.sessionId(), tableHandle_, target, *entry, 1, &next)
              : pipe_mgr_get_first_entry_handle(chip_.sessionId(), tableHandle_, target, &next);
   return status == 0 ? next : PIPE_MAT_ENT_HDL_NONE;
}

// The SDK finds nothing behind the last entry of all, and nothing behind one that has gone. Which it is, the one before
// says: if the entry still follows it, that was the last of all.
int MatchEntries::behindWhatIsLeft() {
   const int last = visited_.empty() ? PIPE_MAT_ENT_HDL_NONE : visited_.back();
   while (!visited_.empty()) {
      const int asked = visited_.back();
      visited_.pop_back();
      const int entry = after(visited_.empty() ? std::nullopt : std::optional(visited_.back()));
      if (entry == asked || entry == last) { // the latter: what was before the last of all has gone
         return PIPE_MAT_ENT_HDL_NONE;
      }
      hasLost_ = true;
      if (entry != PIPE_MAT_ENT_HDL_NONE) {
         return entry;
      }
   }
   return PIPE_MAT_ENT_HDL_NONE;
}

} // namespace ZelCounter
