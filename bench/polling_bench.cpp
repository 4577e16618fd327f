// The cost of a polling pass, from request to stored snapshot, against a plain memcpy of the same bytes in the same
// loop, and its allocations. Every port of 1 to 8 chips is requested from the SDK, and completes inline.
#include "bench/AllocationCount.h"
#include "bench/CpuTime.h"
#include "counters/ZelCounters.h"
#include "counters/ZelCountersMgr.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "softchip/SoftChip.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <vector>

namespace {

using Bench::cpuSeconds;

constexpr unsigned pipes = 4;
using ZlPort::portsPerPipe;
constexpr unsigned portsPerChip = pipes * portsPerPipe;

// A manager over soft chips with all possible ports; nothing is published.
class Switch {
 public:
   explicit Switch(unsigned chips) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      Kiln::System::timeSourceIs(Kiln::allocate<Kiln::SimulatedTime>());
      Kiln::ActivityManager::instanceDel();
      fleet_ = std::make_unique<SoftChip::Fleet>();
      fleet_->completions().modeIs({SoftChip::CompletionMode::Kind::inlined});
      mgr_ = ZelCounter::zelCountersMgrFactory(
           status_, Kiln::allocate<ZelCounter::CountersMounts>(), Kiln::allocate<Vex::VexCommonSmData>(),
           Kiln::allocate<Agent::AgentCommandRequestDirSm>(), nullptr, nullptr, nullptr);
      for (unsigned chip = 0; chip < chips; ++chip) {
         chipAdd(static_cast<ZelId::ZelDevId>(chip));
      }
   }
   Switch(const Switch&) = delete;
   Switch& operator=(const Switch&) = delete;
   ~Switch() {
      {
         const auto lock = Kiln::ActivityLockAnchor::lock();
         mgr_ = nullptr;
      }
      fleet_ = nullptr;
      Kiln::ActivityManager::instanceDel();
   }

   void poll() const {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      mgr_->requestHwCountersPolling();
   }

   // A sum over the snapshots, to check that a pass really stores something.
   U64 storedSum(std::size_t index) const {
      U64 sum = 0;
      for (const auto& [devId, chip] : mgr_->zelCounters()) {
         for (const auto& [intf, counters] : chip->macCountersLast()) {
            sum += counters->counters(index);
         }
      }
      return sum;
   }

 private:
   void chipAdd(ZelId::ZelDevId devId) {
      const Kiln::String name = "Zel" + std::to_string(devId);
      SoftChip::Chip& chip = fleet_->chipAdd({.name = name, .deviceId = devId, .pipes = pipes});
      for (unsigned port = 0; port < portsPerChip; ++port) {
         const auto devicePort = ZlPort::devicePort(port / portsPerPipe, port % portsPerPipe);
         const Kiln::String intf = "Ethernet" + std::to_string(devId * portsPerChip + port + 1);
         chip.portAdd(devicePort);
         for (unsigned i = 0; i < BF_NUM_RMON_COUNTERS; ++i) {
            chip.rmonIs(devicePort, i, 1);
         }
         status_->portInfoIs(Pelt::IntfId(intf.c_str()), {devId, devicePort});
      }
      mgr_->addChip(devId, name, {"soft chip"}, 0, nullptr, nullptr, nullptr);
   }

   Kiln::Ptr<ZelSystem::SystemStatus> status_ = Kiln::allocate<ZelSystem::SystemStatus>();
   std::unique_ptr<SoftChip::Fleet> fleet_;
   Kiln::Ptr<ZelCounter::ZelCountersMgr> mgr_;
};

// The floor and the pass take turns, so that both see the same machine.
void pollingPass(benchmark::State& state) {
   const auto chipCount = static_cast<unsigned>(state.range(0));
   const std::size_t ports = std::size_t{chipCount} * portsPerChip;
   std::vector<U64> source(ports * BF_NUM_RMON_COUNTERS, 1);
   std::vector<U64> copy(source.size());
   const Switch chips(chipCount);
   chips.poll();
   if (chips.storedSum(BF_NUM_RMON_COUNTERS - 1) != ports) {
      state.SkipWithError("the pass did not store every port");
      return;
   }

   double floorSeconds = 0.0;
   double passSeconds = 0.0;
   const Bench::Allocations before = Bench::allocations();
   for (auto _ : state) {
      source[0] += 1;
      const double begin = cpuSeconds();
      std::memcpy(copy.data(), source.data(), source.size() * sizeof(U64));
      benchmark::DoNotOptimize(copy.data());
      benchmark::ClobberMemory();
      const double middle = cpuSeconds();
      chips.poll();
      const double end = cpuSeconds();
      floorSeconds += middle - begin;
      passSeconds += end - middle;
      state.SetIterationTime(end - middle);
   }
   const Bench::Allocations after = Bench::allocations();
   const double rounds = static_cast<double>(state.iterations());
   state.counters["x_memcpy"] = passSeconds / floorSeconds;
   state.counters["ns_per_port"] = 1e9 * passSeconds / rounds / static_cast<double>(ports);
   state.counters["allocations_per_pass"] = static_cast<double>(after.count - before.count) / rounds;
}
BENCHMARK(pollingPass)->Arg(1)->Arg(2)->Arg(4)->Arg(8)->UseManualTime();

} // namespace

BENCHMARK_MAIN();
