// The cost of a port's path from raw counters to its published record: 456 records converted, vetted, stepped and
// written, as a multiple of a bare sequence-locked write of the same bytes, without and with their history; the same for
// reading them from a second mapping; and, for contrast, a record published as decimal strings.
//
// Two time the whole completion: of a port's 89 values, and of the three of each of its 17 queues. Their floor is a
// memcpy of the raw values.
#include "bench/InTurns.h"
#include "counters/ZelCounters.h"
#include "counters/ZelCountersMgr.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "silo/HistoryReader.h"
#include "silo/TableReader.h"
#include "vex/SharedTables.h"

#include <benchmark/benchmark.h>
#include <charconv>
#include <chrono>
#include <cstring>
#include <vector>

namespace {

using Bench::Caches;
using Silo::Interface::IntfCounters;

constexpr unsigned ports = ZelId::PortIndex::invalid; // 456
constexpr std::size_t portQueues = ZelCounter::IntfQueueCounters::queueLimit;
constexpr int passesOfHistory = 460; // until its rings have turned: the memory of samples is there by then
constexpr unsigned burst = 8;
static_assert(ports % burst == 0);
constexpr std::size_t recordBytes = sizeof(IntfCounters);

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
   return std::chrono::duration<double>(Clock::now() - start).count();
}

// The floor: the least code that publishes a record. Formally a data race, which is why the library does more.
struct BareSlot {
   std::atomic<U64> sequence;
   std::byte bytes[recordBytes];

   void write(const IntfCounters& source) {
      const U64 odd = sequence.load(std::memory_order_relaxed) + 1;
      sequence.store(odd, std::memory_order_relaxed);
      std::atomic_thread_fence(std::memory_order_release);
      std::memcpy(bytes, &source, recordBytes);
      sequence.store(odd + 1, std::memory_order_release);
   }
   bool read(IntfCounters& copy) const {
      const U64 before = sequence.load(std::memory_order_acquire);
      std::memcpy(static_cast<void*>(&copy), bytes, recordBytes);
      std::atomic_thread_fence(std::memory_order_acquire);
      return (before & 1) == 0 && sequence.load(std::memory_order_relaxed) == before;
   }
};

