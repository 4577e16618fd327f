// Baselines of queue counters, and a counter's text.
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
   const bool isRebased = restarted_ && devicePort != devicePort_;
   if (isRebased) {
      read_ = 0; // the port may have fewer queues than the one before
   }
   for (const QueueCounter& reading : readings) {
      if (isRebased) {
         baseline_.at(reading.queueId) = reading;
      }
      readingIs(reading);
   }
   // A new object's flag stands as its maker set it: only what had a reading, or was restarted, can tell by itself.
   if (restarted_ || readTime_ != Silo::unknownSampleTime) {
      beginsAnewIs(isRebased);
   }
   restarted_ = false;
   devicePort_ = devicePort;
   readTime_ = time;
}

void IntfQueueCounters::readingIs(const QueueCounter& reading) {
   QueueCounter& base = baseline_.at(reading.queueId);
   // Any of the three below its baseline: the chip was reset, and all three count from zero.
   if (reading.bytes < base.bytes || reading.pkts < base.pkts || reading.pktsDropped < base.pktsDropped) {
      base = {reading.queueId, 0, 0, 0};
   }
   queueCounterIs({reading.queueId, reading.bytes - base.bytes, reading.pkts - base.pkts,
                   reading.pktsDropped - base.pktsDropped});
}

// The baseline grows by what is stored, which makes it the last reading.
void IntfQueueCounters::clear() {
   for (std::size_t queue = 0; queue < queueLimit; ++queue) {
      QueueCounter& counter = counters_[queue];
      QueueCounter& base = baseline_[queue];
      base.bytes += counter.bytes;
      base.pkts += counter.pkts;
      base.pktsDropped += counter.pktsDropped;
      counter = {counter.queueId, 0, 0, 0};
   }
}

void IntfQueueCounters::restart() {
   clear();
   restarted_ = true;
   beginsAnewIs(true);
   readTime_ = Silo::unknownSampleTime;
}

} // namespace ZelCounter
