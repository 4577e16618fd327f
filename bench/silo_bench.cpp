// The cost of publishing and reading shared records, as a multiple of a bare sequence lock around a memcpy.
//
// Each benchmark runs batches of its own passes and of the floor's in turn, so that both see the same machine. The time
// shown is that of one of its passes over all records; "x_floor" is the ratio of the two.
#include "bench/AllocationCount.h"
#include "bench/CpuTime.h"
#include "silo/Table.h"
#include "silo/TableReader.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t records = 456;
constexpr int passesPerBatch = 20;

// About the size of an interface's record, and not a whole number of cache lines.
struct Counters {
   static constexpr std::string_view layoutName = "BenchCounters";
   static constexpr std::uint32_t layoutVersion = 1;

   std::uint64_t values[88];
};

// The floor: the least code that publishes a record. Formally a data race, which is why the library does more.
struct BareSlot {
   std::atomic<std::uint64_t> sequence;
   Counters counters;

   void write(const Counters& source) {
      std::uint64_t odd = sequence.load(std::memory_order_relaxed) + 1;
      sequence.store(odd, std::memory_order_relaxed);
      std::atomic_thread_fence(std::memory_order_release);
      std::memcpy(&counters, &source, sizeof counters);
      sequence.store(odd + 1, std::memory_order_release);
   }

   bool read(Counters& copy) const {
      std::uint64_t before = sequence.load(std::memory_order_acquire);
      std::memcpy(&copy, &counters, sizeof counters);
      std::atomic_thread_fence(std::memory_order_acquire);
      return (before & 1) == 0 && sequence.load(std::memory_order_relaxed) == before;
   }
};

const Silo::Store& store() {
   static const Silo::Store place =
        Silo::Store::sharedMemory("zel-bench-" + std::to_string(static_cast<long>(getpid())));
   return place;
}

Silo::TableOptions options() {
   return {records, 2.0, Silo::ClockDomain::monotonic(), {}, false};
}

std::vector<Silo::Key> makeKeys() {
   std::vector<Silo::Key> keys;
   for (std::size_t i = 1; i <= records; ++i) {
      keys.emplace_back("Ethernet" + std::to_string(i));
   }
   return keys;
}

std::vector<Counters> makeSources() {
   std::vector<Counters> sources(records);
   std::uint64_t next = 1;
   for (Counters& source : sources) {
      for (std::uint64_t& value : source.values) {
         value = next = next * 6364136223846793005 + 1442695040888963407;
      }
   }
   return sources;
}

BareSlot* mapBare(Silo::Mapping& mapping) {
   return reinterpret_cast<BareSlot*>(mapping.data());
}

Silo::Mapping makeBare() {
   Silo::Mapping mapping = store().openForWriting("bare").mapping;
   mapping.grow(records * sizeof(BareSlot));
   return mapping;
}

template <class Pass>
double secondsForBatch(Pass& pass) {
   pass(); // the other one's batch has filled the caches
   double start = Bench::cpuSeconds();
   for (int i = 0; i < passesPerBatch; ++i) {
      pass();
   }
   return Bench::cpuSeconds() - start;
}

template <class Pass, class Floor>
void compare(benchmark::State& state, Pass pass, Floor floor) {
   double total = 0;
   double floorTotal = 0;
   std::uint64_t allocations = 0;
   pass(); // warm: keys, index and buffers exist
   for (auto _ : state) {
      floorTotal += secondsForBatch(floor);
      std::uint64_t before = Bench::allocations().count;
      double seconds = secondsForBatch(pass);
      allocations += Bench::allocations().count - before;
      total += seconds;
      state.SetIterationTime(seconds / passesPerBatch);
   }
   double passes = static_cast<double>(state.iterations()) * passesPerBatch;
   state.counters["allocations"] = static_cast<double>(allocations);
   state.counters["x_floor"] = total / floorTotal;
   state.counters["ns_per_record"] = total / passes / records * 1e9;
   state.counters["floor_ns_per_record"] = floorTotal / passes / records * 1e9;
}

void publish(benchmark::State& state) {
   auto keys = makeKeys();
   auto sources = makeSources();
   Silo::Table<Counters> table(store(), "counters", Counters{}, options());
   Silo::Mapping mapping = makeBare();
   BareSlot* bare = mapBare(mapping);
   double now = 0;
   compare(
        state,
        [&] {
           now += 2;
           for (std::size_t i = 0; i < records; ++i) {
              table.recordIs(keys[i], sources[i], now);
           }
        },
        [&] {
           for (std::size_t i = 0; i < records; ++i) {
              bare[i].write(sources[i]);
           }
        });
   store().remove("counters");
   store().remove("bare");
}

// Another process wrote the records: a child that has ended.
void fillFromChild() {
   pid_t child = fork();
   if (child == 0) {
      {
         auto keys = makeKeys();
         auto sources = makeSources();
         Silo::Table<Counters> table(store(), "counters", Counters{}, options());
         Silo::Mapping mapping = makeBare();
         for (std::size_t i = 0; i < records; ++i) {
            table.recordIs(keys[i], sources[i], 1.0);
            mapBare(mapping)[i].write(sources[i]);
         }
      }
      _exit(0);
   }
   int status = 0;
   waitpid(child, &status, 0);
}

template <class MakePass>
void readAgainstFloor(benchmark::State& state, MakePass makePass) {
   store(); // so that the child has the same place
   fillFromChild();
   Silo::TableReader<Counters> reader(store(), "counters");
   Silo::Mapping mapping = store().openForReading("bare");
   const BareSlot* bare = mapBare(mapping);
   std::vector<Counters> copies(records);
   bool isGood = true;
   compare(state, makePass(reader, isGood), [&] {
      for (std::size_t i = 0; i < records; ++i) {
         isGood &= bare[i].read(copies[i]);
      }
      benchmark::DoNotOptimize(copies.data()); // or the compiler may leave the copying out
      benchmark::ClobberMemory();
   });
   if (!isGood) {
      state.SkipWithError("a record could not be read");
   }
   store().remove("counters");
   store().remove("bare");
}

void readByKey(benchmark::State& state) {
   readAgainstFloor(state, [](Silo::TableReader<Counters>& reader, bool& isGood) {
      return [&reader, &isGood, keys = makeKeys(),
              samples = std::vector<Silo::Sample<Counters>>(records)]() mutable {
         for (std::size_t i = 0; i < records; ++i) {
            isGood &= reader.read(keys[i], samples[i]) == Silo::ReadResult::ok;
         }
         benchmark::ClobberMemory();
      };
   });
}

void readSnapshot(benchmark::State& state) {
   readAgainstFloor(state, [](Silo::TableReader<Counters>& reader, bool& isGood) {
      return [&reader, &isGood, entries = std::vector<Silo::Entry<Counters>>()]() mutable {
         isGood &= reader.snapshot(entries) && entries.size() == records;
         benchmark::ClobberMemory();
      };
   });
}

BENCHMARK(publish)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(readByKey)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(readSnapshot)->UseManualTime()->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
