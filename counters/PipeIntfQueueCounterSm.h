// The poller of the queue counters of one pipe's ports.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/Clock.h"
#include "zel/ZelId.h"

#include <vector>

namespace ZelCounter {

class ZelCounters;

// What the SDK gets as the cookie of a pipe's sync. A slot is never freed, so that a completion may come at
// any time; no chip means that the one that asked is gone.
struct PipeQueueCountersCookie {
   ZelCounters* zelCounters = nullptr;
   ZelId::ZelPipeId pipe;
};

// Owned by the chip's counters object. Everything under the activity lock.
class PipeIntfQueueCounterSm : public Kiln::Entity {
 public:
   // The parent owns this and is not counted; it has a resource-info service.
   PipeIntfQueueCounterSm(ZelCounters* parent, ZelId::ZelPipeId pipe, Kiln::Ptr<const Kiln::Clock> clock);
   ~PipeIntfQueueCounterSm() override;

   ZelCounters* parent() const { return parent_; }
   ZelId::ZelPipeId pipe() const { return pipe_; }
   const Kiln::Ptr<const Kiln::Clock>& clock() const { return pollingClock_.clock(); }
   double pollingTimeMin() const { return pollingClock_.timeMin(); }

   // Asks for the pipe's counters. A table that is not initialized is tried again after 1.0 s.
   void pollingClockExpired();

 private:
   struct KilnClock : Kiln::Clock::Notifiee {
      KilnClock(Kiln::Ptr<const Kiln::Clock> clock, PipeIntfQueueCounterSm* owner)
           : Notifiee(std::move(clock)), sm(owner) {}
      void onTime() override { sm->pollingClockExpired(); }
      PipeIntfQueueCounterSm* sm;
   };

   ZelCounters* parent_; // owns this
   ZelId::ZelPipeId pipe_;
   PipeQueueCountersCookie* cookie_; // the pipe's slot; static storage
   KilnClock pollingClock_;
};

} // namespace ZelCounter
