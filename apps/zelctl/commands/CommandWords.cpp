// The one list of first words: commands are run, completed and refused by it.
#include "apps/zelctl/commands/CommandWords.h"

#include "apps/zelctl/views/RecordRequest.h"
#include "kiln/Choices.h"

#include <stdexcept>

namespace ZelCtl {

using Kiln::String;

std::vector<String> showCommands() {
   std::vector<String> all{"counters"};
   for (const View& view : views()) {
      all.emplace_back(view.command);
   }
   return all;
}

std::vector<String> allCommands() {
   std::vector<String> all = showCommands();
   all.insert(all.end(), {"log", "ringlog", "watch", "help", "quit", "exit"});
   return all;
}

bool isAgentCommand(const String& command) {
   return command == "counters" || command == "log" || command == "ringlog";
}

bool isLeaving(const String& command) {
   return command == "quit" || command == "exit";
}

String commandNamed(const String& word) {
   std::vector<String> meant;
   for (const String& command : allCommands()) {
      if (command == word) {
         return command;
      }
      if (command.starts_with(word)) {
         meant.push_back(command);
      }
   }
   if (meant.size() > 1) {
      throw std::runtime_error(Kiln::quoted(word) + " is ambiguous: expected " + Kiln::choices(meant));
   }
   return meant.empty() ? word : meant.front();
}

} // namespace ZelCtl
