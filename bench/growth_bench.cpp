// How an agent's time and memory grow: with 1 to 8 chips and 32 to 2,048 ports, and with 1 to 4,094 VLANs. One polling
// pass of all ports, from the request to the published record, hot and cold; all that an agent does in two seconds; one
// read of all records; what they take of shared memory; and how long zelagent takes to start.
#include "apps/zelagent/SwitchAgent.h"
#include "apps/zelctl/connection/AgentConnection.h"
#include "bench/InTurns.h"
#include "bench/Processes.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "silo/TableReader.h"
#include "vex/PublishedRecords.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using Bench::timeOf;
using Clock = std::chrono::steady_clock;
namespace Tables = Silo::Interface;
namespace TableName = Silo::Interface::TableName;

constexpr unsigned pipes = 4;
constexpr int rounds = 15;       // enough for a median
constexpr double interval = 2.0; // seconds between two polls

// For an agent's tables.
struct Folder : Bench::SharedFolder {
   Folder() : SharedFolder("growth_bench") {}

   // What its files take of the memory: their tables have room for more records than there are.
   double bytes() const {
      double sum = 0;
      for (const auto& entry : std::filesystem::directory_iterator(path)) {
         struct stat status {};
         if (stat(entry.path().c_str(), &status) == 0) {
            sum += static_cast<double>(status.st_blocks) * 512; // stat(2)'s unit
         }
      }
      return sum;
   }
};

// An agent in simulated time, whose traffic is whatever moveAll() adds.
class Agent {
 public:
   Agent(unsigned chips, unsigned portsPerChip) {
      Kiln::System::timeSourceIs(time_);
      Kiln::ActivityManager::instanceDel();
      ZelAgent::SwitchAgentConfig config{.chips = chips, .pipes = pipes, .ports = portsPerChip};
      config.siloFolder = folder.path;
      agent_ = std::make_unique<ZelAgent::SwitchAgent>(config);
      agent_->createdIsKept();
      Kiln::ActivityManager::instance()->advance(3 * interval);
   }
   Agent(const Agent&) = delete;
   Agent& operator=(const Agent&) = delete;
   ~Agent() {
      agent_ = nullptr;
      Kiln::ActivityManager::instanceDel();
   }

   void vlansAre(unsigned count) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      for (unsigned vlan = 1; vlan <= count; ++vlan) {
         agent_->l3Add(Pelt::IntfId(("Vlan" + std::to_string(vlan)).c_str()), Bridging::VlanId(vlan));
      }
      Kiln::ActivityManager::instance()->advance(3 * interval);
   }

   void moveAll() {
      moved_ += 1000;
      for (SoftChip::Chip* const chip : agent_->fleet().chips()) {
         for (const U16 port : chip->ports()) {
            for (unsigned i = 0; i < BF_NUM_RMON_COUNTERS; ++i) {
               chip->rmonIs(port, i, moved_);
            }
         }
      }
      time_->charge(interval);
   }
   void poll() const {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      auto& completions = agent_->fleet().completions();
      completions.modeIs({SoftChip::CompletionMode::Kind::inlined});
      agent_->countersMgr().requestHwCountersPolling();
      completions.modeIs({});
   }

   const Folder folder;

 private:
   Kiln::Ptr<Kiln::SimulatedTime> time_ = Kiln::allocate<Kiln::SimulatedTime>();
   std::unique_ptr<ZelAgent::SwitchAgent> agent_;
   U64 moved_ = 0;
};

void report(benchmark::State& state, const char* name, Bench::Times& times) {
   state.counters[name] = 1e6 * times.median();
}

// Reads all records of a table, and says whether there are as many.
template <class Record>
class Reading {
 public:
   Reading(const Agent& agent, const char* table)
        : reader_(Silo::Store::directory(agent.folder.path), table) {}
   bool has(std::size_t count) { return reader_.snapshot(entries_) && entries_.size() == count; }

 private:
   Silo::TableReader<Record> reader_;
   std::vector<Silo::Entry<Record>> entries_;
};

void ports(benchmark::State& state) {
   const auto chips = static_cast<unsigned>(state.range(0));
   const auto portsPerChip = static_cast<unsigned>(state.range(1));
   Agent agent(chips, portsPerChip);
   Reading<Tables::IntfCounters> reading(agent, TableName::intfCounters);
   Bench::ColdMemory others;
   Bench::Times hotPass;
   Bench::Times coldPass;
   Bench::Times hotRead;
   Bench::Times twoSeconds;
   for (auto _ : state) {
      agent.moveAll();
      agent.poll();
      agent.moveAll();
      hotPass.add(timeOf([&] { agent.poll(); }));
      agent.moveAll();
      others.walk();
      coldPass.add(timeOf([&] { agent.poll(); }));
      if (!reading.has(std::size_t{chips} * portsPerChip)) {
         state.SkipWithError("a port is not published");
      }
      hotRead.add(timeOf([&] { reading.has(0); }));
      twoSeconds.add(timeOf([] { Kiln::ActivityManager::instance()->advance(interval); }));
   }
   report(state, "pass_us", hotPass);
   report(state, "pass_cold_us", coldPass);
   report(state, "read_us", hotRead);
   report(state, "two_seconds_us", twoSeconds);
   state.counters["shared_bytes"] = agent.folder.bytes();
}
BENCHMARK(ports)
     ->ArgNames({"chips", "ports"})
     ->ArgsProduct({{1, 2, 4, 8}, {32, 64, 128, 256}})
     ->Iterations(rounds)
     ->Unit(benchmark::kMillisecond);

