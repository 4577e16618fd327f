// Diagnostic commands: who answers them, and the directory through which the agent finds them.
#pragma once

#include "kiln/Collections.h"
#include "kiln/Entity.h"
#include "kiln/Name.h"

#include <vector>

namespace Agent {

// The outcome of a command. An error is one line, without its newline and the leading "% ", that says what is wrong and
// what is expected instead; empty when the command was carried out.
struct CommandResult {
   Kiln::String error;
   bool ok() const { return error.empty(); }
};

// Answers the commands of one type. Under the activity lock, which a command that takes long may give up in between: then
// others, of this object too, may run on other threads. So nothing of a command is kept in here.
class AgentCommandCallback : public Kiln::PtrInterface {
 public:
   AgentCommandCallback(Kiln::Name name, Kiln::String commandType)
        : name_(name), commandType_(std::move(commandType)) {}

   const Kiln::Name& name() const { return name_; }
   const Kiln::String& commandType() const { return commandType_; }

   // Carries out the words after the command's own name. Writes its text to fd, which it does not own and which never
   // blocks. Answers whatever the words are, and throws nothing.
   virtual CommandResult command(const std::vector<Kiln::String>& words, int fd) = 0;
   // Whether carrying out these words would change anything. False for words that are refused anyway.
   virtual bool changes(const std::vector<Kiln::String>& /*words*/) const { return true; }
   // The words that may follow these; none if these do not begin a command.
   virtual std::vector<Kiln::String> completions(const std::vector<Kiln::String>& /*words*/) const {
      return {};
   }

 private:
   Kiln::Name name_;
   Kiln::String commandType_;
};

// The directory of command requests: finds the callback for a type of request.
class AgentCommandRequestDirSm : public Kiln::Entity {
 public:
   // One callback per command type; a later one of the same type replaces it. Throws std::invalid_argument for a null
   // pointer.
   void agentCommandCallbackIs(Kiln::Ptr<AgentCommandCallback> callback);
   // Null if nobody answers that type.
   Kiln::Ptr<AgentCommandCallback> agentCommandCallback(const Kiln::String& commandType) const;

 private:
   Kiln::HashMap<Kiln::String, Kiln::Ptr<AgentCommandCallback>> callbacks_;
};

} // namespace Agent
