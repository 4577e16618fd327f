// Shows the counters that an agent publishes in shared tables, read with the installed TableReader.
//
//    read-counters [--silo DIR] [--table TABLE] [--json] [INTF]
//
// Exit status: 0 if every record was whole, 2 if one was not (its state says why), 1 if nothing could be read.
#include "kiln/MappedFault.h"
#include "kiln/Name.h"
#include "silo/Errors.h"
#include "silo/TableReader.h"
#include "vex/PublishedRecords.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <functional>
#include <iomanip>
#include <iostream>
#include <map>
#include <sstream>

namespace {

namespace Tables = Silo::Interface;
using std::string;

constexpr const char* help =
     "usage: read-counters [--silo DIR] [--table TABLE] [--json] [INTF]\n\n"
     "Shows the counters that an agent publishes in shared tables.\n\n"
     "  INTF           only this interface, with all its counters\n"
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
};

struct View {
   string table;
   double pollingInterval = 0; // seconds
   bool isWriterAlive = false;
   double now = 0;
   std::vector<Row> rows{};
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

using Read = std::function<View(const Silo::Store&, const Options&)>;
const std::map<string, Read>& readers() {
   static const std::map<string, Read> all{
        {Tables::TableName::intfCounters, readTable<Tables::IntfCounters>},
        {Tables::TableName::intfClearCounters, readTable<Tables::IntfCounters>},
        {Tables::TableName::intfQueueCounters, readTable<Tables::IntfQueueCounters>},
        {Tables::TableName::intfClearQueueCounters, readTable<Tables::IntfQueueCounters>},
        {Tables::TableName::vlanIntfCounters, readTable<Tables::L3IntfCounters>},
        {Tables::TableName::vlanIntfClearCounters, readTable<Tables::L3IntfCounters>},
        {Tables::TableName::subIntfCounters, readTable<Tables::L3IntfCounters>},
        {Tables::TableName::subIntfClearCounters, readTable<Tables::L3IntfCounters>},
        {Tables::TableName::intfNatCounters, readTable<Tables::NatCounter>},
   };
   return all;
}

// --- Output

const char* stateOf(const Row& row) {
   switch (row.result) {
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
   out << "    {\n      \"name\": " << quoted(row.name) << ",\n      \"state\": \"" << stateOf(row) << '"';
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
      out << ",\n      \"totals\": {";
      for (const Counter& one : row.totals) {
         out << (&one == row.totals.data() ? "" : ",") << "\n        " << quoted(one.name) << ": "
             << one.total;
      }
      out << (row.totals.empty() ? "}" : "\n      }");
   }
   out << "\n    }";
}

// The same document as that of the client's commands.
string asJson(const View& view) {
   std::ostringstream out;
   out << "{\n  \"table\": " << quoted(view.table);
   out << ",\n  \"polling-interval-ms\": " << milliseconds(view.pollingInterval);
   out << ",\n  \"writer-alive\": " << truth(view.isWriterAlive) << ",\n  \"interfaces\": [";
   for (const Row& row : view.rows) {
      out << (&row == view.rows.data() ? "\n" : ",\n");
      addJson(view, row, out);
   }
   out << (view.rows.empty() ? "]\n}\n" : "\n  ]\n}\n");
   return out.str();
}

// What a list has room for: of queues, their sums.
std::vector<Counter> summary(const std::vector<Counter>& totals) {
   std::vector<Counter> sums;
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

string asText(const View& view, bool isWhole) {
   std::ostringstream out;
   for (const Row& row : view.rows) {
      out << (row.name.empty() ? "(name lost)" : row.name) << ": " << stateOf(row);
      if (row.result == Silo::ReadResult::ok) {
         out << (row.isStale ? ", stale" : "") << ", sampled ";
         if (row.age) {
            out << std::fixed << std::setprecision(1) << *row.age << " s ago";
         } else {
            out << "at an unknown time";
         }
         for (const auto& [name, total] : isWhole ? row.totals : summary(row.totals)) {
            out << (isWhole ? "\n   " : ", ") << name << ' ' << total;
         }
      }
      out << '\n';
   }
   if (view.rows.empty()) {
      out << "no records\n";
   }
   if (!view.isWriterAlive) {
      out << "No agent is running, so nothing newer is published.\n";
   }
   return out.str();
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
   if (!readers().contains(options.table)) {
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
   const View view = readers().at(options.table)(store, options);
   std::cout << (options.isJson ? asJson(view) : asText(view, !options.intf.empty())) << std::flush;
   const bool isWhole =
        std::ranges::all_of(view.rows, [](const Row& row) { return row.result == Silo::ReadResult::ok; });
   return isWhole ? 0 : 2;
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
