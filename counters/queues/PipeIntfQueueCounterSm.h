// The poller of the queue counters of one pipe's ports.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/Timer.h"
#include "sdk/bf_types.h"
#include "zel/Pelt.h"
#include "zel/ZelId.h"

namespace ZelCounter {

class ChipAccess;
class QueueCounters;

// What the SDK gets as the cookie of a pipe's sync. A slot is never freed, so that a completion may come at any time;
// it is without counters when the chip that asked is gone.
struct PipeQueueCountersCookie {
   QueueCounters* counters = nullptr; // the chip's
   ZelId::ZelPipeId pipe;
};

// Owned by the chip's queue counters. Everything under the activity lock.
class PipeIntfQueueCounterSm : public Kiln::Entity {
 public:
   // The parent owns this and is held by a raw pointer; its chip has a resource-info service.
   PipeIntfQueueCounterSm(QueueCounters* parent, ZelId::ZelPipeId pipe, Kiln::Ptr<const Kiln::Clock> clock);
   ~PipeIntfQueueCounterSm() override;

   // Null once stopped.
   QueueCounters* parent() const { return parent_; }
   ZelId::ZelPipeId pipe() const { return pipe_; }
   const Kiln::Ptr<const Kiln::Clock>& clock() const { return pollingClock_.clock(); }
   double pollingTimeMin() const { return pollingClock_.timeMin(); }

   // The poller is taken away: its clock is disarmed, its completions find nobody, and whoever still holds it finds it
   // idle.
   void stop();

   // Asks for the pipe's counters. While the table is not initialized, tries again every 1.0 s; a refused request ends
   // the polling of this pipe until its clock is set again.
   void pollingClockExpired();
   // Arms the clock for the next poll.
   void scheduleClock();
   // Stores the queues that were read before as the SDK has them now. A failure changes nothing.
   void readOnceMore();
   // The pipe's counters are there: stores those of every port, hands them over and arms the clock. Drops a completion
   // that was not asked for. Asserts that the SDK can read them.
   void syncCompleted();

 private:
   void handlePollingClock();
   void readAll();
   // A port of this pipe.
   struct Port {
      Pelt::IntfId intf;
      U16 devicePort;
      U8 pipePort;
      unsigned queues;
   };
   struct Ports;
   struct Readings;

   Ports ports() const;
   pipe_status_t readSent(const Port& port, U32 tableHandle, Readings& readings) const;
   bf_status_t readDropped(const Port& port, Readings& readings) const;
   U32 tableHandle() const;
   void storePort(const Port& port, const Readings& readings, double time) const;
   void forgetOtherPort(const Port& port) const;

   QueueCounters* parent_; // owns this; null once stopped
   ZelId::ZelPipeId pipe_;
   bool syncOutstanding_ = false;
   PipeQueueCountersCookie* cookie_; // the pipe's slot; static storage
   Kiln::Timer<PipeIntfQueueCounterSm> pollingClock_;
};

// The SDK's completion of a pipe's sync; the cookie is the pipe's slot. Takes the activity lock. Asserts that the
// cookie is not null; drops a completion for a chip that is gone, or of another device.
void ZelIntfQueueCountersCallback(bf_dev_id_t dev, void* cookie);

} // namespace ZelCounter
