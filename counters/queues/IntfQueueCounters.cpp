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
   counters_.at(counter.queueId) = {counter.pkts, counter.bytes, counter.pktsDropped};
   read_ |= U32{1} << counter.queueId;
}

void IntfQueueCounters::readingsAre(U16 devicePort, const Vex::QueueMeters::Values& readings,
                                    std::size_t count, double time) {
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
   read_ |= (U32{1} << count) - 1;
   const auto add = [this](std::size_t word, U64 step) {
      Interface::wordIs(counters_, word, Interface::word(counters_, word) + step);
   };
   if (begin != Vex::Begin::step || !meters_.takePlain(readings, count, add)) {
      countEach(readings, count, begin);
   }
}

void IntfQueueCounters::countEach(const Vex::QueueMeters::Values& readings, std::size_t count,
                                  Vex::Begin begin) {
   for (std::size_t queue = 0; queue < count; ++queue) {
      const Vex::QueueMeters::Queue counts = meters_.read(queue, readings.at(queue), begin).counts();
      counters_[queue].packets += counts.packets;
      counters_[queue].bytes += counts.bytes;
      counters_[queue].drops += counts.drops;
   }
}

void IntfQueueCounters::clear() {
   counters_ = {};
}

} // namespace ZelCounter
