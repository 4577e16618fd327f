// Names the numbers of published records.
#include "vex/RecordText.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Vex {

namespace {

// Flow control and jumbo frames are no errors, although they are vetted like some.
bool isErrorField(const Interface::StatisticsField& field) {
   const std::string_view name = field.name;
   return field.group == Interface::FieldGroup::upsetOnly && name.find("pause") == name.npos &&
          name.find("pfc") == name.npos && name != "in-oversize-frames";
}

std::optional<double> knownInterval(double interval) {
   return interval > 0 ? std::optional(interval) : std::nullopt;
}

template <class Record>
std::vector<NamedTime> timesOf(const Record& record) {
   return {{"discontinuity", record.discontinuityTime}, {"created", record.createdTime}};
}

template <class Record>
RecordText textOfCounters(const Record& record) {
   RecordText text;
   const auto& fields = Interface::fieldsOf<typename Record::Statistics>();
   for (std::size_t i = 0; i < fields.size(); ++i) {
      text.counters.push_back({fields[i].name, record.totals[i], Interface::word(record.reading, i),
                               record.rate(i), isErrorField(fields[i])});
   }
   text.times = timesOf(record);
   text.interval = knownInterval(record.interval);
   return text;
}

// Adds a place's counters, one for each name of a value.
template <class Record>
void addPlace(RecordText* text, const Record& record, std::size_t place, const Kiln::String& prefix,
              std::initializer_list<const char*> values, bool isError) {
   const bool isRead = record.readTimes[place] != 0;
   std::size_t i = 0;
   for (const std::string_view value : values) {
      U64 total = record.totals[place][i];
      if constexpr (requires { Record::isLevel(place); }) {
         total = Record::isLevel(place) ? record.readings[place][i] : total;
      }
      text->counters.push_back({.name = prefix + Kiln::String(value),
                                .total = total,
                                .isError = isError || value == "dropped",
                                .isRead = isRead || total != 0,
                                .readTime = record.readTimes[place]});
      ++i;
   }
}

template <class Record>
RecordText beginPlaces(const Record& record) {
   RecordText text;
   text.times = timesOf(record);
   text.isRated = false;
   return text;
}

void addLine(Kiln::String* lines, const Kiln::String& name, const Kiln::String& value) {
   *lines += name + " " + value + "\n";
}

// A counter that the record does not have stands at 0: a queue may have come after the clear.
U64 totalOf(const RecordText& text, const Kiln::String& name) {
   const auto found = std::find_if(text.counters.begin(), text.counters.end(),
                                   [&](const NamedCounter& one) { return one.name == name; });
   return found == text.counters.end() ? 0 : found->total;
}

} // namespace

RecordText textOf(const Silo::Interface::IntfCounters& record) {
   RecordText text = textOfCounters(record);
   text.suspects = record.suspects;
   text.speed = record.speed;
   return text;
}

RecordText textOf(const Silo::Interface::L3IntfCounters& record) {
   return textOfCounters(record);
}

RecordText textOf(const Silo::Interface::IntfQueueCounters& record) {
   RecordText text;
   text.times = timesOf(record);
   text.interval = knownInterval(record.interval);
   for (std::size_t queue = 0; queue < Silo::Interface::IntfQueueCounters::queueCount; ++queue) {
      if (!record.has(queue)) {
         continue;
      }
      const auto& total = record.totals[queue];
      const auto& delta = record.deltas[queue];
      const bool isRead = record.isRead(queue);
      const bool hasRate = isRead && text.interval && ((record.absorbed >> queue) & 1) == 0;
      const auto add = [&](const char* name, U64 value, U64 step, bool isError) {
         const auto rate = hasRate ? std::optional(static_cast<double>(step) / *text.interval) : std::nullopt;
         text.counters.push_back(
              {"queue." + std::to_string(queue) + "." + name, value, std::nullopt, rate, isError, isRead});
      };
      add("packets", total.packets, delta.packets, false);
      add("bytes", total.bytes, delta.bytes, false);
      add("drops", total.drops, delta.drops, true);
   }
   return text;
}