// Beside 32 ports a chip.
void vlans(benchmark::State& state) {
   const auto count = static_cast<unsigned>(state.range(1));
   Agent agent(static_cast<unsigned>(state.range(0)), 32);
   agent.vlansAre(count);
   Reading<Tables::L3IntfCounters> reading(agent, TableName::vlanIntfCounters);
   Bench::ColdMemory others;
   Bench::Times hotRead;
   Bench::Times twoSeconds;
   Bench::Times coldTwoSeconds;
   for (auto _ : state) {
      twoSeconds.add(timeOf([] { Kiln::ActivityManager::instance()->advance(interval); }));
      others.walk();
      coldTwoSeconds.add(timeOf([] { Kiln::ActivityManager::instance()->advance(interval); }));
      if (!reading.has(count)) {
         state.SkipWithError("a VLAN is not published");
      }
      hotRead.add(timeOf([&] { reading.has(0); }));
   }
   report(state, "read_us", hotRead);
   report(state, "two_seconds_us", twoSeconds);
   report(state, "two_seconds_cold_us", coldTwoSeconds);
   state.counters["shared_bytes"] = agent.folder.bytes();
}
BENCHMARK(vlans)
     ->ArgNames({"chips", "vlans"})
     ->ArgsProduct({{1, 8}, {1, 64, 512, 2048, 4094}})
     ->Iterations(rounds)
     ->Unit(benchmark::kMillisecond);

// zelagent as a process of its own, without traffic.
class Program {
 public:
   Program(const Kiln::String& folder, const Kiln::String& chips, const Kiln::String& portsPerChip)
        : socket(folder + "/socket"), process_([&] { run(folder, chips, portsPerChip); }, SIGTERM) {}

   // Memory of its own, without the shared tables.
   double privateBytes() const {
      std::ifstream status(process_.procFile("status"));
      for (Kiln::String word; status >> word;) {
         if (double kilobytes = 0; word == "RssAnon:" && status >> kilobytes) {
            return kilobytes * 1024;
         }
      }
      return 0;
   }

   const Kiln::String socket;

 private:
   void run(const Kiln::String& folder, const Kiln::String& chips, const Kiln::String& portsPerChip) const {
      const int null = open("/dev/null", O_WRONLY);
      dup2(null, STDOUT_FILENO);
      const Kiln::String pipeCount = std::to_string(pipes);
      execl(ZEL_AGENT, ZEL_AGENT, "--chips", chips.c_str(), "--pipes", pipeCount.c_str(), "--ports",
            portsPerChip.c_str(), "--traffic", "none", "--silo", folder.c_str(), "--socket", socket.c_str(),
            nullptr);
   }

   const Bench::Child process_;
};

bool isPublished(const Kiln::String& folder, std::size_t count) {
   try {
      Silo::TableReader<Tables::IntfCounters> reader(Silo::Store::directory(folder), TableName::intfCounters);
      std::vector<Silo::Entry<Tables::IntfCounters>> entries;
      return reader.snapshot(entries) && entries.size() == count;
   } catch (const Silo::TableError&) {
      return false; // not made yet
   }
}

// Tries each millisecond until it is so; returns the seconds since `begin`.
template <class IsSo>
double waitUntil(Clock::time_point begin, IsSo isSo) {
   const auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - begin).count(); };
   while (!isSo()) {
      if (elapsed() > 30) {
         throw std::runtime_error("zelagent does not come up");
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
   }
   return elapsed();
}

// From fork() until a command is answered; and, once, until another process finds a record of every port, which is after
// the first poll. Its memory is that of two polls later.
void startUp(benchmark::State& state) {
   const Kiln::String chips = std::to_string(state.range(0));
   const Kiln::String portsPerChip = std::to_string(state.range(1));
   const auto count = static_cast<std::size_t>(state.range(0) * state.range(1));
   const Kiln::String command = "counters show mac intf Ethernet" + std::to_string(count);
   Bench::Times starts;
   for (auto _ : state) {
      const Folder folder;
      const auto begin = Clock::now();
      const Program agent(folder.path, chips, portsPerChip);
      starts.add(
           waitUntil(begin, [&] { return ZelCtl::ask({agent.socket}, command, nullptr).error.empty(); }));
      state.SetIterationTime(starts.last());
      if (starts.count() == 1) {
         state.counters["published_ms"] =
              1e3 * waitUntil(begin, [&] { return isPublished(folder.path, count); });
         std::this_thread::sleep_for(std::chrono::duration<double>(2.5 * interval));
         state.counters["private_bytes"] = agent.privateBytes();
         state.counters["table_bytes"] = folder.bytes();
      }
   }
   state.counters["start_ms"] = 1e3 * starts.median();
   state.counters["longest_start_ms"] = 1e3 * starts.longest();
}
BENCHMARK(startUp)
     ->ArgNames({"chips", "ports"})
     ->ArgsProduct({{1, 2, 4, 8}, {32, 256}})
     ->Iterations(5)
     ->UseManualTime()
     ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
