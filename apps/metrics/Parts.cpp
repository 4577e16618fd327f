// Tells the numbers of each kind of record.
#include "apps/metrics/Parts.h"

#include "kiln/Numbers.h"
#include "vex/PublishedChip.h"
#include "vex/PublishedRecords.h"

#include <charconv>
#include <cstring>

namespace ZelMetrics {

namespace {

using Kiln::String;
namespace Tables = Silo::Interface;
namespace TableName = Silo::Interface::TableName;

// A text of a record, which may lack its end.
template <std::size_t room>
std::string_view textOf(const std::array<char, room>& text) {
   return {text.data(), strnlen(text.data(), room)};
}

std::size_t indexOf(auto value) {
   return static_cast<std::size_t>(value);
}

std::vector<Column> plain(std::initializer_list<std::size_t> families) {
   std::vector<Column> columns;
   for (const std::size_t family : families) {
      columns.emplace_back(family);
   }
   return columns;
}

// One counter for each of `count` values of a label.
void addEach(std::size_t family, std::string_view label, std::size_t count, auto nameOf,
             std::vector<Column>* columns) {
   for (std::size_t i = 0; i < count; ++i) {
      columns->emplace_back(family, tail(label, nameOf(i)));
   }
}

Gauge ageOf(const Moment& moment) {
   return moment.age ? seconds(*moment.age) : Gauge{};
}

struct ByInterface {
   static bool labels(const Silo::Key& key, String* labels) {
      *labels += '{';
      addLabel("interface", key.view(), labels);
      return true;
   }
};

struct ByChip {
   static bool labels(const Silo::Key& key, String* labels) {
      *labels += '{';
      addLabel("chip", key.view(), labels);
      return true;
   }
};

// A key such as "Zel0:3".
struct ByPipe {
   static bool labels(const Silo::Key& key, String* labels) {
      const std::string_view text = key.view();
      const std::size_t colon = text.rfind(':');
      if (colon == std::string_view::npos || colon == 0 || !Kiln::parseNumber<U32>(text.substr(colon + 1))) {
         return false;
      }
      *labels += '{';
      addLabel("chip", text.substr(0, colon), labels);
      *labels += ',';
      addLabel("pipe", text.substr(colon + 1), labels);
      return true;
   }
};

// The counters of a table of fields. Its first field is of the family `first`, and the others follow.
template <class Statistics>
std::vector<Column> fieldColumns(std::size_t first) {
   std::vector<Column> columns;
   FieldForm last;
   for (const Interface::StatisticsField& field : Interface::fieldsOf<Statistics>()) {
      const FieldForm form = formOf(field.name);
      first += !columns.empty() && form.name != last.name ? 1U : 0U;
      columns.emplace_back(first);
      if (!form.label.empty()) {
         columns.back().tails.front().textIs(tail(form.label, form.value.view()));
      }
      last = form;
   }
   return columns;
}

struct Ports : ByInterface {
   enum Gauges : std::size_t { discontinuity, speed, age };

   static std::vector<Column> counters() {
      auto columns = fieldColumns<Interface::EthIntfStatistics>(familyNamed("zel_interface_in_bytes"));
      columns.emplace_back(familyNamed("zel_interface_suspect_steps"));
      return columns;
   }
   static std::vector<Column> gauges() {
      return plain({familyNamed("zel_interface_discontinuity_timestamp_seconds"),
                    familyNamed("zel_interface_speed_bytes"), familyNamed("zel_interface_age_seconds")});
   }
   static void tell(const Tables::IntfCounters& record, const Moment& moment, Samples* samples) {
      samples->gaugeIs(age, ageOf(moment));
      if (!moment.isFresh) {
         return;
      }
      samples->createdIs(record.createdUnixTime);
      samples->countersAre(record.totals.data(), record.totals.size());
      samples->counterIs(record.totals.size(), record.suspects);
      if (record.discontinuityTime != 0 && record.createdTime != 0 && record.createdUnixTime != 0) {
         // By the record's own times, so that it stays the same number.
         samples->gaugeIs(discontinuity,
                          seconds(record.createdUnixTime + (record.discontinuityTime - record.createdTime)));
      }
      if (record.speed != 0) {
         constexpr U32 eighth = 125; // thousandths
         samples->gaugeIs(
              speed, record.speed % 8 == 0
                          ? integer(record.speed / 8)
                          : Gauge{record.speed / 8, static_cast<U32>(record.speed % 8) * eighth, 3, true});
      }
   }
};

struct Places : ByInterface {
   static std::vector<Column> counters() { return {}; }
   static std::vector<Column> gauges() { return plain({familyNamed("zel_interface")}); }
   static void tell(const Tables::IntfPlace& record, const Moment& moment, Samples* samples) {
      if (!moment.isFresh) {
         return;
      }
      samples->addLabels([&](String* labels) {
         const auto add = [&](std::string_view name, std::string_view value) {
            *labels += ',';
            addLabel(name, value, labels);
         };
         add("chip", textOf(record.chip));
         add("port", std::to_string(record.devicePort));
         if (record.speed != 0) {
            add("speed", std::to_string(record.speed));
         }
      });
      samples->gaugeIs(0, integer(1));
   }
};

struct Queues : ByInterface {
   static constexpr std::size_t queueCount = Tables::IntfQueueCounters::queueCount;

