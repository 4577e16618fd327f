// What the words of `events` ask for.
#pragma once

#include "apps/zelctl/events/EventReader.h"
#include "apps/zelctl/views/TimeWords.h"

namespace ZelCtl {

inline constexpr const char* eventsCommand = "events";

struct EventsRequest {
   std::vector<Kiln::String> places; // empty for all
   std::vector<Kiln::String> kinds;  // empty for all
   AskedSpan span;
   bool follow = false;
   bool json = false;

   // Whether the event is asked for. One that came again counts from its first time to its last.
   bool takes(const RecordedEvent& event, const TableClock& clock) const;
};

// events [PLACE...] [KIND...] [last SPAN | from TIME] [to TIME] [follow] [json]. Words may be shortened. A word that is the
// name of a place means that place, and so does the one after `intf`. Throws std::runtime_error, saying what is wrong and
// what was expected.
EventsRequest parseEvents(const std::vector<Kiln::String>& words, const RecordedEvents& recorded);

// The words that may follow these, the first of which is `events`; also lists and ranges that `begun` may become.
std::vector<Kiln::String> eventsCandidates(const std::vector<Kiln::String>& words, const Kiln::String& begun,
                                           const Silo::Store& store);

} // namespace ZelCtl
