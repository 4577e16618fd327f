// zelagent: a switch agent over software chips, in real time or through a scenario.
#include "agent/CommandChannel.h"
#include "agent/CommandSocket.h"
#include "agent/LogCommand.h"
#include "apps/zelagent/HostPorts.h"
#include "apps/zelagent/Options.h"
#include "apps/zelagent/ScenarioConsole.h"
#include "apps/zelagent/ScenarioInput.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "kiln/Choices.h"
#include "kiln/LogOutput.h"
#include "kiln/MappedFault.h"
#include "kiln/OperatorLog.h"
#include "kiln/StandardStreams.h"
#include "kiln/Utf8.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <new>
#include <optional>
#include <sstream>
#include <sys/eventfd.h>
#include <unistd.h>

namespace {

using ZelAgent::Options;
using ZelAgent::ScenarioConsole;
using ZelAgent::SwitchAgent;

// For the signal handler. Set before the handler is installed, and valid until the process ends.
Kiln::ActivityManager* signalled = nullptr;
int endFd = -1; // readable from the first signal on
std::atomic<int> endingSignal{0};

void handleSignal(int signal) {
   // Only what a handler may do, and errno belongs to whatever it interrupted.
   const int error = errno;
   endingSignal.store(signal);
   const U64 one = 1;
   [[maybe_unused]] const auto written = write(endFd, &one, sizeof one);
   signalled->stop();
   errno = error;
}

void endOnSignals() {
   static const Kiln::Ptr<Kiln::ActivityManager> manager = Kiln::ActivityManager::instance();
   signalled = manager.ptr();
   // A scenario that waits for its input watches this: stop() alone would not wake it.
   endFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
   if (endFd < 0) {
      throw std::runtime_error(Kiln::String("cannot wait for signals: ") + std::strerror(errno));
   }
   struct sigaction action {};
   action.sa_handler = handleSignal;
   sigaction(SIGTERM, &action, nullptr);
   sigaction(SIGINT, &action, nullptr);
   struct sigaction hangup {};
   if (sigaction(SIGHUP, nullptr, &hangup) == 0 && hangup.sa_handler != SIG_IGN) { // as under nohup
      sigaction(SIGHUP, &action, nullptr);
   }
}

void printHelp() {
   std::cout
        << "Usage: zelagent [OPTION]...\n\n"
           "Runs software switching chips and the counters library, and publishes what they count. zelctl is "
           "the client.\n\n"
        << ZelAgent::optionsHelp()
        << "\nStatements of a scenario, one per line; '#' begins a comment. Only advance lets time "
           "pass; with --realtime it waits.\n\n"
        << ScenarioConsole::statementsHelp()
        << "\nA scenario ends with status 0, with 1 if a command was refused, with 2 at an invalid "
           "statement.\n";
}

void flushOutput() {
   if (!std::cout.flush()) {
      throw std::runtime_error(Kiln::String("cannot write the output: ") + std::strerror(errno));
   }
}

void startTraffic(SwitchAgent& agent, const Options& options, std::optional<ZelAgent::HostPorts>* hostPorts) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   const Options::Traffic traffic = options.traffic.value_or(Options::Traffic::synthetic);
   if (traffic == Options::Traffic::synthetic) {
      agent.traffic().onIs(true);
   } else if (traffic == Options::Traffic::capture) {
      const SwitchAgent::Port port = agent.portOf("Ethernet1");
      SoftChip::Traffic::replay(port.chip, port.devicePort, options.captureFile);
   } else if (traffic == Options::Traffic::host) {
      hostPorts->emplace(agent, SoftChip::HostInterfaces());
   }
}

int openScenario(const Kiln::String& name) {
   const int fd = name == "-" ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC);
   if (fd < 0) {
      throw std::runtime_error("cannot open the scenario " + name + ": " + std::strerror(errno));
   }
   return fd;
}

int runStatements(SwitchAgent& agent, const Kiln::String& name, int fd) {
   ZelAgent::ScenarioInput input(fd, endFd);
   std::istream scenario(&input);
   const int status = ScenarioConsole(agent, STDOUT_FILENO, STDERR_FILENO, endFd).run(scenario, name);
   // Whoever ran the scenario waits for its whole output, and has to see that it was cut short.
   return endingSignal.load() != 0 ? 128 + endingSignal.load() : status;
}

int runSimulation(const Options& options) {
   const int fd = openScenario(*options.scenario);
   // Before the agent is made, since it arms clocks.
   Kiln::System::timeSourceIs(Kiln::allocate<Kiln::SimulatedTime>());
   // Tables of its own: an agent may be running beside the scenario.
   ZelAgent::SwitchAgentConfig config = options.agent;
   config.tablesAreTemporary = config.siloFolder.empty();
   endOnSignals();
   SwitchAgent agent(config);
   agent.createdIsKept();
   return runStatements(agent, *options.scenario, fd);
}

// Prints log messages for the operator as they come.
void logToStandardError() {
   Kiln::OperatorLog::instance().sinkIs([](const Kiln::OperatorLog::Entry& entry) {
      Kiln::LogOutput::standardError().write(Kiln::printable(Agent::logText(entry)) + "\n");
   });
}

