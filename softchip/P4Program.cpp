// Gives tables their handles, and declares the tables of the switch's program.
#include "softchip/P4Program.h"

#include "zl/ZlDropReasons.h"

#include <stdexcept>

namespace SoftChip {

namespace {

using ZlResourceInfo::notFound;

// A handle is its kind plus the table's number within the kind, counted from 1. Kinds do not overlap, so that a handle
// of the wrong kind is noticed.
constexpr U32 matchHandles = 0x01000001;
constexpr U32 indirectHandles = 0x02000001;
constexpr U32 counterHandles = 0x03000001;

U32 numberOf(U32 handle, U32 kind, std::size_t count) {
   // A handle below its kind wraps to a large number, and so is not found either.
   return handle - kind < count ? handle - kind : notFound;
}

U32 findIn(const std::unordered_map<Kiln::String, U32>& index, const Kiln::String& name) {
   const auto found = index.find(name);
   return found == index.end() ? notFound : found->second;
}

} // namespace

U32 P4Program::matchTableAdd(const MatchTableSpec& spec) {
   const auto index = static_cast<U32>(matchTables_.size());
   if (!tableIndex_.emplace(spec.name, index).second || spec.rules.size() > spec.capacity) {
      throw std::invalid_argument("match table " + spec.name + " is declared twice, or overfull");
   }
   matchTables_.push_back(spec);
   directCounters_.push_back(notFound);
   tables_.push_back({spec.name, matchHandles + index});
   return index;
}

U32 P4Program::counterTableAdd(const CounterTableSpec& spec) {
   const auto id = static_cast<U32>(counterTables_.size());
   const U32 match = zlTableIndex(spec.matchTable);
   const bool fits = spec.direct ? match != notFound && directCounters_[match] == notFound &&
                                        spec.size == matchTables_[match].capacity
                                 : match != notFound || spec.matchTable.empty();
   if (!fits || !counterIndex_.emplace(spec.name, id).second) {
      throw std::invalid_argument("counter table " + spec.name +
                                  " is declared twice, or doesn't fit its match table");
   }
   counterTables_.push_back(spec);
   if (spec.direct) {
      directCounters_[match] = id;
   }
   counters_.push_back({spec.name, spec.direct ? tables_[match].handle : indirectHandles + id,
                        counterHandles + id, spec.size, spec.direct, spec.bytes, spec.packets});
   return id;
}

U32 P4Program::matchTableOfHandle(U32 tableHandle) const {
   return numberOf(tableHandle, matchHandles, tables_.size());
}

U32 P4Program::counterTableOfHandle(U32 tableHandle) const {
   const U32 match = matchTableOfHandle(tableHandle);
   if (match != notFound) {
      return directCounters_[match];
   }
   const U32 id = numberOf(tableHandle, indirectHandles, counters_.size());
   // Ids of direct tables leave gaps among the indirect handles, which nobody was given.
   return id == notFound || counters_[id].direct ? notFound : id;
}

U32 P4Program::counterTableOfCounterHandle(U32 counterHandle) const {
   return numberOf(counterHandle, counterHandles, counters_.size());
}

// FNV-1a of the names and sizes, in order. Of counter tables only: match entries are not kept in a hardware file.
U32 P4Program::signature() const {
   U32 sum = 0x811c9dc5;
   const auto add = [&sum](const Kiln::String& text) {
      for (const char c : text) {
         sum = (sum ^ static_cast<unsigned char>(c)) * 0x01000193;
      }
   };
   for (const CounterTableSpec& spec : counterTables_) {
      add(spec.name + '\n' + std::to_string(spec.size) + '\n');
   }
   return sum;
}

const ZlResourceInfo::ZlTableCounter* P4Program::zlTableCounter(U32 tableId) const {
   return tableId < counters_.size() ? &counters_[tableId] : nullptr;
}

U32 P4Program::zlTableCounterIndex(const Kiln::String& name) const {
   return findIn(counterIndex_, name);
}

U32 P4Program::zlTableCounterField(const Kiln::String& name, ZlResourceInfo::ZlCounterFieldId field) const {
   const ZlResourceInfo::ZlTableCounter* const counter = zlTableCounter(zlTableCounterIndex(name));
   return counter != nullptr && field == ZlResourceInfo::ZlCounterFieldId::tableHandle ? counter->tableHandle
                                                                                       : notFound;
}

U32 P4Program::zlTableIndex(const Kiln::String& name) const {
   return findIn(tableIndex_, name);
}

const ZlResourceInfo::ZlTable* P4Program::zlTable(U32 index) const {
   return index < tables_.size() ? &tables_[index] : nullptr;
}

Kiln::Ptr<P4Program> P4Program::standard() {
   constexpr U64 allMacBits = broadcastMac;
   constexpr U64 groupBit = 0x010000000000;
   constexpr U32 vlanEntries = 4096; // all 12-bit VLAN ids, the reserved 0 and 4095 included
   // Of the rules the first match wins: special addresses come before the group bit, and a rule without conditions
   // counts the rest. The L2-domain tables have room for what a VLAN may need: ingress counts plain, decapsulated and
   // translated frames apart, egress has no translated ones. UDP port 19 (chargen) is not used by synthetic traffic, so
   // the QoS policy drops nothing unasked.
   static const MatchTableSpec matchTables[] = {
        {"pdpPolicy", 64},
        {"queueCounters", 64},
        {"qosPolicyDropCounter",
         64,
         Stage::ingress,
         {{.ipProtocol = 17, .destinationPort = 19, .drop = true}}},
        {"l2DmacClassify",
         64,
         Stage::ingress,
         {{.destinationMac = broadcastMac, .destinationMacMask = allMacBits},
          {.destinationMac = 0x0180c2000000, .destinationMacMask = allMacBits & ~U64{0x0f}},
          {.destinationMac = 0x01005e000000, .destinationMacMask = 0xffffff800000},
          {.destinationMac = 0x333300000000, .destinationMacMask = 0xffff00000000},
          {.destinationMac = groupBit, .destinationMacMask = groupBit},
          {}}},
        {"ingL2DomainCount", 3 * vlanEntries},
        {"egrL2DomainCount", 2 * vlanEntries},
        {"ingressAcl",
         512,
         Stage::ingress,
         {{.etherType = 0x0806},
          {.ipProtocol = ipProtocolTcp, .destinationPort = 22},
          {.ipProtocol = ipProtocolTcp, .destinationPort = 179},
          {.ipProtocol = ipProtocolUdp, .destinationPort = vxlanUdpPort},
          {.ipProtocol = ipProtocolTcp},
          {.ipProtocol = ipProtocolUdp},
          {}}},
        {"egressAcl",
         512,
         Stage::egress,
         {{.etherType = etherTypeIpv4}, {.etherType = etherTypeIpv6}, {.vlanId = 1}, {}}},
        {"ipProtocolClassify",
         256,
         Stage::ingress,
         {{.ipProtocol = 1},
          {.ipProtocol = ipProtocolTcp},
          {.ipProtocol = ipProtocolUdp},
          {.ipProtocol = 58},
          {.ipProtocol = ipProtocolSctp}}},
   };
   static const CounterTableSpec counterTables[] = {
        {.name = "ingressPortDropCount", .size = ZlDrop::tableSize, .bytes = false, .symmetric = false},
        {.name = "egressPortDropCount", .size = ZlDrop::tableSize, .bytes = false, .symmetric = false},
        {.name = "finalDropControlCount", .size = ZlDrop::tableSize, .bytes = false, .symmetric = false},
        {.name = "pdpClassCount",
         .size = ZlPort::pdpTableSize,
         .bytes = false,
         .symmetric = false,
         .matchTable = "pdpPolicy"},
        {.name = "egressPortQueueCount", .size = 4096, .symmetric = false, .matchTable = "queueCounters"},
        {.name = "qosPolicyDropCount", .size = 64, .direct = true, .matchTable = "qosPolicyDropCounter"},
        {.name = "l2DmacClassifyCount", .size = 64, .direct = true, .matchTable = "l2DmacClassify"},
        {.name = "ingL2DomainCounters",
         .size = 3 * vlanEntries,
         .direct = true,
         .matchTable = "ingL2DomainCount"},
        {.name = "egrL2DomainCounters",
         .size = 2 * vlanEntries,
         .direct = true,
         .matchTable = "egrL2DomainCount"},
        {.name = "ingressAclCount", .size = 512, .direct = true, .matchTable = "ingressAcl"},
        {.name = "egressAclCount",
         .size = 512,
         .direct = true,
         .bytes = false,
         .symmetric = false,
         .matchTable = "egressAcl"},
        {.name = "ipProtocolByteCount",
         .size = 256,
         .direct = true,
         .packets = false,
         .matchTable = "ipProtocolClassify"},
        {.name = "flowHashCount", .size = 65536},
        {.name = "vlanByteCount", .size = vlanEntries, .packets = false},
        {.name = "frameLengthCount", .size = 256, .bytes = false},
        {.name = "ingressPortCount", .size = ZlPort::slotsPerPipe, .symmetric = false},
   };
   auto program = Kiln::allocate<P4Program>();
   for (const MatchTableSpec& spec : matchTables) {
      program->matchTableAdd(spec);
   }
   for (const CounterTableSpec& spec : counterTables) {
      program->counterTableAdd(spec);
   }
   return program;
}

} // namespace SoftChip
