// The cost of a scrape: the ports' collector over 456 ports, with all their counters and created times, from the shared
// tables into a text that is used again; as a multiple of a bare to_chars of the same numbers, and against
// prometheus-cpp's exposition of the same series, in turns so that all see the same machine. And what a scrape takes in
// bytes, series, time and memory, by ports and collector.
#include "apps/metrics/Exposition.h"
#include "bench/InTurns.h"
#include "kiln/Time.h"
#include "silo/Table.h"
#include "vex/PublishedChip.h"
#include "vex/PublishedRecords.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <malloc.h>
#include <memory>
#include <random>
#ifdef ZEL_PROMETHEUS_CPP
#include <prometheus/counter.h>
#include <prometheus/gauge.h>
#include <prometheus/registry.h>
#include <prometheus/text_serializer.h>
#endif

namespace {

using Kiln::String;
namespace Tables = Silo::Interface;
namespace TableName = Silo::Interface::TableName;
using ZelMetrics::Collectors;
using ZelMetrics::Format;

constexpr unsigned ports = 456;

// What an agent of so many ports publishes, just sampled: chips of four pipes of 64 ports, and for each port a VLAN
// interface with source NAT, and a subinterface.
class Published {
 public:
   explicit Published(unsigned portCount) {
      constexpr unsigned portsPerPipe = ZlPort::frontPanelPortsPerPipe;
      for (unsigned i = 0; i < portCount; ++i) {
         const String name = "Ethernet" + std::to_string(i + 1);
         publishPort(name);
         publishPlaces(name, i / (portsPerPipe * ZlPort::maxPipes), i);
         if (i % portsPerPipe == 0) {
            publishPipe(i / portsPerPipe);
         }
      }
      agent_.recordIs(Tables::agentKey, {.version = {'1'}, .startedUnixTime = unixNow_}, now_);
   }

   // As a new reading of all ports does.
   void publishPortsAgain() {
      for (std::size_t i = 0; i < portRecords_.size(); ++i) {
         ports_.recordIs(portKeys_[i], portRecords_[i], now_);
      }
   }

   const Silo::Store& store() const { return store_; }
   const std::vector<Tables::IntfCounters>& portRecords() const { return portRecords_; }

 private:
   template <class Record>
   Silo::Table<Record> table(const char* name) {
      // A scrape of a long benchmark finds the records fresh.
      constexpr double interval = 3600;
      return {store_, name, Record{}, Silo::TableOptions{2304, interval, Silo::ClockDomain::monotonic(), {}}};
   }
   // Of all magnitudes that a double holds exactly.
   U64 count() { return random_() >> (12 + random_() % 50); }

