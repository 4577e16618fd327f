// Values of the environment. Each line of the input is NAME=VALUE; names that nobody reads are left out.
#include "agent/CommandSocket.h"
#include "apps/zelagent/SwitchAgent.h"
#include "apps/zelctl/prompt/History.h"
#include "apps/zelctl/terminal/Utf8.h"
#include "counters/mac/FakeCounter.h"
#include "sdk/bf_rmon.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/SimulatedTime.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <sstream>

using Kiln::String;
using ZelFuzz::must;

namespace {

constexpr std::array names{"ZEL_SOCKET",     "XDG_RUNTIME_DIR",  "XDG_STATE_HOME", "HOME",
                           "TERM",           "LC_ALL",           "LC_CTYPE",       "LANG",
                           "ZEL_COUNTER_ID", "ZEL_COUNTER_VALUE"};

String valueOf(const char* name) {
   const char* const value = std::getenv(name);
   return value != nullptr ? value : "";
}

// A process whose first chip comes while this is set is a simulation.
void beInSimulation() {
   setenv("SIMULATION_VMID", "1", 1);
   const ZelTest::SimulatedTime time;
   const ZelAgent::SwitchAgent agent({.chips = 1, .pipes = 1, .ports = 1, .tablesAreTemporary = true});
}

void setAll(const String& text) {
   for (const char* const name : names) {
      unsetenv(name);
   }
   std::istringstream lines(text);
   for (String line; std::getline(lines, line);) {
      const std::size_t equals = std::min(line.find('='), line.size());
      const String name = line.substr(0, equals);
      if (equals < line.size() && std::ranges::find(names, name) != names.end()) {
         setenv(name.c_str(), line.c_str() + equals + 1, 1);
      }
   }
}

void trySockets() {
   const std::vector<String> paths = Agent::clientSocketPaths();
   must(!paths.empty() && paths.front() == Agent::defaultSocketPath(), "the default comes first");
   must(std::ranges::none_of(paths, &String::empty), "each place is named");
   const String chosen = valueOf("ZEL_SOCKET");
   must(chosen.empty() || paths == std::vector{chosen}, "a place that is chosen is the only one");
}

void tryFakeCounter() {
   const String id = valueOf("ZEL_COUNTER_ID");
   const long number = std::strtol(id.c_str(), nullptr, 10);
   if (number < 0 || number >= BF_NUM_RMON_COUNTERS) {
      return; // asserted
   }
   const auto fake = ZelCounter::fakeCounter();
   const bool isSet = std::getenv("ZEL_COUNTER_ID") != nullptr && std::getenv("ZEL_COUNTER_VALUE") != nullptr;
   must(fake.has_value() == isSet, "a fake counter needs an id and a value");
   must(!fake || fake->id == static_cast<U64>(number), "a fake counter is the one that is named");
}

} // namespace

int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   static std::once_flag once;
   std::call_once(once, beInSimulation);
   setAll(String(ZelFuzz::textOf(data, size)));
   trySockets();
   tryFakeCounter();
   const String history = ZelCtl::History::defaultPath();
   must(history.empty() || history.starts_with('/'), "the history has an absolute path");
   must(!ZelCtl::showsUtf8() || !(valueOf("LC_ALL") + valueOf("LC_CTYPE") + valueOf("LANG")).empty(),
        "without a locale there is no UTF-8");
   return 0;
}