RecordText textOf(const Silo::Interface::NatCounter& record) {
   RecordText text;
   const bool isRead = record.isRead();
   text.counters = {
        {.name = "packets", .total = record.totalPackets, .reading = record.packets, .isRead = isRead},
        {.name = "bytes", .total = record.totalBytes, .reading = record.bytes, .isRead = isRead}};
   text.isRated = false;
   text.times = timesOf(record);
   text.times.push_back({"creation", static_cast<double>(record.creationTime)});
   text.times.push_back({"last-update", record.lastUpdate});
   return text;
}

RecordText textOf(const Silo::Interface::IntfDropCounters& record) {
   RecordText text = beginPlaces(record);
   for (std::size_t point = 0; point < ZlDrop::tables.size(); ++point) {
      const ZlDrop::Table& table = ZlDrop::tables[point];
      for (U32 reason = 0; reason < ZlDrop::reasonsPerPort; ++reason) {
         const std::size_t place = record.place(static_cast<ZlDrop::Point>(point), reason);
         const bool isNamed = reason < table.reasons.size();
         if (isNamed || record.totals[place][0] != 0) {
            const Kiln::String name =
                 isNamed ? Kiln::String(table.reasons[reason]) : "reason " + std::to_string(reason);
            addPlace(&text, record, place, Kiln::String("drops.") + table.point + " " + name + ".",
                     {"packets"}, true);
         }
      }
   }
   return text;
}

RecordText textOf(const Silo::Interface::IntfPdpCounters& record) {
   RecordText text = beginPlaces(record);
   for (std::size_t place = 0; place < record.totals.size(); ++place) {
      const auto& chars = record.classNames[place];
      Kiln::String name(chars.begin(), std::find(chars.begin(), chars.end(), '\0'));
      if (!name.empty() || record.totals[place][0] != 0) {
         name = name.empty() ? "class " + std::to_string(place) : name;
         addPlace(&text, record, place, "class." + name + ".", {"packets"}, false);
      }
   }
   return text;
}

RecordText textOf(const Silo::Interface::PipeStageCounters& record) {
   RecordText text = beginPlaces(record);
   for (std::size_t place = 0; place < record.totals.size(); ++place) {
      addPlace(&text, record, place, Kiln::String("stage.") + record.placeNames[place] + ".",
               {"in", "out", "dropped"}, false);
   }
   return text;
}

RecordText textOf(const Silo::Interface::PipeDropCounters& record) {
   RecordText text = beginPlaces(record);
   for (std::size_t place = 0; place < record.totals.size(); ++place) {
      addPlace(&text, record, place, Kiln::String("drops.") + record.placeNames[place] + ".", {"packets"},
               true);
   }
   return text;
}

RecordText textOf(const Silo::Interface::PipeTmCounters& record) {
   RecordText text = beginPlaces(record);
   for (std::size_t place = 0; place < record.totals.size(); ++place) {
      const Kiln::String prefix = Kiln::String("tm.") + record.placeNames[place] + ".";
      if (record.isLevel(place)) {
         addPlace(&text, record, place, prefix, {"cells"}, false);
      } else {
         addPlace(&text, record, place, prefix, {"packets", "bytes"},
                  record.placeNames[place] == std::string_view("dropped"));
      }
   }
   return text;
}

RecordText textOf(const Silo::Interface::ChipHealth& record) {
   using Silo::Interface::ChipHealth;
   RecordText text = beginPlaces(record);
   for (std::size_t place = 0; place < record.totals.size(); ++place) {
      addPlace(&text, record, place, "", {record.placeNames[place]}, true);
   }
   text.counters.push_back({.name = "outstanding", .total = record.outstanding});
   text.counters.push_back({.name = "pending-vlans", .total = record.pendingVlans});
   text.times.push_back({"up", record.upTime});
   for (std::size_t kind = 0; kind < record.kindNames.size(); ++kind) {
      if (record.isPolled[kind] != 0) {
         text.times.push_back({Kiln::String(record.kindNames[kind]) + "-read", record.oldestReadTimes[kind]});
      }
   }
   // Whatever another process may have written.
   const auto verdict = static_cast<std::size_t>(record.verdict);
   text.words = {
        {"verdict", verdict < record.verdictNames.size() ? record.verdictNames[verdict] : "unknown"}};
   return text;
}

