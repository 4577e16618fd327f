// The prompt with line editing, history and completion, and the plain one.
#include "apps/zelctl/prompt/Prompt.h"

#include "agent/CommandRunner.h"
#include "apps/zelctl/commands/CommandWords.h"
#include "apps/zelctl/commands/Completion.h"
#include "apps/zelctl/prompt/LineEditor.h"
#include "apps/zelctl/terminal/Terminal.h"

#include <iostream>
#include <optional>

namespace ZelCtl {

namespace {

using Kiln::String;

constexpr const char* greeting = "zelctl: 'help' lists the commands, 'quit' or Ctrl-D leaves";
constexpr const char* prompt = "zel> ";

String trimmed(const String& line) {
   const std::size_t begin = line.find_first_not_of(" \t\r");
   return begin == String::npos ? "" : line.substr(begin, line.find_last_not_of(" \t\r") + 1 - begin);
}

bool leaves(const String& line) {
   const std::vector<String> words = Agent::splitWords(line);
   try {
      return words.size() == 1 && isLeaving(commandNamed(words.front()));
   } catch (const std::exception&) { // ambiguous
      return false;
   }
}

std::vector<String> candidatesFor(const Client& client, const String& unfinished) {
   try {
      return completionsOf(client, unfinished);
   } catch (const std::runtime_error&) { // the next command says that the agent is gone
      return {};
   }
}

int runEditedPrompt(const Client& client) {
   Signals signals;
   History history(History::defaultPath());
   LineEditor editor(prompt, &signals, &history,
                     [&](const String& unfinished) { return candidatesFor(client, unfinished); });
   writeOut(String(greeting) + "; Tab completes\n", nullptr);
   if (!history.problem().empty()) {
      complain("history is not kept: " + history.problem());
   }
   for (;;) {
      std::optional<String> line = editor.readLine();
      if (line) {
         line = trimmed(*line);
      }
      if (!line || leaves(*line)) {
         const int signal = signals.ending();
         return signal != 0 ? 128 + signal : int(carriedOut);
      }
      if (!line->empty()) {
         history.add(*line);
         runLine(client, *line, &signals);
         signals.takeInterrupt(); // a Ctrl-C meant for the command must not drop the next line
      }
   }
}

int runPlainPrompt(const Client& client) {
   std::cout << greeting << '\n';
   for (String line; std::cout << prompt << std::flush && std::getline(std::cin, line);) {
      line = trimmed(line);
      if (leaves(line)) {
         return carriedOut;
      }
      if (!line.empty()) {
         runLine(client, line, nullptr);
      }
   }
   std::cout << '\n';
   return carriedOut;
}

} // namespace

int runPrompt(const Client& client) {
   return isScreen() ? runEditedPrompt(client) : runPlainPrompt(client);
}

} // namespace ZelCtl
