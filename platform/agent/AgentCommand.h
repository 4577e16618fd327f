// Diagnostic commands: who answers them, and the directory through which the agent finds them.
#pragma once

#include "kiln/Collections.h"
#include "kiln/Entity.h"
#include "kiln/Name.h"

#include <vector>

namespace Agent {

// What became of a command. An error is one line without its newline and without the leading "% ": what is
// wrong and what is expected instead; empty when the command was carried out.
struct CommandResult {
   Kiln::String error;
   bool ok() const { return error.empty(); }
};

// Answers the commands of one type. Activity thread, under the activity lock.
class AgentCommandCallback : public Kiln::PtrInterface {
 public:
   AgentCommandCallback(Kiln::Name name, Kiln::String commandType)
        : name_(name), commandType_(std::move(commandType)) {}

   const Kiln::Name& name() const { return name_; }
   const Kiln::String& commandType() const { return commandType_; }

   // Carries out the words after the command's own name. It writes its text to fd, which it does not own and
   // which never blocks. Whatever the words are, it answers; it throws nothing.
   virtual CommandResult command(const std::vector<Kiln::String>& words, int fd) = 0;
   // What the word after these may be, in full; nothing when they are no beginning of a command.
   virtual std::vector<Kiln::String> completions(const std::vector<Kiln::String>& /*words*/) const {
      return {};
   }

 private:
   Kiln::Name name_;
   Kiln::String commandType_;
};

// The directory of command requests: hands a request to the callback of its type.
class AgentCommandRequestDirSm : public Kiln::Entity {
 public:
   // One callback a command type; a later one of the same type takes its place. A null pointer is a
   // std::invalid_argument.
   void agentCommandCallbackIs(Kiln::Ptr<AgentCommandCallback> callback);
   // Null when nobody answers that type.
   Kiln::Ptr<AgentCommandCallback> agentCommandCallback(const Kiln::String& commandType) const;

 private:
   Kiln::HashMap<Kiln::String, Kiln::Ptr<AgentCommandCallback>> callbacks_;
};

} // namespace Agent
