// Keeps the events of the agent in shared memory.
#pragma once

#include "kiln/EventLog.h"
#include "kiln/Ptr.h"
#include "silo/Table.h"
#include "vex/PublishedHistory.h"

#include <deque>
#include <mutex>
#include <unordered_map>

namespace Vex {

// While it lives, it is the sink of Kiln::EventLog. What repeats is one event with a count: the same with the same values
// within a minute, and from the fifth within a minute on also with others. What comes in a crowd is one event, too, which
// says how many others came within a second: interfaces that come, go or are broken all at once, and from the 65th on any
// kind, so that one bad moment doesn't push out what led to it. Any thread may record; the rest is the activity thread's.
class EventRecorder : public Kiln::PtrInterface {
 public:
   // Throws what Silo::Table throws. The ring of an earlier process goes on.
   EventRecorder(const Silo::Store& store, double pollingInterval, bool isProvisional);
   ~EventRecorder() override;
   EventRecorder(const EventRecorder&) = delete;
   EventRecorder& operator=(const EventRecorder&) = delete;

   // The agent has started: the ring stays, and what happened meanwhile is written. `lastSign`: when an earlier agent
   // published last, by the table's clock; not finite if that is not known.
   void started(double lastSign);
   void mend();

 private:
   using Record = Silo::Interface::Event;
   struct Repeat {
      U64 number = 0; // of the event that would be counted on
      unsigned inARow =
           0; // how many of its kind came one after the other, each within the time of the one before
   };
   struct Crowd {
      U64 number = 0; // of its newest event
      unsigned count = 0;
      double time = 0; // of its first event
   };

   void record(const Kiln::Event& event);
   void writeWaiting();
   void write(const Kiln::Event& event);
   bool joins(const Record& came);
   bool isCounted(const Record& came);
   void put(const Record& record);
   Record& at(U64 number) { return ring_[number % Silo::Interface::eventLimit]; }

   std::recursive_mutex mutex_; // an event may come of writing another
   bool isHeld_ = true;         // events wait: until the agent has started, and while one is written
   std::deque<Kiln::Event> waiting_;
   Silo::Table<Record> table_;
   std::vector<Record> ring_;                         // by number modulo eventLimit: the writer's own copy
   U64 last_ = 0;                                     // number of the newest
   std::unordered_map<Kiln::String, Repeat> repeats_; // by kind, where, what and text
   std::unordered_map<Kiln::String, Crowd> crowds_;   // by kind, and the cause of what is broken
   bool hasStarted_ = false;
   double lastSign_ = Silo::unknownSampleTime; // when an earlier agent recorded last
   Kiln::EventLog::Sink sinkBefore_;
};

} // namespace Vex
