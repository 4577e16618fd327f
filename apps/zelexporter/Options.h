// The exporter's command line.
#pragma once

#include "apps/metrics/Collectors.h"
#include "apps/zelexporter/ListenAddress.h"

#include <span>

namespace ZelExporter {

struct Options {
   ListenAddress listen{ListenAddress::byDefault};
   Kiln::String siloFolder; // empty: this user's in shared memory, or root's
   ZelMetrics::Collectors collectors;
   bool help = false;
   bool version = false;
};

// Parses the arguments after the program's name. Throws std::invalid_argument, naming what was expected.
Options parseOptions(std::span<const char* const> arguments);

// What --help prints of the options.
Kiln::String optionsHelp();

} // namespace ZelExporter
