// zelctl: sends diagnostic commands to the agent and prints its answers.
#include "AgentConnection.h"
#include "agent/CommandSocket.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string_view>
#include <unistd.h>

namespace {

constexpr const char* usage = R"(Usage: zelctl [--socket PATH] counters [chip NAME] KEYWORD...
       zelctl [--socket PATH]        a prompt, on a terminal

Asks the running zelagent for its counters. Keywords may be shortened while they stay clear.

   counters show mac [nonzero]               MAC counters of every port since the last clear
   counters show mac intf NAME [nonzero]     of one port
   counters clear mac                        these views restart from zero

   chip NAME       one chip only, as in 'counters chip Zel1 show mac'
   nonzero         leaves out what is 0

   --socket PATH   the agent's socket; else $ZEL_SOCKET; else zelagent/socket below $XDG_RUNTIME_DIR,
                   below /run for root, else /tmp/zelagent-UID/socket
   --help          prints this
   --version       prints the version

A command that is refused prints one line on standard error, beginning "% ", and ends with status 1.
)";

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

int runCommand(const Kiln::String& socketPath, const Kiln::String& line) {
   const ZelCtl::Answer answer = ZelCtl::ask(socketPath, line);
   if (!print(answer.text)) {
      return refused;
   }
   if (!answer.error.empty()) {
      complain(answer.error);
      return refused;
   }
   return carriedOut;
}

int runPrompt(const Kiln::String& socketPath) {
   std::cout << "zelctl: 'help' lists the commands, 'quit' or Ctrl-D leaves\n";
   for (Kiln::String line; std::cout << "zel> " << std::flush && std::getline(std::cin, line);) {
      if (line == "quit" || line == "exit") {
         return carriedOut;
      }
      if (line == "help") {
         std::cout << usage;
      } else if (line.find_first_not_of(" \t\r") != Kiln::String::npos) {
         runCommand(socketPath, line);
      }
   }
   std::cout << '\n';
   return carriedOut;
}

struct Options {
   Kiln::String socketPath = Agent::defaultSocketPath();
   int firstWord = 1; // of the command
   bool ends = false; // what was asked for is done, or wrong
   int status = carriedOut;
};

Options fail(const Kiln::String& line) {
   complain("% " + line);
   return {"", 0, true, refused};
}

Options parseOptions(int argc, char** argv) {
   Options options;
   for (; options.firstWord < argc && argv[options.firstWord][0] == '-'; ++options.firstWord) {
      const std::string_view option = argv[options.firstWord];
      if (option == "--help" || option == "--version") {
         print(option == "--help" ? usage : "zelctl " ZEL_VERSION "\n");
         options.ends = true;
         return options;
      }
      if (option != "--socket") {
         return fail("unknown option '" + Kiln::String(option) + "': expected --socket, --help or --version");
      }
      if (++options.firstWord == argc) {
         return fail("--socket needs the path of the agent's socket");
      }
      options.socketPath = argv[options.firstWord];
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
   if (options.firstWord == argc) {
      if (isatty(STDIN_FILENO) != 0) {
         return runPrompt(options.socketPath);
      }
      return fail("no command: expected counters and keywords; 'zelctl --help' lists them").status;
   }
   Kiln::String line;
   for (int i = options.firstWord; i < argc; ++i) {
      line += (line.empty() ? "" : " ") + Kiln::String(argv[i]);
   }
   if (line.find('\n') != Kiln::String::npos) {
      return fail("a command is one line: leave out the line break").status;
   }
   return runCommand(options.socketPath, line);
}
