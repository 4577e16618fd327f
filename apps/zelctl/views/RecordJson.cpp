// Writes each row with its ages and counts.
#include "apps/zelctl/views/RecordJson.h"

#include "apps/zelctl/views/RecordValues.h"
#include "kiln/JsonWriter.h"

namespace ZelCtl {

namespace {

using Kiln::JsonWriter;
using Kiln::String;
using Vex::NamedCounter;

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

const char* beginWord(CountedSpan::Begin begin) {
   switch (begin) {
   case CountedSpan::Begin::asked:
      return "asked";
   case CountedSpan::Begin::other:
      return "other";
   case CountedSpan::Begin::begun:
      return "begun";
   case CountedSpan::Begin::neverCleared:
      return "never-cleared";
   case CountedSpan::Begin::unknown:
      break;
   }
   return "unknown";
}

void addSpan(JsonWriter* out, const CountedSpan& span, const TableClock& clock) {
   out->value("begin", std::string_view(beginWord(span.begin)));
   addSeconds(out, "begin-age-ms", span.from == 0 ? std::nullopt : std::optional(clock.now - span.from));
   if (!span.by.empty()) {
      out->value("cleared-by", std::string_view(span.by));
   }
}

void addCounters(JsonWriter* out, const RecordRequest& request, const PublishedRow& row) {
   const auto isShown = [&](const NamedCounter& one) { return one.isError || !request.has(errors); };
   std::vector<String> unsupported;
   out->begin(request.has(raw) ? "readings" : row.span ? "counts" : "totals", '{');
   for (const NamedCounter& each : row.text.counters) {
      const NamedCounter* const known = row.counter(each.name);
      if (known == nullptr) {
         if (isShown(each) && !request.has(nonzero)) {
            out->null(each.name);
         }
         continue;
      }
      const NamedCounter& one = *known;
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
   for (const NamedCounter& one : row.span ? row.span->counters : row.text.counters) {
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
      if (const Places& places = request.view->places; !places.prefix.empty()) {
         out->begin(String(places.json), '{');
         for (const String& place : placesOf(row, places)) {
            out->value(place, std::string_view(text(table.activity(row, prefixOf(places, place)))));
         }
         out->end('}');
      }
      for (const Vex::NamedWord& one : row.text.words) {
         out->value(one.name, std::string_view(one.word));
      }
      out->value("generation", row.generation);
      for (const Vex::NamedTime& one : row.text.times) {
         addSeconds(out, one.name + "-age-ms", secondsSince(row, table, one.time));
      }
      if (row.text.speed.value_or(0) != 0) {
         out->value("speed", *row.text.speed);
      } else if (row.text.speed) {
         out->null("speed");
      }
      if (request.view->hasMore) {
         addUse(out, row);
      }
      const std::optional<U64> suspects = row.span ? row.span->suspects : row.text.suspects;
      if (suspects) {
         out->value("suspects", *suspects);
      }
      if (row.span) {
         addSpan(out, *row.span, table.clock);
      }
      addCounters(out, request, row);
   }
   out->end('}');
}

} // namespace

String recordsJson(const RecordRequest& request, const PublishedTable& table) {
   JsonWriter out;
   out.begin("", '{');
   out.value("table", std::string_view(table.name));
   out.value("polling-interval-ms", Vex::milliseconds(table.pollingInterval));
   out.value("writer-alive", table.isWriterAlive);
   if (request.span) {
      addSeconds(&out, "since-age-ms",
                 request.span->time ? std::optional(table.clock.now - *request.span->time) : std::nullopt);
   }
   out.begin(String(request.view->subject.json), '[');
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

} // namespace ZelCtl
