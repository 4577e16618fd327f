// The queue counters of a chip's interfaces, and the pollers that read them.
#pragma once

#include "counters/chip/ChipAccess.h"
#include "counters/queues/IntfQueueCounters.h"
#include "counters/queues/PipeIntfQueueCounterSm.h"
#include "vex/VexCountersSm.h"

namespace ZelCounter {

// Part of the per-chip object, which documents the operations. Under the activity lock.
class QueueCounters {
 public:
   // Without a counters reactor nothing is published.
   QueueCounters(ChipAccess& chip, Kiln::Ptr<Vex::Counters::CountersSm> vexCountersSm)
        : chip_(chip), vexCountersSm_(std::move(vexCountersSm)) {}
   QueueCounters(const QueueCounters&) = delete;
   QueueCounters& operator=(const QueueCounters&) = delete;

   ChipAccess& chip() const { return chip_; }

   const Kiln::Ptr<IntfQueueCounters>& intfQueueCounters(const Pelt::IntfId& intf) const {
      return Kiln::valueOrDefault(intfQueueCounters_, intf);
   }
   // The same, null if there is none, for whoever goes through the interfaces one by one.
   const IntfQueueCounters* storedInPass(const Pelt::IntfId& intf) const {
      const Kiln::Ptr<IntfQueueCounters>* const stored = intfQueueCounters_.findInPass(intf);
      return stored != nullptr ? stored->ptr() : nullptr;
   }
   IntfQueueCounters& intfQueueCountersIs(const Pelt::IntfId& intf);
   void intfQueueCountersDel(const Pelt::IntfId& intf) { intfQueueCounters_.erase(intf); }
   // Gives an interface's stored counts to the forwarding layer, if there is a counters reactor.
   void handOver(const IntfQueueCounters& counters);
   // Reads the queues that were read before once more, as the SDK has them. A failure changes nothing.
   void readOnceMore();
   // An interface got a port, got another one, or lost its port.
   void handlePort(const Pelt::IntfId& intf);
   // Forgets the interfaces that have left this chip.
   void forgetLeft();
   // What is stored of the interface is 0 from here on, and so is what is handed over. Nothing is asked of the SDK.
   void clear(const Pelt::IntfId& intf);

   // Seconds between two polls of a pipe's queues. Taken up when a pipe's clock is armed next, and told to the readers
   // of the shared table with the next polling pass. Throws std::range_error unless it is positive and finite.
   double pollingInterval() const { return pollingInterval_; }
   void pollingIntervalIs(double seconds);

   const Kiln::HashMap<U16, Kiln::Ptr<PipeIntfQueueCounterSm>>& pipeIntfQueueCounterSm() const {
      return pipeIntfQueueCounterSm_;
   }
   const Kiln::Ptr<PipeIntfQueueCounterSm>& pipeIntfQueueCounterSm(ZelId::ZelPipeId pipe) const {
      return Kiln::valueOrDefault(pipeIntfQueueCounterSm_, U16{pipe});
   }
   const Kiln::Ptr<PipeIntfQueueCounterSm>& pipeIntfQueueCounterSmIs(ZelId::ZelPipeId pipe,
                                                                     Kiln::Ptr<const Kiln::Clock> clock);
   void pipeIntfQueueCounterSmDel(ZelId::ZelPipeId pipe);
   void pipeIntfQueueCounterSmDelAll();
   // The chip goes away: nothing is polled or handed over any more.
   void stop();

 private:
   ChipAccess& chip_;
   Kiln::Ptr<Vex::Counters::CountersSm> vexCountersSm_;
   Kiln::HashMap<Pelt::IntfId, Kiln::Ptr<IntfQueueCounters>> intfQueueCounters_;
   Kiln::HashMap<U16, Kiln::Ptr<PipeIntfQueueCounterSm>> pipeIntfQueueCounterSm_;
   double pollingInterval_ = 2.0; // seconds
   bool hasLeft_ = false;         // some interface has
   // By device port: whether anybody was ever counted there in this life of the chip.
   std::array<bool, ZelId::PortIndex::invalid + 1> isCounted_{};
};

// The counts as the forwarding layer's record, which has every queue that was ever read.
VexTypes::IntfQueueCounters queueRecord(const IntfQueueCounters& counters);

} // namespace ZelCounter
