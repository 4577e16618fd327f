// Puts the ring in order, and judges each of its records.
#include "apps/zelctl/events/EventReader.h"

#include "apps/zelctl/views/TimeWords.h"
#include "kiln/Choices.h"
#include "kiln/EventLog.h"
#include "kiln/Name.h"
#include "kiln/Numbered.h"
#include "kiln/Utf8.h"
#include "vex/PublishedRecords.h"

#include <algorithm>

namespace ZelCtl {

using Kiln::Numbered;
using Kiln::String;
using Silo::Interface::Event;

namespace {

template <std::size_t size>
String textOf(const std::array<char, size>& field) {
   return Kiln::printable(std::string_view(field.data(), strnlen(field.data(), size)));
}

RecordedEvent eventOf(const Silo::Sample<Event>& sample) {
   const Event& event = sample.record;
   // A new agent marks what was recorded by a clock that is not its own.
   const bool isOfClock = sample.info.sampleTime != Silo::unknownSampleTime;
   return {.number = event.number,
           .time = isOfClock ? std::optional(event.time) : std::nullopt,
           .lastTime = isOfClock ? std::optional(event.lastTime) : std::nullopt,
           .unixTime = event.unixTime,
           .lastUnixTime = event.lastUnixTime,
           .count = event.count,
           .hasValues = event.hasValues != 0,
           .before = event.before,
           .after = event.after,
           .others = event.others,
           .kind = textOf(event.kind),
           .where = textOf(event.where),
           .what = textOf(event.what),
           .text = textOf(event.text)};
}

// When any port was sampled last; 0 if nobody knows.
double newestPublished(const Silo::Store& store) {
   double newest = 0;
   try {
      Silo::TableReader<Silo::Interface::IntfCounters> ports(store, Silo::Interface::TableName::intfCounters);
      std::vector<Silo::Entry<Silo::Interface::IntfCounters>> entries;
      if (ports.snapshot(entries)) {
         for (const auto& entry : entries) {
            newest = entry.result == Silo::ReadResult::ok ? std::max(newest, entry.sample.info.sampleTime)
                                                          : newest;
         }
      }
   } catch (const std::exception&) { // no ports are published
   }
   return newest;
}

// The names of a crowd: all of them if they are numbered one after the other, otherwise the first and the last.
std::vector<String> namesIn(const RecordedEvent& crowd) {
   const Numbered first(crowd.where);
   const Numbered last(crowd.what);
   if (!first.isNumbered || !last.isNumbered || last.stem != first.stem || last.number < first.number ||
       last.number - first.number != crowd.others || crowd.others > Silo::TableHeader::maxCapacity) {
      return {crowd.where, crowd.what};
   }
   std::vector<String> names;
   for (U64 number = first.number; number <= last.number; ++number) {
      names.push_back(first.stem + std::to_string(number));
   }
   return names;
}

} // namespace

bool RecordedEvent::isCrowd() const {
   return others != 0 && Kiln::EventKind::isOfCrowds(kind);
}

bool RecordedEvent::isAt(const String& place) const {
   if (where == place || !isCrowd()) {
      return where == place;
   }
   const String stem = Numbered(place).stem;
   return (stem == Numbered(where).stem || stem == Numbered(what).stem) &&
          Kiln::naturalCompare(where, place) <= 0 && Kiln::naturalCompare(place, what) <= 0;
}

std::vector<String> RecordedEvents::notes() const {
   std::vector<String> all;
   if (unreadable != 0) {
      all.push_back(Kiln::counted(unreadable, "event") + " cannot be read, and " +
                    (unreadable == 1 ? "is" : "are") + " not shown.");
   }
   if (lostWriter != 0) {
      all.push_back("pid " + std::to_string(lostWriter) +
                    " ended without closing its tables: it was killed or crashed" +
                    (lastPublished == 0 || !clock.isOfHere
                          ? String()
                          : " after " + momentText(lastPublished + clock.unixOffset, clock)) +
                    ".");
   }
   if (!isWriterAlive) {
      all.emplace_back("No agent is running, so nothing newer is recorded.");
   }
   if (!owner.empty()) {
      all.push_back("Recorded by the agent of " + owner + ".");
   }
   return all;
}

std::vector<String> RecordedEvents::places() const {
   std::vector<String> all;
   for (const RecordedEvent& event : events) {
      const std::vector<String> names = event.isCrowd() ? namesIn(event) : std::vector{event.where};
      all.insert(all.end(), names.begin(), names.end());
   }
   std::erase(all, "");
   std::ranges::sort(all, [](const String& a, const String& b) { return Kiln::naturalCompare(a, b) < 0; });
   all.erase(std::unique(all.begin(), all.end()), all.end());
   return all;
}

EventReader::EventReader(const Silo::Store& store)
     : store_(store), owner_(store.foundOwner()), reader_(store, Silo::Interface::TableName::events) {}

RecordedEvents EventReader::read() {
   RecordedEvents all;
   if (!reader_.snapshot(entries_)) {
      throw std::runtime_error(reader_.problem());
   }
   all.owner = owner_;
   all.isWriterAlive = reader_.isWriterAlive();
   double newest = 0;
   for (const auto& entry : entries_) {
      if (entry.result != Silo::ReadResult::ok) {
         ++all.unreadable;
         continue;
      }
      all.events.push_back(eventOf(entry.sample));
      newest = std::max(newest, all.events.back().lastTime.value_or(0));
   }
   std::ranges::sort(all.events, {}, &RecordedEvent::number);
   const Silo::TableState& state = reader_.state();
   all.lostWriter = all.isWriterAlive ? 0 : state.writerPid;
   if (all.lostWriter != 0 || state.clockDomain.simulated) {
      all.lastPublished = newestPublished(store_);
   }
   all.clock = TableClock::of(state, std::max(newest, all.lastPublished));
   return all;
}

} // namespace ZelCtl
