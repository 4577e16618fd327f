// The cost of one completion of a pipe's queue counters, of one fetch of the PDP counters, and of what is published after
// a sync pass, each as a multiple of its floor: the same SDK reads, and nothing else. A completion includes the
// publishing.
#include "bench/InTurns.h"
#include "counters/ZelCounters.h"
#include "counters/ZelCountersMgr.h"
#include "counters/publish/ChipPublishingSm.h"
#include "counters/queues/PipeIntfQueueCounterSm.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "sdk/bf_tm.h"
#include "softchip/SoftChip.h"
#include "vex/SharedTables.h"
#include "zl/ZelSdk.h"

#include <benchmark/benchmark.h>

namespace {

using Bench::Caches;
constexpr unsigned pipes = 4;
constexpr unsigned portsPerPipe = ZlPort::frontPanelPortsPerPipe;
constexpr unsigned queuesPerPort = 8;

struct Switch {
   Switch() {
      Kiln::System::timeSourceIs(time);
      SoftChip::Chip& soft = fleet.chipAdd({"Zel0", 0, pipes, program});
      auto chipStatus = Kiln::allocate<ZelSlice::ChipStatus>();
      chipStatus->highestLogicalPipeIdIs(pipes - 1);
      auto systemStatus = Kiln::allocate<ZelSystem::SystemStatus>();
      systemStatus->hasNotificationActiveIs(true);
      for (unsigned port = 0; port < pipes * portsPerPipe; ++port) {
         const U16 devicePort = ZlPort::devicePort(port / portsPerPipe, port % portsPerPipe);
         const Pelt::IntfId intf(("Ethernet" + std::to_string(port + 1)).c_str());
         soft.portAdd(devicePort);
         systemStatus->portInfoIs(intf, {0, devicePort});
         chipStatus->portToIntfIdIs(devicePort, intf);
      }
      auto mounts = Kiln::allocate<ZelCounter::CountersMounts>();
      const Vex::SharedTables tables = Vex::openSharedTables(store);
      mounts->allIntfQueueCountersIs(tables.allIntfQueueCounters);
      mounts->allIntfClearQueueCountersIs(tables.allIntfClearQueueCounters);
      mounts->chipTablesIs(tables.chipTables);
      mounts->writerConfigIs(Kiln::allocate<Vex::Counters::WriterConfig>());
      mgr = ZelCounter::zelCountersMgrFactory(systemStatus, mounts, Kiln::allocate<Vex::VexCommonSmData>(),
                                              Kiln::allocate<Agent::AgentCommandRequestDirSm>(), nullptr,
                                              nullptr, nullptr);
      mgr->addChip(0, "Zel0", {"soft"}, ZelSdk::getZelSessionHdl(), nullptr, program, chipStatus);
      chip = mgr->zelCounters(0);
      Kiln::ActivityManager::instance()->advance(3.0); // the first sync pass has landed
   }
   Switch(const Switch&) = delete;
   Switch& operator=(const Switch&) = delete;
   ~Switch() {
      chip = nullptr;
      mgr = nullptr;
   }

   U32 handleOf(const char* table) const {
      return program->zlTableCounterField(table, ZlResourceInfo::ZlCounterFieldId::tableHandle);
   }

