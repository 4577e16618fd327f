// Reads the events that an agent keeps in shared memory. Asks no agent.
#pragma once

#include "apps/zelctl/views/TimeSpan.h"
#include "silo/TableReader.h"
#include "vex/PublishedHistory.h"

#include <stdexcept>
#include <vector>

namespace ZelCtl {

struct RecordedEvent {
   U64 number = 0;
   // By the table's clock; none of an event from before the machine was last started.
   std::optional<double> time;
   std::optional<double> lastTime;
   double unixTime = 0; // as the clock on the wall was when it happened
   double lastUnixTime = 0;
   U64 count = 0;
   bool hasValues = false;
   U64 before = 0;
   U64 after = 0;
   U64 others = 0;
   Kiln::String kind;
   Kiln::String where;
   Kiln::String what;
   Kiln::String text;

   // Whether it is the first of a crowd of interfaces, whose last one is `what`.
   bool isCrowd() const;
   // Whether it happened at the place, or at a crowd that it belongs to.
   bool isAt(const Kiln::String& place) const;

   bool operator==(const RecordedEvent&) const = default;
};

struct RecordedEvents {
   std::vector<RecordedEvent> events; // oldest first
   std::size_t unreadable = 0;        // how many there are besides
   bool isWriterAlive = false;
   // If the last writer ended without closing its tables: its pid, and when it published last by the table's clock.
   pid_t lostWriter = 0;
   double lastPublished = 0; // 0: not known
   Kiln::String owner;       // whose table it is; empty if there was no choice
   TableClock clock;         // in simulated time, now is when anything was recorded or published last

   // What else is to be said, below the events.
   std::vector<Kiln::String> notes() const;
   // The places where something happened, those of crowds too, in natural order.
   std::vector<Kiln::String> places() const;
};

// Follows the table through the agent's restarts.
class EventReader {
 public:
   // Throws std::runtime_error if there is no table, or it cannot be read.
   explicit EventReader(const Silo::Store& store);
   // Throws std::runtime_error, saying why, while the table cannot be read.
   RecordedEvents read();

 private:
   const Silo::Store store_;
   Kiln::String owner_;
   Silo::TableReader<Silo::Interface::Event> reader_;
   std::vector<Silo::Entry<Silo::Interface::Event>> entries_;
};

} // namespace ZelCtl
