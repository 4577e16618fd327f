// Turns records into tables, and prints them as text for people or as JSON for programs.
#include "apps/zelctl/views/RecordViewer.h"

#include "apps/zelctl/views/RecordRequest.h"
#include "apps/zelctl/views/TextTable.h"
#include "kiln/JsonWriter.h"

#include <cmath>
#include <cstdio>

namespace ZelCtl {

namespace {

using Kiln::JsonWriter;
using Kiln::String;
using Vex::NamedCounter;
using Kind = ShownColumn::Kind;

U64 countOf(const NamedCounter& counter, const RecordRequest& request) {
   return request.has(raw) ? counter.reading.value_or(counter.total) : counter.total;
}

const NamedCounter* counterNamed(const Vex::RecordText& text, std::string_view name) {
   const auto found = std::ranges::find(text.counters, name, &NamedCounter::name);
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

// Seconds since one of the record's times; none for one that is 0, yet to come, or of a clock that is not this one.
std::optional<double> since(const PublishedRow& row, const PublishedTable& table, double time) {
   const double seconds = table.now - time;
   return time != 0 && row.age && seconds >= 0 ? std::optional(seconds) : std::nullopt;
}

String sinceText(const PublishedRow& row, const PublishedTable& table, double time,
                 const String& unknown = "unknown") {
   const std::optional<double> seconds = since(row, table, time);
   return seconds ? secondsText(*seconds) : unknown;
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
                                                                      : sinceText(row, table, time);
}

ShownCell counterCell(const NamedCounter* counter, const RecordRequest& request, unsigned rateFactor) {
   std::optional<U64> value;
   if (counter != nullptr && request.has(rates)) {
      value = counter->rate ? std::optional(Vex::wholeRate(*counter->rate * rateFactor)) : std::nullopt;
   } else if (counter != nullptr) {
      value = countOf(*counter, request);
   }
   return {value ? std::to_string(*value) : "-", value};
}

bool hasTimeColumn(const RecordRequest& request) {
   return !request.view->time.time.empty() && (request.has(errors) || request.view->errorColumns.empty());
}

std::optional<double> sampledAt(const PublishedRow& row, const PublishedTable& table) {
   return row.age ? std::optional(table.now - *row.age) : std::nullopt;
}

// Adds one line to the list, unless `nonzero` leaves it out.
void addLine(ShownTable* list, const RecordRequest& request, const PublishedTable& table,
             const PublishedRow& row, const String& queue) {
   const View& view = *request.view;
   ShownRow line{{{row.name}}, sampledAt(row, table)};
   bool isZero = true;
   if (view.isByQueue) {
      line.cells.push_back({queue});
   }
   line.cells.push_back({ageText(row)});
   for (const Column& column : request.has(errors) ? view.errorColumns : view.columns) {
      const String name = (queue.empty() ? "" : "queue." + queue + ".") + String(column.counter);
      line.cells.push_back(counterCell(counterNamed(row.text, name), request, column.rateFactor));
      isZero = isZero && line.cells.back().count.value_or(0) == 0;
   }
   if (request.has(errors)) {
      const U64 suspects = row.text.suspects.value_or(0);
      line.cells.push_back({std::to_string(suspects), suspects});
      isZero = isZero && suspects == 0;
   }
   if (hasTimeColumn(request)) {
      line.cells.push_back({lastText(row, table, view.time.time, "creation")});
   }
   if (!isZero || !request.has(nonzero)) {
      list->rows.push_back(std::move(line));
   }
}

std::vector<ShownColumn> listColumns(const RecordRequest& request) {
   const View& view = *request.view;
   std::vector<ShownColumn> columns{{"Interface", Kind::key}};
   if (view.isByQueue) {
      columns.push_back({"Queue", Kind::key});
   }
   columns.push_back({"Age", Kind::other});
   for (const Column& column : request.has(errors) ? view.errorColumns : view.columns) {
      columns.push_back({String(request.has(rates) ? column.rateHeading : column.heading), Kind::counter});
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

ShownTable listOf(const RecordRequest& request, const PublishedTable& table,
                  const std::vector<const PublishedRow*>& rows) {
   ShownTable list{"", listColumns(request), {}};
   for (const PublishedRow* row : rows) {
      if (row->result != Silo::ReadResult::ok) {
         list.rows.push_back(
              {{{row->name.empty() ? "(name lost)" : row->name}, {Silo::text(row->result)}}, {}});
      } else if (request.view->isByQueue) {
         for (const String& queue : queuesOf(*row)) {
            addLine(&list, request, table, *row, queue);
         }
      } else {
         addLine(&list, request, table, *row, "");
      }
   }
   if (list.rows.empty()) {
      list.notes.emplace_back("  none");
   }
   return list;
}

String speedText(const Vex::RecordText& text) {
   char speed[48] = "";
   if (text.speed.value_or(0) != 0) {
      std::snprintf(speed, sizeof speed, ", at %.9g Gb/s", static_cast<double>(*text.speed) / 1e9);
   }
   return speed;
}

// Every counter of one interface, a line each.
ShownTable wholeOf(const RecordRequest& request, const PublishedTable& table, const PublishedRow& row) {
   if (row.result != Silo::ReadResult::ok) {
      return {row.name + ": " + Silo::text(row.result), {}, {}};
   }
   ShownTable whole;
   whole.title = row.name + ": sampled " + (row.age ? secondsText(*row.age) + " ago" : "at an unknown time") +
                 (row.isStale ? ", stale" : "") + ", counting for " +
                 sinceText(row, table, row.text.time("created"), "an unknown time") + speedText(row.text) +
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
      ShownRow line{{{"   " + one.name}, {std::to_string(count), count}}, sampledAt(row, table)};
      if (request.has(rates)) {
         line.cells.push_back({one.rate ? std::to_string(Vex::wholeRate(*one.rate)) : "-"});
      }
      whole.rows.push_back(std::move(line));
   }
   return whole;
}

std::vector<ShownTable> tablesOf(const RecordRequest& request, const PublishedTable& table) {
   std::vector<ShownTable> tables;
   const std::vector<const PublishedRow*> rows = selectRows(request, table);
   if (request.names.empty() || !request.view->hasMore) {
      tables.push_back(listOf(request, table, rows));
   } else {
      for (const PublishedRow* row : rows) {
         tables.push_back(wholeOf(request, table, *row));
      }
   }
   if (!table.isWriterAlive) {
      tables.back().notes.emplace_back("No agent is running, so nothing newer is published.");
   }
   return tables;
}

String textOf(const ShownTable& table) {
   String text = table.title + (table.title.empty() ? "" : "\n");
   if (!table.columns.empty()) {
      std::vector<String> headings;
      for (const ShownColumn& column : table.columns) {
         headings.push_back(column.heading);
      }
      TextTable list(headings);
      for (const ShownRow& row : table.rows) {
         std::vector<String> cells;
         for (const ShownCell& cell : row.cells) {
            cells.push_back(cell.text);
         }
         list.add(std::move(cells));
      }
      text += list.text();
   }
   for (const String& note : table.notes) {
      text += note + "\n";
   }
   return text;
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

void addCounters(JsonWriter* out, const RecordRequest& request, const Vex::RecordText& text) {
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

void addRow(JsonWriter* out, const RecordRequest& request, const PublishedTable& table,
            const PublishedRow& row) {
   out->begin("", '{');
   out->value("name", std::string_view(row.name));
   out->value("state", std::string_view(stateWord(row.result)));
   if (row.result == Silo::ReadResult::ok) {
      addSeconds(out, "age-ms", row.age);
      out->value("stale", row.isStale);
      out->value("generation", row.generation);
      for (const Vex::NamedTime& one : row.text.times) {
         addSeconds(out, one.name + "-age-ms", since(row, table, one.time));
      }
      if (row.text.speed.value_or(0) != 0) {
         out->value("speed", *row.text.speed);
      } else if (row.text.speed) {
         out->null("speed");
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
   for (const PublishedRow* row : selectRows(request, table)) {
      addRow(&out, request, table, *row);
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
   return tablesOf(request, table);
}

String viewRecords(const std::vector<String>& words, const Silo::Store& store) {
   const PublishedTable table = tableOf(words, store);
   const RecordRequest request = parseRecordRequest(words, table);
   if (request.has(json)) {
      return jsonOf(request, table);
   }
   String text;
   for (const ShownTable& shown : tablesOf(request, table)) {
      // Two statements, since g++ 12 at -O3 warns falsely of overlapping memory when a literal precedes a temporary.
      text += text.empty() ? "" : "\n";
      text += textOf(shown);
   }
   return text;
}

std::vector<String> viewCandidates(const std::vector<String>& words, const Silo::Store& store) {
   const View& view = *viewNamed(words.front());
   std::vector<String> candidates = keywordsOf(view);
   try {
      for (const PublishedRow& row : view.read(store, view.table).rows) {
         candidates.push_back(row.name);
      }
   } catch (const std::exception&) { // nothing published: keywords only
   }
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
