// A token bucket a port.
#include "TrafficManager.h"

#include <algorithm>

namespace SoftChip {

namespace {

// Every eighth front-panel port is a slow one, so that ordinary traffic congests it.
constexpr double fastOctetsPerSecond = 10e9 / 8;
constexpr double slowOctetsPerSecond = 1e9 / 8;
constexpr unsigned slowPortPeriod = 8;

// Of the burst, kept for higher queues by the lowest.
constexpr double reservedShare = 0.25;
constexpr unsigned multicastQueue = 8;
constexpr unsigned gapAndPreambleOctets = 20;

unsigned priorityOf(const FrameInfo& frame) {
   return frame.tagged() ? frame.outerTag.priority : frame.ip.dscp >> 3;
}

} // namespace

unsigned queueOf(const FrameInfo& frame, unsigned slot) {
   const unsigned priority = priorityOf(frame);
   switch (queueCount(slot)) {
   case 2:
      return priority / 4;
   case 14:
      return frame.destination == Destination::unicast ? priority : multicastQueue + std::min(priority, 5U);
   default:
      return priority;
   }
}

TrafficManager::TrafficManager(unsigned pipes, std::span<U64> drops) : drops_(drops) {
   for (unsigned place = 0; place < pipes * portsPerPipe; ++place) {
      const bool slow = place % portsPerPipe % slowPortPeriod == slowPortPeriod - 1;
      const double speed = slow ? slowOctetsPerSecond : fastOctetsPerSecond;
      ports_.push_back({speed, speed * burstSeconds, 0.0});
   }
}

U64 TrafficManager::send(std::size_t place, unsigned queue, U64 packets, U64 octetsEach, double now) {
   Port& port = ports_[place];
   const double full = port.octetsPerSecond * burstSeconds;
   port.burst = std::min(full, port.burst + std::max(0.0, now - port.at) * port.octetsPerSecond);
   port.at = now;

   const double each = static_cast<double>(octetsEach + gapAndPreambleOctets);
   const unsigned priority = std::min(queue, multicastQueue - 1);
   const double reserved = full * reservedShare * (multicastQueue - 1 - priority) / multicastQueue;
   const double room = port.burst - reserved;
   const bool allFit = room >= static_cast<double>(packets) * each;
   const U64 sent = allFit ? packets : room > 0 ? static_cast<U64>(room / each) : 0;
   port.burst -= static_cast<double>(sent) * each;
   drops(place, queue) += packets - sent;
   return sent;
}

} // namespace SoftChip