// A manager with one chip of 456 ports, whose counters move a little with each pass.
class Publisher {
 public:
   enum class History { none, kept };
   explicit Publisher(History history = History::none) : store_(Silo::Store::temporary()) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      Kiln::System::timeSourceIs(time_);
      status_->hasNotificationActiveIs(true);
      auto mounts = Kiln::allocate<ZelCounter::CountersMounts>();
      const Vex::SharedTables tables = Vex::openSharedTables(store_);
      mounts->allIntfCountersIs(tables.allIntfCounters);
      if (history == History::kept) {
         mounts->historyIs(tables.history);
      }
      mounts->allIntfQueueCountersIs(tables.allIntfQueueCounters);
      mounts->writerConfigIs(Kiln::allocate<Vex::Counters::WriterConfig>());
      auto directory = Kiln::allocate<Interface::EthPhyIntfStatusDir>();
      mounts->ethPhyIntfStatusDirIs(directory);
      for (unsigned port = 0; port < ports; ++port) {
         const Pelt::IntfId intf(("Ethernet" + std::to_string(port + 1)).c_str());
         status_->portInfoIs(intf, {0, static_cast<U16>(port)});
         directory->intfStatusIs(intf, true);
         names.push_back(intf);
         keys.emplace_back(intf.text());
      }
      mgr_ = ZelCounter::zelCountersMgrFactory(status_, mounts, Kiln::allocate<Vex::VexCommonSmData>(),
                                               Kiln::allocate<Agent::AgentCommandRequestDirSm>(), nullptr,
                                               nullptr, nullptr);
      mgr_->addChip(0, "Zel0", {"soft"}, 1, nullptr, nullptr, nullptr);
      pass();
      pass();
      for (unsigned port = 0; port < ports; ++port) {
         records.push_back(tables.allIntfCounters->table().sample(keys[port]).record);
      }
      bare_ = store_.openForWriting("bare").mapping;
      bare_.grow(ports * sizeof(BareSlot));
   }
   Publisher(const Publisher&) = delete;
   Publisher& operator=(const Publisher&) = delete;
   ~Publisher() {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      mgr_ = nullptr;
   }

   // As completions do: stores new raw counters, then tells the forwarding layer; the measurement begins there, and on
   // cold memory with what was just stored. A few ports at a time, since reading the clock takes long.
   double pass() {
      passTime();
      const auto chip = mgr_->zelCounters(0);
      for (U64& value : raw_) {
         value += 1000;
      }
      double seconds = 0;
      for (unsigned first = 0; first < ports; first += burst) {
         for (unsigned port = first; port < first + burst; ++port) {
            chip->updateCounters(names[port], raw_);
         }
         const auto start = Clock::now();
         for (unsigned port = first; port < first + burst; ++port) {
            mgr_->vexCountersSm()->updateCounters(VexTypes::CounterType::port, names[port]);
         }
         seconds += secondsSince(start);
      }
      return seconds;
   }
   // Until the next pass, which is the caller's.
   void passTime() { time_->charge(2.0); }
   // Completions, from the raw values of each port or its queues on.
   void completeAll(std::vector<U64>& raw) {
      const auto chip = mgr_->zelCounters(0);
      for (unsigned port = 0; port < ports; ++port) {
         auto* const values =
              reinterpret_cast<bf_rmon_counter_array_t*>(&raw[std::size_t{port} * BF_NUM_RMON_COUNTERS]);
         ZelCounter::ZelCountersCallback(0, static_cast<bf_dev_port_t>(port), values, chip.ptr());
      }
   }
   void completeQueues(const std::vector<Vex::QueueMeters::Values>& raw) {
      ZelCounter::QueueCounters& queues = mgr_->zelCounters(0)->queues();
      for (unsigned port = 0; port < ports; ++port) {
         ZelCounter::IntfQueueCounters& stored = queues.intfQueueCountersIs(names[port]);
         stored.readingsAre(static_cast<U16>(port), raw[port], portQueues, Kiln::System::currentTime());
         queues.handOver(stored);
      }
   }
   double floor() {
      auto* const slots = reinterpret_cast<BareSlot*>(bare_.data());
      double seconds = 0;
      for (unsigned first = 0; first < ports; first += burst) {
         const auto start = Clock::now();
         for (unsigned port = first; port < first + burst; ++port) {
            slots[port].write(records[port]);
         }
         seconds += secondsSince(start);
      }
      return seconds;
   }

   const Silo::Store& store() const { return store_; }

   std::vector<Pelt::IntfId> names;
   std::vector<Silo::Key> keys;
   std::vector<IntfCounters> records;

 private:
   Silo::Store store_;
   Kiln::Ptr<Kiln::SimulatedTime> time_ = Kiln::allocate<Kiln::SimulatedTime>();
   Kiln::Ptr<ZelSystem::SystemStatus> status_ = Kiln::allocate<ZelSystem::SystemStatus>();
   Kiln::Ptr<ZelCounter::ZelCountersMgr> mgr_;
   bf_rmon_counter_array_t raw_{};
   Silo::Mapping bare_;
};

void report(benchmark::State& state, Bench::InTurns& turns) {
   state.counters["ns_per_port"] = turns.pathTimes.median() / ports * 1e9;
   state.counters["floor_ns_per_port"] = turns.floorTimes.median() / ports * 1e9;
}

void publish(benchmark::State& state, Caches caches) {
   Publisher agent;
   const auto lock = Kiln::ActivityLockAnchor::lock();
   Bench::InTurns turns(caches);
   turns.run(
        state, [&] { return agent.floor(); }, [&] { return agent.pass(); });
   report(state, turns);
}

// A second agent, which keeps none, takes turns with it, too.
void publishWithHistory(benchmark::State& state, Caches caches) {
   Publisher without;
   Publisher with(Publisher::History::kept);
   const auto lock = Kiln::ActivityLockAnchor::lock();
   Bench::InTurns turns(caches);
   Bench::Times timesWithout;
   turns.run(
        state, [&] { timesWithout.add(without.pass()); }, [&] { return with.floor(); },
        [&] { return with.pass(); });
   report(state, turns);
   if (caches == Caches::hot) {
      state.counters["x_without"] = turns.pathTimes.median() / timesWithout.median();
   }
   Silo::HistoryReader reader(with.store(), Silo::Interface::TableName::intfHistory,
                              Silo::Interface::IntfHistory::layout);
   std::vector<Silo::HistorySample> samples;
   if (!reader.read(with.keys.back(), samples)) {
      state.SkipWithError("no history was kept");
   }
}

// `valuesPerPort` of the raw values are the floor's to copy. complete() is timed, move() is not.
template <class Move, class Complete>
void compareWithCopy(benchmark::State& state, Caches caches, std::size_t valuesPerPort, Move move,
                     Complete complete) {
   const std::vector<U64> source(ports * valuesPerPort, 1);
   std::vector<U64> copy(source.size());
   for (int i = 0; i < passesOfHistory; ++i) {
      move();
      complete();
   }
   Bench::InTurns turns(caches);
   const auto floor = [&] {
      std::memcpy(copy.data(), source.data(), source.size() * sizeof(U64));
      benchmark::DoNotOptimize(copy.data());
      benchmark::ClobberMemory();
   };
   turns.run(state, move, floor, complete);
   report(state, turns);
}

