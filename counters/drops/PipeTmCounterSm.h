// The poller of one kind of traffic-manager counters of one pipe.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/Timer.h"
#include "zel/ZelId.h"

#include <array>
#include <functional>

namespace ZelCounter {

class TmCounters;

// The SDK's numbers of the traffic-manager counters, in the order in which they are polled; 3 and 5 deliberately are
// not.
constexpr std::array<U32, 7> polledTmCounterTypes = {0, 1, 2, 6, 7, 4, 8};

// What a poller reads: a logical pipe, and the SDK's number of the type of counters.
struct PipeTmCounterKey {
   ZelId::ZelPipeId pipe;
   U32 counterType = 0;
   bool operator==(const PipeTmCounterKey& other) const noexcept {
      return pipe == other.pipe && counterType == other.counterType;
   }
};

// Owned by the chip's traffic-manager counters. Activity thread. The status of a failed read is kept beside the values
// that were read before it.
class PipeTmCounterSm : public Kiln::Entity {
 public:
   // The parent owns this and is held by a raw pointer.
   PipeTmCounterSm(TmCounters* parent, PipeTmCounterKey key, U32 physicalPipe,
                   Kiln::Ptr<const Kiln::Clock> clock);

   // The chip goes away: nothing is polled any more, whoever still holds this.
   void stop();

   // Null once stopped.
   TmCounters* parent() const { return parent_; }
   const PipeTmCounterKey& key() const { return key_; }
   U32 physicalPipe() const { return physicalPipe_; }
   const Kiln::Ptr<const Kiln::Clock>& clock() const { return pollingClock_.clock(); }
   double pollingTimeMin() const { return pollingClock_.timeMin(); }

   // Reads the counter. A failure changes only its status.
   void poll();
   // Arms the clock for the next poll.
   void scheduleClock();

   // Seconds between two polls.
   KILN_SECONDS(pollingInterval, 2.0)

 private:
   void handlePollingClock();

   TmCounters* parent_; // owns this; null once stopped
   PipeTmCounterKey key_;
   U32 physicalPipe_;
   Kiln::Timer<PipeTmCounterSm> pollingClock_;
};

} // namespace ZelCounter

template <>
struct std::hash<ZelCounter::PipeTmCounterKey> {
   std::size_t operator()(const ZelCounter::PipeTmCounterKey& key) const noexcept {
      return (std::size_t{key.pipe} << 32) ^ key.counterType;
   }
};
