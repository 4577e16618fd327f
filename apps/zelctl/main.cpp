// zelctl: sends diagnostic commands to the agent and prints its answers, and shows what the agent publishes.
#include "AgentConnection.h"
#include "RecordViewer.h"
#include "agent/CommandRunner.h"
#include "agent/CommandSocket.h"
#include "vex/PublishedRecords.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string_view>
#include <unistd.h>

namespace {

constexpr const char* usage = R"(Usage: zelctl [OPTION]... COMMAND [WORD]...
       zelctl [OPTION]...        a prompt, on a terminal

Asks the running zelagent. Keywords may be shortened while they stay clear.

   counters show mac [intf NAME]             MAC counters of every port, or of one, since the last clear
   counters show drop [interface NAME]       what ports dropped, by reason
   counters show mau-deparser-drop [intf NAME]   where in the pipeline it was dropped
   counters show pipeline [stage NAME]       packets in, out and dropped by pipeline stage
   counters show traffic-manager             buffers, drops and totals of the traffic manager
   counters show pdp [intf NAME]             packets by class
   counters show table [ID|NAME] [pipe N]    a P4 counter table, or all of them
   counters show info                        which counter tables there are
   counters show                             nearly all of the above
   counters clear [table|mac|pdp|pipeline|drop|mau-deparser-drop|traffic-manager]
                                             these views restart from zero; a table's hardware does

   chip NAME       one chip only, as in 'counters chip Zel1 show mac'
   nonzero         leaves out what is 0

Shows what the agent publishes, straight from the shared tables, also when no agent runs.

)";

constexpr const char* usageEnd = R"(
   INTF            only these interfaces; 'interfaces' shows every counter of those that are named
   rates           per second, in the last polling interval
   errors          errors and discards, and steps too big for the port's speed ("suspect")
   raw             the counters as the chip has them, which wrap and may jump, instead of vetted totals
   json            for programs; every number is an integer

Options

   --socket PATH   the agent's socket; else $ZEL_SOCKET; else zelagent/socket below $XDG_RUNTIME_DIR,
                   below /run for root, else /tmp/zelagent-UID/socket
   --silo DIR      the shared tables are in files there; else in the machine's shared memory
   --help          prints this
   --version       prints the version

A command that is refused prints one line on standard error, beginning "% ", and ends with status 1.
)";

Kiln::String help() {
   return usage + ZelCtl::viewCommandsHelp() + usageEnd;
}

enum ExitStatus { carriedOut = 0, refused = 1 };

void complain(std::string_view line) {
   std::cerr << line << '\n';
}

// False, quietly, when the reader has gone.
bool print(std::string_view text) {
   while (!text.empty()) {
      const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
      if (written >= 0) {
         text.remove_prefix(static_cast<std::size_t>(written));
      } else if (errno != EINTR) {
         if (errno != EPIPE) {
            complain(Kiln::String("% cannot write the answer: ") + std::strerror(errno));
         }
         return errno == EPIPE;
      }
   }
   return true;
}

struct Options {
   Kiln::String socketPath = Agent::defaultSocketPath();
   Kiln::String siloFolder{}; // empty: the machine's shared memory
   Kiln::String line{};       // the command
   bool ends = false;         // what was asked for is done, or wrong
   int status = carriedOut;
};

ZelCtl::Answer view(const Options& options, const std::vector<Kiln::String>& words) {
   try {
      const Silo::Store store = options.siloFolder.empty()
                                     ? Silo::Store::sharedMemory(Silo::Interface::defaultTablePrefix)
                                     : Silo::Store::directory(options.siloFolder);
      return {ZelCtl::viewRecords(words, store), ""};
   } catch (const std::exception& error) {
      return {"", Kiln::String("% ") + error.what()};
   }
}

int runCommand(const Options& options, const Kiln::String& line) {
   const std::vector<Kiln::String> words = Agent::splitWords(line);
   const ZelCtl::Answer answer = !words.empty() && ZelCtl::isViewCommand(words.front())
                                      ? view(options, words)
                                      : ZelCtl::ask(options.socketPath, line);
   if (!print(answer.text)) {
      return refused;
   }
   if (!answer.error.empty()) {
      complain(answer.error);
      return refused;
   }
   return carriedOut;
}

int runPrompt(const Options& options) {
   std::cout << "zelctl: 'help' lists the commands, 'quit' or Ctrl-D leaves\n";
   for (Kiln::String line; std::cout << "zel> " << std::flush && std::getline(std::cin, line);) {
      if (line == "quit" || line == "exit") {
         return carriedOut;
      }
      if (line == "help") {
         std::cout << help();
      } else if (line.find_first_not_of(" \t\r") != Kiln::String::npos) {
         runCommand(options, line);
      }
   }
   std::cout << '\n';
   return carriedOut;
}

Options fail(const Kiln::String& line) {
   complain("% " + line);
   return {.socketPath = "", .ends = true, .status = refused};
}

// Options may stand before the command or after it.
Options parseOptions(int argc, char** argv) {
   Options options;
   for (int i = 1; i < argc; ++i) {
      const std::string_view word = argv[i];
      if (word.substr(0, 1) != "-") {
         options.line += (options.line.empty() ? "" : " ") + Kiln::String(word);
         continue;
      }
      if (word == "--help" || word == "--version") {
         print(word == "--help" ? help() : "zelctl " ZEL_VERSION "\n");
         options.ends = true;
         return options;
      }
      if (word != "--socket" && word != "--silo") {
         return fail("unknown option '" + Kiln::String(word) +
                     "': expected --socket, --silo, --help or --version");
      }
      if (++i == argc) {
         return fail(word == "--socket" ? "--socket needs the path of the agent's socket"
                                        : "--silo needs the folder of the shared tables");
      }
      (word == "--socket" ? options.socketPath : options.siloFolder) = argv[i];
   }
   return options;
}

} // namespace

int main(int argc, char** argv) {
   std::signal(SIGPIPE, SIG_IGN);
   const Options options = parseOptions(argc, argv);
   if (options.ends) {
      return options.status;
   }
   if (options.line.empty()) {
      if (isatty(STDIN_FILENO) != 0) {
         return runPrompt(options);
      }
      return fail("no command: expected counters and keywords; 'zelctl --help' lists them").status;
   }
   if (options.line.find('\n') != Kiln::String::npos) {
      return fail("a command is one line: leave out the line break").status;
   }
   return runCommand(options, options.line);
}
