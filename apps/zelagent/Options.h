// The agent's command line.
#pragma once

#include "apps/zelagent/SwitchAgent.h"

#include <optional>
#include <span>
#include <sys/types.h>
#include <vector>

namespace ZelAgent {

struct Options {
   enum class Traffic : U8 { none, synthetic, capture, host };

   SwitchAgentConfig agent;
   std::optional<Traffic> traffic;       // none given: synthetic, but not in a scenario
   Kiln::String captureFile;             // of Traffic::capture
   Kiln::String socketPath;              // empty: the default one
   Kiln::String readSocketPath;          // for readers; empty if there is none
   std::optional<gid_t> readGroup;       // whose members may open it
   std::optional<Kiln::String> scenario; // a file, or "-" for standard input
   bool scenarioIsRealTime = false;
   bool help = false;
   bool version = false;
};

// Parses the arguments after the program's name, and applies trace settings. Throws std::invalid_argument, naming what
// was expected, for an invalid argument.
Options parseOptions(std::span<const char* const> arguments);

// What --help prints of the options.
Kiln::String optionsHelp();

} // namespace ZelAgent
