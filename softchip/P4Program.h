// The program that runs on a chip: the match tables and counter tables that it declares.
#pragma once

#include "softchip/MatchRule.h"
#include "zl/ZlResourceInfo.h"

#include <unordered_map>

namespace SoftChip {

// Where the pipeline looks up a table for each frame.
enum class Stage : U8 { none, ingress, egress };

struct MatchTableSpec {
   Kiln::String name;
   U32 capacity = 0;
   Stage stage = Stage::none;
   std::vector<MatchRule> rules = {}; // the entries that it starts with; the first match wins
};

struct CounterTableSpec {
   Kiln::String name;
   U32 size = 0;
   bool direct = false; // one counter an entry of matchTable, whose capacity is the size
   bool bytes = true;
   bool packets = true;
   bool symmetric = true;        // as declared; the entry scope of the match table may change it
   Kiln::String matchTable = {}; // that the counters belong to; may be empty for indirect ones
};

// The catalogue that the resource-info service publishes. Built first, then handed to chips, which share it; it does
// not change after that.
class P4Program : public ZlResourceInfo::ZlResourceInfoIntf {
 public:
   // The switch's program.
   static Kiln::Ptr<P4Program> standard();

   // Tables get indices, or ids, from 0 in the order in which they are added. Throws std::invalid_argument for a name
   // in use, an unknown match table, or a second direct counter table of one.
   U32 matchTableAdd(const MatchTableSpec& spec);
   U32 counterTableAdd(const CounterTableSpec& spec);

   const std::vector<MatchTableSpec>& matchTables() const { return matchTables_; }
   const std::vector<CounterTableSpec>& counterTables() const { return counterTables_; }
   // Index or id by the SDK's handle, or notFound. A direct counter table has the handle of its match table.
   U32 matchTableOfHandle(U32 tableHandle) const;
   U32 counterTableOfHandle(U32 tableHandle) const;
   U32 counterTableOfCounterHandle(U32 counterHandle) const;
   // The direct counter table of a match table, or notFound.
   U32 directCounterOf(U32 matchTable) const { return directCounters_[matchTable]; }
   // Differs between programs that lay out their counters differently.
   U32 signature() const;

   U32 zlTableCountersNum() const override { return static_cast<U32>(counters_.size()); }
   const ZlResourceInfo::ZlTableCounter* zlTableCounter(U32 tableId) const override;
   const std::vector<ZlResourceInfo::ZlTableCounter>* zlTableCounters() const override { return &counters_; }
   U32 zlTableCounterIndex(const Kiln::String& name) const override;
   U32 zlTableCounterField(const Kiln::String& name, ZlResourceInfo::ZlCounterFieldId field) const override;
   U32 zlTableIndex(const Kiln::String& name) const override;
   const ZlResourceInfo::ZlTable* zlTable(U32 index) const override;

 private:
   std::vector<MatchTableSpec> matchTables_;
   std::vector<CounterTableSpec> counterTables_;
   std::vector<U32> directCounters_; // by match table
   std::vector<ZlResourceInfo::ZlTable> tables_;
   std::vector<ZlResourceInfo::ZlTableCounter> counters_;
   std::unordered_map<Kiln::String, U32> tableIndex_;
   std::unordered_map<Kiln::String, U32> counterIndex_;
};

} // namespace SoftChip
