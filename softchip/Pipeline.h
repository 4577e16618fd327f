// The path of a frame through a chip's tables.
#pragma once

#include "softchip/PipeManager.h"
#include "zl/ZlDropReasons.h"

#include <optional>

namespace SoftChip {

// A frame on its way, or several equal ones.
struct PassingFrames {
   const FrameInfo& frame;
   U64 packets;
   U64 octetsEach; // without FCS, as tables count them
   U16 vlan;       // 1 to 4094, or what a tag says
   U8 decapType = 0;
   bool snatHit = false;

   L2Domain domain() const { return {vlan, decapType, snatHit}; }
};

// Counts in those tables that both the program has and the pipeline knows; others do not change. Owned by the chip,
// under the SDK's lock.
class Pipeline {
 public:
   explicit Pipeline(PipeManager& tables);

   // The frames arrived at a slot of a pipe. Returns why they are dropped, or none.
   std::optional<ZlDrop::IngressReason> ingress(const PassingFrames& passing, unsigned pipe, unsigned slot);
   // The frames have left a queue of the port at a slot of a pipe. Returns why they are dropped after it, or none.
   std::optional<ZlDrop::EgressReason> egress(const PassingFrames& passing, unsigned pipe, unsigned slot,
                                              unsigned queue);

 private:
   struct Lookup {
      const MatchTable* match;
      CounterTable* counter;
   };

   // The first table whose entry drops, or null.
   static const MatchTable* lookUpAll(const std::vector<Lookup>& lookups, const PassingFrames& passing,
                                      unsigned pipe);

   std::vector<Lookup> ingress_;
   std::vector<Lookup> egress_;
   CounterTable* pdpClass_;
   CounterTable* queues_;
   CounterTable* flowHash_;
   CounterTable* vlanBytes_;
   CounterTable* frameLength_;
   CounterTable* ingressPort_;
};

} // namespace SoftChip
