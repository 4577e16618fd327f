// The cost of a frame in the soft chip, and of a second of its traffic.
#include "bench/AllocationCount.h"
#include "kiln/ActivityManager.h"
#include "kiln/Time.h"
#include "softchip/SoftChip.h"
#include "softchip/TrafficGenerator.h"

#include <benchmark/benchmark.h>

namespace {

using namespace SoftChip;

// The frames of one second of synthetic traffic on 32 ports of two pipes.
struct Load {
   Load() {
      for (U16 port = 0; port < 32; ++port) {
         chip.portAdd(ZlPort::devicePort(port % 2, port / 2));
      }
      const std::vector<U16> ports = chip.ports();
      TrafficGenerator generator(1, ports.size());
      for (std::size_t i = 0; i < ports.size(); ++i) {
         for (TrafficBatch batch; generator.next(i, std::chrono::seconds(1), batch);) {
            batches.emplace_back(ports[i], batch);
         }
      }
   }

   Fleet fleet;
   Chip& chip = fleet.chipAdd({.name = "Zel0"});
   std::vector<std::pair<U16, TrafficBatch>> batches;
};

void receive(benchmark::State& state) {
   Load load;
   for (const auto& [port, batch] : load.batches) { // learns every station
      load.chip.receive(port, batch.frame, batch.repeat);
   }
   std::size_t i = 0;
   const U64 before = Bench::allocations().count;
   for (auto _ : state) {
      const auto& [port, batch] = load.batches[i++ % load.batches.size()];
      load.chip.receive(port, batch.frame, batch.repeat);
   }
   state.counters["allocations"] = static_cast<double>(Bench::allocations().count - before);
}
BENCHMARK(receive);

} // namespace

BENCHMARK_MAIN();
