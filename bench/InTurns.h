// A path and its floor, measured in turns, so that both see the same machine.
#pragma once

#include "bench/AllocationCount.h"
#include "bench/ColdMemory.h"
#include "bench/CpuTime.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <optional>
#include <type_traits>
#include <vector>

namespace Bench {

// The times of one thing's rounds. Tells their median, since an interrupted round says nothing.
class Times {
 public:
   void add(double seconds) { seconds_.push_back(seconds); }
   std::size_t count() const { return seconds_.size(); }
   double last() const { return seconds_.back(); }
   double longest() const { return *std::max_element(seconds_.begin(), seconds_.end()); }
   double median() {
      const auto middle = seconds_.begin() + static_cast<std::ptrdiff_t>(seconds_.size() / 2);
      std::nth_element(seconds_.begin(), middle, seconds_.end());
      return *middle;
   }

 private:
   std::vector<double> seconds_;
};

// The CPU seconds of one call; or what the call itself gives as its seconds.
template <class Call>
double timeOf(Call call) {
   if constexpr (std::is_same_v<std::invoke_result_t<Call&>, double>) {
      return call();
   } else {
      const double begin = cpuSeconds();
      call();
      return cpuSeconds() - begin;
   }
}

enum class Caches { hot, cold };
constexpr int coldRounds = 40; // enough for a median: a walk takes long

// Reports the path's median as a multiple of the floor's, "x_floor", and what the path allocates. With cold caches,
// other memory is walked before either.
class InTurns {
 public:
   explicit InTurns(Caches caches) {
      if (caches == Caches::cold) {
         others_.emplace();
      }
   }

   // prepare() is not timed.
   template <class Prepare, class Floor, class Path>
   void run(benchmark::State& state, Prepare prepare, Floor floor, Path path) {
      U64 allocated = 0;
      for (auto _ : state) {
         prepare();
         forget();
         floorTimes.add(timeOf(floor));
         forget();
         const U64 before = allocations().count;
         const double seconds = timeOf(path);
         allocated += allocations().count - before;
         pathTimes.add(seconds);
         state.SetIterationTime(seconds);
      }
      state.counters["x_floor"] = pathTimes.median() / floorTimes.median();
      state.counters["allocations"] =
           static_cast<double>(allocated) / static_cast<double>(state.iterations());
   }
   template <class Floor, class Path>
   void run(benchmark::State& state, Floor floor, Path path) {
      run(
           state, [] {}, floor, path);
   }

   Times floorTimes;
   Times pathTimes;

 private:
   void forget() {
      if (others_) {
         others_->walk();
      }
   }

   std::optional<ColdMemory> others_;
};

// Registers NAME(state, Caches) twice: as NAME, and as NAMECold for a machine that did something else meanwhile. What
// follows the unit goes for both: ->Arg(1)->Arg(8).
#define ZEL_BENCH_HOT_AND_COLD(NAME, UNIT, ...)                                                              \
   void NAME##Cold(benchmark::State& state) {                                                                \
      NAME(state, Bench::Caches::cold);                                                                      \
   }                                                                                                         \
   BENCHMARK_CAPTURE(NAME, hot, Bench::Caches::hot)->Name(#NAME)->UseManualTime()->Unit(UNIT) __VA_ARGS__;   \
   BENCHMARK(NAME##Cold)->Iterations(Bench::coldRounds)->UseManualTime()->Unit(UNIT) __VA_ARGS__

} // namespace Bench