   static std::vector<Column> counters() {
      std::vector<Column> columns;
      for (const std::size_t family : {familyNamed("zel_queue_packets"), familyNamed("zel_queue_bytes"),
                                       familyNamed("zel_queue_dropped_packets")}) {
         addEach(
              family, "queue", queueCount, [](std::size_t queue) { return std::to_string(queue); }, &columns);
      }
      return columns;
   }
   static std::vector<Column> gauges() { return plain({familyNamed("zel_queue_age_seconds")}); }
   static void tell(const Tables::IntfQueueCounters& record, const Moment& moment, Samples* samples) {
      samples->gaugeIs(0, ageOf(moment));
      if (!moment.isFresh) {
         return;
      }
      samples->createdIs(record.createdUnixTime);
      for (std::size_t queue = 0; queue < queueCount; ++queue) {
         if (record.has(queue) && record.isRead(queue)) {
            const Tables::QueueStatistics& total = record.totals[queue];
            samples->counterIs(queue, total.packets);
            samples->counterIs(queueCount + queue, total.bytes);
            samples->counterIs(2 * queueCount + queue, total.drops);
         }
      }
   }
};

// VLAN interfaces, or subinterfaces.
struct L3Intfs : ByInterface {
   std::size_t firstFamily;
   std::size_t ageFamily;

