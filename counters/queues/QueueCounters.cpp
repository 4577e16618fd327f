// Keeps the interfaces' counts and the pipes' pollers, and hands what was read to the forwarding layer.
#include "counters/queues/QueueCounters.h"

#include "kiln/Assert.h"
#include "kiln/Time.h"
#include "silo/Prefetch.h"

#include <sstream>
#include <stdexcept>

namespace ZelCounter {

IntfQueueCounters& QueueCounters::intfQueueCountersIs(const Pelt::IntfId& intf) {
   if (const Kiln::Ptr<IntfQueueCounters>* present = intfQueueCounters_.findInPass(intf)) {
      Silo::prefetch(intfQueueCounters_.nextInPass()->ptr(),
                     sizeof(IntfQueueCounters) - Vex::QueueMeters::seldomTouched);
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
   VexTypes::IntfQueueCounters record(counters.counters(), counters.read());
   record.sampleTimeIs(counters.readTime());
   return record;
}

void QueueCounters::handOver(const IntfQueueCounters& counters) {
   if (!vexCountersSm_) {
      return;
   }
   KILN_ASSERT_TEXT(vexCountersSm_->writerConfig(), "zelCounters->vexCountersSm()->writerConfig()");
   const Kiln::Ptr<const IntfQueueCounters> held(&counters); // a watcher may have it forgotten
   VexTypes::IntfQueueCounters record = queueRecord(counters);
   if (counters.readTime() != Silo::unknownSampleTime) {
      // Beside what is stored, which a clear sets to zero, go the readings: a clear changes no total.
      record.readings() = {
           {chip().deviceId(), Vex::Source::Block::queue, counters.devicePort(), chip().life()},
           &isCounted_.at(counters.devicePort()),
           &counters.readings()};
   }
   vexCountersSm_->writerConfig()->intfQueueCountersIs(counters.intfId(), record);
}

void QueueCounters::readOnceMore() {
   // What is handed over may take the chip away, and the pollers with it.
   for (const U16 pipe : pipeIntfQueueCounterSm_.keys()) {
      if (const Kiln::Ptr<PipeIntfQueueCounterSm> poller = pipeIntfQueueCounterSm(pipe)) {
         poller->readOnceMore();
      }
   }
}

void QueueCounters::handlePort(const Pelt::IntfId& intf) {
   const ZelSystem::PortRecord& port = chip().systemStatus()->portInfo(intf);
   const Kiln::Ptr<IntfQueueCounters>& counters = intfQueueCounters(intf);
   if (counters && port != ZelSystem::PortRecord{chip().deviceId(), counters->devicePort()}) {
      counters->leave();
      hasLeft_ = true;
   }
}

void QueueCounters::forgetLeft() {
   if (!std::exchange(hasLeft_, false)) {
      return;
   }
   for (const Pelt::IntfId& intf : intfQueueCounters_.keys()) {
      if (intfQueueCounters(intf)->hasLeft() && !chip().hasPort(intf)) {
         intfQueueCountersDel(intf);
      }
   }
}

void QueueCounters::clear(const Pelt::IntfId& intf) {
   const Kiln::Ptr<IntfQueueCounters> counters = intfQueueCounters(intf);
   if (!counters) {
      return;
   }
   counters->clear();
   // What was read before the interface left says nothing of what it is now.
   if (counters->hasLeft()) {
      return;
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

void QueueCounters::stop() {
   pipeIntfQueueCounterSmDelAll();
   vexCountersSm_ = nullptr;
}

} // namespace ZelCounter