   template <class Record>
   static bool isNamed(const Record&, std::size_t) {
      return true;
   }
   static bool isNamed(const Tables::IntfDropCounters&, std::size_t place) {
      return place % ZlDrop::reasonsPerPort < ZlDrop::tables[place / ZlDrop::reasonsPerPort].reasons.size();
   }
   static bool isNamed(const Tables::IntfPdpCounters& record, std::size_t place) {
      return record.classNames[place][0] != '\0';
   }
   template <class Record>
   void publishPlaced(Silo::Table<Record>& into, const String& key, Record record = {}) {
      record.createdTime = now_;
      record.createdUnixTime = unixNow_;
      for (std::size_t place = 0; place < Record::placeCount; ++place) {
         record.readTimes[place] = now_;
         for (U64& total : record.totals[place]) {
            total = isNamed(record, place) ? count() : 0;
         }
      }
      into.recordIs(key, record, now_);
   }
   void publishPort(const String& name) {
      Tables::IntfCounters counters;
      std::ranges::generate(counters.totals, [&] { return count(); });
      counters.createdTime = counters.discontinuityTime = now_;
      counters.createdUnixTime = unixNow_;
      counters.speed = 25'000'000'000;
      ports_.recordIs(name, counters, now_);
      portRecords_.push_back(counters);
      portKeys_.emplace_back(name);

      Tables::IntfQueueCounters queues;
      queues.present = queues.reported = 0xff;
      for (unsigned i = 0; i < 8; ++i) {
         queues.totals[i] = {count(), count(), count()};
      }
      queues.createdTime = now_;
      queues.createdUnixTime = unixNow_;
      queues_.recordIs(name, queues, now_);

      Tables::L3IntfCounters l3;
      std::ranges::generate(l3.totals, [&] { return count(); });
      l3.createdUnixTime = unixNow_;
      vlans_.recordIs("Vlan" + name.substr(8), l3, now_);
      subIntfs_.recordIs(name + ".100", l3, now_);
      Tables::NatCounter nat{.lastUpdate = now_, .totalPackets = count(), .totalBytes = count()};
      nat.createdUnixTime = unixNow_;
      nat_.recordIs("Vlan" + name.substr(8), nat, now_);
   }
   void publishPlaces(const String& name, unsigned chip, unsigned port) {
      Tables::IntfPlace place{.devicePort = port, .speed = 25'000'000'000};
      std::snprintf(place.chip.data(), place.chip.size(), "Zel%u", chip);
      places_.recordIs(name, place, now_);
      Tables::IntfDropCounters drops;
      publishPlaced(drops_, name, drops);
      constexpr unsigned namedClasses = 12;
      Tables::IntfPdpCounters classes;
      for (unsigned i = 0; i < namedClasses; ++i) {
         std::snprintf(classes.classNames[i].data(), classes.classNames[i].size(), "protocol-%u", i);
      }
      publishPlaced(classes_, name, classes);
   }
   void publishPipe(unsigned pipe) {
      const String chip = "Zel" + std::to_string(pipe / ZlPort::maxPipes);
      const String key = chip + ":" + std::to_string(pipe % ZlPort::maxPipes);
      publishPlaced(stages_, key);
      publishPlaced(pipeDrops_, key);
      publishPlaced(tm_, key);
      publishPlaced(health_, chip);
   }

   const Silo::Store store_ = Silo::Store::temporary();
   const double now_ = Silo::monotonicNow();
   const double unixNow_ = Kiln::System::unixTime();
   std::mt19937_64 random_{1};
   std::vector<Tables::IntfCounters> portRecords_;
   std::vector<Silo::Key> portKeys_;
   Silo::Table<Tables::IntfCounters> ports_ = table<Tables::IntfCounters>(TableName::intfCounters);
   Silo::Table<Tables::IntfQueueCounters> queues_ =
        table<Tables::IntfQueueCounters>(TableName::intfQueueCounters);
   Silo::Table<Tables::L3IntfCounters> vlans_ = table<Tables::L3IntfCounters>(TableName::vlanIntfCounters);
   Silo::Table<Tables::L3IntfCounters> subIntfs_ = table<Tables::L3IntfCounters>(TableName::subIntfCounters);
   Silo::Table<Tables::NatCounter> nat_ = table<Tables::NatCounter>(TableName::intfNatCounters);
   Silo::Table<Tables::IntfPlace> places_ = table<Tables::IntfPlace>(TableName::intfPlaces);
   Silo::Table<Tables::IntfDropCounters> drops_ =
        table<Tables::IntfDropCounters>(TableName::intfDropCounters);
   Silo::Table<Tables::IntfPdpCounters> classes_ = table<Tables::IntfPdpCounters>(TableName::intfPdpCounters);
   Silo::Table<Tables::PipeStageCounters> stages_ =
        table<Tables::PipeStageCounters>(TableName::pipeStageCounters);
   Silo::Table<Tables::PipeDropCounters> pipeDrops_ =
        table<Tables::PipeDropCounters>(TableName::pipeDropCounters);
   Silo::Table<Tables::PipeTmCounters> tm_ = table<Tables::PipeTmCounters>(TableName::pipeTmCounters);
   Silo::Table<Tables::ChipHealth> health_ = table<Tables::ChipHealth>(TableName::chipHealth);
   Silo::Table<Tables::AgentHealth> agent_ = table<Tables::AgentHealth>(TableName::agentHealth);
};

Collectors only(std::string_view list) {
   Collectors some;
   some.are(list);
   return some;
}

// Every counter and its created time, of which to_chars gets the milliseconds as an integer: that is the least.
void bareNumbers(const std::vector<Tables::IntfCounters>& records) {
   char digits[24];
   for (const Tables::IntfCounters& record : records) {
      const auto created = static_cast<U64>(record.createdUnixTime * 1e3);
      for (const U64 total : record.totals) {
         benchmark::DoNotOptimize(std::to_chars(digits, digits + sizeof digits, total).ptr);
         benchmark::ClobberMemory();
         benchmark::DoNotOptimize(std::to_chars(digits, digits + sizeof digits, created).ptr);
         benchmark::ClobberMemory();
      }
   }
}

#ifdef ZEL_PROMETHEUS_CPP
// The same series, kept by prometheus-cpp in this process.
class PrometheusCpp {
 public:
   explicit PrometheusCpp(const std::vector<Tables::IntfCounters>& records) {
      const auto& fields = Interface::ethIntfFields;
      for (std::size_t i = 0; i < fields.size(); ++i) {
         const auto form = ZelMetrics::formOf(fields[i].name);
         const String name = "zel_interface_" + String(form.name.view());
         const String help(form.help.view());
         auto& counters = prometheus::BuildCounter().Name(name + "_total").Help(help).Register(registry_);
         auto& createds = prometheus::BuildGauge().Name(name + "_created").Help(help).Register(registry_);
         for (std::size_t port = 0; port < records.size(); ++port) {
            std::map<std::string, std::string> labels{{"interface", "Ethernet" + std::to_string(port + 1)}};
            if (!form.label.empty()) {
               labels.emplace(form.label, form.value.view());
            }
            counters_.push_back(&counters.Add(labels));
            counters_.back()->Increment(static_cast<double>(records[port].totals[i]));
            createds.Add(labels).Set(records[port].createdUnixTime);
         }
      }
      collected_ = registry_.Collect();
   }
   // As a new reading of all ports does.
   void update() {
      for (prometheus::Counter* const counter : counters_) {
         counter->Increment(1);
      }
   }
   void collect() { collected_ = registry_.Collect(); }
   // Writes what was collected last.
   void write() {
      text_ = prometheus::TextSerializer().Serialize(collected_);
      benchmark::DoNotOptimize(text_.data());
   }
   std::size_t bytes() const { return text_.size(); }