   std::vector<Column> counters() const { return fieldColumns<Interface::L3IntfStatistics>(firstFamily); }
   std::vector<Column> gauges() const { return plain({ageFamily}); }
   static void tell(const Tables::L3IntfCounters& record, const Moment& moment, Samples* samples) {
      samples->gaugeIs(0, ageOf(moment));
      if (moment.isFresh) {
         samples->createdIs(record.createdUnixTime);
         samples->countersAre(record.totals.data(), record.totals.size());
      }
   }
};

struct Nat : ByInterface {
   static std::vector<Column> counters() {
      return plain({familyNamed("zel_nat_packets"), familyNamed("zel_nat_bytes")});
   }
   static std::vector<Column> gauges() { return plain({familyNamed("zel_nat_age_seconds")}); }
   static void tell(const Tables::NatCounter& record, const Moment& moment, Samples* samples) {
      samples->gaugeIs(0, ageOf(moment));
      if (moment.isFresh && record.isRead()) {
         samples->createdIs(record.createdUnixTime);
         samples->counterIs(0, record.totalPackets);
         samples->counterIs(1, record.totalBytes);
      }
   }
};

// The counters of a record of places. Column place + value * places is a value of a place; `isTold(place, total)`.
template <class Record>
void tellPlaces(const Record& record, const Moment& moment, Samples* samples, auto isTold) {
   samples->createdIs(record.createdUnixTime);
   for (std::size_t place = 0; place < Record::placeCount; ++place) {
      if (!moment.isFreshAt(record.readTimes[place])) {
         continue;
      }
      for (std::size_t value = 0; value < Record::valueCount; ++value) {
         const U64 total = record.totals[place][value];
         if (isTold(place, total)) {
            samples->counterIs(place + value * Record::placeCount, total);
         }
      }
   }
}

constexpr auto isAlwaysTold = [](std::size_t, U64) { return true; };

struct Drops : ByInterface {
   static std::string_view reasonText(ZlDrop::Point point, std::size_t reason) {
      const auto& reasons = ZlDrop::tables[indexOf(point)].reasons;
      return reason < reasons.size() ? reasons[reason] : "";
   }
   static std::vector<Column> counters() {
      std::vector<Column> columns;
      for (std::size_t i = 0; i < Tables::IntfDropCounters::placeCount; ++i) {
         const auto point = static_cast<ZlDrop::Point>(i / ZlDrop::reasonsPerPort);
         const std::size_t reason = i % ZlDrop::reasonsPerPort;
         const std::string_view named = reasonText(point, reason);
         const String text = named.empty() ? "reason " + std::to_string(reason) : String(named);
         // What the final point counts was counted before: a sum over a family has each frame once.
         const bool isFinal = point == ZlDrop::Point::final;
         String labels;
         if (!isFinal) {
            labels = ',';
            addLabel("point", ZlDrop::tables[indexOf(point)].point, &labels);
         }
         columns.emplace_back(isFinal ? familyNamed("zel_interface_lost_packets")
                                      : familyNamed("zel_interface_dropped_packets"),
                              labels + tail("reason", text));
      }
      return columns;
   }
   static std::vector<Column> gauges() { return plain({familyNamed("zel_interface_drops_age_seconds")}); }
   static void tell(const Tables::IntfDropCounters& record, const Moment& moment, Samples* samples) {
      samples->gaugeIs(0, ageOf(moment));
      tellPlaces(record, moment, samples, [](std::size_t place, U64 total) {
         const auto point = static_cast<ZlDrop::Point>(place / ZlDrop::reasonsPerPort);
         return total != 0 || !reasonText(point, place % ZlDrop::reasonsPerPort).empty();
      });
   }
};

class Classes : public ByInterface {
 public:
   static std::vector<Column> counters() {
      std::vector<Column> columns;
      addEach(familyNamed("zel_interface_class_packets"), "class", Tables::IntfPdpCounters::placeCount,
              numbered, &columns);
      return columns;
   }
   static std::vector<Column> gauges() { return plain({familyNamed("zel_interface_classes_age_seconds")}); }
   void tell(const Tables::IntfPdpCounters& record, const Moment& moment, Samples* samples) {
      samples->gaugeIs(0, ageOf(moment));
      namesAre(record.classNames);
      for (std::size_t i = 0; i < tails_.size(); ++i) {
         samples->tailIs(i, tails_[i]);
      }
      tellPlaces(record, moment, samples, [&](std::size_t place, U64 total) {
         return total != 0 || record.classNames[place][0] != '\0';
      });
   }

 private:
   using Names = decltype(Tables::IntfPdpCounters::classNames);

   static String numbered(std::size_t number) { return "class " + std::to_string(number); }
   // Of one record after the other, which mostly are the same.
   void namesAre(const Names& names) {
      if (!tails_[0].empty() && names == names_) {
         return;
      }
      names_ = names;
      for (std::size_t i = 0; i < tails_.size(); ++i) {
         // The number, too: what counts is the class, whose name may change, and be another's.
         const std::string_view name = textOf(names[i]);
         tails_[i] = tail({{"class", name.empty() ? numbered(i) : String(name)}, {"id", std::to_string(i)}});
      }
   }

   Names names_{};
   std::array<String, std::tuple_size_v<Names>> tails_;
};

struct Stages : ByPipe {
   static std::vector<Column> counters() {
      using Record = Tables::PipeStageCounters;
      static_assert(Record::in == 0 && Record::out == 1 && Record::dropped == 2);
      std::vector<Column> columns;
      for (const std::size_t family :
           {familyNamed("zel_pipe_stage_in_packets"), familyNamed("zel_pipe_stage_out_packets"),
            familyNamed("zel_pipe_stage_dropped_packets")}) {
         addEach(
              family, "stage", Record::placeCount, [](std::size_t i) { return Record::placeNames[i]; },
              &columns);
      }
      return columns;
   }
   static std::vector<Column> gauges() { return plain({familyNamed("zel_pipe_stages_age_seconds")}); }
   static void tell(const Tables::PipeStageCounters& record, const Moment& moment, Samples* samples) {
      samples->gaugeIs(0, ageOf(moment));
      tellPlaces(record, moment, samples, isAlwaysTold);
   }
};

struct PipeDrops : ByPipe {
   static std::vector<Column> counters() {
      using Record = Tables::PipeDropCounters;
      std::vector<Column> columns;
      addEach(
           familyNamed("zel_pipe_dropped_packets"), "place", Record::placeCount,
           [](std::size_t i) { return Record::placeNames[i]; }, &columns);
      return columns;
   }
   static std::vector<Column> gauges() { return plain({familyNamed("zel_pipe_drops_age_seconds")}); }
   static void tell(const Tables::PipeDropCounters& record, const Moment& moment, Samples* samples) {
      samples->gaugeIs(0, ageOf(moment));
      tellPlaces(record, moment, samples, isAlwaysTold);
   }
};

struct TrafficManager : ByPipe {
   using Record = Tables::PipeTmCounters;
   enum Gauges : std::size_t { cells, peak, age };
   static constexpr std::size_t firstLevel = Record::placeCount - 2;
   static_assert(Record::isLevel(firstLevel) && !Record::isLevel(firstLevel - 1));

