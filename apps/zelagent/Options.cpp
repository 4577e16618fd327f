// The agent's options: one table for parsing and help.
#include "apps/zelagent/Options.h"

#include "kiln/Choices.h"
#include "kiln/Numbers.h"
#include "kiln/Trace.h"

#include <algorithm>
#include <array>
#include <grp.h>
#include <stdexcept>

namespace ZelAgent {

namespace {

// `take` gets the option's value, which is empty for an option without one. It throws std::invalid_argument for a bad
// value.
struct Option {
   std::string_view name;
   std::string_view value; // as help shows it; empty for an option without one
   std::string_view help;
   void (*take)(Options& options, const Kiln::String& value);
};

[[noreturn]] void refuse(std::string_view name, const Kiln::String& value, std::string_view expected) {
   throw std::invalid_argument(Kiln::String(name) + " '" + value + "': expected " + Kiln::String(expected));
}

unsigned number(std::string_view name, const Kiln::String& value, unsigned min, unsigned max) {
   const auto parsed = Kiln::parseNumber<unsigned>(value, min, max);
   if (!parsed) {
      refuse(name, value, std::to_string(min) + " to " + std::to_string(max));
   }
   return *parsed;
}

void takeCapabilities(Options& options, const Kiln::String& list) {
   ZelSystem::ChipCapabilities capabilities;
   const std::array<std::pair<std::string_view, bool*>, 4> known{
        {{"vlan", &capabilities.vlanCounters},
         {"vxlan", &capabilities.vxlan},
         {"vrf-nat", &capabilities.vrfNat},
         {"qos-policy", &capabilities.qosPolicyCounter}}};
   for (std::string_view left = list; list != "none";) {
      const std::string_view one = left.substr(0, left.find(','));
      const auto found =
           std::find_if(known.begin(), known.end(), [&](const auto& entry) { return entry.first == one; });
      if (found == known.end()) {
         refuse("--capabilities", list, "none, or a list out of vlan,vxlan,vrf-nat,qos-policy");
      }
      *found->second = true;
      if (one.size() == left.size()) {
         break;
      }
      left.remove_prefix(one.size() + 1);
   }
   options.agent.capabilities = capabilities;
}

void takeTraffic(Options& options, const Kiln::String& source) {
   if (source == "none" || source == "synthetic") {
      options.traffic = source == "none" ? Options::Traffic::none : Options::Traffic::synthetic;
   } else if (source == "host") {
      options.traffic = Options::Traffic::host;
   } else if (source.find_first_of("./") != Kiln::String::npos) {
      // A misspelt keyword must not be looked for as a file.
      options.traffic = Options::Traffic::capture;
      options.captureFile = source;
   } else {
      refuse("--traffic", source, "synthetic, none, host, or the path of a capture file");
   }
}

void takeTrace(const Kiln::String& setting) {
   Kiln::String error;
   if (!Kiln::traceSettingIs(setting, &error)) {
      throw std::invalid_argument("--trace '" + setting + "': " + error);
   }
}

void takeReadGroup(Options& options, const Kiln::String& name) {
   if (const group* const known = getgrnam(name.c_str())) {
      options.readGroup = known->gr_gid;
   } else if (const auto number = Kiln::parseNumber<gid_t>(name)) {
      options.readGroup = *number;
   } else {
      refuse("--read-group", name, "the name of a group on this machine, or a number");
   }
}

constexpr std::array options{
     Option{"--chips", "N", "switching chips, 1 to 8 (1)",
            [](Options& o, const Kiln::String& v) { o.agent.chips = number("--chips", v, 1, maxChips); }},
     Option{"--pipes", "N", "pipes of each chip, 1 to 4 (2)",
            [](Options& o, const Kiln::String& v) {
               o.agent.pipes = number("--pipes", v, 1, ZlPort::maxPipes);
            }},
     Option{"--ports", "N", "front-panel ports of each chip, up to 64 a pipe (32)",
            [](Options& o, const Kiln::String& v) {
               o.agent.ports = number("--ports", v, 0, ZlPort::maxPipes * ZlPort::frontPanelPortsPerPipe);
            }},
     Option{"--capabilities", "LIST", "a list out of vlan,vxlan,vrf-nat,qos-policy, or none (all four)",
            takeCapabilities},
     Option{"--traffic", "SOURCE",
            "synthetic, none, host (its interfaces are the ports), or a capture file for the first "
            "port (synthetic)",
            takeTraffic},
     Option{"--seed", "N", "seed of the synthetic traffic (1)",
            [](Options& o, const Kiln::String& v) {
               const auto seed = Kiln::parseNumber<U64>(v);
               o.agent.seed = seed ? *seed : (refuse("--seed", v, "a number from 0 upward"), 0);
            }},
     Option{"--polling", "SECONDS", "time from the end of one polling pass to the start of the next (2)",
            [](Options& o, const Kiln::String& v) {
               const auto interval = Kiln::parseDecimal(v, longestPollingInterval);
               if (!interval || *interval < shortestPollingInterval) {
                  refuse("--polling", v, "a time from 0.001 to 1000000 seconds, as 2 or 0.5");
               }
               o.agent.pollingInterval = *interval;
            }},
     Option{"--history", "MINUTES", "how long the readings of ports are kept, up to 1440; 0 for none (15)",
            [](Options& o, const Kiln::String& v) {
               const auto minutes = Kiln::parseDecimal(v, longestHistory);
               if (!minutes) {
                  refuse("--history", v, "minutes from 0 to 1440, as 15 or 0.5");
               }
               o.agent.historyMinutes = *minutes;
            }},
     Option{"--socket", "PATH", "socket for commands ($ZEL_SOCKET, else one of the user's own)",
            [](Options& o, const Kiln::String& v) { o.socketPath = v; }},
     Option{"--read-socket", "PATH", "another one, for commands that only read; needs --read-group (none)",
            [](Options& o, const Kiln::String& v) { o.readSocketPath = v; }},
     Option{"--read-group", "GROUP", "whose members may open the --read-socket, such as adm (none)",
            takeReadGroup},
     Option{"--silo", "DIR", "folder for the shared tables (the machine's shared memory)",
            [](Options& o, const Kiln::String& v) { o.agent.siloFolder = v; }},
     Option{"--hardware", "FILE", "file for the hardware counters, which then outlive the agent (none)",
            [](Options& o, const Kiln::String& v) { o.agent.hardwareFile = v; }},
     Option{"--trace", "NAME/LEVELS",
            "trace lines on standard error, such as ZelCounters/0-4; may be repeated",
            [](Options&, const Kiln::String& v) { takeTrace(v); }},
     Option{"--scenario", "FILE", "runs the statements of a file, or of standard input (-)",
            [](Options& o, const Kiln::String& v) { o.scenario = v; }},
     Option{"--realtime", "", "runs the --scenario on the machine's clock, as a living agent",
            [](Options& o, const Kiln::String&) { o.scenarioIsRealTime = true; }},
     Option{"--help", "", "prints this", [](Options& o, const Kiln::String&) { o.help = true; }},
     Option{"--version", "", "prints the version", [](Options& o, const Kiln::String&) { o.version = true; }},
};

const Option& optionNamed(std::string_view name) {
   const auto* found =
        std::find_if(options.begin(), options.end(), [&](const Option& one) { return one.name == name; });
   if (found == options.end()) {
      throw std::invalid_argument("unknown option '" + Kiln::String(name) +
                                  "': 'zelagent --help' lists them all");
   }
   return *found;
}

// Refuses options that are valid one by one but not together.
void check(const Options& parsed) {
   if (parsed.scenarioIsRealTime && !parsed.scenario) {
      throw std::invalid_argument(
           "--realtime is for a scenario, and an agent without one runs in real time: add "
           "--scenario FILE, or leave out --realtime");
   }
   if (parsed.traffic == Options::Traffic::host && parsed.scenario) {
      throw std::invalid_argument("--traffic host does not go with a scenario: leave out --scenario");
   }
   if (parsed.scenarioIsRealTime && parsed.traffic && parsed.traffic != Options::Traffic::none) {
      throw std::invalid_argument(
           "--traffic does not go with --realtime: put 'traffic on' or 'replay INTF FILE' into "
           "the scenario");
   }
   if (parsed.readSocketPath.empty() == parsed.readGroup.has_value()) {
      throw std::invalid_argument("--read-socket and --read-group go together: give both, or neither");
   }
   if (!parsed.readSocketPath.empty() && parsed.readSocketPath == parsed.socketPath) {
      throw std::invalid_argument("--read-socket '" + parsed.readSocketPath +
                                  "': expected another path than that of --socket");
   }
   const unsigned most = parsed.agent.pipes * ZlPort::frontPanelPortsPerPipe;
   if (parsed.agent.ports > most) {
      throw std::invalid_argument("--ports " + std::to_string(parsed.agent.ports) + ": expected at most " +
                                  std::to_string(most) + " on " + Kiln::counted(parsed.agent.pipes, "pipe"));
   }
}

} // namespace

Options parseOptions(std::span<const char* const> arguments) {
   Options parsed;
   for (std::size_t i = 0; i < arguments.size(); ++i) {
      const std::string_view argument = arguments[i];
      const std::size_t equals = argument.find('=');
      const Option& option = optionNamed(argument.substr(0, equals));
      Kiln::String value;
      if (option.value.empty()) {
         if (equals != std::string_view::npos) {
            throw std::invalid_argument(Kiln::String(option.name) + " takes no value");
         }
      } else if (equals != std::string_view::npos) {
         value = argument.substr(equals + 1);
      } else if (i + 1 < arguments.size()) {
         value = arguments[++i];
      }
      // Most likely its own value was forgotten. After an equals sign such a value is meant.
      const bool isNextOption = equals == std::string_view::npos && value.starts_with("--");
      if (!option.value.empty() && (value.empty() || isNextOption)) {
         throw std::invalid_argument(Kiln::String(option.name) + " needs a value" +
                                     (isNextOption ? " before " + Kiln::quoted(value) : "") + ": " +
                                     Kiln::String(option.help));
      }
      option.take(parsed, value);
   }
   check(parsed);
   // Host interfaces get the ports. Only after the check, so that a bad --ports is refused here too.
   if (parsed.traffic == Options::Traffic::host) {
      parsed.agent.ports = 0;
   }
   return parsed;
}

Kiln::String optionsHelp() {
   constexpr std::size_t column = 24;
   Kiln::String text;
   for (const Option& option : options) {
      Kiln::String left = Kiln::String(option.name) + " " + Kiln::String(option.value);
      left.resize(std::max(column, left.size() + 2), ' ');
      text += "   " + left + Kiln::String(option.help) + "\n";
   }
   return text;
}

} // namespace ZelAgent
