// The cost of the completion of MAC reads, from the lock to the stored snapshot, for 456 ports a chip and 1 to 8 chips,
// against a plain memcpy of the same bytes; its allocations; the cost of the activity lock; and that of a
// trace line that is off.
#include "bench/InTurns.h"
#include "counters/ZelCounters.h"
#include "counters/chip/ZelCountersTrace.h"
#include "kiln/ActivityLock.h"
#include "kiln/Time.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using Bench::cpuSeconds;

constexpr unsigned portsPerChip = ZelId::PortIndex::invalid;

Kiln::Ptr<ZelSystem::SystemStatus> systemStatusWithPorts(unsigned chips) {
   auto status = Kiln::allocate<ZelSystem::SystemStatus>();
   for (unsigned chip = 0; chip < chips; ++chip) {
      for (unsigned port = 0; port < portsPerChip; ++port) {
         const Kiln::String name = "Ethernet" + std::to_string(chip * portsPerChip + port + 1);
         status->portInfoIs(Pelt::IntfId(name.c_str()),
                            {static_cast<ZelId::ZelDevId>(chip), static_cast<U16>(port)});
      }
   }
   return status;
}

struct Chips {
   explicit Chips(unsigned count) : status(systemStatusWithPorts(count)) {
      for (unsigned chip = 0; chip < count; ++chip) {
         ZelCounter::ZelCounters::Context context{};
         context.devId = static_cast<ZelId::ZelDevId>(chip);
         context.chipName = "Zel" + std::to_string(chip);
         context.systemStatus = status;
         chips.push_back(ZelCounter::zelCountersFactory(std::move(context)));
      }
   }

   ~Chips() {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      chips.clear();
   }

   void completeAll(std::vector<U64>& source) const {
      for (unsigned chip = 0; chip < chips.size(); ++chip) {
         for (unsigned port = 0; port < portsPerChip; ++port) {
            auto* counters = reinterpret_cast<bf_rmon_counter_array_t*>(
                 source.data() + (chip * portsPerChip + port) * std::size_t{BF_NUM_RMON_COUNTERS});
            ZelCounter::ZelCountersCallback(static_cast<bf_dev_id_t>(chip), static_cast<bf_dev_port_t>(port),
                                            counters, chips[chip].ptr());
         }
      }
   }

   Kiln::Ptr<ZelSystem::SystemStatus> status;
   std::vector<Kiln::Ptr<ZelCounter::ZelCounters>> chips;
};

void completionPath(benchmark::State& state, Bench::Caches caches) {
   const auto chipCount = static_cast<unsigned>(state.range(0));
   std::vector<U64> source(std::size_t{chipCount} * portsPerChip * BF_NUM_RMON_COUNTERS, 1);
   std::vector<U64> copy(source.size());
   const Chips chips(chipCount);
   chips.completeAll(source);
   const auto floor = [&] {
      source[0] += 1;
      std::memcpy(copy.data(), source.data(), source.size() * sizeof(U64));
      benchmark::DoNotOptimize(copy.data());
      benchmark::ClobberMemory();
   };
   Bench::InTurns(caches).run(state, floor, [&] { chips.completeAll(source); });
}
ZEL_BENCH_HOT_AND_COLD(completionPath, benchmark::kMicrosecond, ->Arg(1)->Arg(2)->Arg(4)->Arg(8));

// The memory that a port takes: both snapshots and their places in the maps.
void memoryPerPort(benchmark::State& state) {
   std::vector<U64> source(std::size_t{portsPerChip} * BF_NUM_RMON_COUNTERS, 1);
   for (auto _ : state) {
      const Chips chips(1);
      const Bench::Allocations before = Bench::allocations();
      chips.completeAll(source);
      state.counters["bytes_per_port"] =
           static_cast<double>(Bench::allocations().bytes - before.bytes) / portsPerChip;
   }
}
BENCHMARK(memoryPerPort)->Iterations(3);

// An outermost hold, with its statistics, against a bare recursive mutex, and the two clock readings that they need. A
// second thread waits meanwhile, as one does in every agent: the C library's mutex is cheaper without.
void activityLock(benchmark::State& state) {
   std::promise<void> isOver;
   std::jthread other([over = isOver.get_future()] { over.wait(); });
   constexpr unsigned holds = 1000;
   // The CPU seconds of so many calls.
   const auto timeOf = [](auto call) {
      const double begin = cpuSeconds();
      for (unsigned i = 0; i < holds; ++i) {
         call();
         benchmark::ClobberMemory();
      }
      return cpuSeconds() - begin;
   };
   std::recursive_mutex mutex;
   double mutexSeconds = 0.0;
   double clockSeconds = 0.0;
   double lockSeconds = 0.0;
   for (auto _ : state) {
      mutexSeconds += timeOf([&] { const std::lock_guard hold(mutex); });
      clockSeconds += timeOf([] {
         benchmark::DoNotOptimize(Kiln::System::monotonicTime());
         benchmark::DoNotOptimize(Kiln::System::monotonicTime());
      });
      const double seconds = timeOf([] { const auto hold = Kiln::ActivityLockAnchor::lock(); });
      lockSeconds += seconds;
      state.SetIterationTime(seconds);
   }
   isOver.set_value();
   const double calls = static_cast<double>(state.iterations()) * holds;
   state.counters["ns_per_hold"] = 1e9 * lockSeconds / calls;
   state.counters["ns_of_mutex"] = 1e9 * mutexSeconds / calls;
   state.counters["ns_of_two_clock_readings"] = 1e9 * clockSeconds / calls;
   state.counters["x_mutex"] = lockSeconds / mutexSeconds;
   state.counters["x_mutex_and_readings"] = lockSeconds / (mutexSeconds + clockSeconds);
}
BENCHMARK(activityLock)->UseManualTime();

struct Formatted {
   friend std::ostream& operator<<(std::ostream& out, const Formatted&) {
      std::abort(); // a line that is off must not get here
      return out;
   }
};

void traceOff(benchmark::State& state) {
   using ZelCounter::traceHandle;
   for (auto _ : state) {
      KILN_TRACE(9, Formatted());
      benchmark::ClobberMemory();
   }
}
BENCHMARK(traceOff);

void traceFloor(benchmark::State& state) {
   for (auto _ : state) {
      benchmark::ClobberMemory();
   }
}
BENCHMARK(traceFloor);

} // namespace

BENCHMARK_MAIN();
