// How long others wait for an agent: 8 chips of 256 ports, polled, and 4,094 VLAN interfaces with source NAT on all of
// them; without and with an operator who shows and clears tables of 65,536 entries, and everything, without a pause. Waits
// are those of a thread that takes the activity lock as a completion does, and those for the answer to a
// command over the agent's socket. One program run is one measurement: the figures are of waits, not of iterations.
#include "agent/CommandChannel.h"
#include "agent/CommandSocket.h"
#include "apps/zelagent/SwitchAgent.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "kiln/OwnedFd.h"

#include <algorithm>
#include <atomic>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Kiln::String;
using namespace std::chrono_literals;

constexpr unsigned vlans = 4094;
constexpr auto measured = 20s;

// The whole switch in this process, its loop on a thread of its own, as the program has it on its main one.
class Living {
 public:
   Living()
        : folder_(std::filesystem::temp_directory_path() / ("latency_bench-" + std::to_string(getpid()))) {
      std::filesystem::create_directory(folder_);
      std::filesystem::permissions(folder_, std::filesystem::perms::owner_all);
      agent_ = std::make_unique<ZelAgent::SwitchAgent>(
           ZelAgent::SwitchAgentConfig{.chips = 8, .pipes = 4, .ports = 256, .tablesAreTemporary = true});
      const auto lock = Kiln::ActivityLockAnchor::lock();
      agent_->fleet().completions().modeIs({SoftChip::CompletionMode::Kind::thread, 0.0, 1});
      for (unsigned vlan = 1; vlan <= vlans; ++vlan) {
         agent_->l3Add(Pelt::IntfId(Kiln::Name("Vlan" + std::to_string(vlan))), Bridging::VlanId(vlan));
      }
      Kiln::ActivityLockAnchor::statisticsDel();
      channel_ = Kiln::allocate<Agent::CommandChannel>(manager_, agent_->commandRunner(), socketPath());
      loop_ = std::thread([this] { manager_->run(); });
   }
   Living(const Living&) = delete;
   Living& operator=(const Living&) = delete;
   ~Living() {
      manager_->stop();
      loop_.join();
      {
         const auto lock = Kiln::ActivityLockAnchor::lock();
         channel_ = nullptr;
      }
      agent_ = nullptr;
      Kiln::ActivityManager::instanceDel(); // a stopped one does not run again
      std::filesystem::remove_all(folder_);
   }

   // Runs a command over the socket to the end of its answer; gives how many bytes came.
   std::size_t run(const String& command) const {
      const Kiln::OwnedFd connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      const String path = socketPath();
      std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
      const String line = Agent::protocolWord() + " " + command + "\n";
      if (connect(connection.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
          write(connection.fd(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
         throw std::runtime_error("no connection to the agent");
      }
      std::vector<char> piece(64 << 10);
      String end;
      std::size_t bytes = 0;
      for (ssize_t got = 0; (got = read(connection.fd(), piece.data(), piece.size())) > 0;) {
         bytes += static_cast<std::size_t>(got);
         end.append(piece.data(), static_cast<std::size_t>(got));
         end.erase(0, end.size() - std::min<std::size_t>(end.size(), 512));
      }
      if (!end.ends_with(String(1, Agent::endMark) + String(Agent::doneText) + "\n")) {
         throw std::runtime_error("'" + command + "' was not answered: ..." + end);
      }
      return bytes;
   }

 private:
   String socketPath() const { return (folder_ / "socket").string(); }

   std::filesystem::path folder_;
   Kiln::Ptr<Kiln::ActivityManager> manager_ = Kiln::ActivityManager::instance();
   std::unique_ptr<ZelAgent::SwitchAgent> agent_;
   Kiln::Ptr<Agent::CommandChannel> channel_;
   std::thread loop_;
};

// Waits of one kind, in the order in which they came.
class Waits {
 public:
   template <class Work>
   void take(Work work) {
      const auto begin = Clock::now();
      work();
      waits_.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
   }
   void tell(benchmark::State& state, const String& of) {
      std::ranges::sort(waits_);
      const auto at = [&](double share) {
         return waits_.at(static_cast<std::size_t>(share * static_cast<double>(waits_.size() - 1)));
      };
      state.counters[of + "_waits"] = static_cast<double>(waits_.size());
      state.counters[of + "_p50_ms"] = at(0.5);
      state.counters[of + "_p99_ms"] = at(0.99);
      state.counters[of + "_longest_ms"] = waits_.back();
   }

 private:
   std::vector<double> waits_; // milliseconds
};

void wait(benchmark::State& state, bool hasOperator) {
   for (auto _ : state) {
      const Living living;
      std::this_thread::sleep_for(5s); // the tables' first syncs
      std::atomic<bool> isOver{false};
      Waits locks;
      Waits commands;
      U64 heavyCommands = 0;
      std::thread completion([&] {
         while (!isOver) {
            locks.take([] { const auto lock = Kiln::ActivityLockAnchor::lock("the bench's completion"); });
            std::this_thread::sleep_for(500us);
         }
      });
      std::thread client([&] {
         for (unsigned port = 1; !isOver; port = port % 2048 + 1) {
            const String command = "counters show mac intf Ethernet" + std::to_string(port);
            commands.take([&] { living.run(command); });
            std::this_thread::sleep_for(2ms);
         }
      });
      std::thread operators([&] {
         while (hasOperator && !isOver) {
            for (const char* command :
                 {"counters chip Zel0 show table flowHashCount", "counters show mac",
                  "counters chip Zel1 clear table flowHashCount", "counters chip Zel2 show",
                  "counters chip Zel3 clear", "counters show health"}) {
               if (!isOver) {
                  living.run(command);
                  ++heavyCommands;
               }
            }
         }
      });
      std::this_thread::sleep_for(measured);
      isOver = true;
      completion.join();
      client.join();
      operators.join();
      locks.tell(state, "lock");
      commands.tell(state, "command");
      state.counters["heavy_commands"] = static_cast<double>(heavyCommands);
      const auto lock = Kiln::ActivityLockAnchor::lock();
      const auto& figures = Kiln::ActivityLockAnchor::statistics();
      state.counters["longest_hold_ms"] = figures.longestHold * 1e3; // since the agent was ready
      for (std::size_t i = 0; i < figures.holds.size(); ++i) {
         const bool isLast = i == Kiln::ActivityLockAnchor::holdBounds.size();
         const double bound = isLast ? 0 : Kiln::ActivityLockAnchor::holdBounds[i] * 1e6;
         state.counters[isLast ? "holds_longer"
                               : "holds_" + std::to_string(static_cast<U64>(bound)) + "_us"] =
              static_cast<double>(figures.holds[i]);
      }
      state.SetLabel(figures.longestHolder);
   }
}
void pollingAndVlans(benchmark::State& state) {
   wait(state, false);
}
BENCHMARK(pollingAndVlans)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

void everythingAtOnce(benchmark::State& state) {
   wait(state, true);
}
BENCHMARK(everythingAtOnce)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
