// The traffic manager of a chip: the queues of its ports, and what they drop when a port is congested.
#pragma once

#include "Frame.h"
#include "kiln/Types.h"

#include <span>
#include <vector>

namespace SoftChip {

constexpr unsigned portsPerPipe = 68; // slots of a pipe that can be a port
constexpr unsigned queueLimit = 16;   // queues that a port can have

// How many queues the port at a slot has: front-panel ports 8, the CPU port 14, the recirculation port 2.
constexpr unsigned queueCount(unsigned slot) {
   return slot < 66 ? 8 : slot == 66 ? 14 : 2;
}

// Where queue 0 of the port at a slot is in the queue counter table of its pipe.
constexpr U32 firstQueueEntry(unsigned slot) {
   return slot << 5 | (slot == 67 ? 30 : (slot & 3) << 3);
}

// The queue of a frame at a slot: by its priority, from the VLAN tag or else from the DSCP. The CPU port's
// queues from 8 upward are those of group frames.
unsigned queueOf(const FrameInfo& frame, unsigned slot);

// A port sends at its speed and never more than a burst at once. What is left of the burst is shared by
// priority: the emptier, the higher the queues that still get in. Frames come in bulk some times a second, so
// that the burst stands for what a port sends in between. Owned by the chip, under the SDK's lock; ports by
// place, pipe x portsPerPipe + slot.
class TrafficManager {
 public:
   static constexpr double burstSeconds = 0.2;

   // `drops` holds hardwareWords(pipes) counters and outlives it.
   TrafficManager(unsigned pipes, std::span<U64> drops);
   static std::size_t hardwareWords(unsigned pipes) { return std::size_t{pipes} * portsPerPipe * queueLimit; }

   // Frames of one length want to leave at a time in seconds: how many of them do; the rest are counted as
   // dropped.
   U64 send(std::size_t place, unsigned queue, U64 packets, U64 octetsEach, double now);

   U64& drops(std::size_t place, unsigned queue) { return drops_[place * queueLimit + queue]; }

 private:
   struct Port {
      double octetsPerSecond;
      double burst; // octets that may still be sent at once
      double at;    // when that was
   };

   std::vector<Port> ports_;
   std::span<U64> drops_; // by place, then by queue
};

} // namespace SoftChip
