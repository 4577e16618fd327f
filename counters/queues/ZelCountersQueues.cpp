// The queue counters that a chip keeps of its interfaces.
#include "counters/ZelCounters.h"
#include "kiln/Assert.h"

#include <cmath>
#include <stdexcept>

namespace ZelCounter {

IntfQueueCounters& ZelCounters::intfQueueCountersIs(const Pelt::IntfId& intf) {
   if (const Kiln::Ptr<IntfQueueCounters>* present = intfQueueCounters_.find(intf)) {
      return **present;
   }
   intfQueueCounters_.set(intf, Kiln::allocate<IntfQueueCounters>(intf));
   return **intfQueueCounters_.find(intf);
}

void ZelCounters::intfQueueCountersSdkPollingIntervalIs(double seconds) {
   if (!std::isfinite(seconds) || seconds <= 0.0) {
      throw std::range_error("intfQueueCountersSdkPollingInterval must be a positive number of seconds");
   }
   intfQueueCountersSdkPollingInterval_ = seconds;
}

VexTypes::IntfQueueCounters queueRecord(const IntfQueueCounters& counters) {
   VexTypes::IntfQueueCounters record;
   record.sampleTimeIs(counters.readTime());
   record.beginsAnewIs(counters.beginsAnew());
   for (std::size_t queue = 0; queue < IntfQueueCounters::queueLimit; ++queue) {
      if (counters.has(queue)) {
         const QueueCounter& counter = counters.queueCounter(queue);
         record.intfQueueStatIs(queue, {counter.pkts, counter.bytes, counter.pktsDropped});
      }
   }
   return record;
}

void ZelCounters::handOverQueueCounters(const IntfQueueCounters& counters) const {
   if (!vexCountersSm()) {
      return;
   }
   KILN_ASSERT_TEXT(vexCountersSm()->writerConfig(), "zelCounters->vexCountersSm()->writerConfig()");
   vexCountersSm()->writerConfig()->intfQueueCountersIs(counters.intfId(), queueRecord(counters));
}

void ZelCounters::clearIntfQueueCounters(const Pelt::IntfId& intf, bool portChanged) {
   const Kiln::Ptr<IntfQueueCounters> counters = intfQueueCounters(intf);
   if (!counters) {
      return;
   }
   if (portChanged) {
      counters->restart();
   } else {
      counters->clear();
   }
   // At once, so that the next report's difference counts from zero.
   handOverQueueCounters(*counters);
}

} // namespace ZelCounter
