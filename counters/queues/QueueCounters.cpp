// Keeps the interfaces' counts and the pipes' pollers, and hands what was read to the forwarding layer.
#include "counters/queues/QueueCounters.h"

#include "kiln/Assert.h"
#include "kiln/Time.h"

#include <sstream>
#include <stdexcept>

namespace ZelCounter {

IntfQueueCounters& QueueCounters::intfQueueCountersIs(const Pelt::IntfId& intf) {
   if (const Kiln::Ptr<IntfQueueCounters>* present = intfQueueCounters_.find(intf)) {
      return **present;
   }
   intfQueueCounters_.set(intf, Kiln::allocate<IntfQueueCounters>(intf));
   return **intfQueueCounters_.find(intf);
}

void QueueCounters::pollingIntervalIs(double seconds) {
   Kiln::requirePositiveSeconds("intfQueueCountersSdkPollingInterval", seconds);
   pollingInterval_ = seconds;
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

void QueueCounters::handOver(const IntfQueueCounters& counters) const {
   if (!vexCountersSm_) {
      return;
   }
   KILN_ASSERT_TEXT(vexCountersSm_->writerConfig(), "zelCounters->vexCountersSm()->writerConfig()");
   vexCountersSm_->writerConfig()->intfQueueCountersIs(counters.intfId(), queueRecord(counters));
}

void QueueCounters::clear(const Pelt::IntfId& intf, bool portChanged) {
   const Kiln::Ptr<IntfQueueCounters> counters = intfQueueCounters(intf);
   if (!counters) {
      return;
   }
   if (portChanged) {
      counters->restart();
   } else {
      counters->clear();
   }
   // At once, so that the next report's difference is counted from zero: the forwarding layer adds increments.
   handOver(*counters);
}

const Kiln::Ptr<PipeIntfQueueCounterSm>&
QueueCounters::pipeIntfQueueCounterSmIs(ZelId::ZelPipeId pipe, Kiln::Ptr<const Kiln::Clock> clock) {
   if (const Kiln::Ptr<PipeIntfQueueCounterSm>* present = pipeIntfQueueCounterSm_.find(pipe)) {
      if ((*present)->clock() != clock) {
         std::ostringstream text;
         text << "Reinstantiating the pointer interface where constructor parameter attribute _pollingClock "
                 "has a different value of "
              << clock.ptr() << " than the current value of " << (*present)->clock().ptr() << " not allowed";
         throw std::invalid_argument(text.str());
      }
      return *present;
   }
   pipeIntfQueueCounterSm_.set(pipe, Kiln::allocate<PipeIntfQueueCounterSm>(this, pipe, std::move(clock)));
   return *pipeIntfQueueCounterSm_.find(pipe);
}

// The poller may be amid its own completion, whose callback holds it: stopped, it does no more.
void QueueCounters::pipeIntfQueueCounterSmDel(ZelId::ZelPipeId pipe) {
   if (const Kiln::Ptr<PipeIntfQueueCounterSm> poller = pipeIntfQueueCounterSm(pipe)) {
      poller->stop();
      pipeIntfQueueCounterSm_.erase(pipe);
   }
}

void QueueCounters::pipeIntfQueueCounterSmDelAll() {
   Kiln::forEachKey(pipeIntfQueueCounterSm_, [this](U16 pipe) { pipeIntfQueueCounterSmDel(pipe); });
}

} // namespace ZelCounter
