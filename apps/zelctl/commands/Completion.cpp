// Completes the client's own commands here, and asks the agent about its own.
#include "apps/zelctl/commands/Completion.h"

#include "agent/CommandRunner.h"
#include "apps/zelctl/commands/CommandWords.h"
#include "apps/zelctl/commands/Filters.h"
#include "apps/zelctl/commands/Help.h"
#include "apps/zelctl/events/EventsRequest.h"
#include "apps/zelctl/history/HistoryRequest.h"
#include "apps/zelctl/terminal/Utf8.h"
#include "apps/zelctl/views/MetricsView.h"
#include "apps/zelctl/views/RecordRequest.h"
#include "apps/zelctl/views/RecordViewer.h"
#include "apps/zelctl/views/TopView.h"
#include "kiln/Choices.h"
#include "kiln/Name.h"
#include "kiln/NameChoice.h"
#include "kiln/Numbers.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace ZelCtl {

namespace {

using Kiln::String;
using Words = std::vector<String>;

// Candidates of an agent that ended while it answered: there may be more.
struct CutAnswer : std::runtime_error {
   using runtime_error::runtime_error;
};

// The agent answers with one word a line.
Words fromAgent(const Client& client, const String& line) {
   const Answer answer = client.ask("complete " + line, nullptr, {.inAll = 1, .isSaid = false});
   if (answer.isCut) {
      throw CutAnswer(answer.error.substr(2)); // without its "% "
   }
   Words all;
   std::istringstream lines(answer.text);
   for (String word; std::getline(lines, word);) {
      all.push_back(word);
   }
   return all;
}

// The words that may follow `before`; the agent names those that begin with `partial` only.
Words follow(const Client& client, Words before, const String& partial) {
   if (before.empty()) {
      return allCommands();
   }
   if (std::ranges::any_of(before, [](const String& word) { return word.starts_with('|'); })) {
      return before.back() == "|" ? filterNames() : Words();
   }
   before.front() = commandNamed(before.front());
   if (before.front() == "watch") {
      before.erase(before.begin());
      if (!before.empty() && Kiln::parseDecimal(before.front(), std::numeric_limits<double>::max())) {
         before.erase(before.begin());
      }
      // Words that a watch would refuse are not offered.
      Words shows = before.empty() ? showCommands() : follow(client, before, partial);
      std::erase_if(shows, [](const String& word) {
         return word == "clear" || word == "json" || word == "rates" || word == "since";
      });
      return shows;
   }
   if (isViewCommand(before.front())) {
      return viewCandidates(before, partial, client.store());
   }
   if (before.front() == topCommand) {
      return topCandidates(before);
   }
   if (before.front() == eventsCommand) {
      return eventsCandidates(before, partial, client.store());
   }
   if (before.front() == historyCommand) {
      return historyCandidates(before, partial, client.store());
   }
   if (before.front() == metricsCommand) {
      return metricsCandidates(before, partial);
   }
   if (before.front() == "help") {
      return before.size() == 1 ? helpTopics() : Words();
   }
   if (!isAgentCommand(before.front())) {
      return {};
   }
   const String line = Kiln::joined(before, " ") + " ";
   Words words = fromAgent(client, line + partial);
   if (words.empty() && isInterfaceWord(before.back(), {})) {
      words = Kiln::continuedNames(partial, fromAgent(client, line));
   }
   return words;
}

} // namespace

Words completionsOf(const Client& client, const String& line) {
   Words before = Agent::splitWords(line);
   String partial;
   if (!before.empty() && line.back() != ' ') {
      partial = before.back();
      before.pop_back();
   }
   Words all;
   try {
      all = follow(client, before, partial);
   } catch (const CutAnswer&) {
      throw;
   } catch (const std::exception&) { // an ambiguous word, or no table: there is nothing to offer
   }
   std::erase_if(all, [&](const String& word) {
      return word.empty() || !word.starts_with(partial) || printable(word) != word;
   });
   // Keywords come before names, which are numbered, and may fill the screen.
   const auto isName = [](const String& word) { return word.find_first_of("0123456789") != String::npos; };
   std::ranges::sort(all, [&](const String& a, const String& b) {
      return isName(a) != isName(b) ? isName(b) : Kiln::naturalCompare(a, b) < 0;
   });
   all.erase(std::unique(all.begin(), all.end()), all.end());
   return all;
}

} // namespace ZelCtl