 private:
   prometheus::Registry registry_;
   std::vector<prometheus::Counter*> counters_;
   std::vector<prometheus::MetricFamily> collected_;
   std::string text_;
};
#endif

void scrapePorts(benchmark::State& state, Bench::Caches caches) {
   const Published agent(ports);
   ZelMetrics::Exposition exposition(agent.store(), only("interfaces"));
   String text;
   exposition.scrape(Format::openMetrics, &text);
   Bench::InTurns(caches).run(
        state, [&] { bareNumbers(agent.portRecords()); },
        [&] { exposition.scrape(Format::openMetrics, &text); });
   state.counters["bytes"] = static_cast<double>(text.size());
}
ZEL_BENCH_HOT_AND_COLD(scrapePorts, benchmark::kMicrosecond);

#ifdef ZEL_PROMETHEUS_CPP
// "x_floor" is how many times as long the other takes to write what it has collected already.
void besidePrometheusCpp(benchmark::State& state) {
   Published agent(ports);
   ZelMetrics::Exposition exposition(agent.store(), only("interfaces"));
   String text;
   exposition.scrape(Format::openMetrics, &text);
   PrometheusCpp other(agent.portRecords());
   Bench::Times ownUpdates;
   Bench::Times updates;
   Bench::Times collections;
   Bench::InTurns turns(Bench::Caches::hot);
   const auto takeReading = [&] {
      ownUpdates.add(Bench::timeOf([&] { agent.publishPortsAgain(); }));
      updates.add(Bench::timeOf([&] { other.update(); }));
      collections.add(Bench::timeOf([&] { other.collect(); }));
   };
   turns.run(
        state, takeReading, [&] { exposition.scrape(Format::openMetrics, &text); }, [&] { other.write(); });
   state.counters["own_update_us"] = 1e6 * ownUpdates.median();
   state.counters["own_us"] = 1e6 * turns.floorTimes.median();
   state.counters["update_us"] = 1e6 * updates.median();
   state.counters["collect_us"] = 1e6 * collections.median();
   state.counters["write_us"] = 1e6 * turns.pathTimes.median();
   state.counters["own_bytes"] = static_cast<double>(text.size());
   state.counters["bytes"] = static_cast<double>(other.bytes());
}
BENCHMARK(besidePrometheusCpp)->UseManualTime()->Unit(benchmark::kMillisecond);
#endif

// Memory of this process's own, in bytes; the shared tables, which the exporter only maps, are not among it.
double privateBytes() {
   std::ifstream status("/proc/self/status");
   for (String word; status >> word;) {
      if (word == "RssAnon:") {
         double kilobytes = 0;
         status >> kilobytes;
         return kilobytes * 1024;
      }
   }
   return 0;
}

void scrapeBy(benchmark::State& state, const String& list) {
   const Published agent(static_cast<unsigned>(state.range(0)));
   malloc_trim(0);
   const double before = privateBytes();
   ZelMetrics::Exposition exposition(agent.store(), list == "all" ? Collectors() : only(list));
   std::size_t bytes = 0;
   const auto add = [&](std::string_view piece) { bytes += piece.size(); };
   for (auto _ : state) {
      bytes = 0;
      exposition.scrape(Format::openMetrics, add);
   }
   state.counters["private_bytes"] = privateBytes() - before;
   state.counters["bytes"] = static_cast<double>(bytes);
   std::ptrdiff_t series = 0;
   exposition.scrape(Format::openMetrics, [&](std::string_view piece) {
      series += std::ranges::count(piece, '\n') - std::ranges::count(piece, '#');
   });
   state.counters["series"] = static_cast<double>(series);
   bytes = 0;
   exposition.scrape(Format::prometheusText, add);
   state.counters["text_format_bytes"] = static_cast<double>(bytes);
}

} // namespace

int main(int argc, char** argv) {
   std::vector<String> lists{"all"};
   lists.insert(lists.end(), ZelMetrics::collectorNames.begin(), ZelMetrics::collectorNames.end());
   for (const String& list : lists) {
      auto* const one = benchmark::RegisterBenchmark(
           ("scrape/" + list).c_str(), [list](benchmark::State& state) { scrapeBy(state, list); });
      one->Unit(benchmark::kMicrosecond)->Arg(32)->Arg(ports)->Arg(2048);
   }
   benchmark::Initialize(&argc, argv);
   benchmark::RunSpecifiedBenchmarks();
}
