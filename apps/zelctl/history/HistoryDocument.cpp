// Writes samples.
#include "apps/zelctl/history/HistoryDocument.h"

#include "kiln/Choices.h"
#include "kiln/JsonWriter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace ZelCtl {

namespace {

using Kiln::JsonWriter;
using Kiln::String;
using Silo::SampleFlag::begun;
using Silo::SampleFlag::discontinuity;
using Silo::SampleFlag::queuesUnread;

constexpr double microsecondsPerSecond = 1e6;

S64 microseconds(double seconds) {
   return std::llround(seconds * microsecondsPerSecond);
}

// Of a time by the table's clock, since 1970 as well; null if nobody knows.
void addTime(JsonWriter* out, const String& prefix, double time, const TableClock& clock) {
   if (clock.isOfHere) {
      out->value(prefix + "unix-us", microseconds(time + clock.unixOffset));
   } else {
      out->null(prefix + "unix-us");
   }
   out->value(prefix + "clock-us", microseconds(time));
}

void addGroup(JsonWriter* out, const HistoryAnswer& answer, const HistoryGroup& group) {
   out->begin("", '{');
   out->value("interface", std::string_view(group.intf));
   out->value("interval-us", microseconds(group.past.interval));
   out->begin("samples", '[');
   for (const Silo::HistorySample* const sample : answer.samplesOf(group)) {
      out->begin("", '{');
      addTime(out, "", sample->time, answer.clock);
      out->value("discontinuity", sample->has(discontinuity));
      out->value("begun", sample->has(begun));
      if (group.past.isOfPorts) {
         out->value("queues-unread", sample->has(queuesUnread));
      }
      out->begin("totals", '{');
      for (std::size_t i = 0; i < group.counters.size(); ++i) {
         if (const std::optional<U64> total = group.totalIn(*sample, i)) {
            out->value(group.counters[i], *total);
         } else {
            out->null(group.counters[i]);
         }
      }
      out->end('}');
      out->end('}');
   }
   out->end(']');
   out->begin("gaps", '[');
   for (const TimeSpan& gap : HistoryMarks::of(group.past, answer.span).gaps) {
      out->begin("", '{');
      addTime(out, "from-", gap.begin, answer.clock);
      addTime(out, "to-", gap.end, answer.clock);
      out->end('}');
   }
   out->end(']');
   out->end('}');
}

String secondsText(double seconds) {
   char text[48];
   std::snprintf(text, sizeof text, "%.6f", seconds);
   return text;
}

} // namespace

std::optional<U64> HistoryGroup::totalIn(const Silo::HistorySample& sample, std::size_t counter) const {
   const auto index = static_cast<std::size_t>(&sample - past.samples.data());
   return past.isRead(index, fields[counter]) ? std::optional(sample.values[fields[counter]]) : std::nullopt;
}

std::vector<const Silo::HistorySample*> HistoryAnswer::samplesOf(const HistoryGroup& group) const {
   std::vector<const Silo::HistorySample*> samples;
   for (const Silo::HistorySample& one : group.past.samples) {
      if (one.time >= span.begin && one.time <= span.end) {
         samples.push_back(&one);
      }
   }
   return samples;
}

String historyJson(const HistoryAnswer& answer) {
   JsonWriter out;
   out.begin("", '{');
   out.value("writer-alive", answer.isWriterAlive);
   out.value("simulated-time", answer.clock.isSimulated);
   addTime(&out, "from-", answer.span.begin, answer.clock);
   addTime(&out, "to-", answer.span.end, answer.clock);
   addTime(&out, "now-", answer.clock.now, answer.clock);
   out.begin("series", '[');
   for (const HistoryGroup& group : answer.groups) {
      addGroup(&out, answer, group);
   }
   out.end(']');
   out.end('}');
   return out.text();
}

String historyCsv(const HistoryAnswer& answer) {
   const std::vector<String>& columns = answer.request.counters;
   String text =
        "interface,unix-time,clock-time,discontinuity,begun,after-gap," + Kiln::joined(columns, ",") + "\n";
   for (const HistoryGroup& group : answer.groups) {
      for (const Silo::HistorySample* const sample : answer.samplesOf(group)) {
         const auto index = static_cast<std::size_t>(sample - group.past.samples.data());
         text += group.intf + ",";
         text += answer.clock.isOfHere ? secondsText(sample->time + answer.clock.unixOffset) : "";
         text += ',';
         text += secondsText(sample->time);
         text += sample->has(discontinuity) ? ",1" : ",0";
         text += sample->has(begun) ? ",1" : ",0";
         text += group.past.isAfterGap(index) ? ",1" : ",0";
         // A counter that is sampled at other times, or was not read, has no value here.
         for (const String& column : columns) {
            const auto found = std::ranges::find(group.counters, column);
            const auto total =
                 found == group.counters.end()
                      ? std::nullopt
                      : group.totalIn(*sample, static_cast<std::size_t>(found - group.counters.begin()));
            text += ',';
            text += total ? std::to_string(*total) : String();
         }
         text += "\n";
      }
   }
   return text;
}

} // namespace ZelCtl
