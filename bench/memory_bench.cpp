// The memory that a chip, a port, a queue, a VLAN and an entry of a table take, and how it grows: on the heap, as the
// allocator counts it before and after, and in the shared tables. The software chip's own is allocated before, and so
// left out.
#include "counters/ZelCounters.h"
#include "counters/ZelCountersMgr.h"
#include "counters/l3/ZelCountersL3Intf.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "silo/TableReader.h"
#include "softchip/SoftChip.h"
#include "vex/VexL3Intf.h"
#include "zl/ZelCountersIntf.h"
#include "zl/ZelSdk.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <malloc.h>
#include <unistd.h>

namespace {

constexpr unsigned pipes = 4;
constexpr unsigned portsPerPipe = ZlPort::frontPanelPortsPerPipe;
constexpr unsigned allPorts = pipes * portsPerPipe; // of a chip
constexpr unsigned queuesPerPort = 8;
constexpr unsigned vlans = 1000;
constexpr const char* largestTable = "flowHashCount";
constexpr double largestTableSize = 65536;

double heapBytes() {
   const struct mallinfo2 info = mallinfo2();
   return static_cast<double>(info.uordblks + info.hblkhd);
}

// Chips with their ports in the hardware, of which the agent knows nothing yet.
struct Switch {
   explicit Switch(bool withProgram, unsigned chipCount = 1, unsigned portCount = allPorts)
        : chips(chipCount), ports(portCount) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      Kiln::System::timeSourceIs(Kiln::allocate<Kiln::SimulatedTime>());
      fleet = std::make_unique<SoftChip::Fleet>();
      for (unsigned chip = 0; chip < chips; ++chip) {
         SoftChip::Chip& soft = fleet->chipAdd({nameOf(chip), static_cast<U8>(chip), pipes, program});
         for (unsigned port = 0; port < ports; ++port) {
            soft.portAdd(devicePort(port));
         }
      }
      if (withProgram) {
         readLargestTable();
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
      mgr = ZelCounter::zelCountersMgrFactory(status, mounts, Kiln::allocate<Vex::VexCommonSmData>(),
                                              Kiln::allocate<Agent::AgentCommandRequestDirSm>(),
                                              Kiln::allocate<ZelQos::TmCountersData>(),
                                              Kiln::allocate<ZelQos::TmCountersData>(), nullptr);
      const double before = heapBytes();
      for (unsigned chip = 0; chip < chips; ++chip) {
         statusOfChip.push_back(Kiln::allocate<ZelSlice::ChipStatus>());
         statusOfChip.back()->highestLogicalPipeIdIs(pipes - 1);
         statusOfChip.back()->hasNotificationActiveIs(true);
         mgr->addChip(static_cast<U8>(chip), nameOf(chip), {withProgram ? "full" : "plain"},
                      ZelSdk::getZelSessionHdl(), withProgram ? Kiln::allocate<SoftChip::SoftPd>() : nullptr,
                      withProgram ? program : nullptr, statusOfChip.back());
      }
      bytesPerChip = (heapBytes() - before) / chips;
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

   // So that the software chips have their room for the values of a read.
   void readLargestTable() const {
      const U32 table =
           program->zlTableCounterField(largestTable, ZlResourceInfo::ZlCounterFieldId::tableHandle);
      const U32 session = ZelSdk::getZelSessionHdl();
      ZelCountersIntf::ReadBuffer buffer;
      ZelCountersIntf::counterReadIndirectStart(session, 0, 0, table, &buffer);
      ZelCountersIntf::counterReadIndirectEnd(session);
   }

   static Kiln::String nameOf(unsigned chip) { return "Zel" + std::to_string(chip); }
   static U16 devicePort(unsigned port) {
      return ZlPort::devicePort(port / portsPerPipe, port % portsPerPipe);
   }

   // The agent learns of all ports, and has them polled.
   void addPorts() {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      for (unsigned chip = 0; chip < chips; ++chip) {
         for (unsigned port = 0; port < ports; ++port) {
            const Pelt::IntfId intf(("Ethernet" + std::to_string(chip * ports + port + 1)).c_str());
            status->portInfoIs(intf, {static_cast<U8>(chip), devicePort(port)});
            statusOfChip[chip]->portToIntfIdIs(devicePort(port), intf);
            directory->intfStatusIs(intf, true);
         }
      }
      Kiln::ActivityManager::instance()->advance(10.0);
   }
   // All that a program counts, PDP classes and drops among it.
   void showAll() {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      const int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
      for (unsigned chip = 0; chip < chips; ++chip) {
         mgr->zelCounters(static_cast<U8>(chip))->fetchPdpCounters();
         mgr->zelCounters(static_cast<U8>(chip))->showCounters(static_cast<U32>(fd), false);
      }
      close(fd);
   }

   void vlansAre(unsigned count) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      const auto& table = mgr->vexL3IntfData()->vexL3IntfTable();
      for (unsigned vlan = 1; vlan <= Bridging::VlanId::max; ++vlan) {
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
   std::vector<Kiln::Ptr<ZelSlice::ChipStatus>> statusOfChip;
   Kiln::Ptr<ZelCounter::ZelCountersMgr> mgr;
   const unsigned chips;
   const unsigned ports; // of each chip
   double bytesPerChip = 0;
};

double bytesOf(const std::function<void()>& change) {
   const double before = heapBytes();
   change();
   return heapBytes() - before;
}

// Without a program a port has neither queues nor table entries.
void units(benchmark::State& state) {
   for (auto _ : state) {
      double bytesPerPort = 0;
      {
         Switch plain(false);
         bytesPerPort = bytesOf([&] { plain.addPorts(); }) / allPorts;
         state.counters["chip_without_program"] = plain.bytesPerChip;
      }
      Switch sw(true);
      state.counters["chip"] = sw.bytesPerChip;
      state.counters["port"] = bytesPerPort;
      const double withQueues = bytesOf([&] { sw.addPorts(); }) / allPorts;
      state.counters["queue"] = (withQueues - bytesPerPort) / queuesPerPort;
      state.counters["port_shown"] = bytesOf([&] { sw.showAll(); }) / allPorts;
      sw.vlansAre(vlans);
      sw.vlansAre(0); // the chip's match tables have grown now
      state.counters["vlan"] = bytesOf([&] { sw.vlansAre(vlans); }) / vlans;
   }
}
BENCHMARK(units)->Iterations(1);

// The largest table, synced and shown.
void tableEntry(benchmark::State& state) {
   for (auto _ : state) {
      Switch sw(true);
      Kiln::ActivityManager::instance()->advance(10.0);
      const U32 id = sw.program->zlTableCounterIndex(largestTable);
      const auto lock = Kiln::ActivityLockAnchor::lock();
      const int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
      state.counters["entry"] = bytesOf([&] {
                                   Kiln::ActivityManager::instance()->advance(10.0);
                                   sw.mgr->zelCounters(0)->showTableCounters(static_cast<U32>(fd), id, false);
                                }) /
                                largestTableSize;
      close(fd);
   }
}
BENCHMARK(tableEntry)->Iterations(1);

void ports(benchmark::State& state) {
   for (auto _ : state) {
      Switch sw(true, static_cast<unsigned>(state.range(0)), static_cast<unsigned>(state.range(1)));
      const double bytes = bytesOf([&] {
         sw.addPorts();
         sw.showAll();
      });
      state.counters["heap_bytes"] = sw.bytesPerChip * sw.chips + bytes;
   }
}
BENCHMARK(ports)
     ->ArgNames({"chips", "ports"})
     ->ArgsProduct({{1, 2, 4, 8}, {32, 64, 128, 256}})
     ->Iterations(1);

void vlansOfChips(benchmark::State& state) {
   const auto count = static_cast<unsigned>(state.range(1));
   for (auto _ : state) {
      Switch sw(true, static_cast<unsigned>(state.range(0)), 32);
      for (const unsigned warm : {count, 0U, count, 0U}) { // until what is kept for later has grown
         sw.vlansAre(warm);
      }
      state.counters["heap_bytes"] = bytesOf([&] { sw.vlansAre(count); });
   }
}
BENCHMARK(vlansOfChips)
     ->Name("vlans")
     ->ArgNames({"chips", "vlans"})
     ->ArgsProduct({{1, 8}, {1, 64, 512, 2048, 4094}})
     ->Iterations(1);

// The bytes of the tables' files, each with room for as many records as an agent has by default.
void tableFiles(benchmark::State& state) {
   for (auto _ : state) {
      const Switch sw(true);
      for (const auto& entry : std::filesystem::directory_iterator(sw.folder)) {
         const std::string name = entry.path().filename();
         state.counters[name] = static_cast<double>(entry.file_size());
      }
   }
}
BENCHMARK(tableFiles)->Iterations(1);

// What a record takes in its table's file, key, header and both copies included.
template <class Record>
void recordOf(benchmark::State& state, const Switch& sw, const char* name) {
   const std::filesystem::path path = std::filesystem::path(sw.folder) / name;
   const auto room = Silo::TableReader<Record>(Silo::Store::directory(sw.folder), name).state().capacity;
   state.counters[name] = static_cast<double>(file_size(path)) / static_cast<double>(room);
}
void records(benchmark::State& state) {
   namespace Tables = Silo::Interface;
   namespace TableName = Silo::Interface::TableName;
   for (auto _ : state) {
      const Switch sw(true);
      recordOf<Tables::IntfCounters>(state, sw, TableName::intfCounters);
      recordOf<Tables::IntfQueueCounters>(state, sw, TableName::intfQueueCounters);
      recordOf<Tables::IntfDropCounters>(state, sw, TableName::intfDropCounters);
      recordOf<Tables::IntfPdpCounters>(state, sw, TableName::intfPdpCounters);
      recordOf<Tables::IntfPlace>(state, sw, TableName::intfPlaces);
      recordOf<Tables::L3IntfCounters>(state, sw, TableName::vlanIntfCounters);
      recordOf<Tables::L3IntfCounters>(state, sw, TableName::subIntfCounters);
      recordOf<Tables::NatCounter>(state, sw, TableName::intfNatCounters);
   }
}
BENCHMARK(records)->Iterations(1);

} // namespace

BENCHMARK_MAIN();
