// Events as lines for people, and as JSON for programs.
#pragma once

#include "apps/zelctl/events/EventReader.h"

namespace ZelCtl {

// Where it was: "Ethernet1", or "Ethernet1 to Ethernet8" for a crowd; "-" for the whole system.
Kiln::String placeText(const RecordedEvent& event);
// "in-octets: 1000 -> 384 and 12 more counters, flipped bit 60".
Kiln::String happenedText(const RecordedEvent& event);

// Lays out lines whose columns stand below each other.
class EventLines {
 public:
   // At most so many columns wide unless that is 0: an event is one line, or broken between words.
   explicit EventLines(std::size_t width) : width_(width) {}

   // Makes room for all of them.
   void columnsFor(const std::vector<const RecordedEvent*>& events, const TableClock& clock);
   // Ends with a line break. A longer cell moves the rest of its own line only.
   Kiln::String lineOf(const RecordedEvent& event, const TableClock& clock) const;

 private:
   std::size_t width_;
   std::size_t time_ = 8; // "14:05:09"
   std::size_t kind_ = 0;
   std::size_t place_ = 0;
};

// Every field, times in milliseconds. All of them in one document, or one event in a line of its own.
Kiln::String eventsJson(const RecordedEvents& recorded, const std::vector<const RecordedEvent*>& events,
                        const std::vector<Kiln::String>& notes);
Kiln::String eventJsonLine(const RecordedEvent& event);

} // namespace ZelCtl
