// What queues counted since the clear, and a counter's text.
#include "counters/queues/IntfQueueCounters.h"

#include "kiln/Assert.h"
#include "zl/ZlPortLayout.h"

#include <bit>
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
   Vex::QueueMeters::Values values;
   U32 read = 0;
   for (const QueueCounter& reading : readings) {
      values.at(reading.queueId) = {reading.pkts, reading.bytes, reading.pktsDropped};
      read |= U32{1} << reading.queueId;
   }
   read_ |= read;
   // A port has the first so many.
   const auto count = static_cast<std::size_t>(std::countr_one(read));
   const bool isPlain =
        begin == Vex::Begin::step && read >> count == 0 && meters_.takePlain(values, count, counters_);
   if (!isPlain) {
      countEach(values, read, begin);
   }
}

void IntfQueueCounters::countEach(const Vex::QueueMeters::Values& readings, U32 read, Vex::Begin begin) {
   for (std::size_t queue = 0; queue < queueLimit; ++queue) {
      if ((read >> queue & 1) != 0) {
         const Vex::QueueMeters::Queue counts = meters_.read(queue, readings[queue], begin).counts();
         counters_[queue].packets += counts.packets;
         counters_[queue].bytes += counts.bytes;
         counters_[queue].drops += counts.drops;
      }
   }
}

void IntfQueueCounters::clear() {
   counters_ = {};
}

} // namespace ZelCounter
