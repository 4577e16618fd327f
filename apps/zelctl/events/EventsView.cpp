// Prints the events that are asked for, once or as they come.
#include "apps/zelctl/events/EventsView.h"

#include "apps/zelctl/events/EventText.h"
#include "apps/zelctl/terminal/Terminal.h"
#include "apps/zelctl/terminal/Utf8.h"
#include "apps/zelctl/views/TimeWords.h"
#include "kiln/Choices.h"
#include "kiln/Utf8.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <map>

namespace ZelCtl {

namespace {

using Kiln::String;
using Words = std::vector<String>;

std::vector<const RecordedEvent*> selected(const EventsRequest& request, const RecordedEvents& recorded) {
   std::vector<const RecordedEvent*> events;
   for (const RecordedEvent& event : recorded.events) {
      if (request.takes(event, recorded.clock)) {
         events.push_back(&event);
      }
   }
   return events;
}

// Of a span that begins before the oldest event that is still kept.
String forgottenNote(const EventsRequest& request, const RecordedEvents& recorded) {
   if (recorded.events.empty() || recorded.events.front().number == 1) {
      return "";
   }
   const RecordedEvent& oldest = recorded.events.front();
   const AskedSpan& span = request.span;
   const auto from = span.last ? std::optional(recorded.clock.now - *span.last) : span.from;
   return from && *from + recorded.clock.unixOffset >= oldest.unixTime
               ? ""
               : "Events before " + momentText(oldest.unixTime, recorded.clock) + " are no longer kept.";
}

class Follower {
 public:
   Follower(const Words& words, const Silo::Store& store, std::size_t width, Signals* signals)
        : reader_(store), width_(width), signals_(signals) {
      recorded_ = reader_.read();
      request_ = parseEvents(words, recorded_);
   }

   int run() {
      constexpr double interval = 0.5; // seconds
      Written written = show();
      bool isLeft = false;
      while (written == Written::all && !isLeft && !signals_->isBreaking()) {
         isLeft = waitFor(signals_, false, interval).readerGone;
         try {
            recorded_ = reader_.read();
         } catch (const std::exception& error) { // an agent may come that makes the table anew
            tell(error.what());
            continue;
         }
         written = show();
      }
      if (written == Written::failed) {
         std::cerr << "% cannot write the events: " << std::strerror(errno) << '\n';
         return 1;
      }
      return signals_->ending() != 0 ? 128 + signals_->ending() : 0;
   }

 private:
   Written show() {
      std::vector<const RecordedEvent*> news;
      for (const RecordedEvent* event : selected(request_, recorded_)) {
         // A table that was made anew counts from 1 again, with other events.
         RecordedEvent& known = shown_[event->number];
         if (known != *event) {
            known = *event;
            news.push_back(event);
         }
      }
      while (!shown_.empty() &&
             shown_.begin()->first + Silo::Interface::eventLimit < shown_.rbegin()->first) {
         shown_.erase(shown_.begin());
      }
      EventLines lines(width_);
      lines.columnsFor(selected(request_, recorded_), recorded_.clock);
      String text;
      for (const RecordedEvent* event : news) {
         text += request_.json ? eventJsonLine(*event) : lines.lineOf(*event, recorded_.clock);
      }
      const Written written = writeOut(text, signals_);
      tell(Kiln::joined(recorded_.notes(), "\n"));
      return written;
   }

   // Says what is new of the table as a whole.
   void tell(const String& notes) {
      if (notes != told_ && !notes.empty()) {
         std::cerr << Kiln::printableText(notes) << '\n';
      }
      told_ = notes;
   }

   EventReader reader_;
   std::size_t width_;
   Signals* signals_;
   RecordedEvents recorded_;
   EventsRequest request_;
   std::map<U64, RecordedEvent> shown_; // by number, as they were shown last
   String told_;
};

} // namespace

String viewEvents(const Words& words, const Silo::Store& store, std::size_t width) {
   const RecordedEvents recorded = EventReader(store).read();
   const EventsRequest request = parseEvents(words, recorded);
   const std::vector<const RecordedEvent*> events = selected(request, recorded);
   Words notes = recorded.notes();
   if (const String forgotten = forgottenNote(request, recorded); !forgotten.empty()) {
      notes.insert(notes.begin(), forgotten);
   }
   if (request.json) {
      return eventsJson(recorded, events, notes);
   }
   EventLines lines(width);
   lines.columnsFor(events, recorded.clock);
   String text;
   for (const RecordedEvent* event : events) {
      text += lines.lineOf(*event, recorded.clock);
   }
   if (events.empty()) {
      text += "  none\n";
   }
   for (const String& note : notes) {
      text += Kiln::joined(wrapped(note, width), "\n") + "\n";
   }
   return text;
}

bool isFollowing(const Words& words, const Silo::Store& store) {
   return parseEvents(words, EventReader(store).read()).follow;
}

int followEvents(const Words& words, const Silo::Store& store, std::size_t width, Signals* signals) {
   const int status = Follower(words, store, width, signals).run();
   // The Ctrl-C that ended it must not also drop a line at the prompt.
   signals->takeInterrupt();
   return status;
}

} // namespace ZelCtl