// The exit status of invalid options, or of options that ask for what is not possible. A reader of the error is not
// waited for: by now a signal may no longer end the process by itself.
int cannotRunBecause(const char* reason) {
   Kiln::LogOutput::standardError().write("% " + Kiln::printable(reason) + "\n");
   return 1;
}

// One line of the agent's on standard output, which is a log too: the agent waits for no reader.
void say(const Kiln::String& line) {
   Kiln::LogOutput::standardOutput().write("zelagent: " + Kiln::printable(line) + "\n");
}

// What the flight recorder takes of the machine's memory.
void sayHistory(const ZelAgent::SwitchAgentConfig& config, std::size_t ports) {
   if (config.historyMinutes == 0) {
      say("no history is kept");
      return;
   }
   constexpr std::size_t kilobyte = 1000;
   const std::size_t bytes =
        Vex::HistorySettings{.minutes = config.historyMinutes, .pollingInterval = config.pollingInterval}
             .bytesPerPort();
   std::ostringstream minutes;
   minutes << config.historyMinutes;
   say("history of the last " + minutes.str() + " min takes " + std::to_string(bytes / kilobyte) +
       " kB a port, " + std::to_string(ports * bytes / kilobyte) + " kB for " + Kiln::counted(ports, "port"));
}

// Takes the socket's folder back from a start that fails.
struct SocketFolder {
   Kiln::String made = Agent::prepareDefaultSocketFolder(); // empty: it was there before
   ~SocketFolder() {
      if (!made.empty()) {
         rmdir(made.c_str());
      }
   }
};

// Until it is told to end, or its scenario is over.
int runAgent(const Options& options) {
   const int scenarioFd = options.scenario ? openScenario(*options.scenario) : -1;
   // The SDK's completions come on a thread of their own.
   Kiln::threadSafePtrModeIs(true);
   logToStandardError();
   const auto manager = Kiln::ActivityManager::instance();
   endOnSignals(); // before anything is created: a signal during the start then takes it back in good order
   std::optional<SocketFolder> folder;
   if (options.socketPath.empty()) {
      folder.emplace();
   }
   const Kiln::String socketPath =
        options.socketPath.empty() ? Agent::defaultSocketPath() : options.socketPath;
   SwitchAgent agent(options.agent);
   agent.fleet().completions().modeIs({SoftChip::CompletionMode::Kind::thread, 0.0, 1});
   std::optional<ZelAgent::HostPorts> hostPorts;
   if (!options.scenario) { // whose statements say what comes
      startTraffic(agent, options, &hostPorts);
      const auto lock = Kiln::ActivityLockAnchor::lock();
      // Only now, with the host's ports added: tables in shared memory outlive the agent, and may hold ports that it no
      // longer has.
      agent.countersMgr().forgetAbsentInterfaces();
   }
   const Agent::CommandChannel channel(manager, agent.commandRunner(), socketPath);
   std::optional<Agent::CommandChannel> readChannel;
   if (options.readGroup) {
      readChannel.emplace(manager, agent.commandRunner(), options.readSocketPath,
                          Agent::CommandChannelLimits{},
                          Agent::CommandReaders{*options.readGroup, socketPath});
   }
   agent.createdIsKept();
   {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      Kiln::ActivityLockAnchor::statisticsDel(); // nobody waited for the start
   }
   if (folder) {
      folder->made.clear();
   }
   say(Kiln::counted(options.agent.chips, "chip") + ", " + Kiln::counted(options.agent.ports, "port") +
       " each, commands on " + socketPath);
   sayHistory(options.agent,
              hostPorts ? hostPorts->names().size() : options.agent.chips * options.agent.ports);
   if (readChannel) {
      say(Agent::groupName(*options.readGroup) + " may read on " + options.readSocketPath);
   }
   if (hostPorts) {
      say("ports are the host's: " + Kiln::joined(hostPorts->names(), ", "));
   }
   if (options.scenario) {
      return runStatements(agent, *options.scenario, scenarioFd);
   }
   manager->run();
   return 0;
}

} // namespace

int main(int argc, char** argv) {
   // A client or reader that leaves is then an error of one write, and not the end of the agent.
   std::signal(SIGPIPE, SIG_IGN);
   std::signal(SIGXFSZ, SIG_IGN); // a file that may not grow: likewise
   Kiln::surviveMappedFaults();
   Kiln::openStandardStreams();
   try {
      const Options options = ZelAgent::parseOptions({argv + 1, static_cast<std::size_t>(argc - 1)});
      if (options.help) {
         printHelp();
         flushOutput();
         return 0;
      }
      if (options.version) {
         std::cout << "zelagent " ZEL_VERSION "\n";
         flushOutput();
         return 0;
      }
      const bool isSimulated = options.scenario && !options.scenarioIsRealTime;
      return isSimulated ? runSimulation(options) : runAgent(options);
   } catch (const std::bad_alloc&) {
      return cannotRunBecause(
           "not enough memory: start with fewer chips, pipes or ports, or allow the process more");
   } catch (const std::exception& error) {
      return cannotRunBecause(error.what());
   }
}
