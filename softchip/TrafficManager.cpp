// One token bucket per port.
#include "softchip/TrafficManager.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace SoftChip {

namespace {

using ZlPort::portsPerPipe;

// Every eighth front-panel port is a slow one, so that ordinary traffic congests it.
constexpr double fastOctetsPerSecond = 10e9 / 8;
constexpr double slowOctetsPerSecond = 1e9 / 8;
constexpr unsigned slowPortPeriod = 8;

// The part of the burst that the lowest queue leaves to higher ones.
constexpr double reservedShare = 0.25;
constexpr unsigned multicastQueue = 8;
// What a frame takes on the wire beside itself: 12 octets of gap, 8 of preamble.
constexpr unsigned gapAndPreambleOctets = 20;

unsigned priorityOf(const FrameInfo& frame) {
   return frame.tagged() ? frame.outerTag.priority : frame.ip.dscp >> 3;
}

} // namespace

unsigned queueOf(const FrameInfo& frame, unsigned slot) {
   const unsigned priority = priorityOf(frame);
   switch (ZlPort::queueCount(slot)) {
   case 2:
      return priority / 4;
   case 14:
      // Six group queues for eight priorities: the highest three share the last.
      return frame.destination == Destination::unicast ? priority : multicastQueue + std::min(priority, 5U);
   default:
      return priority;
   }
}

TrafficManager::TrafficManager(unsigned pipes, std::span<U64> hardware)
     : drops_(hardware.first(std::size_t{pipes} * portsPerPipe * ZlPort::queueLimit)),
       counters_(hardware.subspan(drops_.size())) {
   for (unsigned place = 0; place < pipes * portsPerPipe; ++place) {
      const bool slow = place % portsPerPipe % slowPortPeriod == slowPortPeriod - 1;
      const double speed = slow ? slowOctetsPerSecond : fastOctetsPerSecond;
      ports_.push_back({speed, speed * burstSeconds, 0.0});
   }
}

double TrafficManager::Port::burstAt(double now) const {
   return std::min(full(), burst + std::max(0.0, now - at) * octetsPerSecond);
}

U64 TrafficManager::Port::cellsAt(double now) const {
   return static_cast<U64>(std::llround((full() - burstAt(now)) / cellOctets));
}

U64 TrafficManager::send(const OfferedCopies& offered, double now) {
   Port& port = ports_[offered.to];
   port.burst = port.burstAt(now);
   port.at = now;

   const double full = port.full();
   const bool idle = port.burst >= full;
   const double each = static_cast<double>(offered.octetsEach + gapAndPreambleOctets);
   const unsigned priority = std::min(offered.queue, multicastQueue - 1);
   // Falls with the priority, and the highest queue may use the whole burst.
   const double reserved = full * reservedShare * (multicastQueue - 1 - priority) / multicastQueue;
   const double room = port.burst - reserved;
   const bool allFit = room >= static_cast<double>(offered.packets) * each;
   const U64 sent = allFit ? offered.packets : room > 0 ? static_cast<U64>(room / each) : 0;
   port.burst -= static_cast<double>(sent) * each;
   drops(offered.to, offered.queue) += offered.packets - sent;

   const std::size_t pipe = offered.to / portsPerPipe;
   add(pipe, BF_TM_PIPE_EGRESS, sent, offered.octetsEach);
   add(pipe, BF_TM_PIPE_DROPS, offered.packets - sent, offered.octetsEach);
   if (offered.replicated) {
      add(pipe, BF_TM_PIPE_MULTICAST, offered.packets, offered.octetsEach);
   } else if (idle && port.octetsPerSecond == ports_[offered.from].octetsPerSecond) {
      // A frame can leave before it has arrived whole only at the speed at which it arrives.
      add(pipe, BF_TM_PIPE_CUT_THROUGH, sent, offered.octetsEach);
   }
   // The peak of a single port: a sum over the pipe would cost 68 ports for each frame.
   U64& watermark = *words(pipe, BF_TM_PIPE_WATERMARK);
   watermark = std::max(watermark, port.cellsAt(now));
   return sent;
}

std::optional<bf_tm_pipe_counter_t> TrafficManager::counter(unsigned pipe, U32 type, double now) const {
   switch (type) {
   case BF_TM_PIPE_INGRESS:
   case BF_TM_PIPE_EGRESS:
   case BF_TM_PIPE_DROPS:
   case BF_TM_PIPE_MULTICAST:
   case BF_TM_PIPE_WATERMARK:
   case BF_TM_PIPE_CUT_THROUGH:
      return bf_tm_pipe_counter_t{words(pipe, type)[0], words(pipe, type)[1]};
   // Follows from the time, since queues drain while nobody looks. So it is computed, and not kept with the counters.
   case BF_TM_PIPE_CELLS: {
      const auto first = ports_.begin() + pipe * portsPerPipe;
      const U64 cells = std::accumulate(first, first + portsPerPipe, U64{0},
                                        [now](U64 sum, const Port& port) { return sum + port.cellsAt(now); });
      return bf_tm_pipe_counter_t{cells, 0};
   }
   default:
      return std::nullopt;
   }
}

} // namespace SoftChip
