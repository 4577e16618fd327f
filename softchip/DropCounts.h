// Counts dropped frames by port and reason, and where in the pipe they were dropped.
#pragma once

#include "softchip/PathCounters.h"
#include "softchip/PipeManager.h"
#include "zl/ZlDropReasons.h"

namespace SoftChip {

// The counter tables are those of the program that it has. Owned by the chip, under the SDK's lock; frames
// allocate nothing.
class DropCounts {
 public:
   DropCounts(PipeManager& tables, PathCounters& path);

   // The frames came in at the port and are dropped before they got a queue.
   void ingress(U16 devicePort, ZlDrop::IngressReason reason, U64 packets);
   // Copies are dropped on their way out of the port.
   void egress(U16 devicePort, ZlDrop::EgressReason reason, U64 packets);
   // Of frames that came in at the port, and got into queues, no copy left.
   void lost(U16 devicePort, ZlDrop::FinalReason reason, U64 packets);

 private:
   void count(ZlDrop::Point point, U16 devicePort, U32 reason, U64 packets);

   std::array<CounterTable*, ZlDrop::tables.size()> tables_; // by point; null in a program that lacks it
   PathCounters& path_;
};

} // namespace SoftChip
