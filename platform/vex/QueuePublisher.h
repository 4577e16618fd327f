// Publishes the queue counters of every interface.
#pragma once

#include "kiln/Collections.h"
#include "vex/Clear.h"
#include "vex/QueueMeters.h"
#include "vex/SharedTables.h"
#include "vex/VexCountersLog.h"
#include "vex/VexTypes.h"

#include <functional>

namespace Vex::Counters {

// Part of the counters reactor. Activity thread; allocates only for a new interface.
class QueuePublisher {
 public:
   // Any of them may be null: then nothing is published, cleared, or kept.
   QueuePublisher(Kiln::Ptr<Silo::Interface::AllIntfQueueCounters> counters,
                  Kiln::Ptr<Silo::Interface::AllIntfClearQueueCounters> clearCounters,
                  Kiln::Ptr<History> history)
        : counters_(std::move(counters)), clearCounters_(std::move(clearCounters)),
          history_(std::move(history)) {}

   // Adds what the report's readings counted to the published totals; without readings, the differences between the
   // reports. Without `isIncrement`, the report is the total. Throws what the table throws; what it did not take comes
   // with the next report.
   void publish(const Pelt::IntfId& intf, const VexTypes::IntfQueueCounters& report, bool isIncrement);
   // Packets that the queues of the interface dropped, as published last; none at no time if it has none.
   QueueDrops drops(const Pelt::IntfId& intf) const;
   // Moves the clear baseline to now. False: no queues of the interface are published.
   bool clear(const Pelt::IntfId& intf);
   // Logs an interface that the table refuses, and clears the others.
   void clearAll(PublishErrors& errors);
   // The interface is gone.
   void remove(const Pelt::IntfId& intf);
   // Removes the records of interfaces that an earlier process published and nobody has reported since, unless they are
   // there.
   void removeAbsent(const std::function<bool(const Pelt::IntfId&)>& isThere);

 private:
   using Record = Silo::Interface::IntfQueueCounters;

   struct Counted {
      Silo::Key key;
      Record record{}; // as published, or as it will be
      double sampleTime = Silo::unknownSampleTime;
      double reportTime = Silo::unknownSampleTime;
      double keptTime = Silo::unknownSampleTime; // of the last sample in the history
      U32 seen = 0;                              // bit q: queue q was reported in this process
      SourceTrail sources{};
      Clear<Record> clear{};
      QueueMeters meters{};
   };

   Counted& countedOf(const Pelt::IntfId& intf);
   Silo::Table<Record>* clearTable() const { return clearCounters_ ? &clearCounters_->table() : nullptr; }
   static bool takePlain(Counted& counted, const VexTypes::IntfQueueCounters& report);
   static bool takeQueue(Counted& counted, std::size_t queue, const VexTypes::IntfQueueCounters& report,
                         Begin begin, bool isIncrement);
   static void dropQueues(Counted& counted, const VexTypes::IntfQueueCounters& report);
   bool isPublished(const Pelt::IntfId& intf) const;

   Kiln::Ptr<Silo::Interface::AllIntfQueueCounters> counters_;
   Kiln::Ptr<Silo::Interface::AllIntfClearQueueCounters> clearCounters_;
   Kiln::Ptr<History> history_;
   Kiln::HashMap<Pelt::IntfId, Counted> counted_;
};

} // namespace Vex::Counters