double RecordText::time(std::string_view name) const {
   const auto found = std::ranges::find(times, name, &NamedTime::name);
   return found == times.end() ? 0 : found->time;
}

std::vector<U64> sinceClear(const RecordText& text, const RecordText& cleared) {
   bool isOfThisLife = text.time("created") == cleared.time("created");
   std::vector<U64> counts;
   for (const NamedCounter& one : text.counters) {
      const U64 before = totalOf(cleared, one.name);
      isOfThisLife = isOfThisLife && before <= one.total;
      counts.push_back(one.total - before);
   }
   if (!isOfThisLife) {
      std::ranges::transform(text.counters, counts.begin(), &NamedCounter::total);
   }
   return counts;
}

std::optional<Kiln::String> RecordText::word(std::string_view name) const {
   const auto found = std::ranges::find(words, name, &NamedWord::name);
   return found == words.end() ? std::nullopt : std::optional(found->word);
}

S64 milliseconds(double seconds) {
   // Just below 2^63, beyond which llround has no defined result. A record's times come from another process.
   constexpr double most = 9e18;
   return std::isnan(seconds) ? 0 : std::llround(std::clamp(seconds * 1e3, -most, most));
}

U64 wholeRate(double rate) {
   constexpr auto most = std::numeric_limits<U64>::max();
   // Written so that a NaN gives 0 too.
   if (!(rate > 0)) {
      return 0;
   }
   // As a double, the highest count is 2^64, which does not fit any more: therefore less, not less or equal.
   return rate < static_cast<double>(most) ? static_cast<U64>(std::round(rate)) : most;
}

Kiln::String linesOf(const RecordText& text, const Silo::RecordInfo& info, const RecordText* cleared) {
   Kiln::String lines;
   const auto hasReading = [](const NamedCounter& one) { return one.reading.has_value(); };
   const bool areReadings = std::any_of(text.counters.begin(), text.counters.end(), hasReading);
   if (areReadings) {
      for (const NamedCounter& one : text.counters) {
         addLine(&lines, one.name, std::to_string(one.reading.value_or(0)));
      }
   }
   for (const NamedCounter& one : text.counters) {
      addLine(&lines, (areReadings ? "total." : "") + one.name, std::to_string(one.total));
   }
   if (cleared != nullptr) {
      const std::vector<U64> counts = sinceClear(text, *cleared);
      for (std::size_t i = 0; i < counts.size(); ++i) {
         addLine(&lines, text.counters[i].name + "-since-clear", std::to_string(counts[i]));
      }
   }
   for (const NamedCounter& one : text.counters) {
      if (one.rate) {
         addLine(&lines, "rate." + one.name, std::to_string(wholeRate(*one.rate)));
      }
   }
   for (const NamedTime& one : text.times) {
      addLine(&lines, one.name + "-time-ms", std::to_string(milliseconds(one.time)));
   }
   if (text.suspects) {
      addLine(&lines, "suspects", std::to_string(*text.suspects));
   }
   if (text.interval) {
      addLine(&lines, "interval-ms", std::to_string(milliseconds(*text.interval)));
   }
   if (text.speed.value_or(0) != 0) {
      addLine(&lines, "speed", std::to_string(*text.speed));
   }
   const bool isSampled = info.sampleTime != Silo::unknownSampleTime;
   addLine(&lines, "sample-time-ms", std::to_string(isSampled ? milliseconds(info.sampleTime) : 0));
   addLine(&lines, "generation", std::to_string(info.generation));
   return lines;
}

} // namespace Vex