   static std::vector<Column> counters() {
      static_assert(Record::packets == 0 && Record::bytes == 1);
      std::vector<Column> columns;
      for (const std::size_t family :
           {familyNamed("zel_traffic_manager_packets"), familyNamed("zel_traffic_manager_bytes")}) {
         addEach(
              family, "counter", Record::placeCount, [](std::size_t i) { return Record::placeNames[i]; },
              &columns);
      }
      return columns;
   }
   static std::vector<Column> gauges() {
      return plain({familyNamed("zel_traffic_manager_cells"),
                    familyNamed("zel_traffic_manager_port_cells_peak"),
                    familyNamed("zel_traffic_manager_age_seconds")});
   }
   static void tell(const Record& record, const Moment& moment, Samples* samples) {
      samples->gaugeIs(age, ageOf(moment));
      tellPlaces(record, moment, samples, [](std::size_t place, U64) { return !Record::isLevel(place); });
      for (const Gauges level : {cells, peak}) {
         if (moment.isFreshAt(record.readTimes[firstLevel + level])) {
            samples->gaugeIs(level, integer(record.readings[firstLevel + level][Record::packets]));
         }
      }
   }
};

struct Chips : ByChip {
   using Record = Tables::ChipHealth;
   static constexpr auto& verdicts = Record::verdictNames;
   enum Gauges : std::size_t {
      verdict,
      outstanding = verdict + verdicts.size(),
      pending,
      readAge,
      up = readAge + Record::kindNames.size(),
      age
   };

   static std::vector<Column> counters() {
      static_assert(Record::refused == 0 && Record::unanswered == 1 && Record::late == 2 &&
                    Record::wraps == 3 && Record::upsets == 4);
      return plain({familyNamed("zel_chip_refused_reads"), familyNamed("zel_chip_unanswered_reads"),
                    familyNamed("zel_chip_late_completions"), familyNamed("zel_chip_wraps"),
                    familyNamed("zel_chip_upsets")});
   }
   static std::vector<Column> gauges() {
      std::vector<Column> columns;
      // A stateset's label has the family's name.
      constexpr std::size_t family = familyNamed("zel_chip_verdict");
      addEach(
           family, families[family].name.view(), verdicts.size(), [](std::size_t i) { return verdicts[i]; },
           &columns);
      columns.emplace_back(familyNamed("zel_chip_requests_outstanding"));
      columns.emplace_back(familyNamed("zel_chip_pending_vlans"));
      addEach(
           familyNamed("zel_chip_read_age_seconds"), "kind", Record::kindNames.size(),
           [](std::size_t i) { return Record::kindNames[i]; }, &columns);
      columns.emplace_back(familyNamed("zel_chip_up_seconds"));
      columns.emplace_back(familyNamed("zel_chip_health_age_seconds"));
      return columns;
   }
   static void tell(const Record& record, const Moment& moment, Samples* samples) {
      samples->gaugeIs(age, ageOf(moment));
      tellPlaces(record, moment, samples, isAlwaysTold);
      if (!moment.isFresh) {
         return;
      }
      for (std::size_t i = 0; i < verdicts.size(); ++i) {
         samples->gaugeIs(verdict + i, integer(indexOf(record.verdict) == i ? 1 : 0));
      }
      samples->gaugeIs(outstanding, integer(record.outstanding));
      samples->gaugeIs(pending, integer(record.pendingVlans));
      for (std::size_t i = 0; i < Record::kindNames.size(); ++i) {
         if (record.isPolled[i] != 0 && record.oldestReadTimes[i] != 0) {
            samples->gaugeIs(readAge + i, seconds(std::max(moment.now - record.oldestReadTimes[i], 0.0)));
         }
      }
      samples->gaugeIs(up, seconds(std::max(moment.now - record.upTime, 0.0)));
   }
};

// Of one record, without labels but the version's.
struct Agent {
   static constexpr std::size_t buckets = Tables::AgentHealth{}.holds.size();
   enum Gauges : std::size_t {
      info,
      started,
      deadObjects,
      hold,
      wait,
      bucket,
      count = bucket + buckets,
      sum
   };

