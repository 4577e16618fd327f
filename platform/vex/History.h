// Keeps the history of ports and their queues in shared memory.
#pragma once

#include "kiln/Collections.h"
#include "kiln/Ptr.h"
#include "silo/HistoryTable.h"
#include "vex/PublishedHistory.h"
#include "vex/PublishedRecords.h"
#include "zel/Pelt.h"

#include <functional>

namespace Vex {

// Of all queues of an interface, as they were read last.
struct QueueDrops {
   U64 packets = 0;
   double time = Silo::unknownSampleTime;
};

struct HistorySettings {
   double minutes = 15;
   double pollingInterval = 2; // seconds, of ports
   std::size_t ports = 2304;   // the most that have a history
   bool isProvisional = false;

   // The most that a port takes, with eight queues.
   std::size_t bytesPerPort() const;
};

// What a history is taken of is told to the operator once if it cannot be kept; nothing is thrown after construction.
// Activity thread. Allocates for a new interface, in mend(), and for long names of
// interfaces with more than eight queues.
class History : public Kiln::PtrInterface {
 public:
   // Throws what Silo::HistoryTable throws. The files of an earlier process go on.
   History(const Silo::Store& store, const HistorySettings& settings);

   // Records an event if what an earlier agent kept is lost.
   void tellBeginning() const;
   // A port's record was published at `time`.
   void portIs(const Silo::Key& key, const Silo::Interface::IntfCounters& record, double time,
               const QueueDrops& drops);
   // Its queues' record was. Kept once in IntfQueueHistory::intervals polling intervals. `keptTime` is kept with the queues,
   // unknown at first: so what is left out, as most is, touches nothing of the rings.
   void queuesAre(const Silo::Key& key, const Silo::Interface::IntfQueueCounters& record, double time,
                  double& keptTime);

   void pollingIntervalIs(double seconds);
   // Between two readings of a queue.
   void queueIntervalIs(double seconds) { queueInterval_ = seconds; }
   // With each polling pass. Asks between its tables whether to go on.
   void mend(const std::function<bool()>& goesOn = [] { return true; });
   void keep();

 private:
   template <class Write>
   void tryTo(Write write);

   double queueInterval_; // seconds between two readings of a queue
   Silo::HistoryTable ports_;
   Silo::HistoryTable queues_;
   bool isRefused_ = false; // something was, since the last polling pass began
   bool isTold_ = false;    // and it has not been otherwise since
};

} // namespace Vex
