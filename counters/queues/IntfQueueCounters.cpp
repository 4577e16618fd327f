// What queues counted since the clear, and a counter's text.
#include "counters/queues/IntfQueueCounters.h"

#include "kiln/Assert.h"
#include "zl/ZlPortLayout.h"

#include <ostream>

namespace ZelCounter {

std::ostream& operator<<(std::ostream& out, const QueueCounter& counter) {
   return out << "Value('ZelCounter::QueueCounter', ** {"
              << "'queueId': " << unsigned{counter.queueId} << ", 'bytes': " << counter.bytes
              << ", 'pkts': " << counter.pkts << ", 'pktsDropped': " << counter.pktsDropped << "})";
}

unsigned queuesOfPort(unsigned pipePort) {
   if (pipePort >= ZlPort::portsPerPipe) {
      KILN_ASSERT(false); // this text is fixed, so the condition stands apart
   }
   return ZlPort::queueCount(pipePort);
}

void IntfQueueCounters::queueCounterIs(const QueueCounter& counter) {
   counters_.at(counter.queueId) = counter;
   read_ |= U32{1} << counter.queueId;
}

void IntfQueueCounters::readingsAre(U16 devicePort, std::span<const QueueCounter> readings, double time) {
   Vex::Begin begin = Vex::Begin::step;
   if (readTime_ == Silo::unknownSampleTime) {
      begin = Vex::Begin::whole;
   } else if (hasLeft_ || devicePort_ != devicePort) {
      begin = Vex::Begin::nothing;
      counters_ = {};
      read_ = 0; // the port may have fewer queues than the one before
   }
   hasLeft_ = false;
   devicePort_ = devicePort;
   readTime_ = time;
   for (const QueueCounter& reading : readings) {
      const std::size_t queue = reading.queueId;
      readings_.at(queue) = reading;
      const Vex::Step<2> sent = sent_[queue].read({reading.pkts, reading.bytes}, begin);
      const Vex::Step<1> dropped = dropped_[queue].read({reading.pktsDropped}, begin);
      const QueueCounter& counter = counters_[queue];
      queueCounterIs({reading.queueId, counter.bytes + sent.counts[1], counter.pkts + sent.counts[0],
                      counter.pktsDropped + dropped.counts[0]});
   }
}

void IntfQueueCounters::clear() {
   for (QueueCounter& counter : counters_) {
      counter = {counter.queueId, 0, 0, 0};
   }
}

} // namespace ZelCounter
