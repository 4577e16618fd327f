// Shows what an agent publishes in shared tables, counters, their history, and events: read with the installed
// TableReader and HistoryReader.
//
//    read-counters [--silo DIR] [--table TABLE] [--json] [INTF]
//
// Exit status: 0 if every record was whole, 2 if one was not (its state says why), 1 if nothing could be read.
#include "kiln/MappedFault.h"
#include "kiln/Name.h"
#include "silo/Errors.h"
#include "silo/HistoryReader.h"
#include "silo/TableReader.h"
#include "vex/PublishedChip.h"
#include "vex/PublishedHistory.h"
#include "vex/PublishedRecords.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <functional>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>

namespace {

namespace Tables = Silo::Interface;
using std::string;

constexpr const char* help =
     "usage: read-counters [--silo DIR] [--table TABLE] [--json] [INTF]\n\n"
     "Shows what an agent publishes in shared tables.\n\n"
     "  INTF           only this interface, with all its counters, samples or events\n"
     "  --silo DIR     folder of the shared tables (this user's in shared memory, or root's)\n"
     "  --table TABLE  one of those in docs/published-records.md (IntfCounters)\n"
     "  --json         print one JSON document\n\n"
     "Exit status: 0 if every record was whole, 2 if one was not, 1 if nothing could be read.\n";

struct Options {
   string folder; // empty: this user's in shared memory, or root's
   string table = Tables::TableName::intfCounters;
   string intf; // empty: all
   bool isJson = false;
   bool isHelp = false;
};

struct Counter {
   string name;
   std::uint64_t total;
};

// A record taken apart, with what follows from the time of the reading.
struct Row {
   string name; // empty: lost
   Silo::ReadResult result = Silo::ReadResult::absent;
   std::uint64_t generation = 0;
   std::optional<double> age{}; // seconds; none if sampled on another clock, or if its time is yet to come
   bool isStale = true;
   std::vector<Counter> totals{};
   std::vector<std::pair<string, double>> times{}; // by the table's clock; 0 for never, or not known
   std::optional<std::uint64_t> speed{};           // only ports have this and the next
   std::optional<std::uint64_t> suspects{};
   std::vector<std::pair<string, string>> words{};
};

struct Ring {
   string name;
   std::vector<Silo::HistorySample> samples; // at least one
};

// What is shown of a table: one of the three.
struct View {
   string table;
   double pollingInterval = 0; // seconds
   bool isWriterAlive = false;
   double now = 0;
   std::vector<Row> rows{};
   std::size_t depth = 0;
   std::vector<Ring> rings{};
   std::vector<Silo::Entry<Tables::Event>> events{};
   Silo::ClockDomain clock{}; // of the samples' times
   const char* subject = "interfaces";
};

// --- Records

template <class Record>
void addTimes(const Record& record, Row* row) {
   row->times = {{"discontinuity", record.discontinuityTime}, {"created", record.createdTime}};
}

template <class Statistics>
void take(const Tables::CounterRecord<Statistics>& record, Row* row) {
   const auto& fields = Interface::fieldsOf<Statistics>();
   for (std::size_t i = 0; i < fields.size(); ++i) {
      row->totals.push_back({fields[i].name, record.totals[i]});
   }
   addTimes(record, row);
   if constexpr (std::is_same_v<Statistics, Interface::EthIntfStatistics>) {
      row->speed = record.speed;
      row->suspects = record.suspects;
   }
}

void take(const Tables::IntfQueueCounters& record, Row* row) {
   for (std::size_t queue = 0; queue < Tables::IntfQueueCounters::queueCount; ++queue) {
      if (record.has(queue)) {
         const string prefix = "queue." + std::to_string(queue) + ".";
         row->totals.push_back({prefix + "packets", record.totals[queue].packets});
         row->totals.push_back({prefix + "bytes", record.totals[queue].bytes});
         row->totals.push_back({prefix + "drops", record.totals[queue].drops});
      }
   }
   addTimes(record, row);
}

void take(const Tables::NatCounter& record, Row* row) {
   row->totals = {{"packets", record.totalPackets}, {"bytes", record.totalBytes}};
   addTimes(record, row);
   row->times.emplace_back("creation", static_cast<double>(record.creationTime));
   row->times.emplace_back("last-update", record.lastUpdate);
}

// A text of the record, for any terminal.
template <std::size_t size>
string printable(const std::array<char, size>& field) {
   string text(field.data(), strnlen(field.data(), size));
   std::ranges::replace_if(
        text, [](char c) { return c < ' ' || c > '~'; }, '?');
   return text;
}

// A place's values, by their names, unless it was never read.
template <class Record>
void takePlace(const Record& record, std::size_t place, const string& prefix,
               std::initializer_list<const char*> values, Row* row, bool isLevel = false) {
   std::size_t i = 0;
   for (const char* const value : values) {
      const std::uint64_t total = (isLevel ? record.readings : record.totals)[place][i++];
      if (record.readTimes[place] != 0 || total != 0) {
         row->totals.push_back({prefix + value, total});
      }
   }
   addTimes(record, row);
}

void take(const Tables::IntfDropCounters& record, Row* row) {
   for (std::size_t place = 0; place < record.placeCount; ++place) {
      const ZlDrop::Table& point = ZlDrop::tables[place / ZlDrop::reasonsPerPort];
      const std::size_t reason = place % ZlDrop::reasonsPerPort;
      const bool isNamed = reason < point.reasons.size();
      const string name = isNamed ? point.reasons[reason] : "reason " + std::to_string(reason);
      if (isNamed || record.totals[place][0] != 0) {
         takePlace(record, place, string("drops.") + point.point + " " + name + ".", {"packets"}, row);
      }
   }
}

void take(const Tables::IntfPdpCounters& record, Row* row) {
   for (std::size_t place = 0; place < record.placeCount; ++place) {
      const string name = printable(record.classNames[place]);
      if (!name.empty() || record.totals[place][0] != 0) {
         takePlace(record, place, "class." + (name.empty() ? "class " + std::to_string(place) : name) + ".",
                   {"packets"}, row);
      }
   }
}

void take(const Tables::PipeStageCounters& record, Row* row) {
   for (std::size_t place = 0; place < record.placeCount; ++place) {
      takePlace(record, place, string("stage.") + record.placeNames[place] + ".", {"in", "out", "dropped"},
                row);
   }
}

void take(const Tables::PipeDropCounters& record, Row* row) {
   for (std::size_t place = 0; place < record.placeCount; ++place) {
      takePlace(record, place, string("drops.") + record.placeNames[place] + ".", {"packets"}, row);
   }
}

void take(const Tables::PipeTmCounters& record, Row* row) {
   for (std::size_t place = 0; place < record.placeCount; ++place) {
      const string prefix = string("tm.") + record.placeNames[place] + ".";
      if (record.isLevel(place)) {
         takePlace(record, place, prefix, {"cells"}, row, true);
      } else {
         takePlace(record, place, prefix, {"packets", "bytes"}, row);
      }
   }
}

void take(const Tables::ChipHealth& record, Row* row) {
   for (std::size_t place = 0; place < record.placeCount; ++place) {
      takePlace(record, place, "", {record.placeNames[place]}, row);
   }
   row->totals.push_back({"outstanding", record.outstanding});
   row->totals.push_back({"pending-vlans", record.pendingVlans});
   row->times.emplace_back("up", record.upTime);
   for (std::size_t kind = 0; kind < record.kindNames.size(); ++kind) {
      if (record.isPolled[kind] != 0) {
         row->times.emplace_back(string(record.kindNames[kind]) + "-read", record.oldestReadTimes[kind]);
      }
   }
   const auto verdict = static_cast<std::size_t>(record.verdict);
   row->words = {
        {"verdict", verdict < record.verdictNames.size() ? record.verdictNames[verdict] : "unknown"}};
}

void take(const Tables::IntfPlace& record, Row* row) {
   row->words = {{"chip", printable(record.chip)}};
   row->totals = {{"device", record.device}, {"device-port", record.devicePort}, {"speed", record.speed}};
}

void take(const Tables::AgentHealth& record, Row* row) {
   row->words = {{"version", printable(record.version)}};
   row->times = {{"started", record.startedTime}};
   row->totals = {{"dead-objects", record.deadObjects},
                  {"longest-hold-us", static_cast<std::uint64_t>(std::llround(record.longestHold * 1e6))},
                  {"longest-wait-us", static_cast<std::uint64_t>(std::llround(record.longestWait * 1e6))},
                  {"held-us", static_cast<std::uint64_t>(std::llround(record.heldTime * 1e6))}};
   for (std::size_t i = 0; i < record.holds.size(); ++i) {
      const bool isLast = i == record.holdBounds.size();
      const std::string bound =
           isLast ? "longer" : std::to_string(std::llround(record.holdBounds[i] * 1e6)) + "-us";
      row->totals.push_back({"holds-" + bound, record.holds[i]});
   }
}

// Reads the whole table, or one record. No call of a TableReader waits longer than about 50 ms, and none for a dead
// writer. Throws Silo::TableError, saying why the table cannot be read.
template <Silo::RecordType Record>
View readTable(const Silo::Store& store, const Options& options) {
   Silo::TableReader<Record> reader(store, options.table);
   std::vector<Silo::Entry<Record>> entries;
   if (options.intf.empty()) {
      if (!reader.snapshot(entries)) {
         throw Silo::TableError(reader.problem());
      }
   } else {
      Silo::Entry<Record> entry;
      entry.key = Silo::Key(options.intf);
      entry.result = reader.read(entry.key, entry.sample);
      if (entry.result == Silo::ReadResult::unavailable) {
         throw Silo::TableError(reader.problem());
      }
      if (entry.result == Silo::ReadResult::absent) {
         throw Silo::TableError(options.table + " has no such record; leave the name out to list all");
      }
      entries.push_back(entry);
   }
   // The time is taken last, so that no record is younger than now.
   View view{options.table, reader.state().pollingInterval, reader.isWriterAlive(), Silo::monotonicNow()};
   for (const Silo::Entry<Record>& entry : entries) {
      Row row{.name = entry.key.isValid() ? string(entry.key.view()) : string(), .result = entry.result};
      if (entry.result == Silo::ReadResult::ok) {
         row.generation = entry.sample.info.generation;
         row.age = reader.age(entry.sample.info, view.now, Silo::ClockDomain::monotonic());
         row.isStale = !row.age || *row.age > 3 * view.pollingInterval;
         take(entry.sample.record, &row);
      }
      view.rows.push_back(std::move(row));
   }
   std::ranges::sort(
        view.rows, [](const auto& a, const auto& b) { return Kiln::naturalCompare(a, b) < 0; }, &Row::name);
   return view;
}

// Of a history nothing is waited for: what is being written, or was damaged, is left out.
template <class Layout>
View readHistory(const Silo::Store& store, const Options& options) {
   Silo::HistoryReader reader(store, options.table, Layout::layout);
   std::vector<Silo::Key> keys;
   if (!reader.keys(keys)) {
      throw Silo::TableError(reader.problem());
   }
   View view{.table = options.table, .depth = reader.depth()};
   for (const Silo::Key& key : keys) {
      // The queues from 8 on are beside the others.
      const string name(key.view());
      Ring ring{name, {}};
      if (options.intf.empty() || name == options.intf || name == options.intf + " 8" ||
          name == options.intf + " 16") {
         if (!reader.read(key, ring.samples)) {
            throw Silo::TableError(reader.problem());
         }
      }
      if (!ring.samples.empty()) {
         view.rings.push_back(std::move(ring));
      }
   }
   if (!options.intf.empty() && view.rings.empty()) {
      throw Silo::TableError(options.table + " has no samples of it; leave the name out to list all");
   }
   const auto isBefore = [](const auto& a, const auto& b) { return Kiln::naturalCompare(a, b) < 0; };
   std::ranges::sort(view.rings, isBefore, &Ring::name);
   view.pollingInterval = reader.state().pollingInterval;
   view.clock = reader.state().clockDomain;
   view.isWriterAlive = reader.isWriterAlive();
   view.now = Silo::monotonicNow();
   return view;
}

View readEvents(const Silo::Store& store, const Options& options) {
   Silo::TableReader<Tables::Event> reader(store, options.table);
   View view{.table = options.table};
   if (!reader.snapshot(view.events)) {
      throw Silo::TableError(reader.problem());
   }
   const auto isOther = [&](const Silo::Entry<Tables::Event>& entry) {
      return entry.result == Silo::ReadResult::ok && printable(entry.sample.record.where) != options.intf;
   };
   if (!options.intf.empty()) {
      std::erase_if(view.events, isOther);
   }
   std::ranges::sort(view.events, {}, [](const Silo::Entry<Tables::Event>& entry) {
      return entry.result == Silo::ReadResult::ok ? entry.sample.record.number : 0;
   });
   view.pollingInterval = reader.state().pollingInterval;
   view.isWriterAlive = reader.isWriterAlive();
   return view;
}

// --- Output

const char* stateOf(Silo::ReadResult result) {
   switch (result) {
   case Silo::ReadResult::ok:
      return "ok";
   case Silo::ReadResult::busy:
      return "busy";
   case Silo::ReadResult::torn:
      return "torn";
   case Silo::ReadResult::corrupt:
      return "corrupt";
   case Silo::ReadResult::absent:
   case Silo::ReadResult::unavailable:
      break; // never in a row
   }
   return "";
}

string milliseconds(const std::optional<double>& seconds) {
   return seconds ? std::to_string(std::llround(*seconds * 1e3)) : "null";
}

std::optional<double> since(const View& view, const Row& row, double time) {
   const double seconds = view.now - time;
   return time != 0 && row.age && seconds >= 0 ? std::optional(seconds) : std::nullopt;
}

const char* truth(bool value) {
   return value ? "true" : "false";
}

// A key may hold any printable character.
string quoted(const string& text) {
   string result = "\"";
   for (const char c : text) {
      result += c == '"' || c == '\\' ? string("\\") + c : string(1, c);
   }
   return result + '"';
}

void addJson(const View& view, const Row& row, std::ostream& out) {
   out << "    {\n      \"name\": " << quoted(row.name) << ",\n      \"state\": \"" << stateOf(row.result)
       << '"';
   if (row.result == Silo::ReadResult::ok) {
      out << ",\n      \"age-ms\": " << milliseconds(row.age);
      out << ",\n      \"stale\": " << truth(row.isStale);
      out << ",\n      \"generation\": " << row.generation;
      for (const auto& [name, time] : row.times) {
         out << ",\n      \"" << name << "-age-ms\": " << milliseconds(since(view, row, time));
      }
      if (row.speed) {
         out << ",\n      \"speed\": " << (*row.speed != 0 ? std::to_string(*row.speed) : "null");
         out << ",\n      \"suspects\": " << *row.suspects;
      }
      for (const auto& [name, word] : row.words) {
         out << ",\n      \"" << name << "\": " << quoted(word);
      }
      out << ",\n      \"totals\": {";
      for (const Counter& one : row.totals) {
         out << (&one == row.totals.data() ? "" : ",") << "\n        " << quoted(one.name) << ": "
             << one.total;
      }
      out << (row.totals.empty() ? "}" : "\n      }");
   }
   out << "\n    }";
}

// Of all tables: what is shown of them comes as the last member, an array.
template <class Shown>
string document(const View& view, const string& more, const char* name, const std::vector<Shown>& shown) {
   std::ostringstream out;
   out << "{\n  \"table\": " << quoted(view.table);
   out << ",\n  \"polling-interval-ms\": " << milliseconds(view.pollingInterval);
   out << ",\n  \"writer-alive\": " << truth(view.isWriterAlive) << more << ",\n  \"" << name << "\": [";
   for (const Shown& one : shown) {
      out << (&one == shown.data() ? "\n" : ",\n");
      addJson(view, one, out);
   }
   out << (shown.empty() ? "]\n}\n" : "\n  ]\n}\n");
   return out.str();
}

// The same document as that of the client's commands.
string recordsAsJson(const View& view) {
   return document(view, "", view.subject, view.rows);
}

// What a list has room for: of queues, their sums; of places, those that count.
std::vector<Counter> summary(const std::vector<Counter>& totals) {
   std::vector<Counter> sums;
   const auto isOfPlace = [](const Counter& one) {
      return one.name.find('.') != string::npos && !one.name.starts_with("queue.") &&
             !one.name.starts_with("priority.");
   };
   std::ranges::copy_if(totals, std::back_inserter(sums),
                        [&](const Counter& one) { return isOfPlace(one) && one.total != 0; });
   for (const auto& [name, total] : totals) {
      const string column = name.starts_with("queue.") ? name.substr(name.rfind('.') + 1) : name;
      for (const char* const shown :
           {"in-octets", "in-pkts", "out-octets", "out-pkts", "packets", "bytes", "drops"}) {
         if (column == shown) {
            const auto found = std::ranges::find(sums, column, &Counter::name);
            (found != sums.end() ? *found : *sums.insert(sums.end(), {column, 0})).total += total;
         }
      }
   }
   return sums;
}

// The end of every text.
string withWriter(const View& view, std::ostringstream& out, const char* empty) {
   string text = out.str();
   if (text.empty()) {
      text = string(empty) + '\n';
   }
   return view.isWriterAlive ? text : text + "No agent is running, so nothing newer is published.\n";
}

string ageText(const std::optional<double>& age) {
   std::ostringstream out;
   if (age) {
      out << std::fixed << std::setprecision(1) << *age << " s ago";
   } else {
      out << "at an unknown time";
   }
   return out.str();
}

string recordsAsText(const View& view, bool isWhole) {
   std::ostringstream out;
   for (const Row& row : view.rows) {
      out << (row.name.empty() ? "(name lost)" : row.name) << ": " << stateOf(row.result);
      if (row.result == Silo::ReadResult::ok) {
         out << (row.isStale ? ", stale" : "") << ", sampled " << ageText(row.age);
         for (const auto& [name, word] : row.words) {
            out << ", " << name << ' ' << word;
         }
         for (const auto& [name, total] : isWhole ? row.totals : summary(row.totals)) {
            out << (isWhole ? "\n   " : ", ") << name << ' ' << total;
         }
      }
      out << '\n';
   }
   return withWriter(view, out, "no records");
}

// --- Output of histories

std::optional<double> ageOf(const View& view, const Silo::HistorySample& sample) {
   const double age = view.now - sample.time;
   const bool isKnown =
        view.clock.isComparableWith(Silo::ClockDomain::monotonic()) && age >= -1e-3 && std::isfinite(age);
   return isKnown ? std::optional(std::max(age, 0.0)) : std::nullopt;
}

std::vector<Counter> totalsOf(const View& view, const Ring& ring, const Silo::HistorySample& sample) {
   std::vector<Counter> totals;
   if (view.table == Tables::TableName::intfHistory) {
      for (std::size_t i = 0; i < sample.values.size(); ++i) {
         totals.push_back({string(Tables::IntfHistory::fieldNames[i]), sample.values[i]});
      }
      return totals;
   }
   const auto& names = Tables::IntfQueueHistory::fieldNames;
   const std::size_t first = ring.name.ends_with(" 8") ? 8 : ring.name.ends_with(" 16") ? 16 : 0;
   for (std::size_t i = 0; i < sample.values.size(); ++i) {
      const string queue = std::to_string(first + i / names.size());
      totals.push_back({"queue." + queue + "." + string(names[i % names.size()]), sample.values[i]});
   }
   return totals;
}

std::vector<string> marksOf(const Silo::HistorySample& sample) {
   std::vector<string> marks;
   if (sample.has(Silo::SampleFlag::begun)) {
      marks.emplace_back("begun");
   }
   if (sample.has(Silo::SampleFlag::discontinuity)) {
      marks.emplace_back("discontinuity");
   }
   return marks;
}

string joined(const std::vector<string>& words, const char* separator) {
   string text;
   for (const string& word : words) {
      text += (&word == words.data() ? "" : separator) + word;
   }
   return text;
}

void addJson(const View& view, const Ring& ring, std::ostream& out) {
   out << "    {\"name\": " << quoted(ring.name)
       << ", \"age-ms\": " << milliseconds(ageOf(view, ring.samples.back())) << ", \"samples\": [";
   for (const Silo::HistorySample& sample : ring.samples) {
      std::vector<string> marks;
      for (const string& mark : marksOf(sample)) {
         marks.push_back(quoted(mark));
      }
      std::vector<string> totals;
      for (const auto& [name, total] : totalsOf(view, ring, sample)) {
         totals.push_back(quoted(name) + ": " + std::to_string(total));
      }
      out << (&sample == ring.samples.data() ? "" : ",") << "\n      {\"number\": " << sample.number
          << ", \"time-ms\": " << milliseconds(sample.time) << ", \"marks\": [" << joined(marks, ", ")
          << "], \"totals\": {" << joined(totals, ", ") << "}}";
   }
   out << "]}";
}

string historyAsJson(const View& view) {
   return document(view, ",\n  \"depth\": " + std::to_string(view.depth), "rings", view.rings);
}

string historyAsText(const View& view, bool isWhole) {
   std::ostringstream out;
   for (const Ring& ring : view.rings) {
      out << ring.name << ": " << ring.samples.size() << " samples, the newest "
          << ageText(ageOf(view, ring.samples.back())) << '\n';
      for (std::size_t i = 0; isWhole && i < ring.samples.size(); ++i) {
         const Silo::HistorySample& sample = ring.samples[i];
         std::vector<string> words = marksOf(sample);
         for (const auto& [name, total] : totalsOf(view, ring, sample)) {
            words.push_back(name + ' ' + std::to_string(total));
         }
         out << "   " << sample.number << " at " << std::fixed << std::setprecision(3) << sample.time
             << " s: " << joined(words, ", ") << '\n';
      }
   }
   return withWriter(view, out, "no samples");
}

// --- Output of events

void addJson(const View&, const Silo::Entry<Tables::Event>& entry, std::ostream& out) {
   out << "    {\"state\": \"" << stateOf(entry.result) << '"';
   if (entry.result == Silo::ReadResult::ok) {
      const Tables::Event& event = entry.sample.record;
      const bool hasValues = event.hasValues != 0;
      out << ", \"number\": " << event.number << ", \"time-ms\": " << milliseconds(event.time)
          << ", \"unix-time-ms\": " << milliseconds(event.unixTime) << ", \"count\": " << event.count
          << ", \"last-time-ms\": " << milliseconds(event.lastTime)
          << ", \"last-unix-time-ms\": " << milliseconds(event.lastUnixTime)
          << ", \"kind\": " << quoted(printable(event.kind))
          << ", \"where\": " << quoted(printable(event.where))
          << ", \"what\": " << quoted(printable(event.what))
          << ", \"before\": " << (hasValues ? std::to_string(event.before) : "null")
          << ", \"after\": " << (hasValues ? std::to_string(event.after) : "null")
          << ", \"others\": " << event.others << ", \"text\": " << quoted(printable(event.text));
   }
   out << '}';
}

string date(double unixTime) {
   constexpr double year10000 = 253402300800;
   if (!(unixTime >= 0 && unixTime < year10000)) {
      return "(unknown time)";
   }
   const auto seconds = static_cast<std::time_t>(unixTime);
   std::tm parts{};
   gmtime_r(&seconds, &parts);
   std::ostringstream out;
   out << std::put_time(&parts, "%Y-%m-%d %H:%M:%S");
   return out.str();
}

string eventAsText(const Tables::Event& event) {
   std::vector<string> words{std::to_string(event.number), date(event.unixTime), printable(event.kind),
                             printable(event.where), printable(event.what)};
   if (event.hasValues != 0) {
      words.push_back(std::to_string(event.before) + " -> " + std::to_string(event.after));
   }
   if (event.others != 0) {
      words.push_back("and " + std::to_string(event.others) + " others");
   }
   if (event.count > 1) {
      words.push_back(std::to_string(event.count) + " times until " + date(event.lastUnixTime));
   }
   std::erase(words, "");
   const string text = printable(event.text);
   return joined(words, " ") + (text.empty() ? "" : ": " + text);
}

string eventsAsJson(const View& view) {
   return document(view, "", "events", view.events);
}

string eventsAsText(const View& view, bool) {
   std::ostringstream out;
   for (const auto& entry : view.events) {
      if (entry.result == Silo::ReadResult::ok) {
         out << eventAsText(entry.sample.record) << '\n';
      } else {
         out << "an event is " << stateOf(entry.result) << '\n';
      }
   }
   return withWriter(view, out, "no events");
}

// --- Tables

struct Format {
   std::function<View(const Silo::Store&, const Options&)> read;
   string (*asJson)(const View&) = recordsAsJson;
   string (*asText)(const View&, bool isWhole) = recordsAsText;
};

template <class Record>
auto readOf(const char* subject) {
   return [subject](const Silo::Store& store, const Options& options) {
      View view = readTable<Record>(store, options);
      view.subject = subject;
      return view;
   };
}

const std::map<string, Format>& formats() {
   static const std::map<string, Format> all{
        {Tables::TableName::intfCounters, {readTable<Tables::IntfCounters>}},
        {Tables::TableName::intfClearCounters, {readTable<Tables::IntfCounters>}},
        {Tables::TableName::intfQueueCounters, {readTable<Tables::IntfQueueCounters>}},
        {Tables::TableName::intfClearQueueCounters, {readTable<Tables::IntfQueueCounters>}},
        {Tables::TableName::vlanIntfCounters, {readTable<Tables::L3IntfCounters>}},
        {Tables::TableName::vlanIntfClearCounters, {readTable<Tables::L3IntfCounters>}},
        {Tables::TableName::subIntfCounters, {readTable<Tables::L3IntfCounters>}},
        {Tables::TableName::subIntfClearCounters, {readTable<Tables::L3IntfCounters>}},
        {Tables::TableName::intfNatCounters, {readTable<Tables::NatCounter>}},
        {Tables::TableName::intfPlaces, {readTable<Tables::IntfPlace>}},
        {Tables::TableName::intfDropCounters, {readTable<Tables::IntfDropCounters>}},
        {Tables::TableName::intfPdpCounters, {readTable<Tables::IntfPdpCounters>}},
        {Tables::TableName::pipeStageCounters, {readOf<Tables::PipeStageCounters>("pipes")}},
        {Tables::TableName::pipeDropCounters, {readOf<Tables::PipeDropCounters>("pipes")}},
        {Tables::TableName::pipeTmCounters, {readOf<Tables::PipeTmCounters>("pipes")}},
        {Tables::TableName::chipHealth, {readOf<Tables::ChipHealth>("chips")}},
        {Tables::TableName::agentHealth, {readOf<Tables::AgentHealth>("agents")}},
        {Tables::TableName::intfHistory, {readHistory<Tables::IntfHistory>, historyAsJson, historyAsText}},
        {Tables::TableName::intfQueueHistory,
         {readHistory<Tables::IntfQueueHistory>, historyAsJson, historyAsText}},
        {Tables::TableName::events, {readEvents, eventsAsJson, eventsAsText}},
   };
   return all;
}

// --- Options

class UsageError : public std::runtime_error {
 public:
   explicit UsageError(const string& problem) : std::runtime_error(problem + "; see --help") {}
};

Options parseOptions(const std::vector<string>& words) {
   Options options;
   for (std::size_t i = 0; i < words.size(); ++i) {
      const string name = words[i].substr(0, words[i].find('='));
      if (name == "--silo" || name == "--table") {
         const bool isJoined = name != words[i];
         if (!isJoined && i + 1 == words.size()) {
            throw UsageError(name + " needs a value");
         }
         (name == "--silo" ? options.folder : options.table) =
              isJoined ? words[i].substr(name.size() + 1) : words[++i];
      } else if (words[i] == "--json") {
         options.isJson = true;
      } else if (words[i] == "--help") {
         options.isHelp = true;
      } else if (words[i].starts_with('-') || !options.intf.empty()) {
         throw UsageError("expected options and at most one interface");
      } else {
         options.intf = words[i];
      }
   }
   if (!formats().contains(options.table)) {
      throw UsageError("unknown table: expected one of those in docs/published-records.md");
   }
   return options;
}

int run(const Options& options) {
   if (options.isHelp) {
      std::cout << help << std::flush;
      return 0;
   }
   const Silo::Store store =
        options.folder.empty()
             ? Silo::Store::sharedMemoryOfUserOrRoot(Tables::defaultTablePrefix, options.table)
             : Silo::Store::directory(options.folder);
   const Format& format = formats().at(options.table);
   const View view = format.read(store, options);
   std::cout << (options.isJson ? format.asJson(view) : format.asText(view, !options.intf.empty()))
             << std::flush;
   const auto isWhole = [](const auto& one) { return one.result == Silo::ReadResult::ok; };
   return std::ranges::all_of(view.rows, isWhole) && std::ranges::all_of(view.events, isWhole) ? 0 : 2;
}

} // namespace

int main(int argc, char** argv) {
   Kiln::surviveMappedFaults(); // a table that somebody cuts is then an error, and not the end
   try {
      const int status = run(parseOptions({argv + 1, argv + argc}));
      if (std::cout) {
         return status;
      }
      std::cerr << "read-counters: cannot write the output: " << std::strerror(errno) << '\n';
   } catch (const std::exception& error) {
      std::cerr << "read-counters: " << error.what() << '\n';
   }
   return 1;
}
