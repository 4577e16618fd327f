// The cost of publishing and reading shared records, as a multiple of a bare sequence lock around a memcpy.
//
// The time shown is that of one pass over all records.
#include "bench/InTurns.h"
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

using Bench::Caches;

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

// The seconds of one pass: hot, in a batch, before which the other one's batch has filled the caches.
template <class Pass>
double secondsOf(Pass& pass, Caches caches) {
   const int passes = caches == Caches::hot ? passesPerBatch : 1;
   if (caches == Caches::hot) {
      pass();
   }
   const double start = Bench::cpuSeconds();
   for (int i = 0; i < passes; ++i) {
      pass();
   }
   return (Bench::cpuSeconds() - start) / passes;
}

template <class Pass, class Floor>
void compare(benchmark::State& state, Caches caches, Pass pass, Floor floor) {
   pass(); // warm: keys, index and buffers exist
   Bench::InTurns turns(caches);
   turns.run(
        state, [&] { return secondsOf(floor, caches); }, [&] { return secondsOf(pass, caches); });
   state.counters["ns_per_record"] = turns.pathTimes.median() / records * 1e9;
   state.counters["floor_ns_per_record"] = turns.floorTimes.median() / records * 1e9;
}

void publish(benchmark::State& state, Caches caches) {
   auto keys = makeKeys();
   auto sources = makeSources();
   Silo::Table<Counters> table(store(), "counters", Counters{}, options());
   Silo::Mapping mapping = makeBare();
   BareSlot* bare = mapBare(mapping);
   double now = 0;
   compare(
        state, caches,
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
void readAgainstFloor(benchmark::State& state, Caches caches, MakePass makePass) {
   store(); // so that the child has the same place
   fillFromChild();
   Silo::TableReader<Counters> reader(store(), "counters");
   Silo::Mapping mapping = store().openForReading("bare");
   const BareSlot* bare = mapBare(mapping);
   std::vector<Counters> copies(records);
   bool isGood = true;
   compare(state, caches, makePass(reader, isGood), [&] {
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

void readByKey(benchmark::State& state, Caches caches) {
   readAgainstFloor(state, caches, [](Silo::TableReader<Counters>& reader, bool& isGood) {
      return [&reader, &isGood, keys = makeKeys(),
              samples = std::vector<Silo::Sample<Counters>>(records)]() mutable {
         for (std::size_t i = 0; i < records; ++i) {
            isGood &= reader.read(keys[i], samples[i]) == Silo::ReadResult::ok;
         }
         benchmark::ClobberMemory();
      };
   });
}

void readSnapshot(benchmark::State& state, Caches caches) {
   readAgainstFloor(state, caches, [](Silo::TableReader<Counters>& reader, bool& isGood) {
      return [&reader, &isGood, entries = std::vector<Silo::Entry<Counters>>()]() mutable {
         isGood &= reader.snapshot(entries) && entries.size() == records;
         benchmark::ClobberMemory();
      };
   });
}

ZEL_BENCH_HOT_AND_COLD(publish, benchmark::kMicrosecond);
ZEL_BENCH_HOT_AND_COLD(readByKey, benchmark::kMicrosecond);
ZEL_BENCH_HOT_AND_COLD(readSnapshot, benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
