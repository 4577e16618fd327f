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
      const std::array<U64, 2> sent{reading.pkts, reading.bytes};
      const std::array<U64, 1> dropped{reading.pktsDropped};
      QueueCounter& counter = counters_.at(queue);
      counter.queueId = reading.queueId;
      read_ |= U32{1} << queue;
      const bool isPlain =
           begin == Vex::Begin::step && sent_[queue].isPlain(sent) && dropped_[queue].isPlain(dropped);
      const auto [pkts, bytes] =
           isPlain ? sent_[queue].takePlain(sent) : sent_[queue].read(sent, begin).counts;
      const auto [pktsDropped] =
           isPlain ? dropped_[queue].takePlain(dropped) : dropped_[queue].read(dropped, begin).counts;
      counter.pkts += pkts;
      counter.bytes += bytes;
      counter.pktsDropped += pktsDropped;
   }
}

QueueCounter IntfQueueCounters::reading(std::size_t queue) const {
   const auto& [pkts, bytes] = sent_.at(queue).last();
   return {static_cast<U8>(queue), bytes, pkts, dropped_.at(queue).last()[0]};
}

void IntfQueueCounters::clear() {
   for (QueueCounter& counter : counters_) {
      counter = {counter.queueId, 0, 0, 0};
   }
}

} // namespace ZelCounter
