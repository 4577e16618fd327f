// One match table of a chip, with its entries.
#pragma once

#include "softchip/L2Domain.h"
#include "softchip/P4Program.h"

#include <vector>

namespace SoftChip {

// Entries have handles from 1; a new one gets the lowest free handle. Under the SDK's lock.
class MatchTable {
 public:
   static constexpr S32 none = -1;

   // Starts with the rules that it is declared with, in all pipes.
   explicit MatchTable(const MatchTableSpec& spec);

   const MatchTableSpec& spec() const { return spec_; }
   // How many entries fit, at most as many as declared. Entries beyond a lowered capacity stay.
   U32 capacity() const { return capacity_; }
   void capacityIs(U32 capacity) { capacity_ = capacity; }
   U32 size() const { return size_; }

   // In one pipe or all. Returns the handle, or none if the table is full.
   S32 entryAdd(const MatchRule& rule, U16 pipe);
   // False if there is no such entry.
   bool entryDel(S32 handle);
   // Null if there is none.
   const MatchRule* rule(S32 handle) const;
   // The entry with the next higher handle that is in the pipe, or, for all pipes, in any.
   S32 next(S32 handle, U16 pipe) const;

   // The entries that match an L2 domain.
   const L2DomainIndex& domains() const { return domains_; }

   // The first entry that matches in the pipe: its handle, or 0 for none.
   U32 lookUp(const FrameInfo& frame, U16 vlan, unsigned pipe) const;

 private:
   struct Entry {
      bool used = false;
      U16 pipe = 0;
      MatchRule rule;
   };
   bool isUsed(S32 handle) const;
   void domainIs(const MatchRule& rule, U32 handle);

   MatchTableSpec spec_;
   U32 capacity_;
   U32 size_ = 0;
   std::vector<Entry> entries_; // by handle - 1, as far as there ever was one
   L2DomainIndex domains_;
};

} // namespace SoftChip
