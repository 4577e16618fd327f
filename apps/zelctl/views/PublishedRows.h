// Reads all records of a shared table at once, in natural order of their names, and says what may be believed of each.
#pragma once

#include "apps/zelctl/views/TimeSpan.h"
#include "kiln/Name.h"
#include "silo/TableReader.h"
#include "vex/RecordText.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace ZelCtl {

// What is happening, as far as the record tells.
enum class Activity : U8 {
   up,        // packets passed during the last polling interval
   idle,      // none did
   read,      // fresh, of a kind that has no rates
   unrated,   // fresh, but nobody knows how many: it was read once, or the last step was an upset
   stale,     // nobody has read it for three polling intervals
   neverRead, // nor ever
   agentGone  // and nobody will
};
const char* text(Activity activity);

inline constexpr double staleAfter = 3; // polling intervals

// What a record counted over a span of time that ends with its newest sample.
struct CountedSpan {
   enum class Begin : U8 {
      asked,        // where it was asked for
      other,        // where its history begins, or before a gap
      begun,        // where the record begins: it counted from zero within the span
      neverCleared, // the same, as nobody ever cleared it
      unknown,      // nothing is known of it
   } begin = Begin::unknown;
   double from = 0;                           // by the table's clock; 0: not known
   double to = 0;                             // likewise
   std::vector<Vex::NamedCounter> counters{}; // those that have a past; rates are means
   std::optional<U64> suspects{};             // where that is known
   Kiln::String by{};                         // who cleared, where that is known
};

struct PublishedRow {
   Kiln::String name; // empty if the record is damaged and its name lost
   Silo::ReadResult result = Silo::ReadResult::absent;
   U64 generation = 0;
   // Seconds; none if sampled on another clock, as before the machine's restart, or if its time is yet to come.
   std::optional<double> age;
   bool isStale = true;  // older than three polling intervals, or of no known age
   Vex::RecordText text; // empty unless the result is ok; without rates where these are not of now
   double sampleTime = Silo::unknownSampleTime; // by the table's clock
   std::optional<CountedSpan> span{};           // if counts over one are shown, then instead of totals
   // Of a port: the age of its queues' drops, if these are known.
   std::optional<double> queuesAge;
   // And how much older they are than the rest; 0 if that is not known.
   double queuesBehind = 0;

   // As it is shown; null if there is none, or nothing is known of it over the span.
   const Vex::NamedCounter* counter(std::string_view counterName) const;
   // The age of the counters that begin so: the record's, or that of a place that is read on its own.
   std::optional<double> ageOf(std::string_view prefix) const;
};

struct PublishedTable {
   Kiln::String name;
   Kiln::String owner;         // whose table it is; empty if there was no choice
   double pollingInterval = 0; // seconds
   bool isWriterAlive = false;
   double now = 0;     // on the machine's monotonic clock
   TableClock clock{}; // of the records' times; of one of another boot, now is the newest sample's
   std::vector<PublishedRow> rows;
   std::vector<Kiln::String> spanNotes{}; // of the span that counts are shown over

   // What happens at the row's interface, or at one of its queues or places: those whose counters begin so.
   Activity activity(const PublishedRow& row, std::string_view prefix = "") const;
   // What else is to be said of the table as a whole.
   std::vector<Kiln::String> notes() const;

 private:
   Kiln::String activityNote() const;
};

// What may be believed of a record that was read from the reader's table by `now` of the machine's monotonic clock.
template <Silo::RecordType Record>
PublishedRow rowOf(Silo::TableReader<Record>& reader, const Silo::Entry<Record>& entry, double now,
                   bool isWriterAlive) {
   PublishedRow row;
   row.name = entry.key.isValid() ? Kiln::String(entry.key.view()) : Kiln::String();
   row.result = entry.result;
   if (row.result == Silo::ReadResult::ok) {
      row.generation = entry.sample.info.generation;
      row.sampleTime = entry.sample.info.sampleTime;
      row.age = reader.age(entry.sample.info, now, Silo::ClockDomain::monotonic());
      row.isStale = !row.age || *row.age > staleAfter * reader.state().pollingInterval;
      row.text = Vex::textOf(entry.sample.record);
      if (row.isStale || !isWriterAlive) {
         std::ranges::for_each(row.text.counters, [](auto& one) { one.rate.reset(); });
      }
   }
   return row;
}

// Throws std::runtime_error, saying why the table cannot be read.
template <Silo::RecordType Record>
PublishedTable readPublished(const Silo::Store& store, const char* tableName) {
   Silo::TableReader<Record> reader(store, tableName);
   std::vector<Silo::Entry<Record>> entries;
   if (!reader.snapshot(entries)) {
      throw std::runtime_error(reader.problem());
   }
   // The time is taken after the records were read, so that none has a negative age.
   PublishedTable table{tableName,
                        store.foundOwner(),
                        reader.state().pollingInterval,
                        reader.isWriterAlive(),
                        Silo::monotonicNow(),
                        {},
                        {}};
   double newest = 0;
   for (const Silo::Entry<Record>& entry : entries) {
      table.rows.push_back(rowOf(reader, entry, table.now, table.isWriterAlive));
      newest = entry.result == Silo::ReadResult::ok ? std::max(newest, table.rows.back().sampleTime) : newest;
   }
   table.clock = TableClock::of(reader.state(), newest);
   table.clock.now = table.clock.isOfHere ? table.clock.now : newest;
   std::ranges::sort(
        table.rows, [](const auto& a, const auto& b) { return Kiln::naturalCompare(a, b) < 0; },
        &PublishedRow::name);
   return table;
}

// Gives a port the sum of its queues' drops as the counter "out-queue-drops", if both records could be read.
void addQueueDrops(PublishedRow* port, const PublishedRow& queues);

// The ports of the table or the clear table, each with the sum of its queues' drops as the counter "out-queue-drops",
// where these are published.
PublishedTable readPorts(const Silo::Store& store, const char* tableName);

} // namespace ZelCtl