   decltype(Kiln::ActivityLockAnchor::lock()) lock = Kiln::ActivityLockAnchor::lock();
   Kiln::Ptr<Kiln::SimulatedTime> time = Kiln::allocate<Kiln::SimulatedTime>();
   SoftChip::Fleet fleet;
   Kiln::Ptr<SoftChip::P4Program> program = SoftChip::P4Program::standard();
   Silo::Store store = Silo::Store::temporary();
   Kiln::Ptr<ZelCounter::ZelCountersMgr> mgr;
   Kiln::Ptr<ZelCounter::ZelCounters> chip;
};

void queueCompletion(benchmark::State& state, Caches caches) {
   Switch one;
   auto& completions = one.fleet.completions();
   const auto poller = one.chip->pipeIntfQueueCounterSm(0);
   completions.modeIs({SoftChip::CompletionMode::Kind::held});
   poller->pollingClockExpired();
   void* const cookie = completions.held().at(0).cookie;
   completions.deliverAllHeld();
   completions.modeIs({SoftChip::CompletionMode::Kind::lost}); // this calls back itself
   const U32 handle = one.handleOf("egressPortQueueCount");
   const auto floor = [&] {
      pipe_stat_data_t sent{};
      U64 dropped = 0;
      for (unsigned port = 0; port < portsPerPipe; ++port) {
         for (unsigned queue = 0; queue < queuesPerPort; ++queue) {
            pipe_mgr_stat_ent_query(sess_hdl, 0, 0, handle, ZlPort::queueEntry(port, queue), &sent);
            benchmark::DoNotOptimize(sent);
         }
         for (unsigned queue = 0; queue < queuesPerPort; ++queue) {
            bf_tm_q_drop_get(0, 0, static_cast<bf_dev_port_t>(port), queue, &dropped);
            benchmark::DoNotOptimize(dropped);
         }
      }
   };
   const auto askAgain = [&] {
      one.time->charge(2.0);
      poller->pollingClockExpired();
   };
   Bench::InTurns(caches).run(state, askAgain, floor,
                              [&] { ZelCounter::ZelIntfQueueCountersCallback(0, cookie); });
   if (poller->pollingTimeMin() == Kiln::never) {
      state.SkipWithError("a completion was not taken");
   }
}
ZEL_BENCH_HOT_AND_COLD(queueCompletion, benchmark::kMicrosecond);

void pdpFetch(benchmark::State& state, Caches caches) {
   Switch one;
   one.chip->fetchPdpCounters();
   const U32 handle = one.handleOf("pdpClassCount");
   const auto floor = [&] {
      for (U16 pipe = 0; pipe < pipes; ++pipe) {
         ZelCountersIntf::ReadBuffer buffer;
         p4_pd_counter_value value{};
         ZelCountersIntf::counterReadIndirectStart(sess_hdl, 0, pipe, handle, &buffer);
         for (U32 index = 0; index < ZlPort::pdpTableSize; ++index) {
            ZelCountersIntf::counterReadIndirectMain(sess_hdl, 0, pipe, handle, index, &buffer, &value);
            benchmark::DoNotOptimize(value);
         }
         ZelCountersIntf::counterReadIndirectEnd(sess_hdl);
      }
   };
   Bench::InTurns(caches).run(state, floor, [&] { one.chip->fetchPdpCounters(); });
   if (!one.chip->pdpCountersFetched()) {
      state.SkipWithError("the fetch failed");
   }
}
ZEL_BENCH_HOT_AND_COLD(pdpFetch, benchmark::kMicrosecond);

// All of a chip's slices: drops, classes, stages and the rest of 256 ports; and health, with where these ports are.
void publishedPass(benchmark::State& state, Caches caches) {
   Switch one;
   const auto readTable = [&](const char* table, U16 pipe, U32 stride, U32 entries) {
      const U32 handle = one.handleOf(table);
      ZelCountersIntf::ReadBuffer buffer;
      p4_pd_counter_value value{};
      ZelCountersIntf::counterReadIndirectStart(sess_hdl, 0, pipe, handle, &buffer);
      for (U32 port = 0; port < portsPerPipe; ++port) {
         for (U32 entry = 0; entry < entries; ++entry) {
            ZelCountersIntf::counterReadIndirectMain(sess_hdl, 0, pipe, handle, port * stride + entry,
                                                     &buffer, &value);
            benchmark::DoNotOptimize(value);
         }
      }
      ZelCountersIntf::counterReadIndirectEnd(sess_hdl);
   };
   const auto floor = [&] {
      for (U16 pipe = 0; pipe < pipes; ++pipe) {
         for (const ZlDrop::Table& table : ZlDrop::tables) {
            readTable(table.name, pipe, ZlDrop::reasonsPerPort, ZlDrop::reasonsPerPort);
         }
         readTable("pdpClassCount", pipe, ZlPort::pdpClassesPerSlot, ZlPort::pdpClassesPerSlot);
      }
   };
   Bench::InTurns(caches).run(state, floor, [&] {
      one.chip->chipPublishingSm()->readOnceMore();
      one.mgr->publishHealth();
   });
}
ZEL_BENCH_HOT_AND_COLD(publishedPass, benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
