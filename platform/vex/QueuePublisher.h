// Publishes the queue counters of every interface.
#pragma once

#include "kiln/Collections.h"
#include "vex/SharedTables.h"
#include "vex/VexCountersLog.h"
#include "vex/VexTypes.h"

namespace Vex::Counters {

// Part of the counters reactor. Activity thread; allocates only for a new interface.
class QueuePublisher {
 public:
   // Either table may be null: then nothing is published, or cleared.
   QueuePublisher(Kiln::Ptr<Silo::Interface::AllIntfQueueCounters> counters,
                  Kiln::Ptr<Silo::Interface::AllIntfClearQueueCounters> clearCounters)
        : counters_(std::move(counters)), clearCounters_(std::move(clearCounters)) {}

   // With `isIncrement`, adds the differences from the previous report to the published totals; a value below the
   // previous one is a restart and counts whole. Without, the report is the total. Throws what the table throws.
   void publish(const Pelt::IntfId& intf, const VexTypes::IntfQueueCounters& report, bool isIncrement);
   // Moves the clear baseline to now. False: no queues of the interface are published.
   bool clear(const Pelt::IntfId& intf);
   // Logs an interface that the table refuses, and clears the others.
   void clearAll(PublishErrors& errors);
   // The interface is gone.
   void remove(const Pelt::IntfId& intf);

 private:
   struct History {
      Silo::Key key;
      VexTypes::IntfQueueCounters report{};
      double sampleTime = Silo::unknownSampleTime;
   };

   History& historyOf(const Pelt::IntfId& intf);
   void clear(const Silo::Key& key);

   Kiln::Ptr<Silo::Interface::AllIntfQueueCounters> counters_;
   Kiln::Ptr<Silo::Interface::AllIntfClearQueueCounters> clearCounters_;
   Kiln::HashMap<Pelt::IntfId, History> histories_;
};

} // namespace Vex::Counters
