// Takes differences with the history, or with the clear.
#include "apps/zelctl/views/Since.h"

#include "apps/zelctl/events/EventReader.h"
#include "apps/zelctl/views/PastSamples.h"
#include "apps/zelctl/views/RecordRequest.h"
#include "apps/zelctl/views/TimeWords.h"
#include "kiln/Choices.h"
#include "kiln/EventLog.h"
#include "kiln/NameChoice.h"
#include "vex/VexCountersLog.h"

#include <cmath>
#include <map>

namespace ZelCtl {

namespace {

using Kiln::String;
using Vex::NamedCounter;
using Begin = CountedSpan::Begin;

constexpr double gapAfter = 3; // intervals

// Of a clock of before the machine's restart nobody knows what time it was.
String momentOf(double time, const TableClock& clock) {
   return clock.isOfHere ? momentText(time + clock.unixOffset, clock)
                         : durationText(clock.now - time) + " before the newest sample";
}

// "14:05:09, 5 min ago".
String momentAndAge(double time, const TableClock& clock) {
   return momentOf(time, clock) +
          (clock.isOfHere ? ", " + durationText(clock.now - time) + " ago" : String());
}

void add(CountedSpan* span, NamedCounter counter, U64 count, double seconds) {
   counter.total = count;
   counter.reading.reset();
   counter.rate = seconds > 0 ? std::optional(static_cast<double>(count) / seconds) : std::nullopt;
   span->counters.push_back(std::move(counter));
}

// What one record counted, by the samples of its rings.
class RecordPast {
 public:
   RecordPast(PastTable& past, PastTable::Kind kind, const PublishedRow& row)
        : past_(past), kind_(kind), row_(row) {}

   CountedSpan since(double asked, bool isStrict) {
      isStrict_ = isStrict;
      CountedSpan span;
      for (const NamedCounter& one : row_.text.counters) {
         const auto counter = PastCounter::named(one.name);
         if (counter && counter->kind == kind_) {
            addCounter(&span, one, *counter, asked);
         }
      }
      return span;
   }
   // Of all its rings; none if they are empty.
   std::optional<double> first() const { return first_; }
   std::optional<double> newest() const { return newest_; }
   // Whether there is no sample for so long before the moment that it is in a gap.
   bool hasGap() const { return hasGap_; }

 private:
   const PastSamples& samplesOf(std::size_t queue) {
      const std::size_t ring = queue / Silo::Interface::IntfQueueHistory::queuesPerRing;
      if (!rings_.contains(ring)) {
         const PastSamples& read = rings_[ring] = past_.samples(row_.name, queue);
         if (!read.samples.empty()) {
            first_ = std::min(first_.value_or(read.samples.front().time), read.samples.front().time);
            newest_ = std::max(newest_.value_or(read.samples.back().time), read.samples.back().time);
         }
      }
      return rings_[ring];
   }

   void addCounter(CountedSpan* span, const NamedCounter& one, const PastCounter& counter, double asked) {
      const PastSamples& ring = samplesOf(counter.queue);
      if (ring.samples.empty() || ring.samples.back().time < asked) {
         return;
      }
      const Silo::HistorySample* const from = ring.at(asked);
      const Silo::HistorySample& front = ring.samples.front();
      const bool isWhole = from == nullptr && front.has(Silo::SampleFlag::begun);
      const std::optional<U64> count =
           ring.since(from == nullptr && !isWhole ? front.time : asked, counter.field);
      if (!count) {
         return;
      }
      const auto* const afterFrom = from == nullptr ? &front : from + 1;
      const bool hasBegun =
           std::any_of(afterFrom, ring.samples.data() + ring.samples.size(),
                       [](const auto& sample) { return sample.has(Silo::SampleFlag::begun); });
      const double created = row_.text.time("created");
      const double begin = isWhole ? created : from == nullptr ? front.time : from->time;
      const bool isNear = from != nullptr && asked - from->time <= gapAfter * ring.interval;
      if (from != nullptr && !isNear) {
         hasGap_ = true;
         if (isStrict_) {
            return;
         }
      }
      span->begin = (from == nullptr ? isWhole : hasBegun) ? Begin::begun
                    : isNear                               ? Begin::asked
                                                           : Begin::other;
      span->from = span->begin == Begin::begun ? created : begin;
      span->to = ring.samples.back().time;
      add(span, one, *count, ring.samples.back().time - begin);
   }

