// The resource-info service of a chip: which match tables and counter tables its P4 program has.
#pragma once

#include "kiln/Ptr.h"

#include <vector>

namespace ZlResourceInfo {

// The result of a look-up by name for a name that the program lacks. Seven F digits.
constexpr U32 notFound = 0xFFFFFFF;

// A counter table.
struct ZlTableCounter {
   Kiln::String name;
   U32 tableHandle = 0;   // names the table to syncs and reads
   U32 counterHandle = 0; // names its statistics to the symmetric-mode queries
   U32 size = 0;          // entries
   bool direct = false;   // one counter a match entry; else an array
   bool bytes = false;
   bool packets = false;
};

// A match table.
struct ZlTable {
   Kiln::String name;
   U32 handle = 0;
};

// The fields of a counter table's record, by number; only those in use.
enum class ZlCounterFieldId : U32 { tableHandle = 0 };

// Nothing changes while the chip lives. The service owns what it returns by pointer.
class ZlResourceInfoIntf : public Kiln::PtrInterface {
 public:
   // Counter tables have the ids 0 to zlTableCountersNum() - 1.
   virtual U32 zlTableCountersNum() const = 0;
   // Null for an unknown id.
   virtual const ZlTableCounter* zlTableCounter(U32 tableId) const = 0;
   // All of them, indexed by id; null when the chip has no catalogue.
   virtual const std::vector<ZlTableCounter>* zlTableCounters() const = 0;
   virtual U32 zlTableCounterIndex(const Kiln::String& name) const = 0;
   virtual U32 zlTableCounterField(const Kiln::String& name, ZlCounterFieldId field) const = 0;

   virtual U32 zlTableIndex(const Kiln::String& name) const = 0;
   virtual const ZlTable* zlTable(U32 index) const = 0;
};

} // namespace ZlResourceInfo
