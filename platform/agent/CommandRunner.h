// Runs a line of text: its first word chooses the command type, and the callback of that type gets the rest. The
// channel and the scenario console both run their commands here.
#pragma once

#include "agent/AgentCommand.h"
#include "agent/CommandSpool.h"

#include <string_view>

namespace Agent {

// The words of a line, separated by blanks.
std::vector<Kiln::String> splitWords(std::string_view line);

class CommandRunner : public Kiln::PtrInterface {
 public:
   explicit CommandRunner(Kiln::Ptr<AgentCommandRequestDirSm> directory) : directory_(std::move(directory)) {}

   // Lines that begin with `keyword` go to the callback of that type.
   void commandTypeIs(const Kiln::String& keyword, Kiln::String commandType);

   // "complete LINE" answers with the words that may come next, one per line: after a blank all of them, else those
   // that begin like LINE's last word. No word and no error if none may follow.
   //
   // Activity thread, under the activity lock. The text goes to the spool; a command that fills it ends with an error.
   // An error is one printable line. Nothing is thrown. `who` gave the command, as agent/CommandOrigin.h has it.
   CommandResult run(std::string_view line, const CommandSpool& spool, const Kiln::String& who) const;

   // Whether running the line would change anything, as its callback says. Under the same conditions.
   bool changes(std::string_view line) const;

 private:
   std::vector<Kiln::String> keywords() const;
   Kiln::Ptr<AgentCommandCallback> callbackFor(const Kiln::String& keyword) const;
   Kiln::String expectedKeywords() const;
   std::vector<Kiln::String> completions(std::vector<Kiln::String> words) const;
   void completeLine(std::string_view line, int fd) const;
   CommandResult runWords(std::vector<Kiln::String> words, int fd) const;

   Kiln::Ptr<AgentCommandRequestDirSm> directory_;
   Kiln::OrderedMap<Kiln::String, Kiln::String> commandTypes_; // by keyword
};

} // namespace Agent
