// Counts dropped frames by port and reason, and where in the pipe they were dropped.
#pragma once

#include "softchip/PathCounters.h"
#include "softchip/PipeManager.h"
#include "zl/ZlDropReasons.h"

namespace SoftChip {

// Counts in the drop tables that the chip's program has. Owned by the chip, under the SDK's lock; frames allocate
// nothing.
class DropCounts {
 public:
   DropCounts(PipeManager& tables, PathCounters& path);

   // Frames that arrived at the port are dropped before they reach a queue.
   void ingress(U16 devicePort, ZlDrop::IngressReason reason, U64 packets);
   // Copies are dropped on their way out of the port.
   void egress(U16 devicePort, ZlDrop::EgressReason reason, U64 packets);
   // Frames that arrived at the port and reached queues lost all of their copies.
   void lost(U16 devicePort, ZlDrop::FinalReason reason, U64 packets);

 private:
   void count(ZlDrop::Point point, U16 devicePort, U32 reason, U64 packets);

   std::array<CounterTable*, ZlDrop::tables.size()> tables_; // by point; null in a program that lacks it
   PathCounters& path_;
};

} // namespace SoftChip
