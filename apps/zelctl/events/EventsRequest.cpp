// Tells keywords, kinds and places apart.
#include "apps/zelctl/events/EventsRequest.h"

#include "apps/zelctl/views/RecordRequest.h"
#include "kiln/Choices.h"
#include "kiln/EventLog.h"
#include "kiln/NameChoice.h"

#include <algorithm>
#include <array>

namespace ZelCtl {

namespace {

using Kiln::String;
using Words = std::vector<String>;

const Words keywords{"last", "from", "to", "follow", "json"};

bool has(const Words& all, const String& word) {
   return std::ranges::find(all, word) != all.end();
}

Words keywordsAndKinds() {
   Words all = keywords;
   all.insert(all.end(), Kiln::EventKind::all.begin(), Kiln::EventKind::all.end());
   return all;
}

// The keyword or kind that the word is or shortens; empty if it is none.
String meant(const String& word) {
   const Words all = Kiln::wordsMeant(word, keywordsAndKinds());
   if (all.size() > 1) {
      throw std::runtime_error(Kiln::quoted(word) + " is ambiguous: expected " + Kiln::choices(all));
   }
   return all.empty() ? "" : all.front();
}

Words placesMeant(const String& word, const RecordedEvents& recorded, const Words& known) {
   const Kiln::NameChoice choice = Kiln::chooseNames(word, known);
   if (choice.error.empty()) {
      return choice.names;
   }
   // Of a crowd with gaps, only the first and the last name are known.
   if (std::ranges::any_of(recorded.events, [&](const RecordedEvent& one) { return one.isAt(word); })) {
      return {word};
   }
   if (const String near = Kiln::nearest(word, keywordsAndKinds()); !near.empty()) {
      throw std::runtime_error("unexpected " + Kiln::quoted(word) + ": did you mean " + near + "?");
   }
   throw std::runtime_error("no event is of " + Kiln::quoted(word) + ": there are some of " +
                            (known.empty() ? "no place" : Kiln::nameRanges(known)) +
                            "; other words are kinds of events, as wrap, and " +
                            Kiln::joined(keywords, ", "));
}

} // namespace

bool EventsRequest::takes(const RecordedEvent& event, const TableClock& clock) const {
   const auto isOf = [&](const String& place) { return event.isAt(place); };
   if ((!kinds.empty() && !has(kinds, event.kind)) ||
       (!places.empty() && std::ranges::none_of(places, isOf))) {
      return false;
   }
   if (span.last) {
      // Not by the wall's clock, which somebody may have set meanwhile, if it can be helped.
      const bool isComparable = event.lastTime && clock.isOfHere;
      return (isComparable ? clock.now - *event.lastTime
                           : clock.now + clock.unixOffset - event.lastUnixTime) <= *span.last;
   }
   return (!span.from || event.lastUnixTime >= *span.from + clock.unixOffset) &&
          (!span.to || event.unixTime <= *span.to + clock.unixOffset);
}

EventsRequest parseEvents(const Words& words, const RecordedEvents& recorded) {
   EventsRequest request;
   const Words known = recorded.places();
   for (std::size_t i = 1; i < words.size(); ++i) {
      const bool isNamed = isInterfaceWord(words[i], known);
      if (isNamed && ++i == words.size()) {
         throw std::runtime_error(words.back() + " needs a name: expected " + Kiln::nameRanges(known));
      }
      const String word = isNamed || has(known, words[i]) ? "" : meant(words[i]);
      if (word.empty()) {
         const Words places = placesMeant(words[i], recorded, known);
         request.places.insert(request.places.end(), places.begin(), places.end());
      } else if (request.span.take(word, words, &i, recorded.clock)) {
         continue;
      } else if (word == "follow" || word == "json") {
         bool& flag = word == "follow" ? request.follow : request.json;
         refuseAgain(flag, word);
         flag = true;
      } else {
         request.kinds.push_back(word);
      }
   }
   if (request.follow && request.span.to) {
      throw std::runtime_error("follow goes on until it is stopped: leave out to");
   }
   request.span.finish(recorded.clock);
   return request;
}

Words eventsCandidates(const Words& words, const String& begun, const Silo::Store& store) {
   if (isTimeWord(words.back())) {
      return timeCandidates(words.back());
   }
   Words places;
   try {
      places = EventReader(store).read().places();
   } catch (const std::exception&) { // no events: only keywords
   }
   Words candidates = isInterfaceWord(words.back(), places) ? Words() : keywordsAndKinds();
   const Words continued = Kiln::continuedNames(begun, places);
   candidates.insert(candidates.end(), places.begin(), places.end());
   candidates.insert(candidates.end(), continued.begin(), continued.end());
   std::erase_if(candidates, [&](const String& one) {
      const bool isEndless = (one == "to" && has(words, "follow")) || (one == "follow" && has(words, "to"));
      return has(words, one) || isEndless || isRefusedAfter(one, words);
   });
   return candidates;
}

} // namespace ZelCtl
