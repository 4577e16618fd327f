// Looks frames up in the tables and counts them.
#include "softchip/Pipeline.h"

#include "softchip/PdpClasses.h"
#include "zl/ZlPortLayout.h"

#include <algorithm>
#include <cstring>

namespace SoftChip {

namespace {

constexpr U32 octetsPerLengthStep = 64;
constexpr U32 lengthSteps = 256;

// 16 bits from the fields that tell one flow from another.
U32 flowHash(const FrameInfo& frame) {
   U64 words[4];
   static_assert(sizeof words == sizeof frame.ip.source + sizeof frame.ip.destination);
   std::memcpy(words, frame.ip.source.data(), sizeof frame.ip.source);
   std::memcpy(words + 2, frame.ip.destination.data(), sizeof frame.ip.destination);
   U64 sum = frame.destinationMac ^ frame.sourceMac << 16 ^ frame.ip.protocol;
   for (const U64 word : words) {
      sum = (sum ^ word) * 0x9e3779b97f4a7c15;
      sum ^= sum >> 29;
   }
   sum ^= U64{frame.ip.sourcePort} << 16 | frame.ip.destinationPort;
   return static_cast<U32>(sum * 0x9e3779b97f4a7c15 >> 48);
}

void count(CounterTable* table, unsigned pipe, U32 slot, const PassingFrames& passing) {
   // A program may lack the table, or declare it smaller.
   if (table != nullptr && slot < table->slots()) {
      table->count(pipe, slot, passing.packets, passing.packets * passing.octetsEach);
   }
}

} // namespace

Pipeline::Pipeline(PipeManager& tables)
     : pdpClass_(tables.counterTable("pdpClassCount")), queues_(tables.counterTable("egressPortQueueCount")),
       flowHash_(tables.counterTable("flowHashCount")), vlanBytes_(tables.counterTable("vlanByteCount")),
       frameLength_(tables.counterTable("frameLengthCount")),
       ingressPort_(tables.counterTable("ingressPortCount")) {
   for (const MatchTable& match : tables.matchTables()) {
      const Lookup lookup{&match, tables.counterTableOf(match)};
      if (match.spec().stage == Stage::ingress) {
         ingress_.push_back(lookup);
      } else if (match.spec().stage == Stage::egress) {
         egress_.push_back(lookup);
      }
   }
}

// Every table counts, even those after one whose entry drops: the drop takes effect at the end of the stage.
const MatchTable* Pipeline::lookUpAll(const std::vector<Lookup>& lookups, const PassingFrames& passing,
                                      unsigned pipe) {
   const MatchTable* dropping = nullptr;
   for (const Lookup& lookup : lookups) {
      const U32 handle = lookup.match->lookUp(passing.frame, passing.vlan, pipe);
      if (handle != 0) {
         count(lookup.counter, pipe, handle, passing);
         if (dropping == nullptr && lookup.match->rule(static_cast<S32>(handle))->drop) {
            dropping = lookup.match;
         }
      }
   }
   return dropping;
}

std::optional<ZlDrop::IngressReason> Pipeline::ingress(const PassingFrames& passing, unsigned pipe,
                                                       unsigned slot) {
   count(ingressPort_, pipe, slot, passing);
   count(pdpClass_, pipe, ZlPort::pdpEntry(slot, pdpClassOf(passing.frame)), passing);
   count(frameLength_, pipe, std::min(passing.frame.wireLength / octetsPerLengthStep, lengthSteps - 1),
         passing);
   count(vlanBytes_, pipe, passing.vlan, passing);
   count(flowHash_, pipe, flowHash(passing.frame), passing);
   const MatchTable* const dropping = lookUpAll(ingress_, passing, pipe);
   if (dropping == nullptr) {
      return std::nullopt;
   }
   return dropping->spec().name == "qosPolicyDropCounter" ? ZlDrop::IngressReason::qosPolicy
                                                          : ZlDrop::IngressReason::aclDeny;
}

std::optional<ZlDrop::EgressReason> Pipeline::egress(const PassingFrames& passing, unsigned pipe,
                                                     unsigned slot, unsigned queue) {
   count(queues_, pipe, ZlPort::queueEntry(slot, queue), passing);
   return lookUpAll(egress_, passing, pipe) != nullptr ? std::optional(ZlDrop::EgressReason::aclDeny)
                                                       : std::nullopt;
}

} // namespace SoftChip
