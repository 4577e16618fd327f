// The program that runs on a chip: which match tables and counter tables it declares.
#pragma once

#include "softchip/MatchRule.h"
#include "zl/ZlResourceInfo.h"

#include <unordered_map>

namespace SoftChip {

// Where the pipeline looks a table up for each frame.
enum class Stage : U8 { none, ingress, egress };

struct MatchTableSpec {
   Kiln::String name;
   U32 capacity = 0;
   Stage stage = Stage::none;
   std::vector<MatchRule> rules = {}; // entries that are there from the start; the first that matches wins
};

struct CounterTableSpec {
   Kiln::String name;
   U32 size = 0;
   bool direct = false; // one counter an entry of matchTable, whose capacity is the size
   bool bytes = true;
   bool packets = true;
   bool symmetric = true;        // as declared; the entry scope of the match table may change it
   Kiln::String matchTable = {}; // to which the counters belong; may be empty for indirect ones
};

// The catalogue that the resource-info service publishes. Built up first, then handed to chips, which share
// it; from then on it stays as it is.
class P4Program : public ZlResourceInfo::ZlResourceInfoIntf {
 public:
   // The switch's program.
   static Kiln::Ptr<P4Program> standard();

   // Tables have the indices, or ids, 0 upward in the order in which they are added. A name that is taken, a
   // counter of a match table that there isn't, or a second direct one is a std::invalid_argument.
   U32 matchTableAdd(const MatchTableSpec& spec);
   U32 counterTableAdd(const CounterTableSpec& spec);

   const std::vector<MatchTableSpec>& matchTables() const { return matchTables_; }
   const std::vector<CounterTableSpec>& counterTables() const { return counterTables_; }
   // Index or id by the SDK's handle, notFound for none. The handle of a direct counter table is its match
   // table's.
   U32 matchTableOfHandle(U32 tableHandle) const;
   U32 counterTableOfHandle(U32 tableHandle) const;
   U32 counterTableOfCounterHandle(U32 counterHandle) const;
   // The direct counter table of a match table, or notFound.
   U32 directCounterOf(U32 matchTable) const { return directCounters_[matchTable]; }
   // Differs between programs whose counters lie differently.
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