   PastTable& past_;
   PastTable::Kind kind_;
   const PublishedRow& row_;
   std::map<std::size_t, PastSamples> rings_;
   std::optional<double> first_;
   std::optional<double> newest_;
   bool hasGap_ = false;
   bool isStrict_ = false;
};

// "90s", "14m": as it can be typed, and not longer than so many seconds.
String typedSpan(double seconds) {
   constexpr double minute = 60;
   return seconds < 2 * minute ? std::to_string(static_cast<U64>(seconds)) + "s"
                               : std::to_string(static_cast<U64>(seconds / minute)) + "m";
}

// The rows' spans; returns what is to be said of them.
std::vector<String> countPast(const Since& since, PastTable::Kind kind,
                              const std::vector<PublishedRow*>& rows, const Silo::Store& store) {
   const double asked = *since.time;
   PastTable past(store, kind);
   const TableClock clock = past.clock();
   std::optional<double> first;
   std::optional<double> newest;
   bool reachesBack = false;
   std::vector<String> later; // of these, the history begins later
   double latest = 0;
   std::vector<String> withGaps;
   for (PublishedRow* row : rows) {
      RecordPast record(past, kind, *row);
      row->span = record.since(asked, since.isStrict);
      reachesBack = reachesBack || row->span->begin == Begin::asked || row->span->begin == Begin::begun ||
                    record.first().value_or(asked + 1) <= asked;
      if (record.hasGap()) {
         withGaps.push_back(row->name);
      } else if (row->span->begin == Begin::other) {
         later.push_back(row->name);
         latest = std::max(latest, row->span->from);
      }
      if (record.first()) {
         first = std::min(first.value_or(*record.first()), *record.first());
         newest = std::max(newest.value_or(*record.newest()), *record.newest());
      }
   }
   if (rows.empty()) {
      return {};
   }
   if (!first) {
      throw std::runtime_error("there is no history of " +
                               (rows.size() == 1 ? rows.front()->name : String("these interfaces")));
   }
   if (*newest < asked) {
      throw std::runtime_error("nothing was sampled after " + momentAndAge(*newest, clock) +
                               ": expected a time before that, or a longer span");
   }
   if (!reachesBack && asked < *newest - static_cast<double>(past.depth()) * past.interval()) {
      throw std::runtime_error("the history begins at " + momentAndAge(*first, clock) +
                               ": expected a later time, or as much as " + typedSpan(clock.now - *first));
   }
   std::vector<String> notes;
   const char* const of = kind == PastTable::Kind::queues ? " of queues of " : " of ";
   if (!later.empty()) {
      notes.push_back(String("The history") + of + Kiln::nameRanges(later, " and ") +
                      " begins later: counts are since " + momentOf(latest, clock) +
                      (later.size() == 1 ? "." : " or earlier."));
   }
   if (!withGaps.empty()) {
      notes.push_back(
           String("The history") + of + Kiln::nameRanges(withGaps, " and ") + " has a gap at that time: " +
           (since.isStrict ? "they are left out." : "counts are since the last sample before it."));
   }
   if (kind == PastTable::Kind::queues) {
      notes.push_back("Of queues a sample is kept every " + durationText(past.interval()) +
                      ": counts begin and end up to that much earlier" +
                      (since.isStrict || withGaps.empty() ? "." : ", but after a gap as their rows say."));
   }
   return notes;
}

// Who cleared the record at this time; empty if that is not known.
String clearedBy(const String& name, double time, const std::vector<RecordedEvent>& events) {
   constexpr double near = 1; // seconds
   String who;
   for (const RecordedEvent& event : events) {
      const bool isOfRecord = event.kind == Kiln::EventKind::clear &&
                              event.text.starts_with(Vex::publishedClear) &&
                              (event.where.empty() || event.where == name);
      if (isOfRecord && event.lastTime && std::abs(*event.lastTime - time) <= near) {
         who = event.what;
      }
   }
   return who;
}

std::vector<String> countCleared(const View& view, const std::vector<PublishedRow*>& rows,
                                 const Silo::Store& store) {
   const PublishedTable cleared = view.read(store, view.clearTable);
   std::vector<RecordedEvent> events;
   try {
      events = EventReader(store).read().events;
   } catch (const std::exception&) { // then nobody knows who it was
   }
   std::map<String, std::vector<String>> namesBy;
   std::vector<String> never;
   for (PublishedRow* row : rows) {
      const auto found = std::ranges::find(cleared.rows, row->name, &PublishedRow::name);
      const bool isCleared = found != cleared.rows.end() && found->result == Silo::ReadResult::ok &&
                             found->text.time("created") == row->text.time("created");
      CountedSpan span{.begin = isCleared ? Begin::asked : Begin::neverCleared,
                       .from = isCleared ? found->sampleTime : row->text.time("created")};
      if (span.from == Silo::unknownSampleTime) {
         span.from = 0;
      }
      const std::vector<U64> counts =
           isCleared ? Vex::sinceClear(row->text, found->text) : std::vector<U64>();
      for (std::size_t i = 0; i < row->text.counters.size(); ++i) {
         const NamedCounter& one = row->text.counters[i];
         add(&span, one, isCleared ? counts[i] : one.total, span.from == 0 ? 0 : row->sampleTime - span.from);
      }
      if (!isCleared) {
         never.push_back(row->name);
      }
      span.suspects = row->text.suspects;
      if (isCleared && span.suspects) {
         *span.suspects -= std::min(*span.suspects, found->text.suspects.value_or(0));
      }
      span.by = isCleared ? clearedBy(row->name, span.from, events) : String();
      if (!span.by.empty()) {
         namesBy[span.by].push_back(row->name);
      }
      row->span = std::move(span);
   }
   std::vector<String> notes;
   if (!never.empty()) {
      notes.push_back("Published counts of " + Kiln::nameRanges(never, " and ") +
                      " were never cleared: 'counters clear' does not touch them" +
                      (view.past ? "; 'since 14:05' compares with any moment." : "."));
   }
   for (const auto& [who, names] : namesBy) {
      notes.push_back("Cleared by " + who + ": " + Kiln::nameRanges(names, " and ") + ".");
   }
   return notes;
}

} // namespace

Since takeSince(const std::vector<String>& words, std::size_t* at, const TableClock& clock) {
   constexpr const char* expected = "clear, a span as 5m, or a time as 14:05:09";
   if (++*at == words.size()) {
      throw std::runtime_error(String("since needs a moment: expected ") + expected);
   }
   if (String("clear").starts_with(words[*at])) {
      return {};
   }
   if (const auto seconds = parseDuration(words[*at])) {
      return {.time = clock.now - *seconds};
   }
   if (words[*at].find_first_of(":-") == String::npos) {
      const bool isNumber = words[*at].find_first_not_of("0123456789") == String::npos;
      throw std::runtime_error(Kiln::quoted(words[*at]) + " after since is no moment: expected " +
                               (isNumber ? words[*at] + "s or " + words[*at] + "m" : String(expected)));
   }
   const double time = takePastTime(words, at, clock);
   if (!clock.isOfHere) {
      throw std::runtime_error(
           "the records are of before the machine was last started, and the time of their "
           "clock is not known: expected clear, or a span as 5m before the newest of them");
   }
   return {.time = time};
}

void countSince(const Since& since, const View& view, const std::vector<String>& names, PublishedTable* table,
                const Silo::Store& store) {
   std::vector<PublishedRow*> rows;
   for (PublishedRow& row : table->rows) {
      const bool isNamed = names.empty() || std::ranges::find(names, row.name) != names.end();
      if (isNamed && row.result == Silo::ReadResult::ok) {
         rows.push_back(&row);
      }
   }
   if (!since.time) {
      table->spanNotes = countCleared(view, rows, store);
   } else if (!view.past) {
      throw std::runtime_error("only interfaces and queues have a history: try: " + String(view.command) +
                               " since clear");
   } else {
      table->spanNotes = countPast(since, *view.past, rows, store);
   }
}

String sinceText(const Since& since, const TableClock& clock) {
   return since.time ? "since " + momentAndAge(*since.time, clock) : "since the clear";
}

String lastText(const PublishedTable& table, double seconds, double interval) {
   const double asked = table.clock.now - seconds;
   double from = table.clock.now;
   double to = 0;
   for (const PublishedRow& row : table.rows) {
      if (row.span && !row.span->counters.empty()) {
         from = std::min(from, row.span->from);
         to = std::max(to, row.span->to);
      }
   }
   const double gap = gapAfter * interval;
   const bool isAsAsked = to == 0 || (from - asked <= gap && table.clock.now - to <= gap);
   return isAsAsked ? ", over the last " + durationText(seconds)
                    : ", from " + momentOf(from, table.clock) + " to " + momentOf(to, table.clock) + " (" +
                           durationText(to - from) + ")";
}

String beginText(const PublishedRow& row, const TableClock& clock) {
   const CountedSpan& span = *row.span;
   String moment = span.from == 0 ? "unknown" : momentOf(span.from, clock);
   switch (span.begin) {
   case Begin::asked:
   case Begin::other:
      return moment;
   case Begin::begun:
      return "begun " + moment;
   case Begin::neverCleared:
      return "never";
   case Begin::unknown:
      break;
   }
   return "-";
}

} // namespace ZelCtl
