// zelctl: sends diagnostic commands to the agent, prints its answers, and shows what the agent publishes.
#include "apps/zelctl/commands/Completion.h"
#include "apps/zelctl/commands/Usage.h"
#include "apps/zelctl/prompt/Prompt.h"
#include "kiln/MappedFault.h"

#include <algorithm>
#include <csignal>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <unistd.h>

namespace {

struct Options {
   ZelCtl::Client client;
   Kiln::String line;                          // the command
   std::optional<Kiln::String> unfinishedLine; // to complete
   bool ends = false;                          // an option was wrong, or has done all that was asked for
   int status = ZelCtl::carriedOut;

   void endsIs(int endStatus) {
      ends = true;
      status = endStatus;
   }
};

constexpr const char* optionNames[] = {"--socket",   "--silo", "--no-pager",
                                       "--complete", "--help", "--version"};

// Names the option's value in errors.
Kiln::String valueOf(std::string_view option) {
   return option == "--socket" ? "the path of the agent's socket"
          : option == "--silo" ? "the folder of the shared tables"
                               : "the line to complete";
}

// One option of the command line, and its value where '=' joins it to the option.
struct Argument {
   explicit Argument(const Kiln::String& text)
        : option(text.substr(0, text.find('='))), hasValue(option.size() < text.size()),
          value(hasValue ? text.substr(option.size() + 1) : "") {}

   bool isTaken() const { return std::ranges::find(optionNames, option) != std::end(optionNames); }
   bool takesValue() const { return option == "--socket" || option == "--silo" || option == "--complete"; }

   Kiln::String option;
   bool hasValue;
   Kiln::String value;
};

void take(const Argument& argument, Options* options) {
   if (argument.takesValue() && argument.value.empty() && argument.option != "--complete") {
      options->endsIs(ZelCtl::complain(argument.option + " needs " + valueOf(argument.option)));
   } else if (!argument.takesValue() && argument.hasValue) {
      options->endsIs(ZelCtl::complain(argument.option + " takes no value"));
   } else if (argument.option == "--no-pager") {
      options->client.usesPager = false;
   } else if (!argument.takesValue()) {
      std::cout << (argument.option == "--help" ? ZelCtl::helpText() : "zelctl " ZEL_VERSION "\n");
      options->endsIs(ZelCtl::carriedOut);
   } else if (argument.option == "--complete") {
      options->unfinishedLine = argument.value;
   } else {
      (argument.option == "--socket" ? options->client.socketPath : options->client.siloFolder) =
           argument.value;
   }
}

// Options may stand before the command or after it.
Options parseOptions(int argc, char** argv) {
   Options options;
   for (int i = 1; i < argc && !options.ends; ++i) {
      const Kiln::String word = argv[i];
      if (!word.starts_with('-')) {
         options.line += (options.line.empty() ? "" : " ") + word;
         continue;
      }
      Argument argument(word);
      if (!argument.isTaken()) {
         options.endsIs(
              ZelCtl::complain("unknown option '" + argument.option +
                               "': expected --socket, --silo, --no-pager, --complete, --help or --version"));
      } else if (argument.takesValue() && !argument.hasValue && i + 1 == argc) {
         options.endsIs(ZelCtl::complain(argument.option + " needs " + valueOf(argument.option)));
      } else {
         if (argument.takesValue() && !argument.hasValue) {
            argument.value = argv[++i];
         }
         take(argument, &options);
      }
   }
   return options;
}

int complete(const Options& options) {
   const Kiln::String& line = *options.unfinishedLine;
   const Kiln::String word = line.substr(line.find_last_of(' ') + 1);
   if (word.starts_with('-')) {
      for (const Kiln::String option : optionNames) {
         std::cout << (option.starts_with(word) ? option + "\n" : "");
      }
      return ZelCtl::carriedOut;
   }
   try {
      for (const Kiln::String& candidate : ZelCtl::completionsOf(options.client, line)) {
         std::cout << candidate << '\n';
      }
   } catch (const std::runtime_error& error) {
      return ZelCtl::complain(error.what());
   }
   return ZelCtl::carriedOut;
}

} // namespace

int main(int argc, char** argv) {
   // A reader of the output that leaves early shows up as a failed write, which is no error here.
   std::signal(SIGPIPE, SIG_IGN);
   Kiln::surviveMappedFaults();
   const Options options = parseOptions(argc, argv);
   if (options.ends) {
      return options.status;
   }
   if (options.unfinishedLine) {
      return complete(options);
   }
   if (options.line.empty()) {
      if (isatty(STDIN_FILENO) != 0) {
         return ZelCtl::runPrompt(options.client);
      }
      return ZelCtl::complain("no command: 'zelctl help' lists them");
   }
   if (options.line.find('\n') != Kiln::String::npos) {
      return ZelCtl::complain("a command is a single line: leave out the line break");
   }
   return ZelCtl::runLine(options.client, options.line, nullptr);
}
