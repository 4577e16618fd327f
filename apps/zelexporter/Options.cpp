// The table of options, from which they are parsed and explained.
#include "apps/zelexporter/Options.h"

#include "kiln/Choices.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>

namespace ZelExporter {

namespace {

struct Option {
   std::string_view name;
   std::string_view value; // as help shows it; empty for an option without one
   std::string_view help;
};

constexpr std::array options{
     Option{"--listen", "ADDRESS:PORT",
            "where to listen, or a port alone; port 0 is any free one (127.0.0.1:9469)"},
     Option{"--silo", "FOLDER", "folder of the shared tables (this user's in shared memory, or root's)"},
     Option{"--collect", "LIST", "what a scrape has, with commas between (all collectors, listed below)"},
     Option{"--no-collect", "LIST", "what it has not (none)"},
     Option{"--help", "", "prints this"},
     Option{"--version", "", "prints the version"},
};

const Option& optionNamed(std::string_view name) {
   const auto* const found = std::ranges::find(options, name, &Option::name);
   if (found == options.end()) {
      throw std::invalid_argument("unknown option " + Kiln::quoted(name) +
                                  ": 'zelexporter --help' lists them all");
   }
   return *found;
}

} // namespace

Options parseOptions(std::span<const char* const> arguments) {
   Options parsed;
   Kiln::String collected;
   Kiln::String left;
   for (std::size_t i = 0; i < arguments.size(); ++i) {
      const std::string_view argument = arguments[i];
      const std::size_t equals = argument.find('=');
      const Option& option = optionNamed(argument.substr(0, equals));
      if (option.value.empty()) {
         if (equals != std::string_view::npos) {
            throw std::invalid_argument(Kiln::String(option.name) + " takes no value");
         }
         (option.name == "--help" ? parsed.help : parsed.version) = true;
         continue;
      }
      const bool isJoined = equals != std::string_view::npos;
      const Kiln::String value(isJoined                   ? argument.substr(equals + 1)
                               : i + 1 < arguments.size() ? std::string_view(arguments[++i])
                                                          : "");
      if (value.empty() || (!isJoined && value.starts_with("--"))) {
         throw std::invalid_argument(Kiln::String(option.name) +
                                     " needs a value: " + Kiln::String(option.help));
      }
      if (option.name == "--listen") {
         parsed.listen = ListenAddress(value);
      } else if (option.name == "--silo") {
         parsed.siloFolder = value;
      } else {
         (option.name == "--collect" ? collected : left) = value;
      }
   }
   // In whatever order they were typed.
   if (!collected.empty()) {
      parsed.collectors.are(collected);
   }
   if (!left.empty()) {
      parsed.collectors.remove(left);
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
   text += "\nCollectors:";
   for (const std::string_view name : ZelMetrics::collectorNames) {
      text += (name == ZelMetrics::collectorNames.front() ? " " : ", ") + Kiln::String(name);
   }
   return text + "\n";
}

} // namespace ZelExporter
