// The one list of first words: commands are run, completed and refused by it.
#include "apps/zelctl/commands/CommandWords.h"

#include "apps/zelctl/events/EventsRequest.h"
#include "apps/zelctl/history/HistoryRequest.h"
#include "apps/zelctl/views/MetricsView.h"
#include "apps/zelctl/views/RecordRequest.h"
#include "apps/zelctl/views/TopView.h"
#include "kiln/Choices.h"

#include <stdexcept>

namespace ZelCtl {

using Kiln::String;

std::vector<String> showCommands() {
   std::vector<String> all{"counters"};
   for (const View& view : views()) {
      all.emplace_back(view.command);
   }
   all.emplace_back(topCommand);
   return all;
}

std::vector<String> allCommands() {
   std::vector<String> all = showCommands();
   all.insert(all.end(), {eventsCommand, historyCommand, metricsCommand, "log", "ringlog", "watch", "help",
                          "quit", "exit"});
   return all;
}

bool isRecordCommand(const String& command) {
   return viewNamed(command) != nullptr || command == topCommand || command == eventsCommand ||
          command == historyCommand || command == metricsCommand;
}

bool isAgentCommand(const String& command) {
   return command == "counters" || isLog(command);
}

bool isLog(const String& command) {
   return command == "log" || command == "ringlog";
}

bool isLeaving(const String& command) {
   return command == "quit" || command == "exit";
}

String commandNamed(const String& word) {
   // The table of ports has the name of its rows, too.
   if (Kiln::wordsMeant(word, {"intf", "interfaces"}) == std::vector<String>{"intf"}) {
      return "interfaces";
   }
   const std::vector<String> meant = Kiln::wordsMeant(word, allCommands());
   if (meant.size() > 1) {
      throw std::runtime_error(Kiln::quoted(word) + " is ambiguous: expected " + Kiln::choices(meant));
   }
   return meant.empty() ? word : meant.front();
}

} // namespace ZelCtl
