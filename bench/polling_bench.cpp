// The cost of a polling pass, from request to stored snapshot, against a plain memcpy of the same bytes, and against the
// software chips' part of it. Every port of 1 to 8 chips is requested from the SDK, and completes inline.
#include "bench/InTurns.h"
#include "counters/ZelCounters.h"
#include "counters/ZelCountersMgr.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "sdk/bf_port.h"
#include "softchip/SoftChip.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <vector>

namespace {

using Bench::Caches;

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

void pollingPass(benchmark::State& state, Caches caches) {
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
   const auto floor = [&] {
      source[0] += 1;
      std::memcpy(copy.data(), source.data(), source.size() * sizeof(U64));
      benchmark::DoNotOptimize(copy.data());
      benchmark::ClobberMemory();
   };
   Bench::InTurns(caches).run(state, floor, [&] { chips.poll(); });
}
ZEL_BENCH_HOT_AND_COLD(pollingPass, benchmark::kMicrosecond, ->Arg(1)->Arg(2)->Arg(4)->Arg(8));

// The same with the chips' own part as the floor: every port is read, and nobody takes it.
void pollingPassOverSdk(benchmark::State& state, Caches caches) {
   const auto chipCount = static_cast<bf_dev_id_t>(state.range(0));
   const Switch chips(static_cast<unsigned>(chipCount));
   chips.poll();
   std::size_t reads = 0;
   const auto count = [](bf_dev_id_t, bf_dev_port_t, bf_rmon_counter_array_t*, void* cookie) {
      ++*static_cast<std::size_t*>(cookie);
   };
   const auto floor = [&] {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      for (bf_dev_id_t chip = 0; chip < chipCount; ++chip) {
         for (unsigned port = 0; port < portsPerChip; ++port) {
            bf_port_mac_stats_hw_async_get(chip, ZlPort::devicePort(port / portsPerPipe, port % portsPerPipe),
                                           count, &reads);
         }
      }
   };
   floor();
   if (reads != std::size_t(state.range(0)) * portsPerChip) {
      state.SkipWithError("the chips did not answer for every port");
      return;
   }
   Bench::InTurns(caches).run(state, floor, [&] { chips.poll(); });
}
ZEL_BENCH_HOT_AND_COLD(pollingPassOverSdk, benchmark::kMicrosecond, ->Arg(1)->Arg(2)->Arg(4)->Arg(8));

} // namespace

BENCHMARK_MAIN();