void completePorts(benchmark::State& state, Caches caches) {
   Publisher agent(state.range(0) != 0 ? Publisher::History::kept : Publisher::History::none);
   const auto lock = Kiln::ActivityLockAnchor::lock();
   std::vector<U64> raw(std::size_t{ports} * BF_NUM_RMON_COUNTERS, 1'000'000);
   const auto move = [&] {
      agent.passTime();
      for (U64& value : raw) {
         value += 1000;
      }
   };
   compareWithCopy(state, caches, BF_NUM_RMON_COUNTERS, move, [&] { agent.completeAll(raw); });
}

void completeQueues(benchmark::State& state, Caches caches) {
   Publisher agent(state.range(0) != 0 ? Publisher::History::kept : Publisher::History::none);
   const auto lock = Kiln::ActivityLockAnchor::lock();
   std::vector<Vex::QueueMeters::Values> raw(ports);
   const auto move = [&] {
      agent.passTime();
      for (Vex::QueueMeters::Values& port : raw) {
         for (Vex::QueueMeters::Queue& one : port) {
            one = {one.packets + 10, one.bytes + 1000, one.drops + 1};
         }
      }
   };
   compareWithCopy(state, caches, portQueues * sizeof(Silo::Interface::QueueStatistics) / sizeof(U64), move,
                   [&] { agent.completeQueues(raw); });
}

void append(Kiln::String& text, const char* prefix, std::size_t field, U64 value) {
   char digits[24];
   const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
   text.append(prefix).append(Interface::ethIntfFields[field].name).append("=");
   text.append(digits, end).append(" ");
}

// As a database of strings would need it: each value of each record formatted under its name.
void publishAsStrings(benchmark::State& state, Caches caches) {
   Publisher agent;
   std::vector<Kiln::String> texts(ports);
   const auto format = [&] {
      for (unsigned port = 0; port < ports; ++port) {
         texts[port].clear();
         const IntfCounters& record = agent.records[port];
         for (std::size_t i = 0; i < Interface::ethIntfFields.size(); ++i) {
            append(texts[port], "", i, Interface::word(record.reading, i));
            append(texts[port], "total.", i, record.totals[i]);
            append(texts[port], "delta.", i, record.deltas[i]);
         }
      }
      benchmark::DoNotOptimize(texts.data());
   };
   format(); // the texts have their room
   Bench::InTurns turns(caches);
   turns.run(
        state, [&] { return agent.floor(); }, format);
   report(state, turns);
}

void readAll(benchmark::State& state, Caches caches) {
   Publisher agent;
   Silo::TableReader<IntfCounters> reader(agent.store(), Silo::Interface::TableName::intfCounters);
   const Silo::Mapping mapping = agent.store().openForReading("bare");
   const auto* const slots = reinterpret_cast<const BareSlot*>(mapping.data());
   std::vector<Silo::Sample<IntfCounters>> samples(ports);
   bool isGood = true;
   const auto readBare = [&] {
      for (unsigned port = 0; port < ports; ++port) {
         isGood &= slots[port].read(samples[port].record);
      }
      benchmark::ClobberMemory();
   };
   const auto read = [&] {
      for (unsigned port = 0; port < ports; ++port) {
         isGood &= reader.read(agent.keys[port], samples[port]) == Silo::ReadResult::ok;
      }
      benchmark::ClobberMemory();
   };
   agent.floor();
   read(); // the first pass indexes the keys
   Bench::InTurns turns(caches);
   turns.run(state, readBare, read);
   if (!isGood) {
      state.SkipWithError("a record could not be read");
   }
   report(state, turns);
}

ZEL_BENCH_HOT_AND_COLD(publish, benchmark::kMicrosecond);
ZEL_BENCH_HOT_AND_COLD(publishWithHistory, benchmark::kMicrosecond);
ZEL_BENCH_HOT_AND_COLD(completePorts, benchmark::kMicrosecond, ->ArgName("history")->Arg(0)->Arg(1));
ZEL_BENCH_HOT_AND_COLD(completeQueues, benchmark::kMicrosecond, ->ArgName("history")->Arg(0)->Arg(1));
ZEL_BENCH_HOT_AND_COLD(publishAsStrings, benchmark::kMicrosecond);
ZEL_BENCH_HOT_AND_COLD(readAll, benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
