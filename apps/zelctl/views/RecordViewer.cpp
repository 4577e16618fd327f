// Turns records into tables, and prints them as text for people or as JSON for programs.
#include "apps/zelctl/views/RecordViewer.h"

#include "apps/zelctl/views/Readable.h"
#include "apps/zelctl/views/RecordJson.h"
#include "apps/zelctl/views/RecordRequest.h"
#include "apps/zelctl/views/RecordValues.h"
#include "apps/zelctl/views/TextTable.h"
#include "apps/zelctl/views/TimeWords.h"
#include "kiln/Choices.h"
#include "kiln/NameChoice.h"

#include <algorithm>

namespace ZelCtl {

namespace {

using Kiln::String;
using Vex::NamedCounter;
using Kind = ShownColumn::Kind;

constexpr const char* unknown = "-";

String shownCount(U64 count, const RecordRequest& request) {
   return request.has(exact) ? std::to_string(count) : countText(count);
}

String ageText(const std::optional<double>& age) {
   return age ? Kiln::durationText(*age) : "unknown";
}

String sinceText(const PublishedRow& row, const PublishedTable& table, double time, const String& ago) {
   const std::optional<double> seconds = secondsSince(row, table, time);
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

// Since the clear, each row has a moment of its own; since another moment, some may.
bool hasBeginColumn(const RecordRequest& request, const PublishedTable& table) {
   return request.span &&
          (!request.span->time || std::ranges::any_of(table.rows, [](const PublishedRow& row) {
             return row.span && row.span->begin != CountedSpan::Begin::asked;
          }));
}

// Adds one line to the list, unless `nonzero` leaves it out.
void addLine(ShownTable* list, const RecordRequest& request, bool isWatched, const PublishedTable& table,
             const PublishedRow& row, const String& place) {
   const View& view = *request.view;
   const String prefix = prefixOf(view.places, place);
   ShownRow line{{{row.name}}, sampledAt(row, table)};
   bool isZero = true;
   if (!view.places.prefix.empty()) {
      line.cells.push_back({place});
   }
   line.cells.push_back({text(table.activity(row, prefix))});
   line.cells.push_back({ageText(row.ageOf(prefix))});
   if (hasSpeed(request)) {
      const U64 speed = row.text.speed.value_or(0);
      line.cells.push_back({speed == 0 ? unknown : speedText(speed, "G")});
   }
   for (const Column& column : columnsOf(request, isWatched)) {
      if (column.shows == Column::Shows::word) {
         line.cells.push_back({row.text.word(column.counter).value_or(unknown)});
         continue;
      }
      if (column.shows == Column::Shows::age) {
         const std::optional<double> age = secondsSince(row, table, row.text.time(column.counter));
         line.cells.push_back({age ? Kiln::durationText(*age) : unknown});
         continue;
      }
      line.cells.push_back(columnCell(column, row, row.counter(prefix + String(column.counter)), request));
      isZero = isZero && line.cells.back().count.value_or(0) == 0;
   }
   if (request.has(errors)) {
      const std::optional<U64> suspects = suspectsOf(row);
      line.cells.push_back(suspects ? ShownCell{shownCount(*suspects, request), suspects}
                                    : ShownCell{unknown});
      isZero = isZero && suspects.value_or(0) == 0;
   }
   if (hasBeginColumn(request, table)) {
      line.cells.push_back({beginText(row, table.clock)});
   }
   if (hasTimeColumn(request)) {
      line.cells.push_back({lastText(row, table, view.time.time, "creation")});
   }
   if (!isZero || !request.has(nonzero)) {
      list->rows.push_back(std::move(line));
   }
}

std::vector<ShownColumn> listColumns(const RecordRequest& request, const PublishedTable& table,
                                     bool isWatched) {
   const View& view = *request.view;
   std::vector<ShownColumn> columns{{String(view.subject.heading), Kind::key}};
   if (!view.places.prefix.empty()) {
      columns.push_back({String(view.places.heading), Kind::key});
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
   if (hasBeginColumn(request, table)) {
      columns.push_back({"Since", Kind::other});
   }
   if (hasTimeColumn(request)) {
      columns.push_back({String(view.time.heading), Kind::other});
   }
   return columns;
}

ShownTable listOf(const RecordRequest& request, bool isWatched, const PublishedTable& table,
                  const std::vector<const PublishedRow*>& rows) {
   ShownTable list{"", listColumns(request, table, isWatched), {}};
   if (request.span) {
      list.title = String(request.view->help) + ", " + sinceText(*request.span, table.clock);
      list.title.front() = static_cast<char>(std::toupper(list.title.front()));
   }
   for (const PublishedRow* row : rows) {
      if (row->result != Silo::ReadResult::ok) {
         list.rows.push_back(
              {{{row->name.empty() ? "(name lost)" : row->name}, {Silo::text(row->result)}}, {}});
      } else if (!request.view->places.prefix.empty()) {
         for (const String& place : placesOf(*row, request.view->places)) {
            addLine(&list, request, isWatched, table, *row, place);
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

String suspectsText(const PublishedRow& row) {
   const std::optional<U64> suspects = suspectsOf(row);
   return suspects ? std::to_string(*suspects) : unknown;
}

// In a title: over which time its counts are.
String spanText(const RecordRequest& request, const PublishedTable& table, const PublishedRow& row) {
   if (!row.span) {
      return "";
   }
   using enum CountedSpan::Begin;
   const CountedSpan& span = *row.span;
   const String moment = beginText(row, table.clock);
   return span.begin == begun          ? "; it has " + moment + ", and counts since then"
          : span.begin == neverCleared ? "; never cleared"
          : span.begin == unknown      ? "; nothing is known of its counts since then"
          : span.begin == other        ? "; counts since " + moment
          : request.span->time         ? "; counts " + sinceText(*request.span, table.clock)
                                       : "; counts since the clear at " + moment;
}

// Every counter of one interface, a line each.
ShownTable wholeOf(const RecordRequest& request, const PublishedTable& table, const PublishedRow& row) {
   if (row.result != Silo::ReadResult::ok) {
      return {row.name + ": " + Silo::text(row.result), {}, {}};
   }
   ShownTable whole;
   whole.title = row.name + ": " + text(table.activity(row)) + ", sampled " +
                 (row.age ? ageText(row.age) + " ago" : "at an unknown time") + ", counting for " +
                 sinceText(row, table, row.text.time("created"), "") + lineText(row) +
                 "; last discontinuity: " + lastText(row, table, request.view->time.time, "its creation") +
                 "; suspect steps: " + suspectsText(row) + spanText(request, table, row);
   whole.columns = {{"   Counter", Kind::key},
                    {request.has(raw) ? "Reading"
                     : row.span       ? "Counted"
                                      : "Total",
                     Kind::counter}};
   if (request.has(rates)) {
      whole.columns.push_back({"Per second", Kind::other});
   }
   for (const NamedCounter& each : row.text.counters) {
      const NamedCounter* const known = row.counter(each.name);
      if (known == nullptr) {
         if (!request.has(nonzero) && (each.isError || !request.has(errors))) {
            whole.rows.push_back({{{"   " + each.name}, {unknown}}});
         }
         continue;
      }
      const NamedCounter& one = *known;
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
   if (request.has(since)) {
      throw std::runtime_error("watch shows what changes: leave out 'since'");
   }
   return tablesOf(request, table, true);
}

String viewRecords(const std::vector<String>& words, const Silo::Store& store, std::size_t width) {
   PublishedTable table = tableOf(words, store);
   const RecordRequest request = parseRecordRequest(words, table);
   if (request.span) {
      countSince(*request.span, *request.view, request.names, &table, store);
   }
   if (request.has(json)) {
      return recordsJson(request, table);
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
   if (words.back() == "since") {
      // Of the others only the clear is known.
      return viewNamed(words.front())->past ? timeCandidates("since") : std::vector<String>{"clear"};
   }
   const View& view = *viewNamed(words.front());
   const auto has = [&](const char* word) { return std::ranges::find(words, word) != words.end(); };
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
      const bool isRefused = (one == "raw" && has("since")) || (one == "since" && has("raw"));
      return one.empty() || has(one.c_str()) || isRefused;
   });
   return candidates;
}

String viewCommandsHelp() {
   constexpr std::size_t column = 33;
   String text;
   for (const View& view : views()) {
      String left = String(view.command) + " [" + String(view.subject.help) + "...]";
      left.resize(std::max(column, left.size() + 1), ' ');
      text += "   " + left + String(view.help) + "\n";
   }
   return text;
}

} // namespace ZelCtl
