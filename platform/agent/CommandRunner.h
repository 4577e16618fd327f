// From a line of text to the callback that answers it: the first word chooses the command type, the rest goes
// to the callback. The channel and the scenario console both run their commands through here.
#pragma once

#include "agent/AgentCommand.h"
#include "agent/CommandSpool.h"

#include <string_view>

namespace Agent {

// The words of a line, separated by blanks.
std::vector<Kiln::String> splitWords(std::string_view line);

// The text with '?' for what is no printable character. An error echoes words that may hold anything; what
// reaches a terminal may not.
Kiln::String printableLine(Kiln::String text);

class CommandRunner : public Kiln::PtrInterface {
 public:
   explicit CommandRunner(Kiln::Ptr<AgentCommandRequestDirSm> directory) : directory_(std::move(directory)) {}

   // Lines that begin with `keyword` go to the callback of that type.
   void commandTypeIs(const Kiln::String& keyword, Kiln::String commandType);

   // "complete LINE" answers with the words that LINE may go on with, one a line: with all of them after a blank,
   // else with those that begin as its last word does. A line that none may follow gets none, and no error.
   //
   // Activity thread, under the activity lock. The text goes to the spool; one that fills it ends with an
   // error. An error is one printable line; nothing is thrown.
   CommandResult run(std::string_view line, const CommandSpool& spool) const;

 private:
   std::vector<Kiln::String> keywords() const;
   Kiln::String expectedKeywords() const;
   std::vector<Kiln::String> completions(std::vector<Kiln::String> words) const;
   void completeLine(std::string_view line, int fd) const;
   CommandResult runWords(std::vector<Kiln::String> words, int fd) const;

   Kiln::Ptr<AgentCommandRequestDirSm> directory_;
   Kiln::OrderedMap<Kiln::String, Kiln::String> commandTypes_; // by keyword
};

} // namespace Agent
