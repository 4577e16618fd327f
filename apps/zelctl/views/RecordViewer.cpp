// Turns records into tables, and prints them as text for people or as JSON for programs.
#include "apps/zelctl/views/RecordViewer.h"

#include "apps/zelctl/views/Readable.h"
#include "apps/zelctl/views/RecordRequest.h"
#include "apps/zelctl/views/TextTable.h"
#include "kiln/Choices.h"
#include "kiln/JsonWriter.h"
#include "kiln/NameChoice.h"

#include <algorithm>

namespace ZelCtl {

namespace {

using Kiln::JsonWriter;
using Kiln::String;
using Vex::NamedCounter;
using Kind = ShownColumn::Kind;

constexpr const char* unknown = "-";

U64 countOf(const NamedCounter& counter, const RecordRequest& request) {
   return request.has(raw) ? counter.reading.value_or(counter.total) : counter.total;
}

String shownCount(U64 count, const RecordRequest& request) {
   return request.has(exact) ? std::to_string(count) : countText(count);
}

// Of the line's capacity, by RFC 2819: each packet also takes a preamble and a gap of 20 octets.
std::optional<U64> usePerMille(const PublishedRow& row, std::string_view direction) {
   constexpr double overhead = 20; // octets
   const NamedCounter* const octets = row.counter(String(direction) + "-octets");
   const NamedCounter* const packets = row.counter(String(direction) + "-pkts");
   const U64 speed = row.text.speed.value_or(0);
   if (speed == 0 || octets == nullptr || packets == nullptr || !octets->rate || !packets->rate) {
      return std::nullopt;
   }
   const double bits = 8 * (*octets->rate + overhead * *packets->rate);
   return Vex::wholeRate(1000 * bits / static_cast<double>(speed));
}

String ageText(const PublishedRow& row) {
   return row.age ? Kiln::durationText(*row.age) : "unknown";
}

// Seconds since one of the record's times; none for one that is 0, yet to come, or of a clock that is not this one.
std::optional<double> since(const PublishedRow& row, const PublishedTable& table, double time) {
   const double seconds = table.now - time;
   return time != 0 && row.age && seconds >= 0 ? std::optional(seconds) : std::nullopt;
}

String sinceText(const PublishedRow& row, const PublishedTable& table, double time, const String& ago) {
   const std::optional<double> seconds = since(row, table, time);
   return seconds ? Kiln::durationText(*seconds) + ago : ago.empty() ? "an unknown time" : "unknown";
}

// How long ago one of the record's times was. `atCreation` is the text for a discontinuity that is only the begin of a
// new record.
String lastText(const PublishedRow& row, const PublishedTable& table, std::string_view name,
                const String& atCreation) {
   const double time = row.text.time(name);
   if (time == 0) {
      return "never";
   }
   return name == "discontinuity" && time == row.text.time("created") ? atCreation
                                                                      : sinceText(row, table, time, " ago");
}

ShownCell useCell(const PublishedRow& row, const NamedCounter& octets) {
   const std::optional<U64> perMille = usePerMille(row, octets.name.substr(0, octets.name.find('-')));
   return {perMille ? perMilleText(*perMille, octets.rate.value_or(0) == 0) : unknown};
}

ShownCell columnCell(const Column& column, const PublishedRow& row, const NamedCounter* counter,
                     const RecordRequest& request) {
   if (counter == nullptr) {
      return {unknown};
   }
   if (!counter->isRead) {
      return {text(Activity::neverRead)};
   }
   if (column.shows == Column::Shows::use) {
      return useCell(row, *counter);
   }
   if (column.shows == Column::Shows::count && !request.has(rates)) {
      const U64 count = countOf(*counter, request);
      return {shownCount(count, request), count};
   }
   if (!counter->rate) {
      return {unknown};
   }
   const double rate = *counter->rate * column.rateFactor;
   return {request.has(exact) ? std::to_string(Vex::wholeRate(rate)) : rateText(rate),
           column.shows == Column::Shows::count ? std::optional(Vex::wholeRate(rate)) : std::nullopt};
}

// The columns of a list, or of a watched one.
std::vector<Column> columnsOf(const RecordRequest& request, bool isWatched) {
   const auto all = request.has(errors) ? request.view->errorColumns : request.view->columns;
   std::vector<Column> columns(all.begin(), all.end());
   std::erase_if(columns, [&](const Column& one) {
      const bool isQueues = one.counter == "out-queue-drops"; // the chip has no reading of their sum
      return (one.shows == Column::Shows::rate && (isWatched || request.has(rates))) ||
             (isQueues && request.has(raw));
   });
   return columns;
}

bool hasTimeColumn(const RecordRequest& request) {
   return !request.view->time.time.empty() && (request.has(errors) || request.view->errorColumns.empty());
}

std::optional<SampleTime> sampledAt(const PublishedRow& row, const PublishedTable& table) {
   constexpr double rounding = 1e-6; // seconds: the time is computed from an age
   if (row.isStale || !table.isWriterAlive) {
      return std::nullopt;
   }
   const double time = table.now - *row.age;
   return SampleTime{time - rounding, time + rounding};
}

bool hasSpeed(const RecordRequest& request) {
   return request.view->hasMore && !request.has(errors);
}

// Adds one line to the list, unless `nonzero` leaves it out.
void addLine(ShownTable* list, const RecordRequest& request, bool isWatched, const PublishedTable& table,
             const PublishedRow& row, const String& queue) {
   const View& view = *request.view;
   ShownRow line{{{row.name}}, sampledAt(row, table)};
   bool isZero = true;
   if (view.isByQueue) {
      line.cells.push_back({queue});
   }
   line.cells.push_back({text(table.activity(row, queue))});
   line.cells.push_back({ageText(row)});
   if (hasSpeed(request)) {
      const U64 speed = row.text.speed.value_or(0);
      line.cells.push_back({speed == 0 ? unknown : speedText(speed, "G")});
   }
   for (const Column& column : columnsOf(request, isWatched)) {
      const String name = (queue.empty() ? "" : "queue." + queue + ".") + String(column.counter);
      line.cells.push_back(columnCell(column, row, row.counter(name), request));
      isZero = isZero && line.cells.back().count.value_or(0) == 0;
   }
   if (request.has(errors)) {
      const U64 suspects = row.text.suspects.value_or(0);
      line.cells.push_back({shownCount(suspects, request), suspects});
      isZero = isZero && suspects == 0;
   }
   if (hasTimeColumn(request)) {
      line.cells.push_back({lastText(row, table, view.time.time, "creation")});
   }
   if (!isZero || !request.has(nonzero)) {
      list->rows.push_back(std::move(line));
   }
}

std::vector<ShownColumn> listColumns(const RecordRequest& request, bool isWatched) {
   const View& view = *request.view;
   std::vector<ShownColumn> columns{{"Interface", Kind::key}};
   if (view.isByQueue) {
      columns.push_back({"Queue", Kind::key});
   }
   columns.push_back({"State", Kind::other});
   columns.push_back({"Age", Kind::other});
   if (hasSpeed(request)) {
      columns.push_back({"Speed", Kind::other});
   }
   for (const Column& column : columnsOf(request, isWatched)) {
      ShownColumn shown{String(request.has(rates) ? column.rateHeading : column.heading),
                        column.shows == Column::Shows::count ? Kind::counter : Kind::other};
      if (column.rateFactor == 8) {
         shown.rateHeading = "bit/s";
         shown.rateFactor = column.rateFactor;
      }
      columns.push_back(std::move(shown));
   }
   if (request.has(errors)) {
      columns.push_back({"Suspect", Kind::counter});
   }
   if (hasTimeColumn(request)) {
      columns.push_back({String(view.time.heading), Kind::other});
   }
   return columns;
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

ShownTable listOf(const RecordRequest& request, bool isWatched, const PublishedTable& table,
                  const std::vector<const PublishedRow*>& rows) {
   ShownTable list{"", listColumns(request, isWatched), {}};
   for (const PublishedRow* row : rows) {
      if (row->result != Silo::ReadResult::ok) {
         list.rows.push_back(
              {{{row->name.empty() ? "(name lost)" : row->name}, {Silo::text(row->result)}}, {}});
      } else if (request.view->isByQueue) {
         for (const String& queue : queuesOf(*row)) {
            addLine(&list, request, isWatched, table, *row, queue);
         }
      } else {
         addLine(&list, request, isWatched, table, *row, "");
      }
   }
   if (list.rows.empty()) {
      list.notes.emplace_back("  none");
   }
   return list;
}

// The line's speed, and how much of it is used.
String lineText(const PublishedRow& row) {
   const U64 speed = row.text.speed.value_or(0);
   String text = speed == 0 ? "" : ", at " + speedText(speed, " Gb/s");
   for (const char* const direction : {"in", "out"}) {
      const NamedCounter* const octets = row.counter(String(direction) + "-octets");
      if (octets != nullptr && usePerMille(row, direction)) {
         text += String(", ") + direction + " " + useCell(row, *octets).text;
      }
   }
   return text;
}

// Every counter of one interface, a line each.
ShownTable wholeOf(const RecordRequest& request, const PublishedTable& table, const PublishedRow& row) {
   if (row.result != Silo::ReadResult::ok) {
      return {row.name + ": " + Silo::text(row.result), {}, {}};
   }
   ShownTable whole;
   whole.title = row.name + ": " + text(table.activity(row)) + ", sampled " +
                 (row.age ? ageText(row) + " ago" : "at an unknown time") + ", counting for " +
                 sinceText(row, table, row.text.time("created"), "") + lineText(row) +
                 "; last discontinuity: " + lastText(row, table, request.view->time.time, "its creation") +
                 "; suspect steps: " + std::to_string(row.text.suspects.value_or(0));
   whole.columns = {{"   Counter", Kind::key}, {request.has(raw) ? "Reading" : "Total", Kind::counter}};
   if (request.has(rates)) {
      whole.columns.push_back({"Per second", Kind::other});
   }
   for (const NamedCounter& one : row.text.counters) {
      const U64 count = countOf(one, request);
      const bool isZero = count == 0 && (!request.has(rates) || one.rate.value_or(0) == 0);
      if ((request.has(nonzero) && isZero) || (request.has(errors) && !one.isError)) {
         continue;
      }
      // There is room for every digit, and one interface is looked at closely.
      ShownRow line{{{"   " + one.name}, {std::to_string(count), count}}, sampledAt(row, table)};
      if (request.has(raw) && !one.reading) {
         line.cells.back() = {"not supported"};
      } else if (!one.isRead) {
         line.cells.back() = {text(Activity::neverRead)};
      }
      if (request.has(rates)) {
         line.cells.push_back({one.rate ? std::to_string(Vex::wholeRate(*one.rate)) : "-"});
      }
      whole.rows.push_back(std::move(line));
   }
   return whole;
}

// What is to be said below the rows. Queue drops stand in a port's line, and were read at another time.
std::vector<String> notesOf(const RecordRequest& request, const PublishedTable& table,
                            const std::vector<const PublishedRow*>& rows) {
   std::vector<String> notes = table.notes();
   std::vector<String> names;
   double oldest = 0;
   for (const PublishedRow* row : rows) {
      const double age = row->queuesAge.value_or(0);
      if (!row->isStale && age > staleAfter * table.pollingInterval) {
         names.push_back(row->name);
         oldest = std::max(oldest, age);
      }
   }
   if (!names.empty() && (request.has(errors) || !request.names.empty())) {
      notes.push_back("Queue drops of " +
                      (names.size() == 1 ? names.front() : Kiln::counted(names.size(), "port")) + ": as of " +
                      Kiln::durationText(oldest) + " ago");
   }
   return notes;
}

std::vector<ShownTable> tablesOf(const RecordRequest& request, const PublishedTable& table, bool isWatched) {
   std::vector<ShownTable> tables;
   const std::vector<const PublishedRow*> rows = selectRows(request, table);
   if (request.names.empty() || !request.view->hasMore) {
      tables.push_back(listOf(request, isWatched, table, rows));
   } else {
      for (const PublishedRow* row : rows) {
         tables.push_back(wholeOf(request, table, *row));
      }
   }
   for (const String& note : notesOf(request, table, rows)) {
      tables.back().notes.push_back(note);
   }
   return tables;
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

void addUse(JsonWriter* out, const PublishedRow& row) {
   for (const char* const direction : {"in", "out"}) {
      const String key = String(direction) + "-use-per-mille";
      if (const std::optional<U64> use = usePerMille(row, direction)) {
         out->value(key, *use);
      } else {
         out->null(key);
      }
   }
   addSeconds(out, "queue-drops-age-ms", row.queuesAge);
}

void addCounters(JsonWriter* out, const RecordRequest& request, const Vex::RecordText& text) {
   const auto isShown = [&](const NamedCounter& one) { return one.isError || !request.has(errors); };
   std::vector<String> unsupported;
   out->begin(request.has(raw) ? "readings" : "totals", '{');
   for (const NamedCounter& one : text.counters) {
      const U64 count = countOf(one, request);
      const bool isUnsupported = request.has(raw) && !one.reading;
      if (isShown(one) && (isUnsupported || !one.isRead)) {
         out->null(one.name);
         unsupported.insert(unsupported.end(), isUnsupported ? 1 : 0, one.name);
      } else if (isShown(one) && (count != 0 || !request.has(nonzero))) {
         out->value(one.name, count);
      }
   }
   out->end('}');
   if (!unsupported.empty()) {
      out->begin("not-supported", '[');
      for (const String& name : unsupported) {
         out->value("", std::string_view(name));
      }
      out->end(']');
   }
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

void addRow(JsonWriter* out, const RecordRequest& request, const PublishedTable& table,
            const PublishedRow& row) {
   out->begin("", '{');
   out->value("name", std::string_view(row.name));
   out->value("state", std::string_view(stateWord(row.result)));
   if (row.result == Silo::ReadResult::ok) {
      addSeconds(out, "age-ms", row.age);
      out->value("stale", row.isStale);
      out->value("activity", std::string_view(text(table.activity(row))));
      if (request.view->isByQueue) {
         out->begin("queue-activity", '{');
         for (const String& queue : queuesOf(row)) {
            out->value(queue, std::string_view(text(table.activity(row, queue))));
         }
         out->end('}');
      }
      out->value("generation", row.generation);
      for (const Vex::NamedTime& one : row.text.times) {
         addSeconds(out, one.name + "-age-ms", since(row, table, one.time));
      }
      if (row.text.speed.value_or(0) != 0) {
         out->value("speed", *row.text.speed);
      } else if (row.text.speed) {
         out->null("speed");
      }
      if (request.view->hasMore) {
         addUse(out, row);
      }
      if (row.text.suspects) {
         out->value("suspects", *row.text.suspects);
      }
      addCounters(out, request, row.text);
   }
   out->end('}');
}

String jsonOf(const RecordRequest& request, const PublishedTable& table) {
   JsonWriter out;
   out.begin("", '{');
   out.value("table", std::string_view(table.name));
   out.value("polling-interval-ms", Vex::milliseconds(table.pollingInterval));
   out.value("writer-alive", table.isWriterAlive);
   out.begin("interfaces", '[');
   const std::vector<const PublishedRow*> rows = selectRows(request, table);
   for (const PublishedRow* row : rows) {
      addRow(&out, request, table, *row);
   }
   out.end(']');
   out.begin("notes", '[');
   for (const String& note : notesOf(request, table, rows)) {
      out.value("", std::string_view(note));
   }
   out.end(']');
   out.end('}');
   return out.text();
}

PublishedTable tableOf(const std::vector<String>& words, const Silo::Store& store) {
   const View& view = *viewNamed(words.front());
   return view.read(store, view.table);
}

} // namespace

bool isViewCommand(const String& word) {
   return viewNamed(word) != nullptr;
}

std::vector<ShownTable> showRecords(const std::vector<String>& words, const Silo::Store& store) {
   const PublishedTable table = tableOf(words, store);
   const RecordRequest request = parseRecordRequest(words, table);
   if (request.has(json)) {
      throw std::runtime_error("watch shows tables: leave out 'json'");
   }
   if (request.has(rates)) {
      throw std::runtime_error("watch shows rates anyway: leave out 'rates'");
   }
   return tablesOf(request, table, true);
}

String viewRecords(const std::vector<String>& words, const Silo::Store& store, std::size_t width) {
   const PublishedTable table = tableOf(words, store);
   const RecordRequest request = parseRecordRequest(words, table);
   if (request.has(json)) {
      return jsonOf(request, table);
   }
   String text;
   for (const ShownTable& shown : tablesOf(request, table, false)) {
      // Two statements, since g++ 12 at -O3 warns falsely of overlapping memory when a literal precedes a temporary.
      text += text.empty() ? "" : "\n";
      text += tableText(shown, width);
   }
   return text;
}

std::vector<String> viewCandidates(const std::vector<String>& words, const String& begun,
                                   const Silo::Store& store) {
   const View& view = *viewNamed(words.front());
   std::vector<String> names;
   try {
      for (const PublishedRow& row : view.read(store, view.table).rows) {
         names.push_back(row.name);
      }
   } catch (const std::exception&) { // nothing published: keywords only
   }
   const bool isNamed = words.size() > 1 && isInterfaceWord(words.back(), names);
   std::vector<String> candidates = isNamed ? std::vector<String>() : keywordsOf(view);
   const std::vector<String> continued = Kiln::continuedNames(begun, names);
   candidates.insert(candidates.end(), names.begin(), names.end());
   candidates.insert(candidates.end(), continued.begin(), continued.end());
   std::erase_if(candidates, [&](const String& one) {
      return one.empty() || std::ranges::find(words, one) != words.end();
   });
   return candidates;
}

String viewCommandsHelp() {
   constexpr std::size_t column = 33;
   String text;
   for (const View& view : views()) {
      String left = String(view.command) + " [INTF...]";
      left.resize(std::max(column, left.size() + 1), ' ');
      text += "   " + left + String(view.help) + "\n";
   }
   return text;
}

} // namespace ZelCtl
