// What each view shows, as text for people and as JSON for programs.
#include "RecordViewer.h"

#include "PublishedRows.h"
#include "TextTable.h"
#include "kiln/Choices.h"
#include "kiln/JsonWriter.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <span>

namespace ZelCtl {

namespace {

using Kiln::JsonWriter;
using Kiln::String;
using Vex::NamedCounter;
namespace Tables = Silo::Interface;

// A column of a list: one counter of the record, or of the queue.
struct Column {
   std::string_view counter;
   std::string_view heading;
   std::string_view rateHeading;
   unsigned rateFactor = 1; // to the unit of the rate's heading
};

struct TimeColumn {
   std::string_view time;
   std::string_view heading;
};

enum Keywords : unsigned { nonzero = 1, rates = 2, errors = 4, raw = 8, json = 16 };
constexpr std::array keywordNames{std::pair{nonzero, "nonzero"}, std::pair{rates, "rates"},
                                  std::pair{errors, "errors"}, std::pair{raw, "raw"},
                                  std::pair{json, "json"}};

struct View {
   std::string_view command;
   std::string_view help;
   unsigned takes; // keywords
   PublishedTable (*read)(const Silo::Store& store, const char* table);
   const char* table;
   std::span<const Column> columns;
   std::span<const Column> errorColumns;
   TimeColumn time;
   bool isByQueue; // a line of the list for each queue
   bool hasMore;   // than a list shows: interfaces that are named are shown whole
};

constexpr Column intfColumns[] = {
     {"in-octets", "In octets", "In bit/s", 8},    {"in-pkts", "In pkts", "In pkts/s"},
     {"in-errors", "In errs", "In errs/s"},        {"in-discards", "In disc", "In disc/s"},
     {"out-octets", "Out octets", "Out bit/s", 8}, {"out-pkts", "Out pkts", "Out pkts/s"},
     {"out-errors", "Out errs", "Out errs/s"},     {"out-discards", "Out disc", "Out disc/s"},
};
constexpr Column intfErrorColumns[] = {
     {"in-errors", "In errs", "In errs/s"},           {"in-fcs-errors", "FCS", "FCS/s"},
     {"in-alignment-errors", "Align", "Align/s"},     {"in-symbol-error", "Symbol", "Symbol/s"},
     {"in-undersize-frames", "Undersz", "Undersz/s"}, {"in-oversize-frames", "Oversz", "Oversz/s"},
     {"in-fragment-frames", "Frags", "Frags/s"},      {"in-jabber-frames", "Jabber", "Jabber/s"},
     {"in-discards", "In disc", "In disc/s"},         {"out-errors", "Out errs", "Out errs/s"},
     {"out-discards", "Out disc", "Out disc/s"},
};
constexpr Column queueColumns[] = {
     {"packets", "Packets", "Packets/s"}, {"bytes", "Bytes", "Bit/s", 8}, {"drops", "Drops", "Drops/s"}};
constexpr Column l3Columns[] = {{"in-octets", "In octets", "In bit/s", 8},
                                {"in-pkts", "In pkts", "In pkts/s"},
                                {"out-octets", "Out octets", "Out bit/s", 8},
                                {"out-pkts", "Out pkts", "Out pkts/s"}};
constexpr Column natColumns[] = {{"packets", "Packets", ""}, {"bytes", "Bytes", ""}};

constexpr View views[] = {
     {"interfaces",
      "counters of ports",
      nonzero | rates | errors | raw | json,
      readPublished<Tables::IntfCounters>,
      Tables::TableName::intfCounters,
      intfColumns,
      intfErrorColumns,
      {"discontinuity", "Discont"},
      false,
      true},
     {"queues",
      "counters of egress queues",
      nonzero | rates | json,
      readPublished<Tables::IntfQueueCounters>,
      Tables::TableName::intfQueueCounters,
      queueColumns,
      {},
      {},
      true,
      false},
     {"vlans",
      "counters of VLAN interfaces",
      nonzero | rates | raw | json,
      readPublished<Tables::L3IntfCounters>,
      Tables::TableName::vlanIntfCounters,
      l3Columns,
      {},
      {},
      false,
      false},
     {"subinterfaces",
      "counters of subinterfaces",
      nonzero | rates | raw | json,
      readPublished<Tables::L3IntfCounters>,
      Tables::TableName::subIntfCounters,
      l3Columns,
      {},
      {},
      false,
      false},
     {"nat",
      "what source NAT translated",
      nonzero | json,
      readPublished<Tables::NatCounter>,
      Tables::TableName::intfNatCounters,
      natColumns,
      {},
      {"creation", "Created"},
      false,
      false},
};

struct Request {
   const View* view = nullptr;
   unsigned keywords = 0;
   std::vector<String> names;

