// The memory that a chip, a port and a VLAN take: on the heap, as the allocator counts it before and after, and in the
// shared tables. The software chip's own is allocated before, and so left out.
#include "counters/ZelCounters.h"
#include "counters/ZelCountersMgr.h"
#include "counters/l3/ZelCountersL3Intf.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "softchip/SoftChip.h"
#include "vex/VexL3Intf.h"
#include "zl/ZelSdk.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <filesystem>
#include <malloc.h>
#include <unistd.h>

namespace {

constexpr unsigned pipes = 4;
constexpr unsigned portsPerPipe = ZlPort::frontPanelPortsPerPipe;
constexpr unsigned ports = pipes * portsPerPipe;
constexpr unsigned vlans = 1000;

double heapBytes() {
   const struct mallinfo2 info = mallinfo2();
   return static_cast<double>(info.uordblks + info.hblkhd);
}

// A chip with all its ports in the hardware, of which the agent knows nothing yet.
struct Switch {
   explicit Switch(bool withProgram) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      Kiln::System::timeSourceIs(Kiln::allocate<Kiln::SimulatedTime>());
      fleet = std::make_unique<SoftChip::Fleet>();
      SoftChip::Chip& soft = fleet->chipAdd({"Zel0", 0, pipes, program});
      for (unsigned port = 0; port < ports; ++port) {
         soft.portAdd(devicePort(port));
      }
      std::filesystem::create_directories(folder);
      const Vex::SharedTables tables = Vex::openSharedTables(Silo::Store::directory(folder));
      auto mounts = Kiln::allocate<ZelCounter::CountersMounts>();
      mounts->ethPhyIntfStatusDirIs(directory);
      mounts->allIntfCountersIs(tables.allIntfCounters);
      mounts->allIntfQueueCountersIs(tables.allIntfQueueCounters);
      mounts->intfAllNatCounterDirIs(tables.intfAllNatCounterDir);
      mounts->writerConfigIs(Kiln::allocate<Vex::Counters::WriterConfig>());
      status->chipCapabilitiesIs("full", {.vlanCounters = true, .vxlan = true, .vrfNat = true});
      status->hasNotificationActiveIs(true);
      directory->hasNotificationActiveIs(true);
      chipStatus->highestLogicalPipeIdIs(pipes - 1);
      chipStatus->hasNotificationActiveIs(true);
      mgr = ZelCounter::zelCountersMgrFactory(status, mounts, Kiln::allocate<Vex::VexCommonSmData>(),
                                              Kiln::allocate<Agent::AgentCommandRequestDirSm>(),
                                              Kiln::allocate<ZelQos::TmCountersData>(),
                                              Kiln::allocate<ZelQos::TmCountersData>(), nullptr);
      const double before = heapBytes();
      mgr->addChip(0, "Zel0", {withProgram ? "full" : "plain"}, ZelSdk::getZelSessionHdl(),
                   withProgram ? Kiln::allocate<SoftChip::SoftPd>() : nullptr,
                   withProgram ? program : nullptr, chipStatus);
      chipBytes = heapBytes() - before;
   }
   Switch(const Switch&) = delete;
   Switch& operator=(const Switch&) = delete;
   ~Switch() {
      {
         const auto lock = Kiln::ActivityLockAnchor::lock();
         mgr = nullptr;
      }
      fleet = nullptr; // delivers what is outstanding, which takes the lock
      Kiln::ActivityManager::instanceDel();
      std::filesystem::remove_all(folder);
   }

   static U16 devicePort(unsigned port) {
      return ZlPort::devicePort(port / portsPerPipe, port % portsPerPipe);
   }

   // The agent learns of all ports, and has them polled and shown.
   void addPorts() {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      for (unsigned port = 0; port < ports; ++port) {
         const Pelt::IntfId intf(("Ethernet" + std::to_string(port + 1)).c_str());
         status->portInfoIs(intf, {0, devicePort(port)});
         chipStatus->portToIntfIdIs(devicePort(port), intf);
         directory->intfStatusIs(intf, true);
      }
      Kiln::ActivityManager::instance()->advance(10.0);
      const int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
      ZelCounter::ZelCounters& chip = *mgr->zelCounters(0);
      if (chip.zlResourceInfoIntf()) {
         chip.fetchPdpCounters();
         chip.showCounters(static_cast<U32>(fd), false);
      }
      close(fd);
   }

   void vlansAre(unsigned count) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      const auto& table = mgr->vexL3IntfData()->vexL3IntfTable();
      for (unsigned vlan = 1; vlan <= vlans; ++vlan) {
         const Pelt::IntfId intf(("Vlan" + std::to_string(vlan)).c_str());
         if (vlan <= count) {
            table->intfIdToL3IdIs(intf, vlan);
         } else {
            table->intfIdToL3IdDel(intf);
         }
      }
      Kiln::ActivityManager::instance()->advance(10.0);
   }

   std::string folder = "/dev/shm/memory_bench." + std::to_string(getpid());
   Kiln::Ptr<SoftChip::P4Program> program = SoftChip::P4Program::standard();
   std::unique_ptr<SoftChip::Fleet> fleet;
   Kiln::Ptr<ZelSystem::SystemStatus> status = Kiln::allocate<ZelSystem::SystemStatus>();
   Kiln::Ptr<Interface::EthPhyIntfStatusDir> directory = Kiln::allocate<Interface::EthPhyIntfStatusDir>();
   Kiln::Ptr<ZelSlice::ChipStatus> chipStatus = Kiln::allocate<ZelSlice::ChipStatus>();
   Kiln::Ptr<ZelCounter::ZelCountersMgr> mgr;
   double chipBytes = 0;
};

// With a program: also queues, PDP classes and drops, each shown once.
void portAndChip(benchmark::State& state) {
   for (auto _ : state) {
      Switch sw(state.range(0) != 0);
      const double before = heapBytes();
      sw.addPorts();
      state.counters["bytes_per_port"] = (heapBytes() - before) / ports;
      state.counters["bytes_per_chip"] = sw.chipBytes;
   }
}
BENCHMARK(portAndChip)->ArgName("program")->Arg(0)->Arg(1)->Iterations(1);

// The second time, when the chip's match tables have grown already.
void vlan(benchmark::State& state) {
   for (auto _ : state) {
      Switch sw(true);
      sw.vlansAre(vlans);
      sw.vlansAre(0);
      const double before = heapBytes();
      sw.vlansAre(vlans);
      state.counters["bytes_per_vlan"] = (heapBytes() - before) / vlans;
   }
}
BENCHMARK(vlan)->Iterations(1);

// What a record takes in its table's file, key, header and both copies included.
void sharedRecord(benchmark::State& state) {
   for (auto _ : state) {
      const Switch sw(true);
      for (const auto& entry : std::filesystem::directory_iterator(sw.folder)) {
         const std::string name = entry.path().filename();
         state.counters[name] = static_cast<double>(entry.file_size());
      }
   }
}
BENCHMARK(sharedRecord)->Iterations(1);

} // namespace

BENCHMARK_MAIN();
