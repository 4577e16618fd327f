// The egress queue counters of an interface.
#pragma once

#include "kiln/Accessors.h"
#include "silo/Record.h"
#include "vex/QueueMeters.h"
#include "zel/Pelt.h"
#include "zel/ZelId.h"

#include <array>
#include <iosfwd>

namespace ZelCounter {

// One queue's counts: bytes and packets sent, packets dropped.
struct QueueCounter {
   QueueCounter() = default;
   QueueCounter(U8 id, U64 sentBytes, U64 sentPkts, U64 dropped)
        : queueId(id), bytes(sentBytes), pkts(sentPkts), pktsDropped(dropped) {}

   U8 queueId = 0;
   U64 bytes = 0;
   U64 pkts = 0;
   U64 pktsDropped = 0;
   bool operator==(const QueueCounter&) const = default;
};

// "Value('ZelCounter::QueueCounter', ** {'queueId': 1, 'bytes': 2, 'pkts': 3, 'pktsDropped': 4})"
std::ostream& operator<<(std::ostream& out, const QueueCounter& counter);

// How many queues the port at this index of its pipe has. Asserts that a port can have the index.
unsigned queuesOfPort(unsigned pipePort);

// What is stored is what was counted since the library's own clear. The first reading counts whole, but that of another
// port is only compared with. Under the activity lock.
class IntfQueueCounters : public Kiln::PtrInterface {
 public:
   static constexpr std::size_t queueLimit = Vex::QueueMeters::queueCount; // 17: queues 0 to 16

   explicit IntfQueueCounters(Pelt::IntfId intfId) : intfId_(intfId) {}

   const Pelt::IntfId& intfId() const { return intfId_; }
   // Whether the queue was ever read.
   bool has(std::size_t queue) const { return queue < queueLimit && ((read_ >> queue) & 1) != 0; }
   // Throws std::out_of_range for a queue above 16.
   QueueCounter queueCounter(std::size_t queue) const { return counterOf(queue, counters_.at(queue)); }
   void queueCounterIs(const QueueCounter& counter);

   // What the hardware has in each of the port's queues, of which it has `count`, at `time`, in seconds.
   void readingsAre(U16 devicePort, const Vex::QueueMeters::Values& readings, std::size_t count, double time);
   // What is stored is 0, and counts from the last reading on.
   void clear();

   // What is stored of all queues, of which bit q of read() says whether queue q was ever read; and what the hardware had
   // when they were read last.
   const Vex::QueueMeters::Values& counters() const { return counters_; }
   U32 read() const { return read_; }
   const Vex::QueueMeters::Values& readings() const { return meters_.last(); }
   // The interface has left the port that was read: what is read there next is only compared with.
   void leave() { hasLeft_ = true; }
   bool hasLeft() const { return hasLeft_; }
   // The port that was read for the interface.
   U16 devicePort() const { return devicePort_; }
   // When the chip had what is stored; Silo::unknownSampleTime before the first reading.
   double readTime() const { return readTime_; }

 private:
   static QueueCounter counterOf(std::size_t queue, const Vex::QueueMeters::Queue& counts) {
      return {static_cast<U8>(queue), counts.bytes, counts.packets, counts.drops};
   }
   void countEach(const Vex::QueueMeters::Values& readings, std::size_t count, Vex::Begin begin);

   Pelt::IntfId intfId_;
   U32 read_ = 0; // bit q: queue q was read
   U16 devicePort_ = ZelId::PortIndex::invalid;
   bool hasLeft_ = false;
   double readTime_ = Silo::unknownSampleTime;
   Vex::QueueMeters::Values counters_{};
   Vex::QueueMeters meters_;
};

} // namespace ZelCounter
