// Reads all records of a shared table at once, in natural order of their names, and says what may be believed of each.
#pragma once

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

struct PublishedRow {
   Kiln::String name; // empty if the record is damaged and its name lost
   Silo::ReadResult result = Silo::ReadResult::absent;
   U64 generation = 0;
   // Seconds; none if sampled on another clock, as before the machine's restart, or if its time is yet to come.
   std::optional<double> age;
   bool isStale = true;  // older than three polling intervals, or of no known age
   Vex::RecordText text; // empty unless the result is ok; without rates where these are not of now
   // Of a port: the age of its queues' drops, if these are known.
   std::optional<double> queuesAge;

   const Vex::NamedCounter* counter(std::string_view counterName) const;
};

struct PublishedTable {
   Kiln::String name;
   Kiln::String owner;         // whose table it is; empty if there was no choice
   double pollingInterval = 0; // seconds
   bool isWriterAlive = false;
   double now = 0; // on the table's clock
   std::vector<PublishedRow> rows;

   // What happens at the row's interface, or at one of its queues.
   Activity activity(const PublishedRow& row, std::string_view queue = "") const;
   // What else is to be said of the table as a whole.
   std::vector<Kiln::String> notes() const;

 private:
   Kiln::String activityNote() const;
};

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
                        {}};
   for (const Silo::Entry<Record>& entry : entries) {
      PublishedRow row;
      row.name = entry.key.isValid() ? Kiln::String(entry.key.view()) : Kiln::String();
      row.result = entry.result;
      if (row.result == Silo::ReadResult::ok) {
         row.generation = entry.sample.info.generation;
         row.age = reader.age(entry.sample.info, table.now, Silo::ClockDomain::monotonic());
         row.isStale = !row.age || *row.age > staleAfter * table.pollingInterval;
         row.text = Vex::textOf(entry.sample.record);
         if (row.isStale || !table.isWriterAlive) {
            std::ranges::for_each(row.text.counters, [](auto& one) { one.rate.reset(); });
         }
      }
      table.rows.push_back(std::move(row));
   }
   std::ranges::sort(
        table.rows, [](const auto& a, const auto& b) { return Kiln::naturalCompare(a, b) < 0; },
        &PublishedRow::name);
   return table;
}

// The ports, each with the sum of its queues' drops as the counter "out-queue-drops", where these are published.
PublishedTable readPorts(const Silo::Store& store, const char* tableName);

} // namespace ZelCtl
