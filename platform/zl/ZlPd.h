// The chip's program-dependent (PD) interface: the entries of its match tables.
#pragma once

#include "kiln/Ptr.h"

#include <span>
#include <string_view>

namespace ZlPd {

// A field of a match entry, by its name in the P4 program. A field that an entry does not name matches any value.
struct MatchField {
   std::string_view name;
   U64 value;
};

// One may serve several chips. Activity thread.
class ZlPdIntf : public Kiln::PtrInterface {
 public:
   // Describes what a match entry matches, for people.
   virtual Kiln::String counterDecodeMatch(U32 session, U32 device, U32 tableHandle, S32 entry) const = 0;

   // Adds an entry with the table's default action, counting from zero, in one pipe or (65535) in all. Returns an SDK
   // status: with 0, *entry is the handle that the chip gave the entry, never 0; 4 if it has one that matches the same;
   // 9 if the table is full.
   virtual U32 entryAdd(U32 session, U32 device, U16 pipe, const Kiln::String& matchTable,
                        std::span<const MatchField> match, U32* entry) = 0;
   // Deletes an entry. Returns an SDK status: 6 if there is no such entry.
   virtual U32 entryDel(U32 session, U32 device, const Kiln::String& matchTable, U32 entry) = 0;
};

} // namespace ZlPd
