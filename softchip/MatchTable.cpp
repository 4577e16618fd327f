// Keeps entries by handle, and looks frames up in them.
#include "softchip/MatchTable.h"

#include "softchip/CounterTable.h"

#include <algorithm>

namespace SoftChip {

MatchTable::MatchTable(const MatchTableSpec& spec) : spec_(spec), capacity_(spec.capacity) {
   for (const MatchRule& rule : spec.rules) {
      entryAdd(rule, allPipes);
   }
}

S32 MatchTable::entryAdd(const MatchRule& rule, U16 pipe) {
   if (size_ >= std::min(capacity_, spec_.capacity)) {
      return none;
   }
   // A table without gaps, the usual case, needs no search for one: L2-domain tables grow to thousands of entries.
   auto place = size_ == entries_.size()
                     ? entries_.end()
                     : std::find_if(entries_.begin(), entries_.end(), [](const Entry& e) { return !e.used; });
   // Gaps are filled first: a handle is also the slot of the entry's direct counter, and those are no more than
   // declared.
   if (place == entries_.end()) {
      place = entries_.insert(place, Entry{});
   }
   *place = {true, pipe, rule};
   ++size_;
   const auto handle = static_cast<S32>(place - entries_.begin()) + 1;
   domainIs(rule, static_cast<U32>(handle));
   return handle;
}

void MatchTable::domainIs(const MatchRule& rule, U32 handle) {
   if (rule.decapType) {
      domains_.handleIs(rule.vlanId, *rule.decapType, rule.snatHit, handle);
   }
}

bool MatchTable::isUsed(S32 handle) const {
   return handle > 0 && static_cast<U32>(handle) <= entries_.size() &&
          entries_[static_cast<U32>(handle) - 1].used;
}

bool MatchTable::entryDel(S32 handle) {
   if (!isUsed(handle)) {
      return false;
   }
   domainIs(*rule(handle), 0);
   entries_[static_cast<U32>(handle) - 1] = {};
   --size_;
   return true;
}

const MatchRule* MatchTable::rule(S32 handle) const {
   return isUsed(handle) ? &entries_[static_cast<U32>(handle) - 1].rule : nullptr;
}

S32 MatchTable::next(S32 handle, U16 pipe) const {
   for (std::size_t i = handle > 0 ? static_cast<U32>(handle) : 0; i < entries_.size(); ++i) {
      const Entry& entry = entries_[i];
      if (entry.used && (pipe == allPipes || entry.pipe == allPipes || entry.pipe == pipe)) {
         return static_cast<S32>(i) + 1;
      }
   }
   return none;
}

U32 MatchTable::lookUp(const FrameInfo& frame, U16 vlan, unsigned pipe) const {
   for (std::size_t i = 0; i < entries_.size(); ++i) {
      const Entry& entry = entries_[i];
      if (entry.used && (entry.pipe == allPipes || entry.pipe == pipe) && entry.rule.matches(frame, vlan)) {
         return static_cast<U32>(i) + 1;
      }
   }
   return 0;
}

} // namespace SoftChip
