// What the ingress and the egress L2-domain count tables have in common.
#pragma once

#include "zel/VlanId.h"
#include "zl/ZlTable.h"

#include <array>
#include <optional>

namespace ZlL2DomainCount {

// The default action of both tables: count, and let pass.
struct OnMissActionSpec {};

// What an entry of either matches.
struct Match {
   Bridging::VlanId vlanId;
   U8 decapType = 0;
   std::optional<bool> ingMdSnatHit = std::nullopt; // unset where the program's table has no such field

   // Tells an entry from the others of its table.
   U32 key() const;
};

// The fields of a match, spelled as the P4 program spells them.
class MatchFields {
 public:
   explicit MatchFields(const Match& match);
   operator std::span<const ZlPd::MatchField>() const { return std::span(fields_).first(count_); }

 private:
   std::array<ZlPd::MatchField, 3> fields_;
   std::size_t count_;
};

// `Entry` points to a `MatchSpec`, whose match matchOf(matchSpec) gives.
template <class Entry, class MatchSpec>
class L2DomainCountTable : public ZlTable::CountTable {
 public:
   using CountTable::CountTable;

   // False if the entry was there already, and counts on. Throws ZlTable::ZlTableException when the chip refuses it.
   bool entryIs(const Entry& entry) {
      const Match match = matchOf(*entry.matchSpec);
      return add(match.key(), MatchFields(match));
   }
   // The table's own slot of the match spec: tests false, and its handle is 0, while the table holds no such
   // entry. Good as long as the table.
   const ZlTable::EntrySlot& entry(const MatchSpec& matchSpec) const {
      return slot(matchOf(matchSpec).key());
   }
   void entryDel(const MatchSpec& matchSpec) { remove(matchOf(matchSpec).key()); }
};

} // namespace ZlL2DomainCount
