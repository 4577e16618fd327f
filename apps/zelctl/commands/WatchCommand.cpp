// Checks what may be watched, and how often.
#include "apps/zelctl/commands/WatchCommand.h"

#include "apps/zelctl/commands/CommandWords.h"
#include "apps/zelctl/commands/Help.h"
#include "kiln/Choices.h"
#include "kiln/Numbers.h"

#include <algorithm>
#include <stdexcept>

namespace ZelCtl {

namespace {

using Kiln::String;

constexpr double shortest = 0.1; // seconds
constexpr double longest = 3600;

bool abbreviates(const String& word, std::string_view keyword, std::size_t least = 1) {
   return word.size() >= least && keyword.starts_with(word);
}

// Accepts only what is certain to be a show. The agent cannot check this: a clear that is sent to it is carried out.
void checkCounters(const std::vector<String>& words) {
   std::size_t at = 1;
   if (at < words.size() && abbreviates(words[at], "chip", 2)) {
      at += 2;
   }
   if (at >= words.size()) {
      throw std::runtime_error("the command to watch is incomplete: expected show after " +
                               Kiln::quoted(Kiln::joined(words, " ")));
   }
   if (abbreviates(words[at], "clear")) {
      throw std::runtime_error("watch repeats shows only, and " + Kiln::quoted(Kiln::joined(words, " ")) +
                               " clears: expected counters show ...");
   }
   if (!abbreviates(words[at], "show")) {
      throw std::runtime_error("unexpected " + Kiln::quoted(words[at]) +
                               ": expected a show to watch, as in 'watch counters show drop nonzero'");
   }
   for (++at; at < words.size(); ++at) {
      if (abbreviates(words[at], "json")) {
         throw std::runtime_error("watch shows tables: leave out " + Kiln::quoted(words[at]));
      }
   }
}

} // namespace

WatchRequest parseWatch(const std::vector<String>& words) {
   WatchRequest request;
   std::size_t at = 1;
   if (at < words.size() && words[at].find_first_of("-+.0123456789") == 0) {
      const std::optional<double> interval = Kiln::parseDecimal(words[at], longest);
      if (!interval || *interval < shortest) {
         throw std::runtime_error("invalid watch interval " + Kiln::quoted(words[at]) +
                                  ": expected 0.1 to 3600 seconds");
      }
      request.interval = *interval;
      ++at;
   }
   request.words.assign(words.begin() + static_cast<std::ptrdiff_t>(std::min(at, words.size())), words.end());
   const std::vector<String> shows = showCommands();
   if (request.words.empty()) {
      throw std::runtime_error("watch needs a show: expected " + Kiln::choices(shows));
   }
   String& command = request.words.front();
   command = commandNamed(command);
   if (command == shows.front()) {
      checkCounters(request.words);
   } else if (isAgentCommand(command)) {
      throw std::runtime_error("watch shows counts, which a log has none of: try: " +
                               Kiln::joined(request.words, " "));
   } else if (std::ranges::find(shows, command) == shows.end()) {
      const String right = rightCommand(request.words);
      if (!right.empty() && std::ranges::find(shows, right.substr(0, right.find(' '))) != shows.end()) {
         throw std::runtime_error("cannot watch " + Kiln::quoted(command) + ": try: watch " + right);
      }
      throw std::runtime_error("cannot watch " + Kiln::quoted(command) + ": expected " +
                               (at == 1 ? "seconds or " : "") + Kiln::choices(shows));
   }
   return request;
}

} // namespace ZelCtl