   bool has(unsigned keyword) const { return (keywords & keyword) != 0; }
};

Request parse(const std::vector<String>& words) {
   Request request;
   for (const View& view : views) {
      if (view.command == words.front()) {
         request.view = &view;
      }
   }
   for (std::size_t i = 1; i < words.size(); ++i) {
      const auto* keyword = std::find_if(keywordNames.begin(), keywordNames.end(),
                                         [&](const auto& one) { return words[i] == one.second; });
      if (keyword != keywordNames.end() && (request.view->takes & keyword->first) != 0) {
         request.keywords |= keyword->first;
      } else {
         request.names.push_back(words[i]);
      }
   }
   return request;
}

String keywordsOf(const View& view) {
   String text;
   for (const auto& [keyword, name] : keywordNames) {
      text += (view.takes & keyword) != 0 ? String(text.empty() ? "" : ", ") + name : "";
   }
   return text;
}

// The rows that are asked for. A name that isn't there is an error before anything is shown.
std::vector<const PublishedRow*> select(const Request& request, const PublishedTable& table) {
   std::vector<String> known;
   for (const PublishedRow& row : table.rows) {
      if (!row.name.empty()) {
         known.push_back(row.name);
      }
   }
   for (const String& name : request.names) {
      if (std::find(known.begin(), known.end(), name) == known.end()) {
         throw std::runtime_error(Kiln::unknownInterface(name, known) + "; keywords are " +
                                  keywordsOf(*request.view));
      }
   }
   std::vector<const PublishedRow*> rows;
   for (const PublishedRow& row : table.rows) {
      if (request.names.empty() ||
          std::find(request.names.begin(), request.names.end(), row.name) != request.names.end()) {
         rows.push_back(&row);
      }
   }
   return rows;
}

U64 countOf(const NamedCounter& counter, const Request& request) {
   return request.has(raw) ? counter.reading.value_or(counter.total) : counter.total;
}

const NamedCounter* counterNamed(const Vex::RecordText& text, std::string_view name) {
   const auto found = std::find_if(text.counters.begin(), text.counters.end(),
                                   [&](const NamedCounter& one) { return one.name == name; });
   return found == text.counters.end() ? nullptr : &*found;
}

String secondsText(double seconds) {
   char text[32];
   if (!(std::fabs(seconds) < 1e5)) {
      std::snprintf(text, sizeof text, "%.0fd", seconds / 86400);
   } else if (std::fabs(seconds) >= 1e4) {
      std::snprintf(text, sizeof text, "%.0fh", seconds / 3600);
   } else {
      std::snprintf(text, sizeof text, std::fabs(seconds) < 100 ? "%.1fs" : "%.0fs", seconds);
   }
   return text;
}

String ageText(const PublishedRow& row) {
   return (row.age ? secondsText(*row.age) : "unknown") + (row.isStale ? " stale" : "");
}

// How long ago a moment of the record was.
String sinceText(const PublishedRow& row, const PublishedTable& table, std::string_view name) {
   for (const Vex::NamedTime& one : row.text.times) {
      if (one.name == name && one.time != 0) {
         return row.age ? secondsText(table.now - one.time) : "unknown";
      }
   }
   return "never";
}

// Adds one line of a list; not if it is to be left out because it shows nothing but zeros.
void addLine(TextTable* list, const Request& request, const PublishedTable& table, const PublishedRow& row,
             const String& queue) {
   const View& view = *request.view;
   std::vector<String> cells{row.name};
   bool isZero = true;
   if (view.isByQueue) {
      cells.push_back(queue);
   }
   cells.push_back(ageText(row));
   for (const Column& column : request.has(errors) ? view.errorColumns : view.columns) {
      const NamedCounter* const counter =
           counterNamed(row.text, (queue.empty() ? "" : "queue." + queue + ".") + String(column.counter));
      std::optional<U64> value;
      if (counter != nullptr && request.has(rates)) {
         value = counter->rate ? std::optional(Vex::wholeRate(*counter->rate * column.rateFactor))
                               : std::nullopt;
      } else if (counter != nullptr) {
         value = countOf(*counter, request);
      }
      isZero = isZero && value.value_or(0) == 0;
      cells.push_back(value ? std::to_string(*value) : "-");
   }
   if (request.has(errors)) {
      isZero = isZero && row.text.suspects.value_or(0) == 0;
      cells.push_back(std::to_string(row.text.suspects.value_or(0)));
   }
   if (!view.time.time.empty() && (request.has(errors) || view.errorColumns.empty())) {
      cells.push_back(sinceText(row, table, view.time.time));
   }
   if (!isZero || !request.has(nonzero)) {
      list->add(std::move(cells));
   }
}

std::vector<String> headingsOf(const Request& request) {
   const View& view = *request.view;
   std::vector<String> headings{"Interface"};
   if (view.isByQueue) {
      headings.emplace_back("Queue");
   }
   headings.emplace_back("Age");
   for (const Column& column : request.has(errors) ? view.errorColumns : view.columns) {
      headings.emplace_back(request.has(rates) ? column.rateHeading : column.heading);
   }
   if (request.has(errors)) {
      headings.emplace_back("Suspect");
   }
   if (!view.time.time.empty() && (request.has(errors) || view.errorColumns.empty())) {
      headings.emplace_back(view.time.heading);
   }
   return headings;
}

std::vector<String> queuesOf(const PublishedRow& row) {
   constexpr std::string_view prefix = "queue.";
   std::vector<String> queues;
   for (const NamedCounter& one : row.text.counters) {
      const String queue = one.name.substr(prefix.size(), one.name.find('.', prefix.size()) - prefix.size());
      if (queues.empty() || queues.back() != queue) {
         queues.push_back(queue);
      }
   }
   return queues;
}

String listText(const Request& request, const PublishedTable& table,
                const std::vector<const PublishedRow*>& rows) {
   TextTable list(headingsOf(request));
   for (const PublishedRow* row : rows) {
      if (row->result != Silo::ReadResult::ok) {
         list.add({row->name.empty() ? "(name lost)" : row->name, Silo::text(row->result)});
      } else if (request.view->isByQueue) {
         for (const String& queue : queuesOf(*row)) {
            addLine(&list, request, table, *row, queue);
         }
      } else {
         addLine(&list, request, table, *row, "");
      }
   }
   return list.text();
}

// Every counter of one interface, a line each.
String wholeText(const Request& request, const PublishedTable& table, const PublishedRow& row) {
   if (row.result != Silo::ReadResult::ok) {
      return row.name + ": " + Silo::text(row.result) + "\n";
   }
   String text = row.name + ": sampled " + (row.age ? secondsText(*row.age) + " ago" : "at an unknown time") +
                 (row.isStale ? ", stale" : "") +
                 "; last discontinuity: " + sinceText(row, table, request.view->time.time) +
                 "; suspect steps: " + std::to_string(row.text.suspects.value_or(0)) + "\n";
   std::vector<String> headings{"   Counter", request.has(raw) ? "Reading" : "Total"};
   if (request.has(rates)) {
      headings.emplace_back("Per second");
   }
   TextTable list(headings);
   for (const NamedCounter& one : row.text.counters) {
      const U64 count = countOf(one, request);
      const bool isZero = count == 0 && (!request.has(rates) || one.rate.value_or(0) == 0);
      if ((request.has(nonzero) && isZero) || (request.has(errors) && !one.isError)) {
         continue;
      }
      std::vector<String> cells{"   " + one.name, std::to_string(count)};
      if (request.has(rates)) {
         cells.push_back(one.rate ? std::to_string(Vex::wholeRate(*one.rate)) : "-");
      }
      list.add(std::move(cells));
   }
   return text + list.text();
}

String textOf(const Request& request, const PublishedTable& table,
              const std::vector<const PublishedRow*>& rows) {
   String text;
   if (request.names.empty() || !request.view->hasMore) {
      text = listText(request, table, rows);
   } else {
      for (const PublishedRow* row : rows) {
         text += (text.empty() ? "" : "\n") + wholeText(request, table, *row);
      }
   }
   return text + (table.isWriterAlive ? "" : "No agent is running that would publish anything newer.\n");
}

const char* stateWord(Silo::ReadResult result) {
   switch (result) {
   case Silo::ReadResult::ok:
      return "ok";
   case Silo::ReadResult::absent:
      return "absent";
   case Silo::ReadResult::busy:
      return "busy";
   case Silo::ReadResult::torn:
      return "torn";
   case Silo::ReadResult::corrupt:
      return "corrupt";
   case Silo::ReadResult::unavailable:
      break;
   }
   return "unavailable";
}

void addSeconds(JsonWriter* out, const String& key, const std::optional<double>& seconds) {
   if (seconds) {
      out->value(key, Vex::milliseconds(*seconds));
   } else {
      out->null(key);
   }
}

void addCounters(JsonWriter* out, const Request& request, const Vex::RecordText& text) {
   const auto isShown = [&](const NamedCounter& one) { return one.isError || !request.has(errors); };
   out->begin(request.has(raw) ? "readings" : "totals", '{');
   for (const NamedCounter& one : text.counters) {
      const U64 count = countOf(one, request);
      if (isShown(one) && (count != 0 || !request.has(nonzero))) {
         out->value(one.name, count);
      }
   }
   out->end('}');
   if (!request.has(rates)) {
      return;
   }
   out->begin("rates", '{');
   for (const NamedCounter& one : text.counters) {
      if (isShown(one) && one.rate && (*one.rate != 0 || !request.has(nonzero))) {
         out->value(one.name, Vex::wholeRate(*one.rate));
      }
   }
   out->end('}');
}

void addRow(JsonWriter* out, const Request& request, const PublishedTable& table, const PublishedRow& row) {
   out->begin("", '{');
   out->value("name", std::string_view(row.name));
   out->value("state", std::string_view(stateWord(row.result)));
   if (row.result == Silo::ReadResult::ok) {
      addSeconds(out, "age-ms", row.age);
      out->value("stale", row.isStale);
      out->value("generation", row.generation);
      for (const Vex::NamedTime& one : row.text.times) {
         const bool isKnown = one.time != 0 && row.age;
         addSeconds(out, one.name + "-age-ms", isKnown ? std::optional(table.now - one.time) : std::nullopt);
      }
      if (row.text.suspects) {
         out->value("suspects", *row.text.suspects);
      }
      addCounters(out, request, row.text);
   }
   out->end('}');
}

String jsonOf(const Request& request, const PublishedTable& table,
              const std::vector<const PublishedRow*>& rows) {
   JsonWriter out;
   out.begin("", '{');
   out.value("table", std::string_view(table.name));
   out.value("polling-interval-ms", Vex::milliseconds(table.pollingInterval));
   out.value("writer-alive", table.isWriterAlive);
   out.begin("interfaces", '[');
   for (const PublishedRow* row : rows) {
      addRow(&out, request, table, *row);
   }
   out.end(']');
   out.end('}');
   return out.text();
}

} // namespace

bool isViewCommand(const String& word) {
   return std::any_of(std::begin(views), std::end(views),
                      [&](const View& view) { return view.command == word; });
}

String viewRecords(const std::vector<String>& words, const Silo::Store& store) {
   const Request request = parse(words);
   const PublishedTable table = request.view->read(store, request.view->table);
   const std::vector<const PublishedRow*> rows = select(request, table);
   return request.has(json) ? jsonOf(request, table, rows) : textOf(request, table, rows);
}

String viewCommandsHelp() {
   constexpr std::size_t column = 24;
   String text;
   for (const View& view : views) {
      String left = String(view.command) + " [INTF...]";
      left.resize(std::max(column, left.size() + 1), ' ');
      text += "   " + left + String(view.help) + "; " + keywordsOf(view) + "\n";
   }
   return text;
}

} // namespace ZelCtl