   static bool labels(const Silo::Key& key, String*) { return key.view() == Tables::agentKey; }
   static std::vector<Column> counters() { return {}; }
   static std::vector<Column> gauges() {
      auto columns =
           plain({familyNamed("zel_agent"), familyNamed("zel_agent_started_timestamp_seconds"),
                  familyNamed("zel_agent_dead_objects"), familyNamed("zel_agent_lock_longest_hold_seconds"),
                  familyNamed("zel_agent_lock_longest_wait_seconds")});
      for (Column& column : columns) {
         column.tails.front().textIs(bareTail);
      }
      const std::size_t holds = familyNamed("zel_agent_lock_hold_seconds");
      for (const char* bound : {"1e-05", "0.0001", "0.001", "0.01", "0.1", "+Inf"}) {
         columns.emplace_back(holds, String("_bucket{le=\"") + bound + "\"} ");
      }
      columns.emplace_back(holds, "_count ");
      columns.emplace_back(holds, "_sum ");
      return columns;
   }
   static void tell(const Tables::AgentHealth& record, const Moment& moment, Samples* samples) {
      if (!moment.isFresh) {
         return;
      }
      String version = "{";
      addLabel("version", textOf(record.version), &version);
      samples->gaugeTailIs(info, version + "} ");
      samples->gaugeIs(info, integer(1));
      samples->gaugeIs(started, seconds(record.startedUnixTime));
      samples->gaugeIs(deadObjects, integer(record.deadObjects));
      samples->gaugeIs(hold, finely(record.longestHold));
      samples->gaugeIs(wait, finely(record.longestWait));
      U64 holds = 0;
      for (std::size_t i = 0; i < buckets; ++i) {
         holds += record.holds[i];
         samples->gaugeIs(bucket + i, integer(holds)); // all that lasted no longer
      }
      samples->gaugeIs(count, integer(holds));
      samples->gaugeIs(sum, finely(record.heldTime));
   }
};

} // namespace

std::vector<std::unique_ptr<Part>> makeParts() {
   using enum Collector;
   std::vector<std::unique_ptr<Part>> parts;
   const auto add = [&]<class Record, class Teller>(Collector collector, const char* table, Teller teller) {
      parts.push_back(std::make_unique<TablePart<Record, Teller>>(collector, table, std::move(teller)));
   };
   add.operator()<Tables::IntfCounters>(interfaces, TableName::intfCounters, Ports{});
   add.operator()<Tables::IntfPlace>(interfaces, TableName::intfPlaces, Places{});
   add.operator()<Tables::IntfQueueCounters>(queues, TableName::intfQueueCounters, Queues{});
   add.operator()<Tables::L3IntfCounters>(
        vlans, TableName::vlanIntfCounters,
        L3Intfs{{}, familyNamed("zel_vlan_in_bytes"), familyNamed("zel_vlan_age_seconds")});
   add.operator()<Tables::L3IntfCounters>(
        subinterfaces, TableName::subIntfCounters,
        L3Intfs{{}, familyNamed("zel_subinterface_in_bytes"), familyNamed("zel_subinterface_age_seconds")});
   add.operator()<Tables::NatCounter>(nat, TableName::intfNatCounters, Nat{});
   add.operator()<Tables::IntfDropCounters>(drops, TableName::intfDropCounters, Drops{});
   add.operator()<Tables::IntfPdpCounters>(classes, TableName::intfPdpCounters, Classes{});
   add.operator()<Tables::PipeStageCounters>(pipeline, TableName::pipeStageCounters, Stages{});
   add.operator()<Tables::PipeDropCounters>(mauDrops, TableName::pipeDropCounters, PipeDrops{});
   add.operator()<Tables::PipeTmCounters>(trafficManager, TableName::pipeTmCounters, TrafficManager{});
   add.operator()<Tables::ChipHealth>(health, TableName::chipHealth, Chips{});
   add.operator()<Tables::AgentHealth>(health, TableName::agentHealth, Agent{});
   return parts;
}

} // namespace ZelMetrics
