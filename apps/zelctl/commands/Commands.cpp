// Sends each command to what carries it out.
#include "apps/zelctl/commands/Commands.h"

#include "agent/CommandRunner.h"
#include "agent/CommandSocket.h"
#include "apps/zelctl/commands/CommandWords.h"
#include "apps/zelctl/commands/Completion.h"
#include "apps/zelctl/commands/Filters.h"
#include "apps/zelctl/commands/Help.h"
#include "apps/zelctl/commands/WatchCommand.h"
#include "apps/zelctl/events/EventsView.h"
#include "apps/zelctl/history/HistoryCommand.h"
#include "apps/zelctl/terminal/Pager.h"
#include "apps/zelctl/terminal/Utf8.h"
#include "apps/zelctl/views/CountersDocument.h"
#include "apps/zelctl/views/MetricsView.h"
#include "apps/zelctl/views/RecordViewer.h"
#include "apps/zelctl/views/TopView.h"
#include "kiln/Choices.h"
#include "kiln/Time.h"
#include "vex/PublishedRecords.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <unistd.h>

namespace ZelCtl {

namespace {

using Kiln::String;
using Words = std::vector<String>;

// The line, with its first word written in full; the rest goes to the agent as it was typed.
String completed(const String& line, const Words& words, const String& command) {
   return command + line.substr(line.find(words.front()) + words.front().size());
}

// Of a terminal; a file has no limit.
std::size_t textWidth() {
   return isScreen() ? terminalSize().width : 0;
}

// An error is one line; a terminal gets it broken between words.
void printError(const String& error) {
   const std::size_t width = isatty(STDERR_FILENO) != 0 ? terminalSize().width : 0;
   for (const String& line : wrapped(error, width)) {
      std::cerr << line << '\n';
   }
}

// The agent lays its text out without knowing the terminal: longer lines are broken between words, and rulers cut.
String fitted(const String& text) {
   const std::size_t width = textWidth();
   if (width == 0) {
      return text;
   }
   String lines;
   for (std::size_t begin = 0; begin < text.size();) {
      const std::size_t end = std::min(text.find('\n', begin), text.size());
      const String line = text.substr(begin, end - begin);
      const bool isRuler = line.find_first_not_of('=') == String::npos;
      lines += isRuler ? cutTo(line, width) : Kiln::joined(wrapped(line, width), "\n");
      lines += end < text.size() ? "\n" : "";
      begin = end + 1;
   }
   return lines;
}

// How the output of a line is printed.
struct Printing {
   const std::vector<Filter>& filters;
   bool usesPager;
   Signals* signals;
};

int print(const String& text, const Printing& printing) {
   const auto [shown, notes] = filtered(printing.filters, text);
   // A reader that leaves early, such as head, has what it wanted.
   if ((printing.usesPager ? pageOut : writeOut)(shown, printing.signals) == Written::failed) {
      return complain(String("cannot write the answer: ") + std::strerror(errno));
   }
   std::cerr << notes;
   return carriedOut;
}

int askAgent(const Client& client, const String& line, bool isKnown, const Printing& printing) {
   Answer answer = client.ask(line, printing.signals);
   // Nothing is counted of a command that was refused.
   const bool hasText = answer.error.empty() || !answer.text.empty();
   // A filter looks at lines as they are, and within JSON no line may be broken.
   const bool isWhole = !printing.filters.empty() || answer.text.starts_with('{');
   if (hasText && print(isWhole ? answer.text : fitted(answer.text), printing) != carriedOut) {
      return refused;
   }
   if (answer.error.empty()) {
      return carriedOut;
   }
   if (!isKnown && answer.error.find("unknown command") != String::npos) {
      answer.error += ", or a command of zelctl itself: see 'zelctl help'";
   }
   printError(answer.error);
   return refused;
}

WatchRound fetchRound(const Client& client, const Words& words, Signals* signals, const Patience& patience) {
   try {
      if (isViewCommand(words.front())) {
         return {showRecords(words, client.store()), ""};
      }
      if (words.front() == topCommand) {
         return {showTop(words, client.store()), ""};
      }
      const String line = Kiln::joined(words, " ");
      const double asked = Kiln::System::monotonicTime();
      const Answer answer = client.ask(line + " json", signals, patience);
      if (answer.error.empty()) {
         return {readCountersDocument(answer.text, asked, Kiln::System::monotonicTime()), ""};
      }
      // The agent may blame the word 'json', which nobody typed. Asked without it, it names the real fault, if any.
      const bool blamesJson = answer.error.find("'json'") != String::npos;
      const String plain = blamesJson ? client.ask(line, signals, patience).error : "";
      return {{}, plain.empty() ? answer.error : plain};
   } catch (const std::exception& error) {
      return {{}, "% " + printable(error.what())};
   }
}

// What was meant by a line that the agent would refuse, though another command is just that; empty if there is none.
String misplaced(const Words& words, const String& command) {
   if (!isAgentCommand(command)) {
      return rightCommand(words);
   }
   const bool isShow = words.size() > 2 && String("show").starts_with(words[1]);
   const Words rest(words.begin() + (isShow ? 2 : 1), words.end());
   if (command != "counters" || rest.empty()) {
      return "";
   }
   const bool isPublished = isRecordCommand(rest.front()) && !isAgentShow(rest.front());
   if (isPublished || isLog(rest.front())) {
      return Kiln::joined(rest, " ");
   }
   const String right = isShow ? "" : rightCommand(rest);
   return right.starts_with("counters show " + rest.front()) ? right : "";
}

// Not at the prompt, signals are caught only by what goes on until one, so that other commands die of Ctrl-C as usual.
template <class Run>
int untilSignal(Signals* signals, Run run) {
   if (signals != nullptr) {
      return run(signals);
   }
   Signals own;
   return run(&own);
}

int watch(const Client& client, const WatchRequest& request, Signals* signals) {
   return untilSignal(signals, [&](Signals* caught) {
      return runWatch(
           request,
           [&](const Patience& patience) { return fetchRound(client, request.words, caught, patience); },
           caught);
   });
}

} // namespace

Answer Client::ask(const String& line, Signals* signals, const Patience& patience) const {
   return ZelCtl::ask(socketPath.empty() ? Agent::clientSocketPaths() : Words{socketPath}, line, signals,
                      patience);
}

Silo::Store Client::store() const {
   return siloFolder.empty() ? Silo::Store::sharedMemoryOfUserOrRoot(Silo::Interface::defaultTablePrefix,
                                                                     Silo::Interface::TableName::intfCounters)
                             : Silo::Store::directory(siloFolder);
}

int complain(std::string_view problem) {
   printError("% " + printable(problem));
   return refused;
}

int runLine(const Client& client, const String& line, Signals* signals) {
   try {
      Words words = Agent::splitWords(line);
      const bool asksForFilters = words.size() > 1 && words.back() == "?" && words[words.size() - 2] == "|";
      const FilteredLine split = asksForFilters ? FilteredLine{line, {}} : splitFilters(line);
      const Printing printing{split.filters, client.usesPager, signals};
      words = Agent::splitWords(split.command);
      if (words.empty()) {
         return complain("no command: 'zelctl help' lists them");
      }
      if (words.back().ends_with('?')) {
         const Words next = completionsOf(client, line.substr(0, line.rfind('?')));
         const bool needsAgent = next.empty() && isAgentCommand(commandNamed(words.front()));
         const String error =
              needsAgent ? client.ask("complete", signals, {.inAll = 1, .isSaid = false}).error : "";
         if (error.empty()) {
            const bool hasTimes = isRecordCommand(commandNamed(words.front()));
            const String before = hasTimes && words.size() > 2 ? words[words.size() - 2] : "";
            return print(helpOnNext(next, before), printing);
         }
         printError(error);
         return refused;
      }
      const String command = commandNamed(words.front());
      if (command == "help") {
         return print(helpOn(words), printing);
      }
      if (isLeaving(command) && words.size() == 1) {
         return carriedOut;
      }
      if (command == "watch") {
         if (!split.filters.empty()) {
            throw std::runtime_error("watch shows tables: leave out '|' and what follows it");
         }
         return watch(client, parseWatch(words), signals);
      }
      if (isViewCommand(command)) {
         words.front() = command;
         return print(viewRecords(words, client.store(), textWidth()), printing);
      }
      if (command == topCommand) {
         words.front() = command;
         const bool isLive = isScreen() && split.filters.empty() && !isTopJson(words);
         return isLive ? watch(client, {.words = words}, signals)
                       : print(viewTop(words, client.store(), textWidth()), printing);
      }
      if (command == eventsCommand) {
         if (!isFollowing(words, client.store())) {
            return print(viewEvents(words, client.store(), textWidth()), printing);
         }
         if (!split.filters.empty()) {
            throw std::runtime_error("follow goes on until it is stopped: leave out '|' and what follows it");
         }
         return untilSignal(signals, [&](Signals* caught) {
            return followEvents(words, client.store(), textWidth(), caught);
         });
      }
      if (command == historyCommand) {
         const Charset charset = showsUtf8() ? Charset::utf8 : Charset::ascii;
         return print(viewHistory(words, client.store(), textWidth(), charset), printing);
      }
      if (command == metricsCommand) {
         return print(viewMetrics(words, client.store()), printing);
      }
      if (const String right = misplaced(words, command); !right.empty()) {
         return complain("unknown command " + Kiln::quoted(Kiln::joined(words, " ")) + ": try: " + right);
      }
      return askAgent(client, completed(split.command, words, command), isAgentCommand(command), printing);
   } catch (const std::exception& error) {
      return complain(error.what());
   }
}

} // namespace ZelCtl
