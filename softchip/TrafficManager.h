// The traffic manager of a chip: the queues of its ports, and their drops when a port is congested.
#pragma once

#include "kiln/Types.h"
#include "sdk/bf_tm.h"
#include "softchip/Frame.h"
#include "zl/ZlPortLayout.h"

#include <optional>
#include <span>
#include <vector>

namespace SoftChip {

// The queue of a frame at a slot: by its priority, from the VLAN tag or else from the DSCP. The CPU port's queues from
// 8 up are for group frames.
unsigned queueOf(const FrameInfo& frame, unsigned slot);

// Copies of a frame, or of several equal ones, on their way from one port to another.
struct OfferedCopies {
   std::size_t from; // places
   std::size_t to;
   unsigned queue;
   U64 packets;
   U64 octetsEach;
   bool replicated; // the frame goes to more ports than one
};

// A port sends at its speed, and never more than a burst at once. The less of the burst is left, the higher a queue's
// priority has to be to get in. Frames arrive in bulk a few times a second: the burst stands for what a port sends in
// between, and the used part of it for what its queues hold.
// Owned by the chip, under the SDK's lock; ports by place, pipe x ZlPort::portsPerPipe + slot.
class TrafficManager {
 public:
   static constexpr double burstSeconds = 0.2;
   static constexpr unsigned cellOctets = 80;

   // `hardware` holds hardwareWords(pipes) counters and outlives it.
   TrafficManager(unsigned pipes, std::span<U64> hardware);
   static std::size_t hardwareWords(unsigned pipes) {
      return std::size_t{pipes} * (ZlPort::portsPerPipe * ZlPort::queueLimit + counterWords);
   }

   // Frames came in from a pipe.
   void accept(unsigned pipe, U64 packets, U64 octetsEach) {
      add(pipe, BF_TM_PIPE_INGRESS, packets, octetsEach);
   }
   // The type counts so many more.
   void add(std::size_t pipe, U32 type, U64 packets, U64 octetsEach) {
      words(pipe, type)[0] += packets;
      words(pipe, type)[1] += packets * octetsEach;
   }
   // Copies are to leave at a time, in seconds. Returns how many do; the rest are counted as dropped.
   U64 send(const OfferedCopies& offered, double now);

   U64& drops(std::size_t place, unsigned queue) { return drops_[place * ZlPort::queueLimit + queue]; }
   // None for an unknown type.
   std::optional<bf_tm_pipe_counter_t> counter(unsigned pipe, U32 type, double now) const;

 private:
   struct Port {
      double octetsPerSecond;
      double burst; // octets that may still be sent at once
      double at;    // the time that `burst` is of

      double full() const { return octetsPerSecond * burstSeconds; }
      double burstAt(double now) const;
      U64 cellsAt(double now) const; // that its queues hold
   };
   static constexpr unsigned counterTypes = BF_TM_PIPE_CUT_THROUGH + 1;
   static constexpr unsigned counterWords = 2 * counterTypes;

   U64* words(std::size_t pipe, U32 type) const { return &counters_[pipe * counterWords + 2 * type]; }

   std::vector<Port> ports_;
   std::span<U64> drops_;    // by place, then by queue
   std::span<U64> counters_; // by pipe, then by type: count and bytes
};

} // namespace SoftChip
